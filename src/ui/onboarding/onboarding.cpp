// The window itself; its steps are built by the onboarding screens.
#include "ui/onboarding/onboarding.h"

#include "access/ax.h"
#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "ui/kit/palette.h"

namespace mirlo {

Onboarding::Onboarding(App& app) : app_(app) {}

void Onboarding::showIfNeeded() {
  if (app_.auth().isSignedIn() && app_.platform().accessibility.isProcessTrusted() && app_.prefs().onboarded())
    return;
  show();
}

void Onboarding::show() {
  app_.platform().mainQueue.post(life_.guard([this] {
    auto& ui = app_.platform().ui;
    if (!window_) {
      window_ = ui.createWindow({520, 470});
      window_->setTitle("Bienvenue dans Mirlo");
      window_->center();
      window_->setBackground(DA::cream);
    }
    refresh();
    ui.activateIgnoringOtherApps();
    window_->makeKeyAndOrderFront();
  }));
}

void Onboarding::refresh() {
  if (!window_) return;
  View content;
  content.frame = {0, 0, 520, 470};
  window_->setContent(std::move(content));
  if (auto* delegate = app_.launchedDelegate()) delegate->rebuildMenu();
}

}  // namespace mirlo
