// The first page: Google in the browser, or an e-mail and a password. The page never advances by
// itself; a successful sign-in announces the account change and the step machine moves on.
#include "account/auth.h"
#include "app/app.h"
#include "base/text.h"
#include "ui/kit/flat_button.h"
#include "ui/kit/palette.h"
#include "ui/kit/system_words.h"
#include "ui/kit/views.h"
#include "ui/onboarding/onboarding.h"
#include "ui/onboarding/pages.h"

namespace mirlo {

using onboarding::centred;

namespace {

constexpr std::size_t kMinimumPassword = 8;

View field(ViewKind kind, Rect frame, const std::string& placeholder, std::shared_ptr<ViewSlot>& slot) {
  View view;
  view.kind = kind;
  view.frame = frame;
  view.placeholder = placeholder;
  view.font = Font{13};
  slot = std::make_shared<ViewSlot>();
  view.slot = slot;
  return view;
}

}  // namespace

View Onboarding::stepLogin() {
  UI& ui = app_.platform().ui;
  View step = container();
  header(step, "Étape 1 sur 3", "Connecte-toi pour commencer",
         words::accountPromise(app_.platform().appInfo.hostSystem()));

  FlatButton google(ui, "Continuer avec Google", Color::white(1.0), true, true);
  App& app = app_;
  // Google sign-in happens in the browser; the fields are neither read nor checked.
  google.setOnClick([&app] { app.platform().workspace.openURL(app.auth().signInURL()); });
  step.children.push_back(centred(google.view(), 204));

  step.children.push_back(centred(kit::label(ui, "— ou par email —", Font{11}, DA::muted), 178));
  step.children.push_back(field(ViewKind::textField, {120, 146, 280, 26}, "ton@exemple.fr", emailField_));
  step.children.push_back(field(ViewKind::secureField, {120, 114, 280, 26}, "mot de passe", passwordField_));

  View signIn = kit::pushButton("Se connecter", {120, 78, 140, 30}, life_.guard([this] { signInTapped(); }));
  signIn.keyEquivalent = "\r";  // the window's default button
  step.children.push_back(std::move(signIn));
  step.children.push_back(kit::pushButton("Créer un compte", {264, 78, 136, 30}, life_.guard([this] { signUpTapped(); })));

  View status;
  status.kind = ViewKind::label;
  status.frame = {40, 50, 440, 18};
  status.font = Font{12};
  status.textColor = DA::red;
  status.alignment = TextAlignment::center;
  loginStatus_ = std::make_shared<ViewSlot>();
  status.slot = loginStatus_;
  step.children.push_back(std::move(status));
  return step;
}

void Onboarding::showStatus(const std::string& message) {
  if (auto status = live(loginStatus_)) status->setText(message);
}

std::optional<std::pair<std::string, std::string>> Onboarding::credentials() {
  auto emailView = live(emailField_);
  auto passwordView = live(passwordField_);
  const std::string email = text::unicodeLower(text::trimSpacesAndTabs(emailView ? emailView->text() : ""));
  std::string password = passwordView ? passwordView->text() : "";
  if (email.find('@') == std::string::npos || email.find('.') == std::string::npos) {
    showStatus("Entre un email valide");
    return std::nullopt;
  }
  if (text::graphemeCount(password) < kMinimumPassword) {
    showStatus("Mot de passe : 8 caractères minimum");
    return std::nullopt;
  }
  return std::make_pair(email, std::move(password));
}

void Onboarding::signInTapped() { credentialsTapped(false); }

void Onboarding::signUpTapped() { credentialsTapped(true); }

void Onboarding::credentialsTapped(bool signUp) {
  auto entered = credentials();
  if (!entered) return;
  showStatus(signUp ? "Création du compte…" : "Connexion…");
  // On success the progress text stays until the account change rebuilds the window. A message
  // lands on the status line the page holds when it arrives: a line no longer on screen takes it
  // silently.
  auto done = life_.guard([this](std::optional<std::string> message) {
    if (message) showStatus(*message);
  });
  if (signUp)
    app_.auth().signUp(entered->first, entered->second, std::move(done));
  else
    app_.auth().signIn(entered->first, entered->second, std::move(done));
}

}  // namespace mirlo
