// System-wide hot keys: a key code with a modifier mask registered under an identifier; presses
// reach one handler, which reads the identifier from the event.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace mirlo {

namespace hotkeymod {
inline constexpr std::uint32_t command = 0x0100;
inline constexpr std::uint32_t shift = 0x0200;
}  // namespace hotkeymod

struct HotKeyID {
  std::uint32_t signature = 0;
  std::uint32_t id = 0;
  friend bool operator==(const HotKeyID&, const HotKeyID&) = default;
};

// The pressed-key event as the handler sees it. Reading its identifier can fail.
class HotKeyEvent {
 public:
  virtual ~HotKeyEvent() = default;
  virtual std::optional<HotKeyID> readID() const = 0;
};

class HotKeyRef {
 public:
  virtual ~HotKeyRef() = default;
};

class HotKeys {
 public:
  using Handler = std::function<std::int32_t(const HotKeyEvent&)>;  // returns a status, 0 = handled
  virtual ~HotKeys() = default;
  virtual void installHandler(Handler handler) = 0;
  // Nothing when the registration failed.
  virtual std::shared_ptr<HotKeyRef> registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers, HotKeyID id) = 0;
};

}  // namespace mirlo
