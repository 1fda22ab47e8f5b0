// The application delegate: start-up in a fixed order, the mirlo:// URLs, the hot keys, the
// status menu, the update check and the arming of browsers' accessibility.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/lifetime.h"
#include "platform/hot_keys.h"
#include "platform/main_queue.h"
#include "platform/ui.h"
#include "platform/workspace.h"

namespace mirlo {

class App;

class AppDelegate {
 public:
  // Both global shortcuts are registered under this signature ('MRL!').
  static constexpr std::uint32_t kHotKeySignature = 0x4D524C21;
  static constexpr std::uint32_t kFixHotKeyId = 1;
  static constexpr std::uint32_t kRephraseHotKeyId = 2;
  // Command and Shift, in the hot key service's own modifier bits.
  static constexpr std::uint32_t kHotKeyModifiers = hotkeymod::command | hotkeymod::shift;
  static constexpr double kUpdateCheckInterval = 21600;  // six hours
  static constexpr double kUpdateCheckTimeout = 10;

  explicit AppDelegate(App& app);

  // Before launch completes: from here on a mirlo:// URL is handled.
  void applicationWillFinishLaunching();
  void applicationDidFinishLaunching();
  // True from the start of the launch sequence on; other subsystems reach the delegate then.
  bool hasLaunched() const { return launched_; }

  // A URL handed over by the system (the direct object of the URL event); nothing when the event
  // carried none.
  void handleURLEvent(const std::optional<std::string>& url);

  void fixSelection();
  void rephraseSelection();

  void rebuildMenu();
  void togglePopup();
  void openAccount();
  void openSettings();
  void openOnboarding();
  void downloadUpdate();
  void checkForUpdates();

  const std::optional<std::string>& updateVersion() const { return updateVersion_; }
  const std::set<std::int32_t>& armedPids() const { return armedPids_; }
  const std::vector<std::shared_ptr<HotKeyRef>>& hotKeyRefs() const { return hotKeyRefs_; }
  StatusItem* statusItem() { return statusItem_.get(); }

 private:
  void registerHotkeys();
  void dispatchHotKey(std::uint32_t id);
  void armBrowserAX();
  void armApplication(const RunningApp& application);
  void performURLAction(const std::string& url);

  App& app_;
  bool launched_ = false;
  bool urlHandlerInstalled_ = false;
  std::vector<std::string> urlsBeforeHandler_;
  std::shared_ptr<StatusItem> statusItem_;
  std::vector<std::shared_ptr<HotKeyRef>> hotKeyRefs_;
  std::optional<std::string> updateVersion_;
  std::set<std::int32_t> armedPids_;
  std::shared_ptr<Timer> updateTimer_;
  Lifetime life_;
};

// Whether this bundle identifier belongs to a browser or web-based application that only builds
// its accessibility tree when asked (exact, case-sensitive comparison).
bool isAccessibilityHungry(const std::string& bundleIdentifier);

}  // namespace mirlo
