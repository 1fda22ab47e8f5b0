// What each card shows — kinds, frames, texts, fonts and colours — and what its buttons do.
// Sizes follow the simulated text metric: 0.55 em per character, 1.25 em per line, rounded up.
#include "card_fixture.h"

#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

using ContentsTest = CardTest;

const Rect kSelection{400, 500, 8, 16};
constexpr Font kButtonBold{12.5, FontWeight::semibold, false};
constexpr Font kButtonMedium{12.5, FontWeight::medium, false};
constexpr Font kText{13, FontWeight::medium, false};
constexpr Font kMark{13, FontWeight::bold, false};

// Every view in the panel, in order.
std::vector<View> shown(sim::SimCardPanel& panel) {
  std::vector<View> out;
  for (const auto& node : sim::allNodes(panel.views)) out.push_back(node->view);
  return out;
}

TEST_F(ContentsTest, ButtonsCard) {
  card().showButtons(kSelection);
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 3u);
  EXPECT_EQ(views[0].kind, ViewKind::flatButton);
  EXPECT_EQ(views[0].text, "Corriger");
  EXPECT_EQ(views[0].frame, (Rect{6, 6, 73, 26}));
  EXPECT_EQ(views[0].font, kButtonBold);
  EXPECT_EQ(views[0].textColor, DA::green);
  // The divider: 1 wide, h − 6 high, at y 9.
  EXPECT_EQ(views[1].kind, ViewKind::box);
  EXPECT_EQ(views[1].frame, (Rect{85, 9, 1, 20}));
  EXPECT_EQ(views[1].background, DA::border);
  EXPECT_EQ(views[2].text, "Reformuler");
  EXPECT_EQ(views[2].frame, (Rect{92, 6, 87, 26}));
  EXPECT_EQ(views[2].font, kButtonBold);
  EXPECT_EQ(views[2].textColor, DA::ink);
  EXPECT_EQ(panel().frame().size(), (Size{185, 38}));
  EXPECT_FALSE(panel().ignoresMouseEvents);
}

TEST_F(ContentsTest, ConnectCard) {
  card().showConnect(kSelection);
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 1u);
  EXPECT_EQ(views[0].text, "Se connecter à Mirlo");
  EXPECT_EQ(views[0].frame, (Rect{6, 6, 156, 26}));  // 20 characters: 137.5 → 138, + 18
  EXPECT_EQ(views[0].font, kButtonBold);
  EXPECT_EQ(views[0].textColor, DA::green);
  EXPECT_EQ(panel().frame().size(), (Size{168, 38}));
  EXPECT_EQ(card().state(), Card::State::buttons);
  EXPECT_EQ(card().anchor(), kSelection);
}

TEST_F(ContentsTest, ConnectButtonClosesTheCardAndOpensOnboarding) {
  card().showConnect(kSelection);
  EXPECT_TRUE(panel().click("Se connecter à Mirlo"));
  EXPECT_FALSE(onScreen());
  world.advance(0);
  EXPECT_TRUE(desk().ui.window("Bienvenue dans Mirlo"));
}

TEST_F(ContentsTest, ProgressCard) {
  card().showProgress("Correction…");
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 2u);
  EXPECT_EQ(views[0].kind, ViewKind::spinner);
  EXPECT_EQ(views[0].frame, (Rect{14, 9.5, 16, 16}));
  EXPECT_EQ(views[1].kind, ViewKind::label);
  EXPECT_EQ(views[1].text, "Correction…");
  EXPECT_EQ(views[1].frame, (Rect{38, 9, 79, 17}));  // 11 characters at 13 pt
  EXPECT_EQ(views[1].font, kText);
  EXPECT_EQ(views[1].textColor, DA::ink2);
  EXPECT_EQ(panel().frame().size(), (Size{131, 35}));
  EXPECT_TRUE(panel().ignoresMouseEvents);
}

TEST_F(ContentsTest, ProgressWithEmptyTextKeepsRoomForTheSpinner) {
  card().showProgress("");
  EXPECT_EQ(panel().frame().size(), (Size{52, 35}));  // label 0 × 17
}

TEST_F(ContentsTest, NoticeCard) {
  card().showNotice("Texte copié");
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 2u);
  EXPECT_EQ(views[0].text, "✓");
  EXPECT_EQ(views[0].frame, (Rect{14, 9, 8, 17}));
  EXPECT_EQ(views[0].font, kMark);
  EXPECT_EQ(views[0].textColor, DA::green);
  EXPECT_EQ(views[1].text, "Texte copié");
  EXPECT_EQ(views[1].frame, (Rect{30, 9, 79, 17}));
  EXPECT_EQ(views[1].font, kText);
  EXPECT_EQ(views[1].textColor, DA::ink);
  EXPECT_EQ(panel().frame().size(), (Size{123, 35}));
  EXPECT_TRUE(panel().ignoresMouseEvents);
  EXPECT_EQ(card().state(), Card::State::success);
}

TEST_F(ContentsTest, SuccessCard) {
  card().showSuccess("Texte corrigé", [] {});
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 3u);
  EXPECT_EQ(views[0].text, "✓");
  EXPECT_EQ(views[0].frame, (Rect{13, 11.5, 8, 17}));
  EXPECT_EQ(views[1].text, "Texte corrigé");
  EXPECT_EQ(views[1].frame, (Rect{28, 11.5, 93, 17}));
  EXPECT_EQ(views[1].textColor, DA::ink);
  EXPECT_EQ(views[2].kind, ViewKind::flatButton);
  EXPECT_EQ(views[2].text, "Annuler");
  EXPECT_EQ(views[2].frame, (Rect{128, 7, 67, 26}));
  EXPECT_EQ(views[2].font, kButtonMedium);
  EXPECT_EQ(views[2].textColor, DA::muted);
  EXPECT_EQ(panel().frame().size(), (Size{203, 40}));
  EXPECT_FALSE(panel().ignoresMouseEvents);
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

TEST_F(ContentsTest, ErrorCardWithoutUpsellLetsClicksThrough) {
  card().showError("Oups", false);
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 2u);
  EXPECT_EQ(views[0].text, "!");
  EXPECT_EQ(views[0].frame, (Rect{13, 7, 8, 17}));
  EXPECT_EQ(views[0].font, kMark);
  EXPECT_EQ(views[0].textColor, DA::red);
  EXPECT_EQ(views[1].text, "Oups");
  EXPECT_EQ(views[1].frame, (Rect{28, 7, 29, 17}));
  EXPECT_EQ(views[1].font, kText);
  EXPECT_EQ(views[1].textColor, DA::ink);
  EXPECT_EQ(panel().frame().size(), (Size{70, 31}));
  EXPECT_TRUE(panel().ignoresMouseEvents);
  EXPECT_EQ(card().state(), Card::State::error);
}

TEST_F(ContentsTest, ErrorCardWithUpsell) {
  card().showError("Quota atteint", true);
  const auto views = shown(panel());
  ASSERT_EQ(views.size(), 3u);
  EXPECT_EQ(views[0].text, "3/3");
  EXPECT_EQ(views[0].frame, (Rect{13, 12.5, 20, 15}));
  EXPECT_EQ(views[0].font, (Font{12, FontWeight::bold, false}));
  EXPECT_EQ(views[0].textColor, DA::ink);
  EXPECT_EQ(views[1].frame, (Rect{40, 11.5, 93, 17}));
  EXPECT_EQ(views[2].text, "Passer en Pro");
  EXPECT_EQ(views[2].frame, (Rect{140, 7, 108, 26}));
  EXPECT_EQ(views[2].font, kButtonBold);
  EXPECT_EQ(views[2].textColor, DA::green);
  EXPECT_EQ(panel().frame().size(), (Size{256, 40}));
  EXPECT_FALSE(panel().ignoresMouseEvents);
}

TEST_F(ContentsTest, UpsellOpensTheSitesAccessSectionAndCloses) {
  card().showError("Quota atteint", true);
  EXPECT_TRUE(panel().click("Passer en Pro"));
  EXPECT_FALSE(onScreen());
  EXPECT_EQ(desk().workspace.openedURLs, (std::vector<std::string>{"https://mirlo.test/#acces"}));
}

TEST_F(ContentsTest, ButtonsHoverAndTakeTheFirstClickInTheInactivePanel) {
  card().showButtons(kSelection);
  EXPECT_TRUE(panel().hover("Corriger"));
  EXPECT_EQ(view("Corriger").background, DA::hover);
  panel().unhover("Corriger");
  EXPECT_FALSE(view("Corriger").background.has_value());
  EXPECT_TRUE(view("Corriger").acceptsFirstMouse);
}

// The buttons run the real correction on the selection in the application in front.
struct ButtonsRunTheEngine : CardTest {
  void SetUp() override {
    world.signIn();
    desk().launchApp(501, "com.example.notes", "bonjour le monde");
    desk().select(0, 7);
    desk().http.enqueue("/functions/v1/correct", sim::SimAnswer::json(200, R"({"result":"Bonjour"})", 0.5));
  }
  std::string sentMode() {
    const auto requests = desk().http.requests();
    if (requests.empty()) return "";
    const std::string body = requests.back().body.value_or("");
    return body.find(R"("mode":"fix")") != std::string::npos        ? "fix"
           : body.find(R"("mode":"rephrase")") != std::string::npos ? "rephrase"
                                                                    : "?";
  }
};

TEST_F(ButtonsRunTheEngine, CorrigerCorrectsThroughProgressInTheSamePanel) {
  card().showButtons(kSelection);
  ASSERT_TRUE(panel().click("Corriger"));
  EXPECT_EQ(card().state(), Card::State::progress);
  settle();
  EXPECT_EQ(texts(), (std::vector<std::string>{"Correction…"}));
  EXPECT_EQ(desk().ui.panels.size(), 1u);
  EXPECT_EQ(sentMode(), "fix");
  world.advance(1);
  EXPECT_EQ(desk().frontText(), "Bonjour le monde");
  EXPECT_FALSE(onScreen());
}

TEST_F(ButtonsRunTheEngine, ReformulerRephrases) {
  card().showButtons(kSelection);
  ASSERT_TRUE(panel().click("Reformuler"));
  settle();
  EXPECT_EQ(texts(), (std::vector<std::string>{"Reformulation…"}));
  EXPECT_EQ(sentMode(), "rephrase");
}

}  // namespace
}  // namespace mirlo::testing
