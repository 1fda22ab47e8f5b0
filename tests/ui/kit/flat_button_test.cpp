// The flat button as the user meets it: its size and look, its click, and its hover looks, on the
// simulated desktop (text is 0.55 em per character, a line 1.25 em high).
#include "ui/kit/flat_button.h"

#include <gtest/gtest.h>

#include "platform/sim/sim_ui.h"
#include "support/sim_app.h"
#include "ui/kit/palette.h"
#include "ui/kit/views.h"

namespace mirlo {
namespace {

using sim::SimNode;

struct FlatButtonTest : ::testing::Test {
  testing::SimWorld world;
  UI& ui() { return world.desk.ui; }

  // Shows one view the way a platform would and returns its rendered node.
  std::shared_ptr<SimNode> show(const View& view) {
    rendered = sim::render({view});
    return rendered.front();
  }
  sim::SimNodes rendered;
};

TEST_F(FlatButtonTest, UnfilledButtonIsSizedToItsTitleThenGrownAndTakesItsTint) {
  FlatButton button(ui(), "Corriger", DA::green, true, false);
  const View& v = button.view();
  EXPECT_EQ(v.kind, ViewKind::flatButton);
  EXPECT_EQ(v.text, "Corriger");
  // 8 characters at 12.5 pt: 55 wide, 16 high; then 18 × 10 more.
  EXPECT_EQ(v.frame, (Rect{0, 0, 73, 26}));
  EXPECT_EQ(v.font, (Font{12.5, FontWeight::semibold, false}));
  EXPECT_EQ(v.textColor, DA::green);
  EXPECT_FALSE(v.background.has_value());
  EXPECT_EQ(v.cornerRadius, 7);
}

TEST_F(FlatButtonTest, FilledButtonIsInkWithWhiteTitleAndLarger) {
  FlatButton button(ui(), "Continuer", DA::green, false, true);
  const View& v = button.view();
  // 9 characters at 14 pt: ceil(69.3) = 70 wide, ceil(17.5) = 18 high; then 36 × 16 more.
  EXPECT_EQ(v.frame, (Rect{0, 0, 106, 34}));
  EXPECT_EQ(v.font, (Font{14, FontWeight::medium, false}));
  EXPECT_EQ(v.background, DA::ink);
  EXPECT_EQ(v.textColor, Color::white(1.0));
  EXPECT_EQ(v.cornerRadius, 10);
}

TEST_F(FlatButtonTest, EmptyTitleStillGetsItsPadding) {
  FlatButton button(ui(), "", DA::ink, false, false);
  EXPECT_EQ(button.view().frame.width, 18);
  EXPECT_EQ(button.view().frame.height, 26);
}

TEST_F(FlatButtonTest, ClickRunsTheClosureSetAtAnyTimeAndNothingWithout) {
  FlatButton button(ui(), "Annuler", DA::muted, false, false);
  auto node = show(button.view());
  EXPECT_TRUE(sim::performClick(*node));  // the click lands, and does nothing

  int clicks = 0;
  button.setOnClick([&clicks] { ++clicks; });  // after the button is on screen
  sim::performClick(*node);
  sim::performClick(*node);
  EXPECT_EQ(clicks, 2);

  button.setOnClick(nullptr);
  sim::performClick(*node);
  EXPECT_EQ(clicks, 2);
}

TEST_F(FlatButtonTest, ClosureThatReplacesItselfWhileRunningCompletes) {
  FlatButton button(ui(), "Annuler", DA::muted, false, false);
  auto node = show(button.view());
  std::string seen;
  std::string captured = "premier";
  button.setOnClick([&, captured] {
    button.setOnClick(nullptr);  // destroys the stored closure while it runs
    seen = captured;
  });
  sim::performClick(*node);
  EXPECT_EQ(seen, "premier");
}

TEST_F(FlatButtonTest, UnfilledButtonShowsHoverBackgroundUntilThePointerLeaves) {
  FlatButton button(ui(), "Annuler", DA::muted, false, false);
  auto node = show(button.view());
  ASSERT_TRUE(sim::pointerEnters(*node));
  EXPECT_EQ(node->view.background, DA::hover);
  ASSERT_TRUE(sim::pointerExits(*node));
  EXPECT_FALSE(node->view.background.has_value());
}

TEST_F(FlatButtonTest, FilledButtonNeverChangesUnderThePointer) {
  FlatButton button(ui(), "Continuer", DA::green, true, true);
  auto node = show(button.view());
  sim::pointerEnters(*node);
  EXPECT_EQ(node->view.background, DA::ink);
  sim::pointerExits(*node);
  EXPECT_EQ(node->view.background, DA::ink);
}

TEST_F(FlatButtonTest, EnteringLooksAtTheBackgroundLeavingAtTheTint) {
  // An unfilled button tinted white: entering paints the hover colour (its background is not
  // ink), leaving takes it for a filled button and keeps it.
  FlatButton white(ui(), "Blanc", Color::white(1.0), false, false);
  auto node = show(white.view());
  sim::pointerEnters(*node);
  sim::pointerExits(*node);
  EXPECT_EQ(node->view.background, DA::hover);

  // A button that was given an ink background later but keeps its own tint: entering leaves it,
  // leaving clears it.
  FlatButton inked(ui(), "Encre", DA::green, false, false);
  auto other = show(inked.view());
  inked.live()->setBackground(DA::ink);
  sim::pointerEnters(*other);
  EXPECT_EQ(other->view.background, DA::ink);
  sim::pointerExits(*other);
  EXPECT_FALSE(other->view.background.has_value());
}

TEST_F(FlatButtonTest, AcceptsTheFirstMouseAndTracksHoverWithOneAreaAcrossResizes) {
  FlatButton button(ui(), "Corriger", DA::green, true, false);
  EXPECT_TRUE(button.view().acceptsFirstMouse);
  EXPECT_EQ(button.view().trackingAreaOptions, 129u);
  auto node = show(button.view());
  ASSERT_EQ(node->trackingAreas.size(), 1u);
  EXPECT_EQ(node->trackingAreas[0], (Rect{0, 0, 73, 26}));

  button.live()->setFrame({10, 10, 120, 30});
  button.live()->setFrame({10, 10, 140, 30});
  ASSERT_EQ(node->trackingAreas.size(), 1u);
  EXPECT_EQ(node->trackingAreas[0], (Rect{0, 0, 140, 30}));
}

TEST_F(FlatButtonTest, LabelsAreSizedToFitInTheirFontAndColour) {
  View label = kit::label(ui(), "Deux\nlignes ici", Font{13, FontWeight::medium, false}, DA::ink2);
  EXPECT_EQ(label.kind, ViewKind::label);
  EXPECT_EQ(label.textColor, DA::ink2);
  // The longest line, 10 characters at 13 pt: ceil(71.5); two lines: ceil(32.5).
  EXPECT_EQ(label.frame, (Rect{0, 0, 72, 33}));
}

}  // namespace
}  // namespace mirlo
