// The welcome window as a new user lives it: the three steps in order, the permission noticed by
// itself, signing out bringing the first step back, one window reused, and nothing left to show
// once everything is done.
#include "onboarding_fixture.h"

#include "account/auth.h"
#include "account/prefs.h"
#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

using Flow = OnboardingTest;

TEST_F(Flow, AFirstLaunchGoesThroughSignInPermissionAndDemonstrationToTheRecap) {
  launchAs(false, false);
  ASSERT_TRUE(onScreen());
  EXPECT_EQ(window().frame().size(), (Size{520, 470}));
  EXPECT_EQ(window().background, DA::cream);
  EXPECT_TRUE(window().key);
  EXPECT_EQ(step(), "Étape 1 sur 3");
  EXPECT_TRUE(shows("Connecte-toi pour commencer"));
  EXPECT_EQ(lines().front(), "Se connecter…");

  window().type("ton@exemple.fr", "lea@example.fr");
  window().type("mot de passe", "bonjour123");
  answerSignIn("lea@example.fr");
  click("Se connecter");
  EXPECT_EQ(step(), "Étape 2 sur 3");
  EXPECT_TRUE(shows("Autorise Mirlo à lire ta sélection"));
  // The menu follows the account at once.
  EXPECT_EQ(lines().front(), "lea@example.fr [off]");

  world.advance(2.5);
  EXPECT_EQ(step(), "Étape 2 sur 3");
  desk().accessibility.trusted = true;
  world.advance(1.0);
  EXPECT_EQ(step(), "Étape 3 sur 3");
  EXPECT_FALSE(world.app->prefs().onboarded());

  world.advance(4.9);
  EXPECT_TRUE(world.app->prefs().onboarded());
  ASSERT_TRUE(click("Suivant"));
  EXPECT_TRUE(shows("🎉 C'est parti !"));
  EXPECT_EQ(step(), "");
  ASSERT_TRUE(click("Terminer"));
  EXPECT_FALSE(onScreen());

  // The next launch finds everything done and stays quiet.
  world.app->onboarding().showIfNeeded();
  world.advance(0);
  EXPECT_FALSE(onScreen());
}

TEST_F(Flow, GrantingThePermissionIsNoticedWithinASecondAndOnlyThen) {
  launchAs(true, false);
  ASSERT_EQ(step(), "Étape 2 sur 3");
  world.advance(0.4);
  desk().accessibility.trusted = true;
  world.advance(0.59);
  EXPECT_EQ(step(), "Étape 2 sur 3");  // the next look is at one second
  world.advance(0.01);
  EXPECT_EQ(step(), "Étape 3 sur 3");
}

TEST_F(Flow, SigningOutDuringTheLaterStepsBringsBackTheSignIn) {
  launchAs(true, false);
  ASSERT_EQ(step(), "Étape 2 sur 3");
  world.app->auth().signOut();
  EXPECT_EQ(step(), "Étape 1 sur 3");
  // The permission poll of step 2 is gone: granting now changes nothing on screen.
  desk().accessibility.trusted = true;
  world.advance(3);
  EXPECT_EQ(step(), "Étape 1 sur 3");

  // Back in through the browser: the window moves on to the demonstration.
  world.app->delegate().handleURLEvent(signInCallback("lea@example.fr"));
  world.advance(0);
  EXPECT_EQ(step(), "Étape 3 sur 3");
  world.advance(2);
  world.app->auth().signOut();
  EXPECT_EQ(step(), "Étape 1 sur 3");
  // The demonstration's pending steps find it gone: no confetti, nothing marked done.
  world.advance(10);
  EXPECT_EQ(step(), "Étape 1 sur 3");
  EXPECT_TRUE(nodesOfKind(ViewKind::emitter).empty());
  EXPECT_FALSE(world.app->prefs().onboarded());
}

TEST_F(Flow, ShowingAgainReusesTheWindowWhereTheUserLeftIt) {
  launchAs(false, true);
  auto& first = window();
  EXPECT_EQ(first.centerCount, 1);
  first.moveTo({100, 80});
  const int activations = desk().ui.activations;

  world.app->onboarding().show();
  EXPECT_EQ(first.frontCount, 1);  // deferred to the main queue
  world.advance(0);
  EXPECT_EQ(desk().ui.windows.size(), 1u);
  EXPECT_EQ(first.centerCount, 1);
  EXPECT_EQ(first.frame(), (Rect{100, 80, 520, 470}));
  EXPECT_EQ(first.frontCount, 2);
  EXPECT_EQ(desk().ui.activations, activations + 1);

  // Closed and reopened: the same window, rebuilt for the step of the moment.
  first.close();
  world.signIn();
  world.app->onboarding().show();
  world.advance(0);
  EXPECT_EQ(desk().ui.windows.size(), 1u);
  EXPECT_TRUE(onScreen());
  EXPECT_EQ(step(), "Étape 3 sur 3");
}

TEST_F(Flow, ClosingTheWindowDuringThePermissionStepStopsThePolling) {
  launchAs(true, false);
  ASSERT_EQ(step(), "Étape 2 sur 3");
  const int builds = desk().ui.statusItem->menuBuilds;
  window().close();
  desk().accessibility.trusted = true;
  world.advance(5);
  // Nothing looked again: the hidden window still holds the permission page.
  EXPECT_EQ(step(), "Étape 2 sur 3");
  EXPECT_EQ(desk().ui.statusItem->menuBuilds, builds);
  // Closing did not finish anything: the next start opens it again, now at the demonstration.
  world.app->onboarding().showIfNeeded();
  world.advance(0);
  EXPECT_TRUE(onScreen());
  EXPECT_EQ(step(), "Étape 3 sur 3");
}

TEST_F(Flow, OnceEverythingIsDoneTheWindowClosesInsteadOfShowingAStep) {
  launchAs(true, true, true);
  EXPECT_FALSE(onScreen());
  EXPECT_TRUE(desk().ui.windows.empty());

  // Finishing while the window is open, then any account change, closes it.
  world.desk.defaults.values["onboarded"] = false;
  world.app->onboarding().show();
  world.advance(0);
  ASSERT_EQ(step(), "Étape 3 sur 3");
  click("Passer");
  ASSERT_TRUE(shows("🎉 C'est parti !"));
  world.app->notifications().post(Auth::changed);
  EXPECT_FALSE(onScreen());
}

TEST_F(Flow, ThePermissionButtonAsksTheSystemAndOpensTheAccessibilityList) {
  launchAs(true, false);
  ASSERT_TRUE(click("Ouvrir les Réglages au bon endroit"));
  EXPECT_EQ(desk().accessibility.promptCount, 1);
  EXPECT_EQ(desk().workspace.openedURLs.back(),
            "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility");
  EXPECT_EQ(step(), "Étape 2 sur 3");
}

// ---- What each page looks like.

TEST_F(Flow, EveryPageCarriesTheWordMarkWithItsRedWaveAndACentredHeader) {
  launchAs(true, false);
  const View& mark = view("mirlo");
  EXPECT_EQ(mark.frame, (Rect{218.5, 396, 83, 38}));
  EXPECT_EQ(mark.font, (Font{30, FontWeight::heavy}));
  EXPECT_EQ(mark.textColor, DA::ink);

  auto shapes = nodesOfKind(ViewKind::shape);
  ASSERT_EQ(shapes.size(), 1u);
  const View& wave = shapes.front()->view;
  EXPECT_EQ(wave.frame, (Rect{233, 388, 54, 6}));
  EXPECT_EQ(wave.shape.stroke, DA::red);
  EXPECT_FALSE(wave.shape.fill);
  EXPECT_EQ(wave.shape.lineWidth, 2);
  EXPECT_TRUE(wave.shape.roundCaps);
  const std::vector<PathStep> path = {
      {PathStep::Op::moveTo, {0, 3}, {}},
      {PathStep::Op::quadCurveTo, {9, 3}, {4.5, 6}},    {PathStep::Op::quadCurveTo, {18, 3}, {13.5, 0}},
      {PathStep::Op::quadCurveTo, {27, 3}, {22.5, 6}},  {PathStep::Op::quadCurveTo, {36, 3}, {31.5, 0}},
      {PathStep::Op::quadCurveTo, {45, 3}, {40.5, 6}},  {PathStep::Op::quadCurveTo, {54, 3}, {49.5, 0}},
  };
  EXPECT_EQ(wave.shape.path, path);

  // "Étape 2 sur 3": 13 characters at 11 pt bold.
  const View& label = view("Étape 2 sur 3");
  EXPECT_EQ(label.frame, (Rect{(520 - 79.0) / 2, 344, 79, 14}));
  EXPECT_EQ(label.font, (Font{11, FontWeight::bold}));
  EXPECT_EQ(label.textColor, DA::green);
  // The title: 34 characters at 22 pt bold.
  const View& title = view("Autorise Mirlo à lire ta sélection");
  EXPECT_EQ(title.frame, (Rect{(520 - 412.0) / 2, 308, 412, 28}));
  EXPECT_EQ(title.font, (Font{22, FontWeight::bold}));
  EXPECT_EQ(title.textColor, DA::ink);
  const View& sub = view(
      "Permission macOS indispensable pour corriger le texte là où il est.\nTes textes ne sont jamais stockés.");
  EXPECT_EQ(sub.frame, (Rect{40, 240, 440, 58}));
  EXPECT_EQ(sub.font, (Font{13.5}));
  EXPECT_EQ(sub.textColor, DA::ink2);
  EXPECT_EQ(sub.alignment, TextAlignment::center);
  EXPECT_TRUE(sub.wraps);
}

TEST_F(Flow, ThePermissionPageDrawsTheSettingsListWithMirloSwitchedOn) {
  launchAs(true, false);
  auto pane = sim::findNode(window().content, [](const sim::SimNode& n) {
    return n.view.frame == Rect{100, 152, 320, 96};
  });
  ASSERT_TRUE(pane);
  EXPECT_EQ(pane->view.background, Color::white(0.97));
  EXPECT_EQ(pane->view.cornerRadius, 10);
  EXPECT_EQ(pane->view.borderWidth, 1);
  EXPECT_EQ(pane->view.borderColor, DA::border);
  ASSERT_EQ(pane->children.size(), 4u);

  const View& crumb = pane->children[0]->view;
  EXPECT_EQ(crumb.text, "Confidentialité et sécurité  ›  Accessibilité");
  EXPECT_EQ(crumb.frame.origin(), (Point{12, 76}));
  EXPECT_EQ(crumb.font, (Font{10.5, FontWeight::semibold}));
  EXPECT_EQ(crumb.textColor, DA::muted);

  // The other application: plain row, switch off.
  const auto& other = *pane->children[1];
  EXPECT_EQ(other.view.frame, (Rect{8, 42, 304, 28}));
  EXPECT_EQ(other.view.background, Color::white(1));
  EXPECT_EQ(other.view.borderWidth, 0);
  EXPECT_EQ(other.children[0]->view.text, "Autre app");
  EXPECT_EQ(other.children[0]->view.font, (Font{12}));
  EXPECT_EQ(other.children[1]->view.frame, (Rect{262, 5, 34, 19}));
  EXPECT_EQ(other.children[1]->view.background, Color::white(0.8));
  EXPECT_EQ(other.children[1]->children[0]->view.frame, (Rect{2, 1.5, 16, 16}));

  // Mirlo: highlighted in green, in bold, switch on.
  const auto& mirlo = *pane->children[2];
  EXPECT_EQ(mirlo.view.frame, (Rect{8, 8, 304, 28}));
  EXPECT_EQ(mirlo.view.background, DA::green.withAlpha(0.1));
  EXPECT_EQ(mirlo.view.borderWidth, 1.5);
  EXPECT_EQ(mirlo.view.borderColor, DA::green);
  EXPECT_EQ(mirlo.view.cornerRadius, 7);
  EXPECT_EQ(mirlo.children[0]->view.text, "Mirlo");
  EXPECT_EQ(mirlo.children[0]->view.frame.origin(), (Point{12, 6}));
  EXPECT_EQ(mirlo.children[0]->view.font, (Font{12, FontWeight::bold}));
  const View& track = mirlo.children[1]->view;
  EXPECT_EQ(track.background, DA::green);
  EXPECT_EQ(track.cornerRadius, 9.5);
  const View& knob = mirlo.children[1]->children[0]->view;
  EXPECT_EQ(knob.frame, (Rect{16, 1.5, 16, 16}));
  EXPECT_EQ(knob.background, Color::white(1));
  EXPECT_EQ(knob.cornerRadius, 8);

  // The pointer hangs under the list, to the left of the switch: 11 characters at 11 pt.
  const View& pointer = pane->children[3]->view;
  EXPECT_EQ(pointer.text, "← à activer");
  EXPECT_EQ(pointer.frame, (Rect{322 - 67.0 - 66, -12, 67, 14}));
  EXPECT_EQ(pointer.textColor, DA::red);

  const View& steps = view("①  Clique le bouton   ②  Active l'interrupteur Mirlo   ③  Reviens ici");
  EXPECT_EQ(steps.frame.y, 120);
  EXPECT_EQ(steps.frame.x, (520 - steps.frame.width) / 2);
  EXPECT_EQ(steps.font, (Font{12, FontWeight::medium}));
  EXPECT_EQ(steps.textColor, DA::ink2);
  // "Ouvrir les Réglages au bon endroit": 34 characters at 14 pt, grown by 36 × 16.
  const View& open = view("Ouvrir les Réglages au bon endroit");
  EXPECT_EQ(open.frame, (Rect{(520 - 298.0) / 2, 70, 298, 34}));
  EXPECT_EQ(open.background, DA::ink);
  const View& waiting = view("⏳ J'attends l'autorisation… je détecte tout seul dès que c'est fait.");
  EXPECT_EQ(waiting.frame.y, 40);
  EXPECT_EQ(waiting.font, (Font{11.5}));
  EXPECT_EQ(waiting.textColor, DA::muted);
}

}  // namespace
}  // namespace mirlo::testing
