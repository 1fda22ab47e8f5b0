// Where the card appears: next to the selection's end, kept inside the screen the selection is on,
// above the selection near the bottom edge, or under the pointer when there is no selection.
// The buttons card is 185 × 38 on the simulated desktop.
#include "card_fixture.h"

namespace mirlo::testing {
namespace {

using PlacementTest = CardTest;

TEST_F(PlacementTest, HangsBelowTheSelectionsEnd) {
  card().showButtons(Rect{400, 500, 8, 16});
  // x = 408 − 0.3 × 185, y = 500 − 38 − 8.
  EXPECT_EQ(panel().frame(), (Rect{352.5, 454, 185, 38}));
}

TEST_F(PlacementTest, SelectionAtTheBottomPutsTheCardAbove) {
  card().showButtons(Rect{400, 20, 8, 16});
  EXPECT_EQ(panel().frame().origin(), (Point{352.5, 44}));  // 8 above the selection's top
}

TEST_F(PlacementTest, ExactlyAtTheBottomMarginStaysBelow) {
  card().showButtons(Rect{400, 54, 8, 16});  // y = 54 − 46 = 8: just inside
  EXPECT_EQ(panel().frame().y, 8);
}

TEST_F(PlacementTest, NearTheTopIsKeptBelowTheVisibleFrame) {
  card().showButtons(Rect{400, 890, 8, 16});  // 844 would reach into the top margin
  EXPECT_EQ(panel().frame().y, 875 - 38 - 8);
}

TEST_F(PlacementTest, FlippedCardThatDoesNotFitAboveCoversTheSelection) {
  card().showButtons(Rect{400, 10, 8, 860});  // taller than the room above and below
  EXPECT_EQ(panel().frame().y, 829);
}

TEST_F(PlacementTest, RightEdgeIsKeptEightPointsInside) {
  card().showButtons(Rect{1430, 500, 8, 16});
  EXPECT_EQ(panel().frame().x + panel().frame().width, 1440 - 8);
}

TEST_F(PlacementTest, LeftEdgeIsKeptEightPointsInside) {
  card().showButtons(Rect{0, 500, 8, 16});
  EXPECT_EQ(panel().frame().x, 8);
}

TEST_F(PlacementTest, CardWiderThanTheScreenHasItsRightEdgeInside) {
  card().showButtons(Rect{400, 500, 8, 16});
  card().showError(std::string(300, 'x'), false);  // 300 × 7.15 = 2145 wide, plus 41
  const Rect f = panel().frame();
  EXPECT_EQ(f.width, 13 + 8 + 7 + 2145 + 13);
  EXPECT_EQ(f.x, 1440 - f.width - 8);
}

TEST_F(PlacementTest, SelectionOnASecondDisplayIsClampedToThatDisplay) {
  desk().screens.list.push_back({{1440, 0, 1920, 1080}, {1440, 0, 1920, 1055}});
  card().showButtons(Rect{1450, 1000, 8, 16});
  // On the main screen it would be pulled back to x 1247 and down to y 829.
  EXPECT_EQ(panel().frame().origin(), (Point{1448, 954}));
}

TEST_F(PlacementTest, FirstIntersectingScreenInTheSystemsOrderWins) {
  // Two overlapping displays (mirrored layouts): the first listed decides.
  desk().screens.list = {{{0, 0, 1440, 900}, {0, 0, 1440, 875}}, {{0, 0, 1440, 900}, {0, 0, 1000, 875}}};
  card().showButtons(Rect{1200, 500, 8, 16});
  EXPECT_EQ(panel().frame().x, 1208 - 55.5);
}

TEST_F(PlacementTest, CaretWideAnchorStillFindsItsDisplay) {
  desk().screens.list.push_back({{1440, 0, 1920, 1080}, {1440, 0, 1920, 1055}});
  card().showButtons(Rect{1450, 1000, 0, 16});
  EXPECT_EQ(panel().frame().origin(), (Point{1448, 954}));
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

TEST_F(PlacementTest, NoAnchorCentresTheCardUnderThePointer) {
  card().showButtons(std::nullopt);
  EXPECT_EQ(panel().frame().origin(), (Point{720 - 92.5, 450 - 38 - 16}));
}

TEST_F(PlacementTest, UnderThePointerIsNotKeptOnScreen) {
  desk().screens.mouse = {5, 10};
  card().showButtons(std::nullopt);
  EXPECT_EQ(panel().frame().origin(), (Point{-87.5, -44}));
}

TEST_F(PlacementTest, LaterCardsFollowTheSameSelection) {
  card().showButtons(Rect{400, 500, 8, 16});
  card().showProgress("Correction…");  // 131 × 35
  settle();
  EXPECT_EQ(panel().frame(), (Rect{408 - 0.3 * 131, 500 - 35 - 8, 131, 35}));
}

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

}  // namespace
}  // namespace mirlo::testing
