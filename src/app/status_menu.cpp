// The status menu, rebuilt from scratch whenever something it shows may have changed.
#include <stdexcept>

#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "base/url.h"
#include "platform/keyboard.h"
#include "ui/onboarding/onboarding.h"
#include "ui/settings/settings_window.h"

namespace mirlo {

namespace {

MenuItem item(std::string title, std::function<void()> action, std::string key = {},
              std::uint64_t modifiers = modifier::command) {
  MenuItem it;
  it.title = std::move(title);
  it.enabled = static_cast<bool>(action);
  it.action = std::move(action);
  it.keyEquivalent = std::move(key);
  it.keyEquivalentModifiers = modifiers;
  return it;
}

std::string planLine(const Auth& auth) {
  const std::string plan = auth.plan();
  if (!plan.empty() && plan != "gratuit") return auth.planLabel();
  const auto used = auth.quotaUsed();
  if (used < 0) return "Gratuit · 3 corrections par jour";
  return "Gratuit · " + std::to_string(used) + "/" + std::to_string(auth.quotaLimit()) + " aujourd'hui";
}

}  // namespace

void AppDelegate::rebuildMenu() {
  if (!statusItem_) throw std::logic_error("the status menu is built before the status item exists");
  std::vector<MenuItem> menu;
  auto guarded = [this](void (AppDelegate::*method)()) { return life_.guard([this, method] { (this->*method)(); }); };

  if (updateVersion_) {
    menu.push_back(item("Mettre à jour vers la version " + *updateVersion_ + "…", guarded(&AppDelegate::downloadUpdate)));
    menu.push_back(MenuItem::separatorItem());
  }
  Auth& auth = app_.auth();
  if (auth.isSignedIn()) {
    menu.push_back(item(auth.email(), nullptr));
    menu.push_back(item(planLine(auth), nullptr));
  } else {
    menu.push_back(item("Se connecter…", guarded(&AppDelegate::openOnboarding)));
  }
  menu.push_back(MenuItem::separatorItem());
  menu.push_back(item("Corriger la sélection", guarded(&AppDelegate::fixSelection), "a",
                      modifier::command | modifier::shift));
  menu.push_back(item("Reformuler la sélection", guarded(&AppDelegate::rephraseSelection), "c",
                      modifier::command | modifier::shift));
  menu.push_back(MenuItem::separatorItem());
  MenuItem popup = item("Popup à la sélection", guarded(&AppDelegate::togglePopup));
  popup.checkable = true;
  popup.checked = app_.prefs().popupEnabled();
  menu.push_back(popup);
  menu.push_back(item("Mon dashboard", guarded(&AppDelegate::openAccount)));
  menu.push_back(item("Réglages…", guarded(&AppDelegate::openSettings), ","));
  menu.push_back(MenuItem::separatorItem());
  UI& ui = app_.platform().ui;
  menu.push_back(item("Quitter Mirlo", [&ui] { ui.terminate(); }, "q"));

  statusItem_->setMenu(std::move(menu));
  // The bold initial is the icon; a bullet after it tells of an update.
  statusItem_->setTitle(updateVersion_ ? "M\u2022" : "M", Font{15, FontWeight::bold});
}

void AppDelegate::togglePopup() {
  app_.prefs().setPopupEnabled(!app_.prefs().popupEnabled());
  rebuildMenu();
}

void AppDelegate::openAccount() {
  const std::string page = app_.config().siteUrl + "/compte.html";
  if (!url::parse(page)) throw std::logic_error("the account page address does not parse");
  app_.platform().workspace.openURL(page);
}

void AppDelegate::openOnboarding() { app_.onboarding().show(); }

void AppDelegate::openSettings() {
  app_.settings().show();
  app_.platform().ui.activateIgnoringOtherApps();
  if (Window* window = app_.settings().window()) window->makeKeyAndOrderFront();
}

}  // namespace mirlo
