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

// Sized to the title (0.55 em a character, 1.25 em a line, rounded up), then grown by the padding:
// 18 × 10 around 12.5 pt for an unfilled button, 36 × 16 around 14 pt for a filled one.
TEST_F(FlatButtonTest, ButtonsAreSizedToTheirTitlesAndFilledOnesAreInkOnWhite) {
  FlatButton unfilled(ui(), "Corriger", DA::green, true, false);
  EXPECT_EQ(unfilled.view().frame, (Rect{0, 0, 55 + 18, 16 + 10}));
  EXPECT_EQ(unfilled.view().textColor, DA::green);
  EXPECT_FALSE(unfilled.view().background.has_value());

  FlatButton filled(ui(), "Continuer", DA::green, false, true);
  EXPECT_EQ(filled.view().frame, (Rect{0, 0, 70 + 36, 18 + 16}));
  EXPECT_EQ(filled.view().background, DA::ink);
  EXPECT_EQ(filled.view().textColor, Color::white(1.0));

  FlatButton empty(ui(), "", DA::ink, false, false);
  EXPECT_EQ(empty.view().frame.size(), (Size{18, 26}));
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

// The unfilled button's hover is told on the card's own buttons in card_contents_test.cpp.
TEST_F(FlatButtonTest, FilledButtonNeverChangesUnderThePointer) {
  FlatButton button(ui(), "Continuer", DA::green, true, true);
  auto node = show(button.view());
  sim::pointerEnters(*node);
  EXPECT_EQ(node->view.background, DA::ink);
  sim::pointerExits(*node);
  EXPECT_EQ(node->view.background, DA::ink);
}

TEST_F(FlatButtonTest, TracksHoverWithOneAreaAcrossResizes) {
  FlatButton button(ui(), "Corriger", DA::green, true, false);
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
