// French spelling correction with Hunspell's first suggestions: the fallback when Grammalecte cannot
// be loaded. Only misspelt words are replaced; everything else in the text (spacing, punctuation,
// case of the other words, line breaks, addresses, numbers) comes back byte for byte.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

class Hunspell;

namespace mirlo::service {

class Speller {
 public:
  // Nothing when the dictionary files cannot be read.
  static std::unique_ptr<Speller> open(const std::string& affPath, const std::string& dicPath);
  // The first of the usual places (Debian's hunspell-fr), or nothing.
  static std::unique_ptr<Speller> openDefaultFrench();
  ~Speller();
  Speller(const Speller&) = delete;
  Speller& operator=(const Speller&) = delete;

  // `text` must be valid UTF-8 (the JSON layer guarantees it). Nothing once `deadline` has passed:
  // one unknown word can take Hunspell a tenth of a second.
  std::optional<std::string> correct(std::string_view text, std::chrono::steady_clock::time_point deadline);

 private:
  explicit Speller(std::unique_ptr<Hunspell> h);
  // The replacement for a misspelt word, or the word itself.
  std::string fixWord(const std::string& word, bool sentenceStart);

  std::mutex mutex_;  // Hunspell is not safe to share between threads
  std::unique_ptr<Hunspell> hunspell_;
  std::unordered_map<std::string, std::string> cache_;
};

}  // namespace mirlo::service
