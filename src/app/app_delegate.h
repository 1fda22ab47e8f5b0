// The application delegate: start-up in a fixed order, the mirlo:// URLs, the hot keys, the
// status menu and the update check.
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

namespace mirlo {

class App;

class AppDelegate {
 public:
  explicit AppDelegate(App& app);

  // Before launch completes: from here on a mirlo:// URL is delivered.
  void applicationWillFinishLaunching();
  void applicationDidFinishLaunching();
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
  StatusItem* statusItem() { return statusItem_.get(); }

 private:
  void registerHotkeys();
  void armBrowserAX();
  void armApplication(std::int32_t pid, const std::optional<std::string>& bundleIdentifier);

  App& app_;
  bool launched_ = false;
  std::shared_ptr<StatusItem> statusItem_;
  std::vector<std::shared_ptr<HotKeyRef>> hotKeyRefs_;
  std::optional<std::string> updateVersion_;
  std::set<std::int32_t> armedPids_;
  std::shared_ptr<Timer> updateTimer_;
  Lifetime life_;
};

}  // namespace mirlo
