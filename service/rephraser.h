// Rephrasing through an OpenAI-compatible chat-completions endpoint (a hosted model or a local
// server such as llama.cpp or Ollama). Its answers are untrusted input like any other.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mirlo::service {

struct RephraseConfig {
  std::string baseUrl;  // e.g. https://api.example.com/v1 ; "/chat/completions" is appended
  std::string apiKey;   // sent as a bearer token when not empty
  std::string model;
  // Well under the program's own 15 s: past it the program has given up, so the correction would
  // be counted and never seen.
  long timeoutSeconds = 10;
  bool configured() const { return !baseUrl.empty() && !model.empty(); }
};

class Rephraser {
 public:
  explicit Rephraser(RephraseConfig config) : config_(std::move(config)) {}
  bool configured() const { return config_.configured(); }
  // The rephrased text, or nothing when the endpoint failed, answered something unusable, or took
  // longer than its time (then `overBudget`, when given, is set).
  std::optional<std::string> rephrase(std::string_view text, bool* overBudget = nullptr) const;

 private:
  RephraseConfig config_;
};

}  // namespace mirlo::service
