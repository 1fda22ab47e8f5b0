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
  long timeoutSeconds = 30;
  bool configured() const { return !baseUrl.empty() && !model.empty(); }
};

class Rephraser {
 public:
  explicit Rephraser(RephraseConfig config) : config_(std::move(config)) {}
  bool configured() const { return config_.configured(); }
  // The rephrased text, or nothing when the endpoint failed or answered something unusable.
  std::optional<std::string> rephrase(std::string_view text) const;

 private:
  RephraseConfig config_;
};

}  // namespace mirlo::service
