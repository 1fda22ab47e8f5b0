// The status menu through a day: signed out, signed in, after each kind of answer from the
// correction service, the popup switch, the links, and an update announced by the web site.
#include <gtest/gtest.h>

#include "app/shell_support.h"

namespace mirlo::testing {
namespace {

struct MenuDay : ::testing::Test {
  void start(bool signedIn = true) {
    if (signedIn) world.signIn("lea@example.fr");
    world.desk.defaults.values["onboarded"] = true;
    launch(world);
  }
  std::vector<std::string> lines() { return menuLines(*world.desk.ui.statusItem); }
  void choose(const std::string& title) {
    const MenuItem* it = menuItem(*world.desk.ui.statusItem, title);
    ASSERT_NE(it, nullptr) << title;
    ASSERT_TRUE(it->action) << title;
    it->action();
    world.advance(0);
  }
  // The user selects "Bonjour tout le monde" in a mail client and asks for a correction; the
  // service answers with this body.
  void correctWithAnswer(const std::string& body) {
    world.desk.launchApp(400 + ++runs, "com.apple.mail", "Bonjour tout le monde");
    world.desk.select(0, 21);
    world.desk.http.enqueue("/functions/v1/correct", sim::SimAnswer::json(200, body));
    choose("Corriger la sélection");
    world.advance(1);
  }
  void manifest(const std::string& body) {
    world.desk.http.enqueue("/version.json", sim::SimAnswer::json(200, body));
  }
  SimWorld world;
  int runs = 0;
};

// The whole menu, signed out and signed in, is in the sign-in-callback scenario.
TEST_F(MenuDay, SignedOutTheFirstItemOpensTheWelcomeWindow) {
  start(false);
  choose("Se connecter…");
  EXPECT_NE(world.desk.ui.window("Bienvenue dans Mirlo"), nullptr);
}

// The usual answers ("1/3", "Pro · Annuel") are in the menu-after-answers scenario; here the others.
TEST_F(MenuDay, ThePlanLineFollowsEveryAnswerOfTheService) {
  start();
  correctWithAnswer(R"({"code":"quota","error":"Limite atteinte","plan":"gratuit","usage":{"used":3,"limit":3}})");
  EXPECT_EQ(lines()[1], "Gratuit · 3/3 aujourd'hui [off]");

  // The fixed text says 3 whatever the limit; an empty plan reads as the free one.
  correctWithAnswer(R"({"result":"Salut","plan":"","usage":{"used":0,"limit":10}})");
  EXPECT_EQ(lines()[1], "Gratuit · 0/10 aujourd'hui [off]");

  correctWithAnswer(R"({"result":"Bonjour à tous","plan":"pro_mensuel","usage":{"used":40,"limit":1000}})");
  EXPECT_EQ(lines()[1], "Pro · Mensuel [off]");

  // A plan the program does not know, even a known one in other capitals, is shown as free,
  // without figures.
  correctWithAnswer(R"({"result":"Bonjour à tous","plan":"Pro_Mensuel","usage":{"used":2,"limit":3}})");
  EXPECT_EQ(lines()[1], "Gratuit [off]");

  // An answer that is not even JSON changes nothing in the menu.
  correctWithAnswer("<html>502</html>");
  EXPECT_EQ(lines()[1], "Gratuit [off]");
  EXPECT_EQ(lines().size(), 11u);
}

TEST_F(MenuDay, LinksOpenTheDashboardAndTheSettings) {
  start();
  choose("Mon dashboard");
  EXPECT_EQ(world.desk.workspace.openedURLs.back(), "https://mirlo.test/compte.html");
  const int activations = world.desk.ui.activations;
  choose("Réglages…");
  auto settings = world.desk.ui.window("Réglages Mirlo");
  ASSERT_NE(settings, nullptr);
  EXPECT_TRUE(settings->key);
  EXPECT_GT(world.desk.ui.activations, activations);
  choose("Quitter Mirlo");
  EXPECT_TRUE(world.desk.ui.terminated);
}

// The request, the offer in the menu and its link are in the update-offered scenario.
TEST_F(MenuDay, AnUpdateOfferStaysUntilANewerOneReplacesIt) {
  world.desk.appInfo.version = "1.9";
  manifest(R"({"version":"1.10","notes":"ignored"})");
  start();
  world.advance(0);
  ASSERT_EQ(lines()[0], "Mettre à jour vers la version 1.10…");

  // Six hours later the site announces an older version: the offer stays.
  manifest(R"({"version":"1.9"})");
  world.advance(21600);
  EXPECT_EQ(world.desk.http.requestCount("/version.json"), 2u);
  EXPECT_EQ(lines()[0], "Mettre à jour vers la version 1.10…");
  // And six hours after that, a newer one replaces it.
  manifest(R"({"version":"1.11"})");
  world.advance(21600);
  EXPECT_EQ(lines()[0], "Mettre à jour vers la version 1.11…");
}

TEST_F(MenuDay, TheSameVersionOrBadManifestsOfferNothing) {
  world.desk.appInfo.version = "1.2";
  start();
  const std::vector<sim::SimAnswer> answers = {
      sim::SimAnswer::json(200, R"({"version":"1.2"})"),
      sim::SimAnswer::json(200, R"({"version":"1.02"})"),
      sim::SimAnswer::json(200, R"({"version":2})"),
      sim::SimAnswer::json(200, R"({"latest":"9.0"})"),
      sim::SimAnswer::json(200, R"(["9.0"])"),
      sim::SimAnswer::json(200, "9.0"),
      sim::SimAnswer::json(200, ""),
      sim::SimAnswer::json(200, "{\"version\":\"9.0\"" + std::string(200000, ' ') + "}"),
      sim::SimAnswer::json(200, std::string(100000, '[')),
      sim::SimAnswer::json(200, "{\"version\":\"9.\xff\"}"),
      sim::SimAnswer::failure(TransportFailure::noConnection, "The Internet connection appears to be offline."),
      sim::SimAnswer::json(200, R"({"version":"9.0"})", 30),  // past the time-out
  };
  for (const auto& answer : answers) {
    world.desk.http.enqueue("/version.json", answer);
    world.advance(21600);
  }
  world.advance(60);
  EXPECT_FALSE(world.app->delegate().updateVersion());
  EXPECT_EQ(lines()[0], "lea@example.fr [off]");
  EXPECT_EQ(world.desk.ui.statusItem->title, "M");
}

TEST_F(MenuDay, WithoutAKnownRunningVersionAnyRealVersionIsNewer) {
  world.desk.appInfo.version.reset();
  manifest(R"({"version":"0.1"})");
  start();
  world.advance(0);
  EXPECT_EQ(world.app->delegate().updateVersion(), "0.1");
}

TEST_F(MenuDay, AnAnswerArrivingAfterTheProgramIsGoneIsDropped) {
  world.desk.appInfo.version = "1.0";
  world.desk.http.enqueue("/version.json", sim::SimAnswer::json(200, R"({"version":"2.0"})", 5));
  start();
  world.app.reset();
  world.advance(10);  // nothing to crash into
  SUCCEED();
}

}  // namespace
}  // namespace mirlo::testing
