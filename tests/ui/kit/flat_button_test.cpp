// The flat button as the user meets it: its click and its look under the pointer. Its size is
// what each card's size shows, in card_contents_test.cpp and the scenarios.
#include "ui/kit/flat_button.h"

#include <gtest/gtest.h>

#include "platform/sim/sim_ui.h"
#include "support/sim_app.h"
#include "ui/kit/palette.h"

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

}  // namespace
}  // namespace mirlo
