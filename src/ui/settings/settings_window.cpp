#include "ui/settings/settings_window.h"

#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "platform/keyboard.h"
#include "ui/kit/palette.h"
#include "ui/kit/system_words.h"
#include "ui/kit/views.h"
#include "ui/onboarding/onboarding.h"

namespace mirlo {

namespace {

View label(const std::string& text, Rect frame, Font font, std::optional<Color> color = std::nullopt) {
  View view;
  view.kind = ViewKind::label;
  view.text = text;
  view.frame = frame;
  view.font = font;
  view.textColor = color;
  return view;
}

}  // namespace

SettingsWindow::SettingsWindow(App& app) : app_(app) {}

void SettingsWindow::show() {
  build();
  app_.platform().ui.activateIgnoringOtherApps();
  window_->makeKeyAndOrderFront();
}

void SettingsWindow::build() {
  if (!window_) {
    window_ = app_.platform().ui.createWindow(kSize);
    // Only now: a window the user has moved keeps its place.
    window_->center();
  }
  window_->setTitle("Réglages Mirlo");

  Auth& auth = app_.auth();
  const bool signedIn = auth.isSignedIn();
  View content;
  content.frame = {0, 0, kSize.width, kSize.height};
  content.children.push_back(label("COMPTE", {24, 210, 200, 16}, Font{11, FontWeight::bold}, DA::muted));
  content.children.push_back(label(signedIn ? auth.email() + " · " + auth.planLabel() : "Non connecté",
                                   {24, 186, 280, 18}, Font{13}));
  content.children.push_back(kit::pushButton(signedIn ? "Se déconnecter" : "Se connecter", {288, 180, 110, 28},
                                        life_.guard([this] { authTapped(); })));

  View popup;
  popup.kind = ViewKind::checkBox;
  const HostSystem system = app_.platform().appInfo.hostSystem();
  constexpr std::uint64_t command = modifier::command, commandShift = modifier::command | modifier::shift;
  popup.text = "Carte sur " + words::shortcut(system, command, "A") + " maintenu (1 seconde)";
  popup.frame = {24, 138, 250, 20};
  popup.checked = app_.prefs().popupEnabled();
  popup.slot = std::make_shared<ViewSlot>();
  std::weak_ptr<ViewSlot> box = popup.slot;
  popup.action = life_.guard([this, box] {
    if (auto slot = box.lock(); slot && slot->live) popupTapped(*slot->live);
  });
  content.children.push_back(std::move(popup));

  View shortcuts = label("Raccourcis :\n" + words::shortcut(system, commandShift, "A") + " corriger la sélection\n" +
                             words::shortcut(system, commandShift, "C") + " reformuler la sélection\n" +
                             words::shortcut(system, command, "Z") + " annuler le dernier remplacement",
                         {24, 44, 370, 80}, Font{12}, DA::ink2);
  shortcuts.wraps = true;
  content.children.push_back(std::move(shortcuts));
  content.children.push_back(kit::pushButton("Ouvrir mon dashboard", {24, 10, 180, 28}, life_.guard([this] { dashTapped(); })));

  window_->setContent(std::move(content));
}

void SettingsWindow::authTapped() {
  Auth& auth = app_.auth();
  if (auth.isSignedIn()) {
    auth.signOut();
    if (window_) window_->close();
    app_.onboarding().show();
  } else {
    app_.platform().workspace.openURL(auth.signInURL());
  }
}

void SettingsWindow::popupTapped(LiveView& checkBox) {
  app_.prefs().setPopupEnabled(checkBox.isChecked());
  if (auto* delegate = app_.launchedDelegate()) delegate->rebuildMenu();
}

void SettingsWindow::dashTapped() { app_.delegate().openAccount(); }

}  // namespace mirlo
