// One correction, from the key press to the text in the other application, as the user sees it.
#include <gtest/gtest.h>

#include <algorithm>

#include "base/json.h"
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

TEST_F(CorrectionFlow, TheCorrectedTextReplacesTheSelectionAndIsSelected) {
  serviceAnswers(R"({"result":"Je suis allé au marché."})", 0.8);
  engine().run("fix");

  EXPECT_TRUE(engine().busy());
  EXPECT_EQ(card().state(), Card::State::progress);
  EXPECT_EQ(cardText(), "Correction…");

  world.advance(1);
  EXPECT_EQ(element().text, "Je suis allé au marché.");
  EXPECT_EQ(element().selection, (AXRange{0, 23}));
  EXPECT_FALSE(engine().busy());
  EXPECT_EQ(card().state(), Card::State::idle);
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
  EXPECT_EQ(corrections(), 1u);
  EXPECT_TRUE(world.desk.keyboard.posted.empty()) << "no keys are synthesised on the accessibility path";

  const auto& undo = engine().undoInfo();
  ASSERT_TRUE(undo.has_value());
  EXPECT_EQ(undo->element, world.desk.frontApp()->element);
  EXPECT_EQ(undo->location, 0);
  EXPECT_EQ(undo->original, "Je suis alé au marché.");
  EXPECT_EQ(undo->corrected, "Je suis allé au marché.");
  EXPECT_DOUBLE_EQ(undo->at, 0.8);
}

TEST_F(CorrectionFlow, RangesCountUtf16UnitsSoAnEmojiCountsTwo) {
  element().text = "Top 👍 merci bcp";
  element().selection = {7, 9};  // "merci bcp", after the emoji
  serviceAnswers(R"({"result":"Merci beaucoup 🙏"})");
  engine().run("fix");
  world.advance(1);
  EXPECT_EQ(element().text, "Top 👍 Merci beaucoup 🙏");
  EXPECT_EQ(element().selection, (AXRange{7, 17}));
  EXPECT_EQ(engine().undoInfo()->location, 7);
}

TEST_F(CorrectionFlow, TheSelectionIsSentExactlyAsReadWithItsSpaces) {
  element().text = "a \n  Bonjour \n";
  element().selection = {1, 13};
  serviceAnswers(R"({"result":"Bonjour"})");
  engine().run("rephrase");
  EXPECT_EQ(cardText(), "Reformulation…");
  world.advance(1);
  auto body = parseJson(*world.desk.http.requests().at(0).body);
  EXPECT_EQ((*body)["text"], " \n  Bonjour \n");
  EXPECT_EQ((*body)["mode"], "rephrase");
}

TEST_F(CorrectionFlow, AnyModeOtherThanFixIsShownAsRephrasing) {
  serviceAnswers(R"({"result":"x"})", 5);
  engine().run("Fix");
  EXPECT_EQ(cardText(), "Reformulation…");
}

TEST_F(CorrectionFlow, ASecondRequestWhileBusyDoesNothing) {
  serviceAnswers(R"({"result":"Je suis allé au marché."})", 2);
  engine().run("fix");
  engine().run("fix");
  engine().run("rephrase");
  EXPECT_EQ(world.desk.http.requestCount(kCorrect), 1u);
  EXPECT_EQ(cardText(), "Correction…");
  world.advance(3);
  EXPECT_EQ(corrections(), 1u);
  EXPECT_FALSE(engine().busy());
}

TEST_F(CorrectionFlow, AWriteTheElementRefusesGoesThroughThePaste) {
  element().selectedTextSettable = false;
  world.desk.clipboard.putText("mes notes");
  serviceAnswers(R"({"result":"Je suis allé au marché."})");
  engine().run("fix");
  world.advance(0.1);
  EXPECT_EQ(element().text, "Je suis allé au marché.") << "pasted by the application";
  const auto& keys = world.desk.keyboard.posted;
  ASSERT_EQ(keys.size(), 2u);
  EXPECT_EQ(keys[0].keyCode, 9);
  EXPECT_EQ(keys[0].flags, modifier::command);
  EXPECT_EQ(engine().undoInfo()->element, world.desk.frontApp()->element) << "recorded on the paste path too";
  EXPECT_EQ(corrections(), 1u);
  world.advance(0.5);
  EXPECT_EQ(world.desk.clipboard.text, "mes notes");
}

TEST_F(CorrectionFlow, OnlyWhiteSpaceSelectedFallsBackToTheClipboard) {
  element().text = "  \n\t ";
  element().selection = {0, 5};
  engine().run("fix");
  world.advance(0.3);
  ASSERT_FALSE(world.desk.keyboard.posted.empty());
  EXPECT_EQ(world.desk.keyboard.posted[0].keyCode, 8) << "the copy shortcut";
  EXPECT_EQ(world.desk.http.requestCount(kCorrect), 0u);
  EXPECT_EQ(card().state(), Card::State::error);
  EXPECT_EQ(cardText(), "! Sélectionne d'abord un texte");
  EXPECT_FALSE(engine().busy());
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

TEST_F(CorrectionFlow, AServiceErrorIsShownOnTheCardAndNothingIsWritten) {
  serviceAnswers(R"({"code":"quota","error":"Limite du jour atteinte"})");
  engine().run("fix");
  world.advance(1);
  EXPECT_EQ(card().state(), Card::State::error);
  EXPECT_NE(cardText().find("aujourd'hui"), std::string::npos);
  EXPECT_EQ(element().text, "Je suis alé au marché.");
  EXPECT_FALSE(engine().undoInfo().has_value());
  EXPECT_EQ(corrections(), 0u);
  EXPECT_FALSE(engine().busy());
  EXPECT_FALSE(world.desk.ui.openPanel()->ignoresMouseEvents) << "the upsell card takes clicks";
}

TEST_F(CorrectionFlow, ARejectedSessionOpensTheOnboardingAndShowsTheError) {
  serviceAnswers(R"({"code":"auth"})");
  world.desk.http.enqueue("grant_type=refresh_token", SimAnswer::json(400, R"({"error_code":"session_expired"})"));
  engine().run("fix");
  world.advance(1);
  EXPECT_NE(cardText().find("Reconnecte-toi à ton compte"), std::string::npos);
  EXPECT_NE(world.desk.ui.window(kWelcome), nullptr);
  EXPECT_FALSE(world.app->auth().isSignedIn());
  EXPECT_FALSE(engine().busy());
}

TEST_F(CorrectionFlow, ATransportFailureShowsThePlatformsOwnWords) {
  world.desk.http.enqueue(kCorrect, SimAnswer::failure("The network connection was lost."));
  engine().run("fix");
  world.advance(1);
  EXPECT_EQ(cardText(), "! The network connection was lost.");
  EXPECT_TRUE(world.desk.ui.openPanel()->ignoresMouseEvents);
  EXPECT_FALSE(engine().busy());

  serviceAnswers(R"({"result":"tard"})", 20);  // slower than the 15 s time-out
  engine().run("fix");
  world.advance(14.9);
  EXPECT_TRUE(engine().busy()) << "busy until the request's own time-out";
  world.advance(0.3);  // the time-out, then the card's glide to its new content
  EXPECT_EQ(cardText(), std::string("! ") + sim::SimHttp::kTimedOut);
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
  EXPECT_FALSE(broken.app->engine().busy());
}

}  // namespace
}  // namespace mirlo
