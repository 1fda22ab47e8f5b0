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

// Signed out, the hot key opens it too: that is the connect-card-when-signed-out scenario.
TEST_F(CorrectionFlow, WithoutPermissionTheOnboardingOpensInstead) {
  world.desk.accessibility.trusted = false;
  engine().run("fix");
  world.advance();
  EXPECT_NE(world.desk.ui.window(kWelcome), nullptr);
  EXPECT_FALSE(engine().busy());
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
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

// A refresh that succeeds is in the auth-refresh-once scenario. Only the server's refusal of the
// refresh token signs out; a failure that says nothing about the session keeps it, and the
// correction shows what went wrong.
TEST_F(CorrectionFlow, OnlyARefusedRefreshSignsOut) {
  struct Case {
    SimAnswer refreshAnswer;
    bool signsOut;
    std::string shown;
  };
  const Case cases[] = {
      {SimAnswer::json(400, R"({"error_code":"refresh_token_not_found","msg":"Invalid Refresh Token"})"), true,
       "Reconnecte-toi à ton compte"},
      {SimAnswer::json(500, R"({"code":500,"msg":"Internal server error"})"), false, "Réponse invalide du serveur"},
      {SimAnswer::json(502, "<html>Bad gateway</html>"), false, "Réponse invalide du serveur"},
      {SimAnswer::json(200, R"({"access_token":"only-one"})"), false, "Réponse invalide du serveur"},
      {SimAnswer::failure(TransportFailure::refused, sim::SimHttp::kCannotConnect), false, "Le serveur ne répond pas, réessaie plus tard"},
  };
  for (const auto& c : cases) {
    SimWorld w;
    w.signIn("lea@example.fr", "refresh-1");
    const std::string stored = w.desk.secrets.items.at("io.mirlo.app.session");
    auto& mail = w.desk.launchApp(501, "com.apple.mail", "Je suis alé au marché.");
    mail.element->selection = {0, 22};
    w.desk.http.enqueue(kCorrect, SimAnswer::json(200, R"({"code":"auth","error":"JWT expired"})"));
    w.desk.http.enqueue("grant_type=refresh_token", c.refreshAnswer);
    w.app->engine().run("fix");
    w.advance(1);
    SCOPED_TRACE(c.shown);
    EXPECT_NE(sim::findText(w.desk.ui.openPanel()->views, c.shown), nullptr);
    EXPECT_EQ(w.app->auth().isSignedIn(), !c.signsOut);
    EXPECT_EQ(w.desk.ui.window(kWelcome) != nullptr, c.signsOut) << "the onboarding asks to sign in again";
    EXPECT_EQ(w.desk.secrets.items.count("io.mirlo.app.session"), c.signsOut ? 0u : 1u);
    if (!c.signsOut) {
      EXPECT_EQ(w.desk.secrets.items.at("io.mirlo.app.session"), stored);
      EXPECT_EQ(w.app->auth().refreshToken(), "refresh-1");
    }
    EXPECT_EQ(w.desk.http.requestCount("grant_type=refresh_token"), 1u);
    EXPECT_EQ(w.desk.http.requestCount(kCorrect), 1u);
    EXPECT_FALSE(w.app->engine().busy());
  }
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
