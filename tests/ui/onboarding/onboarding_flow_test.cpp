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
  EXPECT_EQ(lines().front(), "Se connecter…");

  window().type("ton@exemple.fr", "lea@example.fr");
  window().type("mot de passe", "bonjour123");
  answerSignIn("lea@example.fr");
  click("Se connecter");
  EXPECT_EQ(step(), "Étape 2 sur 3");
  // The menu follows the account at once.
  EXPECT_EQ(lines().front(), "lea@example.fr [off]");

  // Each page's timing is told in its own test below and in demonstration_test.cpp.
  desk().accessibility.trusted = true;
  world.advance(1.0);
  EXPECT_EQ(step(), "Étape 3 sur 3");
  world.advance(4.9);
  ASSERT_TRUE(click("Suivant"));
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

// On Linux there is no per-program switch and no address that opens the right settings: the page
// says what to switch on, and nothing on any page speaks of a Mac.
TEST_F(Flow, OnALinuxDesktopThePagesTellTheLinuxWay) {
  desk().appInfo.system = HostSystem::linuxDesktop;
  std::vector<std::string> seen;
  launchAs(false, false);
  EXPECT_TRUE(shows("Ton compte porte ton plan et te suit sur tous tes ordinateurs.\n"
                    "Gratuit : 3 corrections par jour, sans carte bancaire."));
  for (const auto& t : texts()) seen.push_back(t);

  window().type("ton@exemple.fr", "lea@example.fr");
  window().type("mot de passe", "bonjour123");
  answerSignIn("lea@example.fr");
  click("Se connecter");
  ASSERT_EQ(step(), "Étape 2 sur 3");
  EXPECT_TRUE(shows("Accessibilité requise pour corriger le texte là où il est.\n"
                    "Tes textes ne sont jamais stockés."));
  EXPECT_TRUE(shows("Technologies d'assistance"));
  EXPECT_FALSE(shows("Ouvrir les Réglages au bon endroit"));
  for (const auto& t : texts()) seen.push_back(t);

  desk().accessibility.trusted = true;
  world.advance(1);
  ASSERT_EQ(step(), "Étape 3 sur 3");
  ASSERT_TRUE(click("Passer"));
  for (const auto& t : texts()) seen.push_back(t);

  for (const auto& t : seen)
    for (const char* mac : {"Mac", "⌘", "⇧", "⌥", "barre de menus"}) EXPECT_EQ(t.find(mac), std::string::npos) << t;
  EXPECT_TRUE(desk().workspace.openedURLs.empty());
}

// ---- What each page looks like.

TEST_F(Flow, ThePermissionPageShowsTheSettingsListWithMirloSwitchedOn) {
  launchAs(true, false);
  EXPECT_EQ(texts(), (std::vector<std::string>{
                         "mirlo", "Étape 2 sur 3", "Autorise Mirlo à lire ta sélection",
                         "Permission macOS indispensable pour corriger le texte là où il est.\nTes textes ne sont jamais stockés.",
                         "Confidentialité et sécurité  ›  Accessibilité", "Autre app", "Mirlo", "← à activer",
                         "①  Clique le bouton   ②  Active l'interrupteur Mirlo   ③  Reviens ici",
                         "Ouvrir les Réglages au bon endroit",
                         "⏳ J'attends l'autorisation… je détecte tout seul dès que c'est fait."}));
  EXPECT_EQ(nodesOfKind(ViewKind::shape).size(), 1u);  // the red wave under the word mark
  // The switches: the other application's off (knob on the left), Mirlo's on in green.
  auto row = [&](const std::string& name) -> const sim::SimNode& {
    auto found = sim::findNode(window().content, [&](const sim::SimNode& n) {
      return n.children.size() == 2 && n.children[0]->view.text == name;
    });
    if (!found) throw std::runtime_error("no row for " + name);
    return *found;
  };
  const auto& other = row("Autre app");
  const auto& mirlo = row("Mirlo");
  EXPECT_LT(other.children[1]->children[0]->view.frame.x, mirlo.children[1]->children[0]->view.frame.x);
  EXPECT_EQ(mirlo.children[1]->view.background, DA::green);
  EXPECT_NE(other.children[1]->view.background, DA::green);
}

}  // namespace
}  // namespace mirlo::testing
