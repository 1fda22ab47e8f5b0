// The card offered by itself next to a fresh selection, and the keys and clicks that close it.
// The plain mouse selection (its 0.05 s wait, its place, Escape and a scroll closing it) is in the
// card-after-mouse-selection scenario, with the same text offered again once Escape closed it.
#include "access/selection_watcher.h"

#include <gtest/gtest.h>

#include <functional>

#include "app/launch.h"
#include "support/sim_app.h"

namespace mirlo::testing {
namespace {

constexpr std::uint64_t kCmd = modifier::command, kShift = modifier::shift, kOpt = modifier::option,
                        kCtrl = modifier::control;
constexpr std::uint16_t kA = 0, kZ = 6, kEscape = 53, kRightArrow = 124;

InputEvent key(InputEventType type, std::uint16_t code, std::uint64_t flags = 0, bool repeat = false) {
  return InputEvent{type, code, flags, repeat};
}

struct WatcherDay : ::testing::Test {
  void SetUp() override {
    world.signIn();
    world.desk.defaults.values["onboarded"] = true;
  }
  void start(const std::string& text = "Bonjour tout le monde") {
    finishLaunching(*world.app);
    world.desk.launchApp(700, "com.apple.TextEdit", text);
    world.advance(0);
  }
  Card& card() { return world.app->card(); }
  void send(const InputEvent& e, bool toUs = false) { world.desk.events.deliver(e, toUs); }
  void mouseSelect(std::int64_t location, std::int64_t length) {
    send({InputEventType::leftMouseDown});
    world.desk.select(location, length);
    send({InputEventType::leftMouseUp});
  }
  void showSelectionCard() {
    mouseSelect(0, 7);
    world.advance(0.05);
    ASSERT_EQ(card().state(), Card::State::buttons);
  }
  // "je suis contant" corrected to "je suis content" through accessibility.
  void correctOnce() {
    start("je suis contant");
    world.desk.select(0, 15);
    world.desk.http.enqueue("/functions/v1/correct", sim::SimAnswer::json(200, R"({"result":"je suis content"})"));
    world.app->engine().run("fix");
    world.advance(0.1);
    ASSERT_EQ(world.desk.frontText(), "je suis content");
  }
  std::size_t selectionReads() {
    std::size_t n = 0;
    for (const auto& c : world.desk.accessibility.calls)
      if (c == "copy AXSelectedText") ++n;
    return n;
  }
  SimWorld world;
};

TEST_F(WatcherDay, ShortOrBlankSelectionsOfferNothing) {
  start("a  ok e\u0301 \U0001F1EB\U0001F1F7 x");
  for (auto [loc, len] : {std::pair{0, 2} /* "a " */, {1, 2} /* blanks */, {6, 2} /* é as e + accent */,
                          {9, 4} /* one flag */}) {
    mouseSelect(loc, len);
    world.advance(1);
    EXPECT_EQ(card().state(), Card::State::idle) << loc;
  }
  mouseSelect(3, 2);  // "ok"
  world.advance(0.05);
  EXPECT_EQ(card().state(), Card::State::buttons);
  // Shrinking it to one letter closes the offer.
  mouseSelect(3, 1);
  world.advance(0.05);
  EXPECT_EQ(card().state(), Card::State::idle);
  EXPECT_EQ(world.app->watcher().lastShown(), "");
}

TEST_F(WatcherDay, TheSameSelectionTwiceLeavesTheCardWhereItIs) {
  start();
  showSelectionCard();
  const auto gen = card().generation();
  send({InputEventType::leftMouseUp});
  world.advance(0.05);
  EXPECT_EQ(card().generation(), gen);
}

TEST_F(WatcherDay, AClickThatSelectsNothingIsRetriedThenClosesTheOffer) {
  start();
  showSelectionCard();
  world.desk.select(3, 0);
  send({InputEventType::leftMouseUp}, /*toThisApp=*/true);  // the local monitor sees it too
  const auto reads = selectionReads();
  world.advance(0.05);
  EXPECT_EQ(selectionReads(), reads + 1);
  world.advance(0.2);
  EXPECT_EQ(selectionReads(), reads + 2);
  EXPECT_EQ(card().state(), Card::State::buttons);
  world.advance(0.39);
  EXPECT_EQ(card().state(), Card::State::buttons);
  world.advance(0.01);
  EXPECT_EQ(selectionReads(), reads + 3);
  EXPECT_EQ(card().state(), Card::State::idle);
  // The application was asked once to build its tree, not at every retry.
  EXPECT_EQ(world.app->watcher().axBoostedPids(), (std::set<std::int32_t>{700}));
}

TEST_F(WatcherDay, AnApplicationThatNeedsAskingIsBoostedOncePerProcess) {
  start();
  world.desk.frontApp()->exposesAccessibility = false;
  world.desk.activate(700);
  for (int i = 0; i < 3; ++i) {
    send({InputEventType::leftMouseUp});
    world.advance(1);
  }
  EXPECT_EQ(world.desk.accessibility.applications.count(700), 1u);
  EXPECT_EQ(world.desk.accessibility.applications[700]->written.count(ax::kManualAccessibility), 1u);
  std::size_t sets = 0;
  for (const auto& c : world.desk.accessibility.calls)
    if (c == std::string("set ") + ax::kManualAccessibility) ++sets;
  EXPECT_EQ(sets, 1u);
}

TEST_F(WatcherDay, AKeyboardSelectionWithShiftIsOffered) {
  start();
  world.desk.select(0, 1);
  send(key(InputEventType::keyDown, kRightArrow, kShift));
  send(key(InputEventType::keyUp, kRightArrow, kShift));
  world.advance(0.05);
  EXPECT_EQ(card().state(), Card::State::idle);  // one letter
  world.desk.select(0, 3);
  send(key(InputEventType::keyUp, kRightArrow, kShift));
  world.advance(0.05);
  EXPECT_EQ(card().state(), Card::State::buttons);
  // Keys released without Shift do not look.
  send(key(InputEventType::keyDown, kEscape));
  world.desk.select(0, 7);
  send(key(InputEventType::keyUp, kRightArrow));
  world.advance(1);
  EXPECT_EQ(card().state(), Card::State::idle);
}

TEST_F(WatcherDay, CommandAHeldForASecondOffersTheWholeText) {
  start();
  send(key(InputEventType::keyDown, kA, kCmd));
  world.desk.select(0, 21);
  // Auto-repeats while the keys are held do not push the offer back.
  for (int i = 0; i < 8; ++i) {
    world.advance(0.1);
    send(key(InputEventType::keyDown, kA, kCmd, true));
  }
  world.advance(0.2);
  world.advance(0.05);
  EXPECT_EQ(card().state(), Card::State::buttons);
  EXPECT_EQ(world.app->watcher().lastShown(), "Bonjour tout le monde");
  send(key(InputEventType::keyUp, kA, kCmd));
  world.advance(0.5);
  EXPECT_EQ(card().state(), Card::State::buttons);  // releasing late changes nothing
}

TEST_F(WatcherDay, CommandAReleasedEarlyWithOtherModifiersOrOffTheLayoutOffersNothing) {
  world.desk.keyboard.layout = sim::Layout::frenchAzerty;  // "a" on key 12; key 0 types "q"
  start();
  world.desk.select(0, 21);
  send(key(InputEventType::keyDown, 12, kCmd));
  world.advance(0.5);
  send(key(InputEventType::keyUp, 12, kCmd));
  world.advance(2);
  EXPECT_EQ(card().state(), Card::State::idle);
  for (auto [code, flags] : {std::pair{std::uint16_t{12}, kCmd | kShift}, {12, kCmd | kOpt}, {12, kCmd | kCtrl},
                             {12, std::uint64_t{0}}, {kA, kCmd}}) {
    send(key(InputEventType::keyDown, code, flags));
    world.advance(1.1);
    EXPECT_EQ(card().state(), Card::State::idle) << code << " " << flags;
  }
  send(key(InputEventType::keyDown, 12, kCmd));
  world.advance(1.1);
  EXPECT_EQ(card().state(), Card::State::buttons);
}

TEST_F(WatcherDay, EscapeClosesEveryCardButARunningCorrection) {
  start();
  showSelectionCard();
  send(key(InputEventType::keyDown, kEscape));
  EXPECT_EQ(card().state(), Card::State::idle);
  send(key(InputEventType::keyDown, kEscape));  // nothing open: nothing happens
  EXPECT_EQ(card().state(), Card::State::idle);

  card().showProgress("Correction…");
  send(key(InputEventType::keyDown, kEscape));
  EXPECT_EQ(card().state(), Card::State::progress);
  card().showSuccess("Corrigé", [] {});
  send(key(InputEventType::keyDown, kEscape), /*toThisApp=*/true);
  EXPECT_EQ(card().state(), Card::State::idle);
  for (auto show : std::vector<std::function<void()>>{
           [&] { card().showConnect(std::nullopt); }, [&] { card().showNotice("Texte copié"); },
           [&] { card().showError("Limite atteinte", true); }}) {
    show();
    send(key(InputEventType::keyDown, kEscape));
    EXPECT_EQ(card().state(), Card::State::idle);
    EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
  }
}

TEST_F(WatcherDay, ClicksAndScrollingElsewhereCloseOnlyTheButtons) {
  start();
  showSelectionCard();
  send({InputEventType::leftMouseDown}, /*toThisApp=*/true);  // a click on the card itself
  EXPECT_EQ(card().state(), Card::State::buttons);
  send({InputEventType::leftMouseDown});
  EXPECT_EQ(card().state(), Card::State::idle);
  card().showSuccess("Corrigé", [] {});
  send({InputEventType::scrollWheel});
  EXPECT_EQ(card().state(), Card::State::success);
}

TEST_F(WatcherDay, CommandZReachesUndoOnceButNotWithShiftOrOnRepeat) {
  correctOnce();

  send(key(InputEventType::keyDown, kZ, kCmd | kShift));
  send(key(InputEventType::keyDown, kZ, kCmd, true));
  world.advance(1);
  EXPECT_EQ(world.desk.frontText(), "je suis content");
  EXPECT_TRUE(world.app->engine().undoInfo());
  // Option held too is still an undo.
  send(key(InputEventType::keyDown, kZ, kCmd | kOpt));
  world.advance(1);
  EXPECT_EQ(world.desk.frontText(), "je suis contant");
}

TEST_F(WatcherDay, CommandZWithoutAKeyForZFallsBackToTheUsPosition) {
  world.desk.keyboard.layout = sim::Layout::none;
  correctOnce();
  send(key(InputEventType::keyDown, kZ, kCmd));
  world.advance(1);
  EXPECT_FALSE(world.app->engine().undoInfo());
}

TEST_F(WatcherDay, NothingIsReadWhileTheCardIsSwitchedOffOrUntrusted) {
  start();
  world.app->prefs().setPopupEnabled(false);
  const auto reads = selectionReads();
  mouseSelect(0, 7);
  world.advance(1);
  world.app->prefs().setPopupEnabled(true);
  world.desk.accessibility.trusted = false;
  mouseSelect(0, 7);
  world.advance(1);
  EXPECT_EQ(selectionReads(), reads);
  EXPECT_EQ(card().state(), Card::State::idle);
}

// Browsers are asked to expose their text as soon as they are seen.
TEST(BrowserArming, ListedApplicationsAreArmedOnceWhenSeenWithThePermission) {
  SimWorld world;
  world.desk.launchApp(801, "com.google.Chrome");
  world.desk.launchApp(802, "com.google.chrome");  // differs in case: not listed
  world.advance(0);
  world.desk.accessibility.trusted = false;
  finishLaunching(*world.app);
  world.desk.launchApp(803, "org.mozilla.firefox");
  world.advance(0);
  EXPECT_TRUE(world.app->delegate().armedPids().empty());

  world.desk.accessibility.trusted = true;
  world.desk.workspace.postBareActivation();
  world.desk.activate(802);
  world.advance(0);
  EXPECT_TRUE(world.app->delegate().armedPids().empty());
  world.desk.activate(801);
  world.desk.activate(803);
  world.desk.activate(801);
  world.advance(0);
  EXPECT_EQ(world.app->delegate().armedPids(), (std::set<std::int32_t>{801, 803}));
  auto& chrome = *world.desk.accessibility.applications.at(801);
  EXPECT_EQ(std::get<bool>(chrome.written.at(ax::kEnhancedUserInterface)), true);
  EXPECT_EQ(std::get<bool>(chrome.written.at(ax::kManualAccessibility)), true);
  std::size_t sets = 0;
  for (const auto& c : world.desk.accessibility.calls)
    if (c.rfind("set AX", 0) == 0) ++sets;
  EXPECT_EQ(sets, 4u);  // two attributes for each of the two browsers, once each
  EXPECT_FALSE(isAccessibilityHungry("com.google.Chrome "));
  EXPECT_TRUE(isAccessibilityHungry("com.figma.Desktop"));
}

}  // namespace
}  // namespace mirlo::testing
