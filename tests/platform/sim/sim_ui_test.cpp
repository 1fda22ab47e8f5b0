// What the simulated desktop's recorded screen honours, since the other tests read it: panels that
// let the mouse through, the first click on an inactive panel, live handles and hover tracking.
#include "platform/sim/sim_ui.h"

#include <gtest/gtest.h>

#include "platform/sim/sim_main_queue.h"

namespace mirlo::sim {
namespace {

View button(const std::string& title, std::function<void()> action, bool firstMouse) {
  View v;
  v.kind = ViewKind::flatButton;
  v.text = title;
  v.frame = {6, 6, 60, 26};
  v.action = std::move(action);
  v.acceptsFirstMouse = firstMouse;
  return v;
}

struct SimUITest : ::testing::Test {
  SimMainQueue queue;
  SimUI ui{queue};

  std::shared_ptr<SimCardPanel> panel(bool ignoresMouse) {
    CardPanelStyle style;
    style.contentRect = {100, 100, 200, 40};
    style.ignoresMouseEvents = ignoresMouse;
    ui.createCardPanel(style);
    return ui.panels.back();
  }
};

TEST_F(SimUITest, PanelThatIgnoresTheMouseLetsClicksThrough) {
  int clicks = 0;
  auto p = panel(true);
  p->addViews({button("Ok", [&] { ++clicks; }, true)});
  EXPECT_FALSE(p->click("Ok"));
  p->setIgnoresMouseEvents(false);
  EXPECT_TRUE(p->click("Ok"));
  EXPECT_EQ(clicks, 1);
}

TEST_F(SimUITest, FirstClickOnlyBringsAnInactivePanelForwardUnlessTheViewAcceptsIt) {
  int clicks = 0;
  auto p = panel(false);
  p->addViews({button("Lent", [&] { ++clicks; }, false)});
  EXPECT_FALSE(p->click("Lent"));
  EXPECT_TRUE(p->click("Lent"));
  EXPECT_EQ(clicks, 1);

  auto q = panel(false);
  q->addViews({button("Vif", [&] { ++clicks; }, true)});
  EXPECT_TRUE(q->click("Vif"));
  EXPECT_EQ(clicks, 2);
}

TEST_F(SimUITest, ActionThatClosesItsOwnPanelFinishes) {
  auto p = panel(false);
  std::string after;
  p->addViews({button("Fermer", [&, keep = std::string("encore là")] {
    p->removeAllViews();  // destroys the view holding this action
    after = keep;
  }, true)});
  EXPECT_TRUE(p->click("Fermer"));
  EXPECT_EQ(after, "encore là");
  EXPECT_TRUE(p->views.empty());
}

TEST_F(SimUITest, LiveHandleChangesWhatIsShownAndOutlivesTheViewSafely) {
  View label;
  label.kind = ViewKind::label;
  label.text = "avant";
  label.slot = std::make_shared<ViewSlot>();
  auto slot = label.slot;
  auto p = panel(false);
  p->addViews({label});
  ASSERT_TRUE(slot->live);
  slot->live->setText("après");
  slot->live->setTextColor(Color::rgb(1, 0, 0));
  EXPECT_TRUE(p->find("après"));
  EXPECT_EQ(p->find("après")->view.textColor, Color::rgb(1, 0, 0));

  p->removeAllViews();
  slot->live->setText("plus rien");  // no longer on screen: nothing happens
  EXPECT_EQ(slot->live->text(), "");
}

TEST_F(SimUITest, OnlyTrackingViewsHearThePointerAndKeepOneAreaPerView) {
  int entered = 0;
  View plain = button("Plat", nullptr, true);
  plain.onMouseEntered = [&] { ++entered; };
  View tracked = plain;
  tracked.text = "Suivi";
  tracked.trackingAreaOptions = 129;
  tracked.slot = std::make_shared<ViewSlot>();
  auto slot = tracked.slot;
  auto p = panel(false);
  p->addViews({plain, tracked});

  EXPECT_FALSE(p->hover("Plat"));
  EXPECT_TRUE(p->hover("Suivi"));
  EXPECT_EQ(entered, 1);

  auto node = p->find("Suivi");
  slot->live->setFrame({0, 0, 80, 30});
  slot->live->setFrame({5, 5, 80, 30});  // a move alone keeps the area
  EXPECT_EQ(node->trackingAreas, (std::vector<Rect>{{0, 0, 80, 30}}));
  EXPECT_EQ(node->trackingAreaUpdates, 2);
}

TEST_F(SimUITest, ReusedPanelGlidesAndCompletesOnTheClock) {
  auto p = panel(false);
  bool done = false;
  p->animateFrame({10, 20, 150, 30}, 0.14, AnimationTiming::easeOut, [&] { done = true; });
  queue.advance(0.1);
  EXPECT_FALSE(done);
  queue.advance(0.05);
  EXPECT_TRUE(done);
  EXPECT_EQ(p->frame(), (Rect{10, 20, 150, 30}));
}

}  // namespace
}  // namespace mirlo::sim
