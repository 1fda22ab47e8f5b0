// The general clipboard, plain text only.
#pragma once

#include <optional>
#include <string>

namespace mirlo {

class Clipboard {
 public:
  virtual ~Clipboard() = default;
  virtual std::optional<std::string> readText() = 0;  // nothing when it holds no text
  virtual void clear() = 0;
  virtual void putText(const std::string& text) = 0;
};

}  // namespace mirlo
