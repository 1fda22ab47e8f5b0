// What the user sees around one correction: the progress card, refusals, errors and time-outs.
// Writing the answer back is told in correct_selection_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/sim_app.h"
#include "ui/onboarding/onboarding.h"

namespace mirlo {
namespace {

using sim::SimAnswer;
using testing::SimWorld;

constexpr const char* kCorrect = "/functions/v1/correct";
constexpr const char* kWelcome = "Bienvenue dans Mirlo";

class CorrectionFlow : public ::testing::Test {
 protected:
  void SetUp() override {
    world.signIn();
    auto& mail = world.desk.launchApp(501, "com.apple.mail", "Je suis alé au marché.");
    mail.element->selection = {0, 22};
  }

  void serviceAnswers(const std::string& body, double delay = 0) {
    world.desk.http.enqueue(kCorrect, SimAnswer::json(200, body, delay));
  }
  Engine& engine() { return world.app->engine(); }
  Card& card() { return world.app->card(); }
  sim::SimElement& element() { return *world.desk.frontApp()->element; }
  std::string cardText() {
    auto panel = world.desk.ui.openPanel();
    if (!panel) return {};
    std::string all;
    for (const auto& node : panel->views) all += (all.empty() ? "" : " ") + node->view.text;
    return all;
  }
  std::size_t corrections() {
    const auto& posted = world.app->notifications().posted();
    return static_cast<std::size_t>(std::count(posted.begin(), posted.end(), std::string(Engine::corrected)));
  }

  SimWorld world;
};

TEST_F(CorrectionFlow, AnyModeOtherThanFixIsShownAsRephrasing) {
  serviceAnswers(R"({"result":"x"})", 5);
  engine().run("Fix");
  EXPECT_EQ(cardText(), "Reformulation…");
}

TEST_F(CorrectionFlow, WithoutPermissionOrSessionTheOnboardingOpensInstead) {
  world.desk.accessibility.trusted = false;
  engine().run("fix");
  world.advance();
  EXPECT_NE(world.desk.ui.window(kWelcome), nullptr);
  EXPECT_FALSE(engine().busy());
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);

  SimWorld signedOut;
  signedOut.desk.launchApp(7, "com.apple.TextEdit", "texte");
  signedOut.app->engine().run("fix");
  signedOut.advance();
  EXPECT_NE(signedOut.desk.ui.window(kWelcome), nullptr);
  EXPECT_EQ(signedOut.desk.http.requests().size(), 0u);
}

// The quota card itself is in the quota-upsell scenario.
TEST_F(CorrectionFlow, AServiceErrorLeavesNothingToUndo) {
  serviceAnswers(R"({"code":"quota","error":"Limite du jour atteinte"})");
  engine().run("fix");
  world.advance(1);
  EXPECT_EQ(card().state(), Card::State::error);
  EXPECT_FALSE(engine().undoInfo().has_value());
  EXPECT_EQ(corrections(), 0u);
  EXPECT_FALSE(engine().busy());
}

// A refresh that succeeds is in the auth-refresh-once scenario.
TEST_F(CorrectionFlow, ARefusedRefreshSignsOutOpensTheOnboardingAndShowsTheError) {
  serviceAnswers(R"({"code":"auth","error":"JWT expired"})");
  world.desk.http.enqueue("grant_type=refresh_token",
                          SimAnswer::json(400, R"({"error_code":"refresh_token_not_found","msg":"Invalid Refresh Token"})"));
  engine().run("fix");
  world.advance(1);
  EXPECT_EQ(cardText(), "! Reconnecte-toi à ton compte");
  EXPECT_NE(world.desk.ui.window(kWelcome), nullptr);
  EXPECT_FALSE(world.app->auth().isSignedIn());
  EXPECT_EQ(world.desk.secrets.items.count("io.mirlo.app.session"), 0u);
  EXPECT_EQ(world.desk.http.requestCount("grant_type=refresh_token"), 1u);
  EXPECT_EQ(world.desk.http.requestCount(kCorrect), 1u);
  EXPECT_FALSE(engine().busy());
}

TEST_F(CorrectionFlow, AnInvalidServiceAddressIsShownAsAnError) {
  SimWorld broken(AppConfig{"not a url", "k", "https://site.test"});
  broken.signIn();
  auto& app = broken.desk.launchApp(9, "com.apple.TextEdit", "Salut");
  app.element->selection = {0, 5};
  broken.app->engine().run("fix");
  EXPECT_TRUE(broken.app->engine().busy()) << "the failure comes back through the main queue";
  broken.advance();
  EXPECT_EQ(broken.app->card().state(), Card::State::error);
  EXPECT_EQ(broken.desk.http.requestCount(), 0u);
  EXPECT_FALSE(broken.app->engine().busy());
  broken.advance(0.15);  // the progress card glides into the error
  EXPECT_NE(sim::findText(broken.desk.ui.openPanel()->views, "Configuration invalide"), nullptr);
}

}  // namespace
}  // namespace mirlo
