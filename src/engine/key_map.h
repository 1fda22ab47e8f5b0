// Which virtual key produces a character on the user's current keyboard layout.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/keyboard.h"

namespace mirlo {

class KeyMap {
 public:
  explicit KeyMap(Keyboard& keyboard) : keyboard_(keyboard) {}

  // The lowest key code 0–127 whose unmodified translation is exactly `character`
  // (case-sensitive); nothing when there is no layout or no key produces it.
  std::optional<std::uint16_t> keyCode(const std::string& character);

 private:
  Keyboard& keyboard_;
};

}  // namespace mirlo
