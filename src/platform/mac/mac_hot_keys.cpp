#include "platform/mac/mac_hot_keys.h"

#include <Carbon/Carbon.h>

#include <utility>

namespace mirlo::mac {

namespace {

class MacHotKeyEvent final : public HotKeyEvent {
 public:
  explicit MacHotKeyEvent(EventRef event) : event_(event) {}

  std::optional<HotKeyID> readID() const override {
    EventHotKeyID id = {0, 0};
    const OSStatus status = GetEventParameter(event_, kEventParamDirectObject, typeEventHotKeyID, nullptr, sizeof(id),
                                              nullptr, &id);
    if (status != noErr) return std::nullopt;
    return HotKeyID{id.signature, id.id};
  }

 private:
  EventRef event_;  // borrowed for the duration of the handler call
};

// The registration lives as long as the program: hot keys are never unregistered.
class MacHotKeyRef final : public HotKeyRef {
 public:
  explicit MacHotKeyRef(EventHotKeyRef ref) : ref_(ref) {}

 private:
  [[maybe_unused]] EventHotKeyRef ref_;
};

class MacHotKeys final : public HotKeys {
 public:
  void installHandler(Handler handler) override {
    handler_ = std::move(handler);
    const EventTypeSpec pressed = {kEventClassKeyboard, kEventHotKeyPressed};
    // The handler stays installed for the life of the process; its reference is not kept.
    InstallEventHandler(GetApplicationEventTarget(), NewEventHandlerUPP(&MacHotKeys::onEvent), 1, &pressed, this,
                        nullptr);
  }

  std::shared_ptr<HotKeyRef> registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers, HotKeyID id) override {
    const EventHotKeyID hotKeyID = {id.signature, id.id};
    EventHotKeyRef ref = nullptr;
    const OSStatus status = RegisterEventHotKey(keyCode, modifiers, hotKeyID, GetApplicationEventTarget(), 0, &ref);
    if (status != noErr || !ref) return nullptr;
    return std::make_shared<MacHotKeyRef>(ref);
  }

 private:
  static OSStatus onEvent(EventHandlerCallRef, EventRef event, void* userData) {
    auto* self = static_cast<MacHotKeys*>(userData);
    if (!self->handler_) return eventNotHandledErr;
    return self->handler_(MacHotKeyEvent(event));
  }

  Handler handler_;
};

}  // namespace

std::unique_ptr<HotKeys> makeHotKeys() { return std::make_unique<MacHotKeys>(); }

}  // namespace mirlo::mac
