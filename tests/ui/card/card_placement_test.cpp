// Where the card appears: next to the selection's end, kept inside the screen the selection is on,
// above the selection near the bottom edge, or under the pointer when there is no selection.
// The buttons card is 185 × 38 on the simulated desktop.
#include "card_fixture.h"

namespace mirlo::testing {
namespace {

using PlacementTest = CardTest;

// On the one 1440 × 875 visible frame: below the end of the selection, 8 points from every edge,
// above the selection near the bottom, and over it when neither fits.
TEST_F(PlacementTest, HangsBelowTheSelectionsEndAndStaysInside) {
  struct Case {
    const char* name;
    Rect selection;
    Point origin;
  } cases[] = {
      {"below the end", {400, 500, 8, 16}, {408 - 0.3 * 185, 500 - 38 - 8}},
      {"above near the bottom", {400, 20, 8, 16}, {352.5, 44}},
      {"exactly at the bottom margin", {400, 54, 8, 16}, {352.5, 8}},
      {"near the top", {400, 890, 8, 16}, {352.5, 875 - 38 - 8}},
      {"too tall to flip", {400, 10, 8, 860}, {352.5, 829}},
      {"right edge", {1430, 500, 8, 16}, {1440 - 8 - 185, 454}},
      {"left edge", {0, 500, 8, 16}, {8, 454}},
  };
  for (const auto& c : cases) {
    card().showButtons(c.selection);
    EXPECT_EQ(panel().frame(), (Rect{c.origin.x, c.origin.y, 185, 38})) << c.name;
    card().close();
  }
}

TEST_F(PlacementTest, CardWiderThanTheScreenHasItsRightEdgeInside) {
  desk().screens.list = {{{0, 0, 400, 300}, {0, 0, 400, 300}}};
  card().showButtons(Rect{200, 200, 8, 16});
  card().showError(std::string(300, 'x'), false);  // wrapped at 420 wide, plus 41
  const Rect f = panel().frame();
  EXPECT_EQ(f.width, 13 + 8 + 7 + 420 + 13);
  EXPECT_EQ(f.x, 400 - f.width - 8);
}

// A message from the service may run to hundreds of characters, or be one long word: the card
// shows all of it on as many lines as it needs, and stays on the screen.
TEST_F(PlacementTest, LongMessagesWrapInsideACardThatFitsTheScreen) {
  std::string sentence;
  while (sentence.size() < 600) sentence += "Le service ne peut pas traiter ce texte pour le moment. ";
  const std::string word(300, 'x');
  for (const std::string& message : {sentence, word}) {
    card().showButtons(Rect{1300, 500, 8, 16});
    card().showError(message, false);
    settle();
    const Rect f = panel().frame();
    EXPECT_LE(f.width, 13 + 8 + 7 + 420 + 13);
    EXPECT_GE(f.minX(), 8);
    EXPECT_LE(f.maxX(), 1440 - 8);
    EXPECT_GE(f.minY(), 0);
    const View& body = view(message);
    EXPECT_TRUE(body.wraps);
    EXPECT_LE(body.frame.maxX(), f.width);
    EXPECT_GE(body.frame.height, 5 * 13 * 1.25);  // several lines, all inside the card
    EXPECT_LE(body.frame.maxY(), f.height);
    card().close();
  }
}

TEST_F(PlacementTest, SelectionOnASecondDisplayIsClampedToThatDisplayEvenForACaret) {
  desk().screens.list.push_back({{1440, 0, 1920, 1080}, {1440, 0, 1920, 1055}});
  // On the main screen it would be pulled back to x 1247 and down to y 829.
  for (double width : {8.0, 0.0}) {
    card().showButtons(Rect{1450, 1000, width, 16});
    EXPECT_EQ(panel().frame().origin(), (Point{1448, 954})) << width;
    card().close();
  }
}

TEST_F(PlacementTest, FirstIntersectingScreenInTheSystemsOrderWins) {
  // Two overlapping displays (mirrored layouts): the first listed decides.
  desk().screens.list = {{{0, 0, 1440, 900}, {0, 0, 1440, 875}}, {{0, 0, 1440, 900}, {0, 0, 1000, 875}}};
  card().showButtons(Rect{1200, 500, 8, 16});
  EXPECT_EQ(panel().frame().x, 1208 - 55.5);
}

TEST_F(PlacementTest, SelectionOffEveryScreenFallsBackToTheMainOne) {
  desk().screens.list.push_back({{1440, 0, 1920, 1080}, {1440, 0, 1920, 1055}});
  desk().screens.mainIndex = 1;
  card().showButtons(Rect{-5000, -5000, 8, 16});
  // Clamped into the second screen's visible frame, then flipped above (still far below), then
  // capped: no lower bound.
  EXPECT_EQ(panel().frame().origin(), (Point{1448, -5000 + 16 + 8}));
}

TEST_F(PlacementTest, NoScreensAtAllLeavesTheCardWhereTheSelectionIs) {
  desk().screens.list.clear();
  desk().screens.mainIndex.reset();
  card().showButtons(Rect{5000, 5000, 8, 16});
  EXPECT_EQ(panel().frame().origin(), (Point{5008 - 55.5, 5000 - 46}));
}

TEST_F(PlacementTest, NoAnchorCentresTheCardUnderThePointerEvenOffTheScreen) {
  card().showButtons(std::nullopt);
  EXPECT_EQ(panel().frame().origin(), (Point{720 - 92.5, 450 - 38 - 16}));
  card().close();
  desk().screens.mouse = {5, 10};
  card().showButtons(std::nullopt);
  EXPECT_EQ(panel().frame().origin(), (Point{-87.5, -44}));
}

// Later cards following the same selection is told with the glide in card_lifecycle_test.cpp.
TEST_F(PlacementTest, NoticeGoesToThePointerEvenRightAfterAButtonsCard) {
  card().showButtons(Rect{400, 500, 8, 16});
  card().showNotice("Texte copié");  // 123 × 35
  settle();
  EXPECT_EQ(panel().frame(), (Rect{720 - 61.5, 450 - 35 - 16, 123, 35}));
  EXPECT_FALSE(card().anchor().has_value());
  // What follows the notice goes to the pointer too.
  card().showProgress("Correction…");
  EXPECT_EQ(panel().frame().origin(), (Point{720 - 65.5, 450 - 35 - 16}));
}

// A display unplugged while the card shows: the card that was on it closes and the selection may
// offer it again; a card on a display that remains stays put.
TEST_F(PlacementTest, UnpluggingTheDisplayUnderTheCardClosesIt) {
  const Screen main = desk().screens.list.front();
  const Screen second{{1440, 0, 1920, 1080}, {1440, 0, 1920, 1055}};
  desk().screens.list.push_back(second);

  card().showButtons(Rect{1450, 1000, 8, 16});
  const Rect onSecond = panel().frame();
  desk().screens.replace({main, second});  // rearranged, nothing gone
  ASSERT_TRUE(onScreen());
  EXPECT_EQ(panel().frame(), onSecond);
  desk().screens.replace({main});
  EXPECT_FALSE(onScreen());
  EXPECT_EQ(card().state(), Card::State::idle);
  EXPECT_FALSE(card().anchor().has_value());

  // A correction under way on the lost display: its result, when it comes, shows under the pointer.
  desk().screens.replace({main, second});
  card().showButtons(Rect{1450, 1000, 8, 16});
  card().showProgress("Correction…");
  desk().screens.replace({main});
  EXPECT_FALSE(onScreen());
  card().showSuccess("Corrigé", [] {});
  settle();
  ASSERT_TRUE(onScreen());
  EXPECT_TRUE(panel().frame().intersects(main.frame));

  // The display that remains keeps its card, even one reaching past its edge.
  card().close();
  desk().screens.replace({main, second});
  desk().screens.mouse = {1430, 450};
  card().showNotice("Texte copié");
  const Rect straddling = panel().frame();
  ASSERT_GT(straddling.maxX(), 1440);
  desk().screens.replace({main});
  ASSERT_TRUE(onScreen());
  EXPECT_EQ(panel().frame(), straddling);

  // Every display gone at once (a laptop lid closed with no other screen): nothing stays.
  desk().screens.replace({});
  EXPECT_FALSE(onScreen());
}

}  // namespace
}  // namespace mirlo::testing
