// One line of a scenario, cut into words and quoted strings as the command reads them, with the
// small readers every command uses. Every reader throws `ScriptFault` with a sentence a script's
// author can act on. The line is cut only as far as it is read, so that what a command takes as
// it stands (`rest()`, a JSON body say) is never judged by the rules of words and quotes.
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
  // A quoted string that never closes or a bad escape is a fault when it is read.
  explicit ScriptLine(std::string raw);

  bool blank() const { return atEnd(); }
  const std::string& raw() const { return raw_; }
  bool atEnd() const { return !cut(pos_); }
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
  // Cuts tokens until the one at `index` exists; false when the line ends before it.
  bool cut(std::size_t index) const;

  std::string raw_;
  mutable std::vector<Token> tokens_;
  mutable std::size_t scanned_ = 0;  // where cutting stopped in `raw_`
  std::size_t pos_ = 0;
};

// The value as a script would write it: in double quotes, with \" \\ \n \t \r and \u{…} for other
// control characters.
std::string quote(const std::string& value);
// A number as scripts and transcripts write it: no trailing zeros, at most three decimals.
std::string formatNumber(double value);

}  // namespace mirlo::scenario
