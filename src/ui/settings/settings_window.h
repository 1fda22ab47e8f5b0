// The settings window: the account, the card preference, the shortcuts and the dashboard link. It
// shows the session as it was when last opened; it does not follow account changes by itself.
#pragma once

#include <memory>

#include "base/lifetime.h"
#include "platform/ui.h"

namespace mirlo {

class App;

class SettingsWindow {
 public:
  static constexpr Size kSize{420, 250};

  explicit SettingsWindow(App& app);

  // Builds fresh content (creating the window once) and brings the window to the front.
  void show();

  // Signed in: signs out, closes this window and opens the onboarding. Signed out: opens the
  // Google sign-in in the browser.
  void authTapped();
  // Stores the check box's state, then lets the status menu follow.
  void popupTapped(LiveView& checkBox);
  void dashTapped();

  Window* window() { return window_.get(); }

 private:
  void build();

  App& app_;
  std::shared_ptr<Window> window_;
  Lifetime life_;
};

}  // namespace mirlo
