#include "platform/linux/x_hot_keys.h"

#include "platform/linux/key_table.h"

#include <X11/XKBlib.h>

namespace mirlo::linuxdesk {

namespace {

// The hot-key modifier bits of the core (Carbon's), in their Linux roles.
constexpr std::uint32_t kCommandKey = 0x0100, kShiftKey = 0x0200, kOptionKey = 0x0800, kControlKey = 0x1000;

unsigned xModifiers(std::uint32_t modifiers) {
  unsigned mask = 0;
  if (modifiers & kCommandKey) mask |= ControlMask;
  if (modifiers & kShiftKey) mask |= ShiftMask;
  if (modifiers & kOptionKey) mask |= Mod1Mask;
  if (modifiers & kControlKey) mask |= Mod4Mask;
  return mask;
}

// Caps Lock and Num Lock (Mod2 on every usual layout) change the state the grab must match.
constexpr unsigned kLockVariants[] = {0, LockMask, Mod2Mask, LockMask | Mod2Mask};
constexpr unsigned kIgnored = LockMask | Mod2Mask;

class PressedHotKey final : public HotKeyEvent {
 public:
  explicit PressedHotKey(HotKeyID id) : id_(id) {}
  std::optional<HotKeyID> readID() const override { return id_; }

 private:
  HotKeyID id_;
};

}  // namespace

class XHotKeyRef final : public HotKeyRef {
 public:
  XHotKeyRef(XHotKeys& owner, int slot) : owner_(owner), alive_(owner.alive_), slot_(slot) {}
  ~XHotKeyRef() override {
    if (alive_.expired()) return;
    auto it = owner_.grabs_.find(slot_);
    if (it == owner_.grabs_.end()) return;
    owner_.ungrab(it->second.keyCode, it->second.modifiers);
    owner_.grabs_.erase(it);
  }

 private:
  XHotKeys& owner_;
  std::weak_ptr<bool> alive_;
  int slot_;
};

XHotKeys::XHotKeys() {
  // Without it a held key repeats as release-and-press pairs, and each release would count.
  Bool supported = False;
  XkbSetDetectableAutoRepeat(x_.display(), True, &supported);
  x_.watch([this](XEvent& event) { handle(event); });
}

XHotKeys::~XHotKeys() {
  for (const auto& [slot, grab] : grabs_) ungrab(grab.keyCode, grab.modifiers);
  XSync(x_.display(), False);
}

void XHotKeys::installHandler(Handler handler) { handler_ = std::move(handler); }

std::shared_ptr<HotKeyRef> XHotKeys::registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers, HotKeyID id) {
  auto code = xKeyCodeFor(keyCode);
  if (!code) return nullptr;
  const unsigned mask = xModifiers(modifiers);
  int error = x_.trapErrors([&] {
    for (unsigned variant : kLockVariants)
      XGrabKey(x_.display(), static_cast<int>(*code), mask | variant, x_.root(), False, GrabModeAsync, GrabModeAsync);
  });
  if (error != Success) {
    // BadAccess: another client holds the key in at least one lock state; take back what we got.
    ungrab(*code, mask);
    XSync(x_.display(), False);
    return nullptr;
  }
  int slot = next_++;
  grabs_[slot] = {*code, mask, id};
  return std::make_shared<XHotKeyRef>(*this, slot);
}

void XHotKeys::ungrab(unsigned keyCode, unsigned modifiers) {
  x_.trapErrors([&] {
    for (unsigned variant : kLockVariants)
      XUngrabKey(x_.display(), static_cast<int>(keyCode), modifiers | variant, x_.root());
  });
}

void XHotKeys::handle(XEvent& event) {
  if (event.type == KeyRelease) {
    if (!pressed_ || pressed_->keyCode != event.xkey.keycode) return;
    const HotKeyID id = pressed_->id;
    pressed_.reset();
    if (handler_) handler_(PressedHotKey(id));
    return;
  }
  if (event.type != KeyPress) return;
  const unsigned state = event.xkey.state & ~kIgnored & (ShiftMask | ControlMask | Mod1Mask | Mod4Mask);
  for (const auto& [slot, grab] : grabs_) {
    if (grab.keyCode == event.xkey.keycode && grab.modifiers == state) {
      pressed_ = grab;
      return;
    }
  }
}

}  // namespace mirlo::linuxdesk
