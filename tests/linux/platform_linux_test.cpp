// The Linux platform's pure translations, and its main queue on a GLib loop: no display needed.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/keyboard.h"
#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/gdk_screens.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/key_table.h"
#include "platform/linux/x_workspace.h"

namespace mirlo::linuxdesk {
namespace {

TEST(LinuxKeys, PhysicalPositionsRoundTripAndControlStandsForCommand) {
  EXPECT_EQ(xKeyCodeFor(0), 38u);   // A
  EXPECT_EQ(xKeyCodeFor(keycode::c), 54u);
  EXPECT_EQ(xKeyCodeFor(keycode::v), 55u);
  EXPECT_EQ(xKeyCodeFor(keycode::escape), 9u);
  EXPECT_EQ(xKeyCodeFor(55), 37u);  // Command is the left Control key
  EXPECT_EQ(xKeyCodeFor(58), 64u);  // Option is the left Alt key
  EXPECT_FALSE(xKeyCodeFor(63));    // fn: no such key on a PC keyboard
  int mapped = 0;
  for (std::uint16_t mac = 0; mac < 128; ++mac) {
    if (auto x = xKeyCodeFor(mac)) {
      ++mapped;
      EXPECT_EQ(macKeyCodeFor(*x), mac) << "mac key " << mac;
    }
  }
  EXPECT_GT(mapped, 110);

  EXPECT_EQ(macFlagsFromXState(ControlMask | ShiftMask), modifier::command | modifier::shift);
  EXPECT_EQ(macFlagsFromXState(Mod1Mask), modifier::option);
  EXPECT_EQ(macFlagsFromXState(Mod4Mask), modifier::control);
  EXPECT_EQ(xStateFromMacFlags(modifier::command | modifier::option), unsigned(ControlMask | Mod1Mask));
}

TEST(LinuxText, CharacterOffsetsAndUtf16UnitsConvertBothWays) {
  const std::string text = "Un \xF0\x9F\x98\x80 \xC3\xA9t\xC3\xA9";  // "Un 😀 été": the emoji is two UTF-16 units
  EXPECT_EQ(utf16OfCharacterOffset(text, 0), 0);
  EXPECT_EQ(utf16OfCharacterOffset(text, 3), 3);
  EXPECT_EQ(utf16OfCharacterOffset(text, 4), 5);
  EXPECT_EQ(utf16OfCharacterOffset(text, 8), 9);  // the end
  EXPECT_FALSE(utf16OfCharacterOffset(text, 9));
  EXPECT_EQ(characterOffsetOfUtf16(text, 5), 4);
  EXPECT_EQ(characterOffsetOfUtf16(text, 9), 8);
  EXPECT_FALSE(characterOffsetOfUtf16(text, 4));  // between the halves of the emoji
  EXPECT_FALSE(characterOffsetOfUtf16(text, 10));
  EXPECT_EQ(characterOffsetOfUtf16("", 0), 0);
}

TEST(LinuxFocus, TheFocusedWidgetIsTheDeepestFocusedObjectWhereverItIsListed) {
  // A browser lists the focused field (ten ancestors) before two focused documents (five).
  EXPECT_EQ(deepestFocused({10, 5, 5}), 0u);
  // A toolkit that lists the focused window, then the focused entry inside it.
  EXPECT_EQ(deepestFocused({2, 7}), 1u);
  // Nested focused objects of equal depth: the later one, as the tree lists them.
  EXPECT_EQ(deepestFocused({3, 6, 6}), 2u);
  EXPECT_FALSE(deepestFocused({}));
}

TEST(LinuxScreens, TopLeftRectanglesFlipAroundThePrimaryMonitor) {
  const Rect primary{0, 0, 1280, 800};
  EXPECT_EQ(flipToBottomLeft({0, 0, 1280, 800}, primary), (Rect{0, 0, 1280, 800}));
  EXPECT_EQ(flipToBottomLeft({100, 30, 200, 20}, primary), (Rect{100, 750, 200, 20}));
  // A second monitor to the left of and above a primary that is not at the origin.
  const Rect offset{1920, 200, 1280, 800};
  EXPECT_EQ(flipToBottomLeft({0, 0, 1920, 1080}, offset), (Rect{-1920, -80, 1920, 1080}));
  // A card placed by the core lands back where the selection was measured.
  const Rect selection{2000, 500, 80, 18};
  EXPECT_EQ(flipToTopLeft(flipToBottomLeft(selection, offset), offset), selection);
}

TEST(LinuxWorkspace, WindowClassesMapToTheIdentifiersTheCoreKnows) {
  EXPECT_EQ(applicationIdentifier("google-chrome", "Google-chrome"), "com.google.Chrome");
  EXPECT_EQ(applicationIdentifier("Navigator", "firefox-esr"), "org.mozilla.firefox");
  EXPECT_EQ(applicationIdentifier("code", "Code"), "com.microsoft.VSCode");
  EXPECT_EQ(applicationIdentifier("slack", "Slack"), "com.tinyspeck.slackmacgap");
  EXPECT_EQ(applicationIdentifier("mousepad", "Mousepad"), "Mousepad");
  EXPECT_EQ(applicationIdentifier("", ""), std::nullopt);
}

// Runs the loop until `done` or the time limit.
template <typename Pred>
bool runUntil(GLibMainQueue& queue, Pred done, double limit = 5) {
  const double deadline = queue.now() + limit;
  while (!done() && queue.now() < deadline) queue.iterate(false) || (g_usleep(1000), true);
  return done();
}

TEST(LinuxMainQueue, TasksRunInOrderFromEveryThreadAndTimersStopWhenInvalidated) {
  GLibMainQueue queue;
  std::vector<int> order;
  std::atomic<int> fromThreads{0};
  queue.post([&] {
    order.push_back(1);
    queue.post([&] { order.push_back(3); });
  });
  queue.post([&] { order.push_back(2); });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) queue.post([&] { ++fromThreads; });
    });
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(runUntil(queue, [&] { return order.size() == 3 && fromThreads == 400; }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));

  const double start = queue.now();
  double firedAt = 0;
  queue.postAfter(0.05, [&] { firedAt = queue.now(); });
  int ticks = 0;
  std::shared_ptr<Timer> timer;
  timer = queue.scheduleTimer(0.01, true, [&] {
    if (++ticks == 3) timer->invalidate();
  });
  EXPECT_TRUE(timer->isValid());
  ASSERT_TRUE(runUntil(queue, [&] { return firedAt > 0 && !timer->isValid(); }));
  EXPECT_GE(firedAt - start, 0.049);
  EXPECT_EQ(ticks, 3);
  // Nothing more fires once invalidated.
  bool later = false;
  queue.postAfter(0.05, [&] { later = true; });
  ASSERT_TRUE(runUntil(queue, [&] { return later; }));
  EXPECT_EQ(ticks, 3);
}

TEST(LinuxMainQueue, TasksLeftWhenTheQueueGoesAwayNeverRun) {
  bool ran = false;
  {
    GLibMainQueue queue;
    queue.post([&] { ran = true; });
    queue.postAfter(0, [&] { ran = true; });
  }
  for (int i = 0; i < 10; ++i) g_main_context_iteration(nullptr, false);
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace mirlo::linuxdesk
