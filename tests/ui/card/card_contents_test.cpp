// What each card shows and what its buttons do.
// Sizes follow the simulated text metric: 0.55 em per character, 1.25 em per line, rounded up.
#include "card_fixture.h"

#include <functional>

#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

using ContentsTest = CardTest;

const Rect kSelection{400, 500, 8, 16};
// Each kind of card: what it says, in order, its size, whether clicks reach it, and the colour
// of its sign or first button.
TEST_F(ContentsTest, EachCardShowsItsTextsAtItsSize) {
  struct Case {
    const char* name;
    std::function<void(Card&)> show;
    std::vector<std::string> texts;
    Size size;
    bool clickable;
    Color accent;
    Card::State state;
  };
  const std::vector<Case> cases = {
      {"buttons", [](Card& c) { c.showButtons(kSelection); }, {"Corriger", "Reformuler"}, {185, 38}, true, DA::green,
       Card::State::buttons},
      {"connect", [](Card& c) { c.showConnect(kSelection); }, {"Se connecter à Mirlo"}, {168, 38}, true, DA::green,
       Card::State::buttons},
      {"progress", [](Card& c) { c.showProgress("Correction…"); }, {"Correction…"}, {131, 35}, false, DA::ink2,
       Card::State::progress},
      {"progress without text", [](Card& c) { c.showProgress(""); }, {}, {52, 35}, false, DA::ink2,
       Card::State::progress},
      {"notice", [](Card& c) { c.showNotice("Texte copié"); }, {"✓", "Texte copié"}, {123, 35}, false, DA::green,
       Card::State::success},
      {"success", [](Card& c) { c.showSuccess("Texte corrigé", [] {}); }, {"✓", "Texte corrigé", "Annuler"},
       {203, 40}, true, DA::green, Card::State::success},
      {"error", [](Card& c) { c.showError("Oups", false); }, {"!", "Oups"}, {70, 31}, false, DA::red,
       Card::State::error},
      {"upsell", [](Card& c) { c.showError("Quota atteint", true); }, {"3/3", "Quota atteint", "Passer en Pro"},
       {256, 40}, true, DA::ink, Card::State::error},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    c.show(card());
    EXPECT_EQ(texts(), c.texts);
    EXPECT_EQ(panel().frame().size(), c.size);
    EXPECT_EQ(panel().ignoresMouseEvents, !c.clickable);
    EXPECT_EQ(card().state(), c.state);
    if (!c.texts.empty()) {
      EXPECT_EQ(view(c.texts[0]).textColor, c.accent);
    }
    card().close();
    world.advance(1);
  }
}

TEST_F(ContentsTest, ConnectButtonClosesTheCardAndOpensOnboarding) {
  card().showConnect(kSelection);
  EXPECT_TRUE(panel().click("Se connecter à Mirlo"));
  EXPECT_FALSE(onScreen());
  world.advance(0);
  EXPECT_TRUE(desk().ui.window("Bienvenue dans Mirlo"));
}

TEST_F(ContentsTest, UndoClosesTheCardBeforeUndoing) {
  bool cardWasOpen = true;
  card().showSuccess("Texte corrigé", [&] { cardWasOpen = card().hasPanel(); });
  EXPECT_TRUE(panel().click("Annuler"));
  EXPECT_FALSE(cardWasOpen);
  EXPECT_FALSE(onScreen());
}

TEST_F(ContentsTest, UndoThatShowsANewCardKeepsIt) {
  card().showSuccess("Texte corrigé", [&] { card().showButtons(kSelection); });
  panel().click("Annuler");
  EXPECT_EQ(card().state(), Card::State::buttons);
  EXPECT_EQ(texts(), (std::vector<std::string>{"Corriger", "Reformuler"}));
}

TEST_F(ContentsTest, ButtonsHoverAndTakeTheFirstClickInTheInactivePanel) {
  card().showButtons(kSelection);
  EXPECT_TRUE(panel().hover("Corriger"));
  EXPECT_EQ(view("Corriger").background, DA::hover);
  panel().unhover("Corriger");
  EXPECT_FALSE(view("Corriger").background.has_value());
  EXPECT_TRUE(view("Corriger").acceptsFirstMouse);
}

// "Corriger" through the card is told in the card-buttons-correct scenario; "Reformuler" asks for
// the other mode in the same panel.
TEST_F(ContentsTest, ReformulerRephrasesTheSelectionInTheSamePanel) {
  world.signIn();
  desk().launchApp(501, "com.example.notes", "bonjour le monde");
  desk().select(0, 7);
  desk().http.enqueue("/functions/v1/correct", sim::SimAnswer::json(200, R"({"result":"Bonjour"})", 0.5));
  card().showButtons(kSelection);
  ASSERT_TRUE(panel().click("Reformuler"));
  settle();
  EXPECT_EQ(texts(), (std::vector<std::string>{"Reformulation…"}));
  EXPECT_EQ(desk().ui.panels.size(), 1u);
  ASSERT_EQ(desk().http.requests().size(), 1u);
  EXPECT_NE(desk().http.requests()[0].body->find(R"("mode":"rephrase")"), std::string::npos);
}

}  // namespace
}  // namespace mirlo::testing
