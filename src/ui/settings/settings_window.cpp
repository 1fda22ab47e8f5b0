#include "ui/settings/settings_window.h"

#include "app/app.h"

namespace mirlo {

SettingsWindow::SettingsWindow(App& app) : app_(app) {}

void SettingsWindow::show() {
  auto& ui = app_.platform().ui;
  if (!window_) {
    window_ = ui.createWindow({420, 250});
    window_->center();
  }
  window_->setTitle("Réglages Mirlo");
  View content;
  content.frame = {0, 0, 420, 250};
  window_->setContent(std::move(content));
  ui.activateIgnoringOtherApps();
  window_->makeKeyAndOrderFront();
}

}  // namespace mirlo
