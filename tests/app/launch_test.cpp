// Starting the program: what appears, in which order, and which window greets the user.
#include <gtest/gtest.h>

#include "app/shell_support.h"

namespace mirlo::testing {
namespace {

TEST(Launch, GreetsANewUserWithTheMenuTheKeysAndTheUpdateCheck) {
  SimWorld world;
  world.desk.launchApp(301, "com.google.Chrome", "Bonjour");
  world.desk.launchApp(302, "com.apple.TextEdit", "Salut");
  world.desk.queue.advance(0);  // activations from before launch are not heard
  launch(world);

  // The status item and its menu are in the sign-in-callback scenario.
  EXPECT_EQ(world.desk.hotKeys.registered.size(), 2u);  // their keys are in hot_keys_test.cpp
  EXPECT_EQ(world.desk.http.requestCount("/version.json"), 1u);
  // Only the browsers known to need it have their accessibility switched on.
  EXPECT_EQ(world.app->delegate().armedPids(), (std::set<std::int32_t>{301}));
  auto window = world.desk.ui.window("Bienvenue dans Mirlo");
  ASSERT_NE(window, nullptr);
  EXPECT_TRUE(window->key);
}

TEST(Launch, OnboardingComesBackWhileAnyOfTheThreeConditionsIsMissing) {
  struct Case {
    bool trusted, onboarded, welcomed;
  } cases[] = {{false, true, true}, {true, false, true}, {true, true, false}};
  for (const auto& c : cases) {
    SimWorld world;
    world.app->auth().setTokens(accessTokenFor("lea@example.fr"), "r");
    world.desk.accessibility.trusted = c.trusted;
    world.desk.defaults.values["onboarded"] = c.onboarded;
    launch(world);
    EXPECT_EQ(world.desk.ui.window("Bienvenue dans Mirlo") != nullptr, c.welcomed) << c.trusted << c.onboarded;
    if (!c.welcomed) {
      EXPECT_TRUE(world.desk.ui.windows.empty());
    }
  }
}

TEST(Launch, AStatusBarThatGivesNoItemStopsTheProgram) {
  SimWorld world;
  world.desk.ui.statusBarRefuses = true;
  EXPECT_ANY_THROW(launch(world));
}

TEST(Launch, ASignInLinkThatOpenedTheProgramIsNotLost) {
  SimWorld world;
  world.desk.defaults.values["onboarded"] = true;
  // The browser's return opens the program: the link arrives before launch has completed.
  launch(world, {signInCallback("camille@example.fr")});

  EXPECT_TRUE(world.app->auth().isSignedIn());
  EXPECT_EQ(world.app->auth().email(), "camille@example.fr");
  auto lines = menuLines(*world.desk.ui.statusItem);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "camille@example.fr [off]");
  auto panel = world.desk.ui.openPanel();
  ASSERT_NE(panel, nullptr);
  EXPECT_NE(sim::findNode(panel->views, [](const sim::SimNode& n) { return n.view.text == "Connecté : camille@example.fr"; }),
            nullptr);
  // Signed in, trusted and onboarded now: no welcome window.
  EXPECT_TRUE(world.desk.ui.windows.empty());
}

TEST(Launch, ALinkHeardBeforeTheHandlerExistsIsDeliveredWhenItIsInstalled) {
  SimWorld world;
  world.app->delegate().handleURLEvent(signInCallback("noe@example.fr"));
  EXPECT_FALSE(world.app->auth().isSignedIn());
  world.app->delegate().applicationWillFinishLaunching();
  EXPECT_TRUE(world.app->auth().isSignedIn());
}

// --- Links while the program runs.

struct RunningWorld : ::testing::Test {
  void SetUp() override {
    world.desk.defaults.values["onboarded"] = true;
    launch(world);
  }
  void open(const std::optional<std::string>& url) {
    world.app->delegate().handleURLEvent(url);
    world.advance(0);
  }
  // How many times a window was brought to the front.
  int windowFrontings() {
    int n = 0;
    for (const auto& w : world.desk.ui.windows) n += w->frontCount;
    return n;
  }
  SimWorld world;
};

TEST_F(RunningWorld, EveryWayOfWritingTheActivationLinkOpensOnboarding) {
  for (const std::string url : {"mirlo://activate", "mirlo:activate", "mirlo:/activate/", "mirlo:///activate",
                                "mirlo://activate/anything?x=1", "mirlo://%61ctivate"}) {
    SimWorld fresh;
    fresh.signIn();
    fresh.desk.defaults.values["onboarded"] = true;
    launch(fresh);
    ASSERT_EQ(fresh.desk.ui.window("Bienvenue dans Mirlo"), nullptr);
    fresh.app->delegate().handleURLEvent(url);
    fresh.advance(0);
    auto window = fresh.desk.ui.window("Bienvenue dans Mirlo");
    ASSERT_NE(window, nullptr) << url;
    // Everything was done already: the demonstration plays again.
    EXPECT_NE(window->find("Étape 3 sur 3"), nullptr) << url;
  }
}

TEST_F(RunningWorld, RefusedForeignMalformedAndUnknownLinksAreDroppedQuietly) {
  world.signIn();
  const std::string tokens = signInCallback("intrus@example.fr").substr(std::string("mirlo://auth").size());
  const std::vector<std::optional<std::string>> urls = {
      std::nullopt,
      "",
      "activate",
      "Mirlo://activate",
      "MIRLO://auth" + tokens,
      "https://mirlo.test/activate",
      "mirlo://",
      "mirlo:",
      "mirlo://settings",
      "mirlo://ACTIVATE",
      "mirlo://auth x",
      "mirlo://auth#error=access_denied",
      "mirlo://auth",
      "mirlo://%zz",
      "mirlo://" + std::string(100000, 'a'),
      "mirlo://auth#" + std::string(100000, '%'),
      "mirlo\n://activate",
      "\xff\xfe",
  };
  const int builds = world.desk.ui.statusItem->menuBuilds;
  const int frontings = windowFrontings();
  for (const auto& url : urls) {
    open(url);
    EXPECT_EQ(windowFrontings(), frontings) << url.value_or("(none)");
  }
  EXPECT_EQ(world.app->auth().email(), "lea@example.fr");
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
  EXPECT_EQ(world.desk.ui.statusItem->menuBuilds, builds);
}

}  // namespace
}  // namespace mirlo::testing
