// Synthesised keys, the hardware modifier state and the keyboard layout. Key codes are the macOS
// virtual key codes (0–127) and flags the macOS modifier flags everywhere in the core.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace mirlo {

namespace modifier {
inline constexpr std::uint64_t shift = 0x20000;
inline constexpr std::uint64_t control = 0x40000;
inline constexpr std::uint64_t option = 0x80000;
inline constexpr std::uint64_t command = 0x100000;
}  // namespace modifier

namespace keycode {
inline constexpr std::uint16_t c = 8;  // on the US layout
inline constexpr std::uint16_t v = 9;
inline constexpr std::uint16_t escape = 53;
}  // namespace keycode

class Keyboard {
 public:
  virtual ~Keyboard() = default;

  // Posts one key event at the system's input level with exactly these modifier flags. False when
  // the event could not be created (nothing was posted).
  virtual bool postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) = 0;

  // The modifier flags the keyboard hardware holds right now.
  virtual std::uint64_t currentModifierFlags() = 0;

  // Whether a current keyboard layout with translation data exists.
  virtual bool hasLayoutData() = 0;

  // What the key types on the current layout without modifiers, as UTF-8; nothing when the
  // translation fails or produces no character. At most four UTF-16 units.
  virtual std::optional<std::string> translate(std::uint16_t keyCode) = 0;
};

}  // namespace mirlo
