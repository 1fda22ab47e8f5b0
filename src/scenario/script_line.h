// One line of a scenario, cut into words and quoted strings, with the small readers every command
// uses. Every reader throws `ScriptFault` with a sentence a script's author can act on.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace mirlo::scenario {

struct ScriptFault : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Token {
  std::string text;    // a word as written, or a quoted string's value with its escapes undone
  bool quoted = false;
  std::size_t start = 0;  // where the token begins in the line
};

class ScriptLine {
 public:
  // Cuts the line; a quoted string that never closes or a bad escape is a fault.
  explicit ScriptLine(std::string raw);

  bool blank() const { return tokens_.empty(); }
  const std::string& raw() const { return raw_; }
  bool atEnd() const { return pos_ >= tokens_.size(); }
  // The next token without taking it (empty when at the end).
  std::string peek() const;
  bool peekIs(const std::string& word) const;
  bool peekQuoted() const { return !atEnd() && tokens_[pos_].quoted; }

  // A bare word; `what` names it in the fault when it is missing.
  std::string word(const std::string& what);
  // Takes the next token when it is this bare word.
  bool accept(const std::string& word);
  void expect(const std::string& word);
  // A quoted string.
  std::string quoted(const std::string& what);
  // A word or a quoted string.
  std::string text(const std::string& what);
  double number(const std::string& what);
  std::int64_t integer(const std::string& what);
  // "yes"/"no" (also on/off, true/false).
  bool yesNo(const std::string& what);
  // A duration: "2", "2s", "0.05s", "250ms", "1min".
  double duration(const std::string& what);
  // Everything after the tokens taken so far, as written (for JSON bodies and raw values).
  std::string rest();
  // Fails when tokens are left over.
  void end();

 private:
  std::string raw_;
  std::vector<Token> tokens_;
  std::size_t pos_ = 0;
};

// The value as a script would write it: in double quotes, with \" \\ \n \t \r and \u{…} for other
// control characters.
std::string quote(const std::string& value);
// A number as scripts and transcripts write it: no trailing zeros, at most three decimals.
std::string formatNumber(double value);

}  // namespace mirlo::scenario
