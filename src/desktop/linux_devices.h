// Everything of the Linux X11 desktop but drawing, behind the seam's own interfaces. The X
// adapters' headers speak Xlib, whose `Window` would clash with the surfaces' `Window`, so they
// stay inside linux_devices.cpp and the rest of the program sees only this.
#pragma once

#include <memory>
#include <stdexcept>

#include "platform/accessibility.h"
#include "platform/clipboard.h"
#include "platform/event_monitor.h"
#include "platform/hot_keys.h"
#include "platform/keyboard.h"
#include "platform/main_queue.h"
#include "platform/screens.h"
#include "platform/workspace.h"

namespace mirlo::desktop {

// No display, or one without the extensions the adapters need; the text says which.
class NoDisplay : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class LinuxDevices {
 public:
  // Opens every adapter on the display GDK has opened; throws NoDisplay.
  static std::unique_ptr<LinuxDevices> open();
  virtual ~LinuxDevices() = default;

  virtual MainQueue& mainQueue() = 0;
  virtual Accessibility& accessibility() = 0;
  virtual Keyboard& keyboard() = 0;
  virtual Clipboard& clipboard() = 0;
  virtual EventMonitor& events() = 0;
  virtual HotKeys& hotKeys() = 0;
  virtual Workspace& workspace() = 0;
  virtual Screens& screens() = 0;

  // Asks every toolkit on the desktop to build its accessibility tree; false when the bus is deaf.
  virtual bool armAccessibility() = 0;
  // The main loop: runs until `quit`.
  virtual void run() = 0;
  virtual void quit() = 0;
};

}  // namespace mirlo::desktop
