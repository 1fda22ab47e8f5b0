#include "desktop/linux_devices.h"

#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/gdk_screens.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/synthetic_keys.h"
#include "platform/linux/x_clipboard.h"
#include "platform/linux/x_connection.h"
#include "platform/linux/x_event_monitor.h"
#include "platform/linux/x_hot_keys.h"
#include "platform/linux/x_keyboard.h"
#include "platform/linux/x_workspace.h"

namespace mirlo::desktop {
namespace {

using namespace mirlo::linuxdesk;

// How long reading the clipboard waits for the application that owns it to hand its text over.
constexpr double kClipboardAnswerLimit = 1.0;

// In the order they need each other; each X adapter opens its own connection. The keyboard notes
// the keys it sends so that the event monitor never takes them for the person's.
class X11Devices final : public LinuxDevices {
 public:
  MainQueue& mainQueue() override { return queue_; }
  Accessibility& accessibility() override { return accessibility_; }
  Keyboard& keyboard() override { return keyboard_; }
  Clipboard& clipboard() override { return clipboard_; }
  EventMonitor& events() override { return events_; }
  HotKeys& hotKeys() override { return hotKeys_; }
  Workspace& workspace() override { return workspace_; }
  Screens& screens() override { return screens_; }
  bool armAccessibility() override { return AtspiAccessibility::enableDesktopAccessibility(); }
  void run() override { queue_.run(); }
  void quit() override { queue_.quit(); }

 private:
  GLibMainQueue queue_;
  XWorkspace workspace_;
  AtspiAccessibility accessibility_{workspace_};
  std::shared_ptr<SyntheticKeys> ownKeys_ = std::make_shared<SyntheticKeys>();
  XKeyboard keyboard_{ownKeys_};
  XClipboard clipboard_{kClipboardAnswerLimit};
  XEventMonitor events_{ownKeys_};
  XHotKeys hotKeys_;
  GdkScreens screens_;
};

}  // namespace

std::unique_ptr<LinuxDevices> LinuxDevices::open() {
  try {
    return std::make_unique<X11Devices>();
  } catch (const NoDisplayError& error) {
    throw NoDisplay(error.what());
  }
}

}  // namespace mirlo::desktop
