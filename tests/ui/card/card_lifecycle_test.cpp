// How the card comes and goes: one panel faded in once and then reused without blinking, newer
// cards silently cancelling older pending work, closing by itself unless the pointer rests on it,
// and the dismissals the selection watcher and Escape use.
#include "card_fixture.h"

#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

using LifecycleTest = CardTest;

const Rect kSelection{400, 500, 8, 16};

TEST_F(LifecycleTest, ChangingContentReusesThePanelAndGlidesToTheNewFrame) {
  card().showButtons(kSelection);
  auto first = desk().ui.openPanel();
  const int fronts = first->orderFrontCount;
  card().showProgress("Correction…");
  EXPECT_EQ(desk().ui.panels.size(), 1u);
  EXPECT_EQ(card().state(), Card::State::progress);
  // The old views leave at once; the panel is brought front as the glide starts, not after.
  EXPECT_TRUE(first->views.empty());
  EXPECT_EQ(first->orderFrontCount, fronts + 1);
  EXPECT_TRUE(first->ignoresMouseEvents);
  const auto& glide = first->animations.back();
  EXPECT_EQ(glide.frame, (Rect{408 - 0.3 * 131, 457, 131, 35}));  // "Correction…" is 79 wide
  EXPECT_EQ(glide.duration, 0.14);

  world.advance(0.1);
  EXPECT_TRUE(first->views.empty());
  world.advance(0.05);
  EXPECT_EQ(texts(), (std::vector<std::string>{"Correction…"}));
  EXPECT_EQ(first->contentSize, (Size{131, 35}));

  card().showSuccess("Texte corrigé", [] {});
  settle();
  EXPECT_EQ(desk().ui.panels.size(), 1u);
  EXPECT_EQ(texts(), (std::vector<std::string>{"✓", "Texte corrigé", "Annuler"}));
  EXPECT_FALSE(first->ignoresMouseEvents);
  EXPECT_EQ(first->alpha, 1.0);  // no second fade: it never blinks
}

TEST_F(LifecycleTest, TwoQuickPresentsShowOnlyTheSecond) {
  card().showButtons(kSelection);
  card().showProgress("Correction…");
  card().showError("Oups", false);
  settle();
  EXPECT_EQ(texts(), (std::vector<std::string>{"!", "Oups"}));
  EXPECT_EQ(panel().contentSize, (Size{70, 31}));
  world.advance(1);
  EXPECT_EQ(texts(), (std::vector<std::string>{"!", "Oups"}));
}

TEST_F(LifecycleTest, CloseDuringTheGlideDropsTheNewViews) {
  card().showButtons(kSelection);
  auto p = desk().ui.openPanel();
  card().showProgress("Correction…");
  card().close();
  settle();
  EXPECT_TRUE(p->closed);
  EXPECT_TRUE(p->views.empty());
}

TEST_F(LifecycleTest, EachCardClosesByItselfAfterItsOwnTimeAndNoOtherCardsTimer) {
  struct Case {
    std::function<void(Card&)> show;
    double closesAfter;
  };
  const std::vector<Case> cases = {
      {[](Card& c) { c.showButtons(kSelection); }, 3.0},
      {[](Card& c) { c.showConnect(kSelection); }, 3.0},
      {[](Card& c) { c.showNotice("Texte copié"); }, 3.5},
      {[](Card& c) { c.showSuccess("Texte corrigé", [] {}); }, 4.0},
      {[](Card& c) { c.showError("Oups", false); }, 3.0},
      {[](Card& c) { c.showError("Quota atteint", true); }, 8.0},
  };
  desk().screens.mouse = {0, 890};  // well away from every card
  for (const auto& c : cases) {
    c.show(card());
    world.advance(c.closesAfter - 0.01);
    EXPECT_TRUE(onScreen()) << c.closesAfter;
    world.advance(0.02);
    EXPECT_FALSE(onScreen()) << c.closesAfter;
    EXPECT_EQ(card().state(), Card::State::idle);
    EXPECT_FALSE(card().anchor().has_value());
  }

  // Progress has no timer of its own, and the offer's timer does not close what replaced it.
  card().showButtons(kSelection);
  world.advance(1);
  card().showProgress("Correction…");
  world.advance(600);
  EXPECT_EQ(card().state(), Card::State::progress);

  // Nor does the timer of a closed card close the next one, a fresh panel that fades in again.
  card().close();
  card().showButtons(kSelection);  // would close at 3
  world.advance(1);
  card().close();
  const auto panels = desk().ui.panels.size();
  card().showSuccess("Texte corrigé", [] {});  // closes 4 s from now
  EXPECT_EQ(desk().ui.panels.size(), panels + 1);
  EXPECT_EQ(panel().animations.front().kind, sim::SimAnimation::Kind::alpha);
  world.advance(3.9);
  EXPECT_TRUE(onScreen());
  world.advance(0.2);
  EXPECT_FALSE(onScreen());
}

TEST_F(LifecycleTest, PointerRestingOnTheCardKeepsItOpen) {
  card().showSuccess("Texte corrigé", [] {});  // 203 × 40 under the pointer at 720, 450
  const Rect f = panel().frame();
  desk().screens.mouse = {f.x + 10, f.y + 10};
  world.advance(30);
  EXPECT_TRUE(onScreen());

  // Within the 6-point margin still counts as on the card.
  desk().screens.mouse = {f.maxX() + 5.5, f.y + 10};
  world.advance(1.2);
  EXPECT_TRUE(onScreen());

  // Checks run every 1.2 s from the 4-second mark: 4, 5.2, …, 30.4, 31.6; it is now 31.2.
  desk().screens.mouse = {f.maxX() + 6, f.y + 10};  // just outside the margin
  world.advance(31.59 - 31.2);
  EXPECT_TRUE(onScreen());
  world.advance(0.02);
  EXPECT_FALSE(onScreen());
}

// Escape is told with the key itself in selection_watcher_test.cpp.
TEST_F(LifecycleTest, LosingTheSelectionClosesOnlyTheOffer) {
  card().showConnect(kSelection);
  EXPECT_TRUE(card().isButtonsOpen());
  card().dismissButtonsOnly();
  EXPECT_FALSE(onScreen());

  for (auto show : std::vector<std::function<void()>>{[&] { card().showProgress("Correction…"); },
                                                      [&] { card().showSuccess("Texte corrigé", [] {}); },
                                                      [&] { card().showError("Oups", false); }}) {
    show();
    card().dismissButtonsOnly();
    EXPECT_TRUE(onScreen());
    EXPECT_FALSE(card().isButtonsOpen());
  }
}

}  // namespace
}  // namespace mirlo::testing
