#include "platform/linux/x_event_monitor.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/extensions/XInput2.h>
#include <unistd.h>

#include "platform/linux/key_table.h"

namespace mirlo::linuxdesk {

XEventMonitor::XEventMonitor() : XEventMonitor(nullptr) {}

XEventMonitor::XEventMonitor(std::shared_ptr<SyntheticKeys> ownKeys) : ownKeys_(std::move(ownKeys)) {
  int firstEvent = 0, firstError = 0;
  if (!XQueryExtension(x_.display(), "XInputExtension", &opcode_, &firstEvent, &firstError))
    throw NoDisplayError("the X server has no XInput extension");
  int major = 2, minor = 2;
  if (XIQueryVersion(x_.display(), &major, &minor) != Success)
    throw NoDisplayError("the X server does not speak XInput 2");

  unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
  XISetMask(bits, XI_RawKeyPress);
  XISetMask(bits, XI_RawKeyRelease);
  XISetMask(bits, XI_RawButtonPress);
  XISetMask(bits, XI_RawButtonRelease);
  XIEventMask mask{XIAllMasterDevices, sizeof bits, bits};
  XISelectEvents(x_.display(), x_.root(), &mask, 1);
  XFlush(x_.display());

  // Raw events carry no modifier state, and by the time one is handled the keys may be up again:
  // the state is rebuilt from the key events themselves, starting from the keys down now.
  if (XModifierKeymap* map = XGetModifierMapping(x_.display())) {
    for (int index = 0; index < 8; ++index)
      for (int k = 0; k < map->max_keypermod; ++k)
        if (unsigned code = map->modifiermap[index * map->max_keypermod + k]) modifierOf_[code] |= 1u << index;
    XFreeModifiermap(map);
  }
  char keys[32] = {};
  XQueryKeymap(x_.display(), keys);
  for (unsigned code = 8; code < 256; ++code)
    if (keys[code / 8] & (1 << (code % 8))) keysDown_.insert(code);
  x_.watch([this](XEvent& event) { handle(event); });
}

void XEventMonitor::addGlobalMonitor(std::uint64_t mask, Handler handler) {
  global_.push_back({mask, std::move(handler)});
}

void XEventMonitor::addLocalMonitor(std::uint64_t mask, Handler handler) {
  local_.push_back({mask, std::move(handler)});
}

void XEventMonitor::handle(XEvent& xevent) {
  if (xevent.type != GenericEvent || xevent.xcookie.extension != opcode_) return;
  if (!XGetEventData(x_.display(), &xevent.xcookie)) return;
  auto* raw = static_cast<XIRawEvent*>(xevent.xcookie.data);
  const int type = xevent.xcookie.evtype;
  const unsigned detail = static_cast<unsigned>(raw->detail);
  XFreeEventData(x_.display(), &xevent.xcookie);

  InputEvent event;
  switch (type) {
    case XI_RawKeyPress:
      event.type = InputEventType::keyDown;
      // Raw events carry no repeat flag: a press of a key already down is the auto-repeat.
      event.isARepeat = !keysDown_.insert(detail).second;
      break;
    case XI_RawKeyRelease:
      event.type = InputEventType::keyUp;
      keysDown_.erase(detail);
      break;
    case XI_RawButtonPress:
    case XI_RawButtonRelease:
      if (detail == 1) {
        event.type = type == XI_RawButtonPress ? InputEventType::leftMouseDown : InputEventType::leftMouseUp;
      } else if (detail >= 4 && detail <= 7 && type == XI_RawButtonPress) {
        event.type = InputEventType::scrollWheel;
      } else {
        return;
      }
      break;
    default:
      return;
  }
  if (type == XI_RawKeyPress || type == XI_RawKeyRelease) event.keyCode = macKeyCodeFor(detail).value_or(kUnknownKey);
  unsigned mods = 0;
  for (unsigned code : keysDown_)
    if (auto it = modifierOf_.find(code); it != modifierOf_.end()) mods |= it->second;
  // Caps Lock is a latched state, not a key held.
  XkbStateRec state{};
  if (XkbGetState(x_.display(), XkbUseCoreKbd, &state) == Success) mods |= state.locked_mods & LockMask;
  mods &= ~static_cast<unsigned>(Mod2Mask);
  event.modifierFlags = macFlagsFromXState(mods);
  // Our own keys still count for the keys held above, but are nobody's gesture.
  const bool isKey = type == XI_RawKeyPress || type == XI_RawKeyRelease;
  if (isKey && ownKeys_ && ownKeys_->claim(detail, type == XI_RawKeyPress, g_get_monotonic_time())) return;
  deliver(event);
}

bool XEventMonitor::ownWindowActive() {
  auto active = windowProperty32(x_.display(), x_.root(), x_.atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
  if (active.empty() || active[0] == None) return false;
  int error = Success;
  std::vector<unsigned long> pid;
  error = x_.trapErrors(
      [&] { pid = windowProperty32(x_.display(), active[0], x_.atom("_NET_WM_PID"), XA_CARDINAL); });
  return error == Success && !pid.empty() && static_cast<pid_t>(pid[0]) == getpid();
}

void XEventMonitor::deliver(const InputEvent& event) {
  auto& monitors = ownWindowActive() ? local_ : global_;
  const auto bit = maskOf(event.type);
  // Copies: a handler may add monitors.
  auto snapshot = monitors;
  for (const auto& monitor : snapshot)
    if (monitor.mask & bit) monitor.handler(event);
}

}  // namespace mirlo::linuxdesk
