// The settings window: the account, the card preference, the shortcuts and the dashboard link.
#pragma once

#include <memory>

#include "platform/ui.h"

namespace mirlo {

class App;

class SettingsWindow {
 public:
  explicit SettingsWindow(App& app);

  void show();
  Window* window() { return window_.get(); }

 private:
  App& app_;
  std::shared_ptr<Window> window_;
};

}  // namespace mirlo
