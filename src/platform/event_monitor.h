// Watching the user's mouse and keys: global monitors see events sent to other applications,
// local monitors those sent to this one. Handlers only observe; events always go on.
#pragma once

#include <cstdint>
#include <functional>

namespace mirlo {

namespace eventmask {
inline constexpr std::uint64_t leftMouseDown = 0x2;
inline constexpr std::uint64_t leftMouseUp = 0x4;
inline constexpr std::uint64_t keyDown = 0x400;
inline constexpr std::uint64_t keyUp = 0x800;
inline constexpr std::uint64_t scrollWheel = 0x400000;
}  // namespace eventmask

enum class InputEventType { leftMouseDown, leftMouseUp, keyDown, keyUp, scrollWheel };

struct InputEvent {
  InputEventType type = InputEventType::leftMouseUp;
  std::uint16_t keyCode = 0;
  std::uint64_t modifierFlags = 0;
  bool isARepeat = false;
};

inline std::uint64_t maskOf(InputEventType type) {
  switch (type) {
    case InputEventType::leftMouseDown: return eventmask::leftMouseDown;
    case InputEventType::leftMouseUp: return eventmask::leftMouseUp;
    case InputEventType::keyDown: return eventmask::keyDown;
    case InputEventType::keyUp: return eventmask::keyUp;
    case InputEventType::scrollWheel: return eventmask::scrollWheel;
  }
  return 0;
}

class EventMonitor {
 public:
  using Handler = std::function<void(const InputEvent&)>;
  virtual ~EventMonitor() = default;
  virtual void addGlobalMonitor(std::uint64_t mask, Handler handler) = 0;
  virtual void addLocalMonitor(std::uint64_t mask, Handler handler) = 0;
};

}  // namespace mirlo
