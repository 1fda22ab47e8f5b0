#include "platform/mac/mac_event_monitor.h"

#import <AppKit/AppKit.h>

namespace mirlo::mac {

namespace {

// The event in the core's terms. Key codes and the repeat flag exist on key events only (AppKit
// raises when they are read from a mouse event).
InputEvent inputEventOf(NSEvent* event) {
  InputEvent input;
  input.modifierFlags = static_cast<std::uint64_t>([event modifierFlags]);
  switch ([event type]) {
    case NSEventTypeLeftMouseDown: input.type = InputEventType::leftMouseDown; break;
    case NSEventTypeLeftMouseUp: input.type = InputEventType::leftMouseUp; break;
    case NSEventTypeScrollWheel: input.type = InputEventType::scrollWheel; break;
    case NSEventTypeKeyDown:
    case NSEventTypeKeyUp:
      input.type = [event type] == NSEventTypeKeyDown ? InputEventType::keyDown : InputEventType::keyUp;
      input.keyCode = [event keyCode];
      input.isARepeat = [event isARepeat];
      break;
    default: break;
  }
  return input;
}

class MacEventMonitor final : public EventMonitor {
 public:
  ~MacEventMonitor() override {
    for (id monitor : monitors_) [monitor release];
  }

  // The monitors stay installed for the life of the program.
  void addGlobalMonitor(std::uint64_t mask, Handler handler) override {
    id monitor = [NSEvent addGlobalMonitorForEventsMatchingMask:static_cast<NSEventMask>(mask)
                                                        handler:^(NSEvent* event) {
                                                          handler(inputEventOf(event));
                                                        }];
    if (monitor) monitors_.push_back([monitor retain]);
  }

  void addLocalMonitor(std::uint64_t mask, Handler handler) override {
    id monitor = [NSEvent addLocalMonitorForEventsMatchingMask:static_cast<NSEventMask>(mask)
                                                       handler:^NSEvent*(NSEvent* event) {
                                                         handler(inputEventOf(event));
                                                         return event;  // observed only: it goes on
                                                       }];
    if (monitor) monitors_.push_back([monitor retain]);
  }

 private:
  std::vector<id> monitors_;
};

}  // namespace

std::unique_ptr<EventMonitor> makeEventMonitor() { return std::make_unique<MacEventMonitor>(); }

}  // namespace mirlo::mac
