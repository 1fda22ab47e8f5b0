// The onboarding window and its step machine, the frame every page shares, and the permission step.
#include "ui/onboarding/onboarding.h"

#include <cstdlib>

#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "ui/kit/flat_button.h"
#include "ui/kit/palette.h"
#include "ui/kit/system_words.h"
#include "ui/kit/views.h"
#include "ui/onboarding/pages.h"

namespace mirlo {

namespace onboarding {

View centred(View view, double y) {
  view.frame.x = (Onboarding::kSize.width - view.frame.width) / 2;
  view.frame.y = y;
  return view;
}

View placedAt(View view, double x, double y) {
  view.frame.x = x;
  view.frame.y = y;
  return view;
}

std::int64_t nextGeneration(std::int64_t generation) {
  std::int64_t next = 0;
  if (__builtin_add_overflow(generation, std::int64_t{1}, &next)) std::abort();
  return next;
}

}  // namespace onboarding

using onboarding::placedAt;
using onboarding::centred;

namespace {

constexpr double kPermissionPoll = 1.0;
constexpr Color kWhite = Color::white(1.0);

// A row of the settings miniature: an application's name and its switch.
View permissionRow(UI& ui, double y, const std::string& name, bool on, bool highlight) {
  View row = kit::box({8, y, 304, 28}, highlight ? DA::green.withAlpha(0.1) : kWhite);
  row.cornerRadius = 7;
  if (highlight) {
    row.borderWidth = 1.5;
    row.borderColor = DA::green;
  }
  row.children.push_back(
      placedAt(kit::label(ui, name, Font{12, highlight ? FontWeight::bold : FontWeight::regular}, DA::ink), 12, 6));
  View track = kit::box({262, 5, 34, 19}, on ? DA::green : Color::white(0.8));
  track.cornerRadius = 9.5;
  View knob = kit::box({on ? 16.0 : 2.0, 1.5, 16, 16}, kWhite);
  knob.cornerRadius = 8;
  track.children.push_back(std::move(knob));
  row.children.push_back(std::move(track));
  return row;
}

}  // namespace

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
      window_ = ui.createWindow(kSize);
      window_->setTitle("Bienvenue dans Mirlo");
      window_->center();
      window_->setBackground(DA::cream);
      window_->setWillClose(life_.guard([this] { windowWillClose(); }));
      // Once for the controller's life: the window is created only once.
      app_.notifications().observe(Auth::changed, life_.guard([this] { refresh(); }));
    }
    refresh(true);
    ui.activateIgnoringOtherApps();
    window_->makeKeyAndOrderFront();
  }));
}

void Onboarding::refresh(bool asked) {
  if (!window_) return;
  if (axTimer_) axTimer_->invalidate();
  if (!app_.auth().isSignedIn()) {
    setContent(stepLogin());
  } else if (!app_.platform().accessibility.isProcessTrusted()) {
    View step = stepAccessibility();
    startPermissionTimer();
    setContent(std::move(step));
  } else {
    // Everything done: a change of account or permission has nothing left to show, but a person
    // who asked for the window (mirlo://activate) sees the demonstration again, not an empty window.
    if (app_.prefs().onboarded() && !asked) {
      window_->close();
      return;
    }
    nextShown_ = false;
    View step = stepTryIt();
    animView_ = step.slot;
    setContent(std::move(step));
    animGen_ = onboarding::nextGeneration(animGen_);
    runDemoCycle(animGen_, true);
  }
  if (auto* delegate = app_.launchedDelegate()) delegate->rebuildMenu();
}

void Onboarding::setContent(View root) {
  if (!root.slot) root.slot = std::make_shared<ViewSlot>();
  content_ = root.slot;
  window_->setContent(std::move(root));
}

void Onboarding::windowWillClose() {
  if (axTimer_) axTimer_->invalidate();
}

void Onboarding::startPermissionTimer() {
  axTimer_ = app_.platform().mainQueue.scheduleTimer(kPermissionPoll, true, life_.guard([this] {
    if (app_.platform().accessibility.isProcessTrusted()) refresh();
  }));
}

View Onboarding::container() {
  UI& ui = app_.platform().ui;
  View root;
  root.frame = {0, 0, kSize.width, kSize.height};
  root.slot = std::make_shared<ViewSlot>();
  root.children.push_back(centred(kit::label(ui, "mirlo", Font{30, FontWeight::heavy}, DA::ink), 396));

  // A spelling mistake's red wave, under the product's name.
  View wave;
  wave.kind = ViewKind::shape;
  wave.frame = {233, 388, 54, 6};
  wave.wantsLayer = true;
  wave.shape.path.push_back({PathStep::Op::moveTo, {0, 3}, {}});
  for (int i = 0; i < 6; ++i) {
    const double x = 9.0 * (i + 1);
    const double controlY = i % 2 == 0 ? 6 : 0;
    wave.shape.path.push_back({PathStep::Op::quadCurveTo, {x, 3}, {x - 4.5, controlY}});
  }
  wave.shape.stroke = DA::red;
  wave.shape.fill.reset();
  wave.shape.lineWidth = 2;
  wave.shape.roundCaps = true;
  root.children.push_back(std::move(wave));
  return root;
}

void Onboarding::header(View& box, const std::string& step, const std::string& title, const std::string& sub) {
  UI& ui = app_.platform().ui;
  if (!step.empty())
    box.children.push_back(centred(kit::label(ui, step, Font{11, FontWeight::bold}, DA::green), 344));
  box.children.push_back(centred(kit::label(ui, title, Font{22, FontWeight::bold}, DA::ink), 308));
  View subtitle;
  subtitle.kind = ViewKind::label;
  subtitle.text = sub;
  subtitle.font = Font{13.5};
  subtitle.textColor = DA::ink2;
  subtitle.alignment = TextAlignment::center;
  subtitle.wraps = true;
  subtitle.frame = {40, 240, 440, 58};
  box.children.push_back(std::move(subtitle));
}

View Onboarding::settingsMiniature(HostSystem system) {
  UI& ui = app_.platform().ui;
  const bool mac = system == HostSystem::macOS;
  View pane = kit::box({100, 152, 320, 96}, Color::white(0.97));
  pane.cornerRadius = 10;
  pane.borderWidth = 1;
  pane.borderColor = DA::border;
  // A Mac grants the access to each program; a Linux desktop switches it on for all of them.
  pane.children.push_back(placedAt(kit::label(ui, mac ? "Confidentialité et sécurité  ›  Accessibilité"
                                                      : "Réglages  ›  Accessibilité",
                                              Font{10.5, FontWeight::semibold}, DA::muted),
                                   12, 76));
  pane.children.push_back(permissionRow(ui, 42, mac ? "Autre app" : "Lecteur d'écran", false, false));
  pane.children.push_back(permissionRow(ui, 8, mac ? "Mirlo" : "Technologies d'assistance", true, true));
  View pointer = kit::label(ui, "← à activer", Font{11, FontWeight::bold}, DA::red);
  pointer.frame.x = 322 - pointer.frame.width - 66;
  pointer.frame.y = -12;
  pane.children.push_back(std::move(pointer));
  return pane;
}

View Onboarding::stepAccessibility() {
  UI& ui = app_.platform().ui;
  const HostSystem system = app_.platform().appInfo.hostSystem();
  View step = container();
  header(step, "Étape 2 sur 3", "Autorise Mirlo à lire ta sélection", words::permissionReason(system));
  step.children.push_back(settingsMiniature(system));

  if (system == HostSystem::macOS) {
    step.children.push_back(
        centred(kit::label(ui, "①  Clique le bouton   ②  Active l'interrupteur Mirlo   ③  Reviens ici",
                           Font{12, FontWeight::medium}, DA::ink2),
                120));
    FlatButton open(ui, "Ouvrir les Réglages au bon endroit", kWhite, true, true);
    Platform& platform = app_.platform();
    open.setOnClick([&platform] {
      // Asking with the prompt makes the system list the program and show its own request.
      platform.accessibility.isProcessTrustedWithOptions(true);
      platform.workspace.openURL(kAccessibilityPane);
    });
    step.children.push_back(centred(open.view(), 70));
  } else {
    // Every Linux desktop keeps the switch in a different place, and no address opens it: the
    // steps are told in words instead of behind a button.
    View steps;
    steps.kind = ViewKind::label;
    steps.text = "①  Ouvre les réglages d'accessibilité de ton bureau\n"
                 "②  Active les technologies d'assistance   ③  Reviens ici";
    steps.font = Font{12, FontWeight::medium};
    steps.textColor = DA::ink2;
    steps.alignment = TextAlignment::center;
    steps.wraps = true;
    steps.frame = {40, 72, 440, 40};
    step.children.push_back(std::move(steps));
  }

  step.children.push_back(
      centred(kit::label(ui, "⏳ J'attends l'autorisation… je détecte tout seul dès que c'est fait.", Font{11.5},
                         DA::muted),
              40));
  return step;
}

}  // namespace mirlo
