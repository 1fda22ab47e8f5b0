#include "platform/host/host_main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace mirlo {
namespace {

// These run on the real clock: they check order and conditions, with generous limits, never
// exact durations.
TEST(HostMainQueue, TasksFromOtherThreadsRunOnTheLoopThreadInPostingOrder) {
  HostMainQueue queue;
  std::vector<int> seen;  // touched only on the loop thread
  std::atomic<bool> foreign{false};
  const auto loop = std::this_thread::get_id();
  std::vector<std::thread> posters;
  for (int t = 0; t < 4; ++t)
    posters.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i)
        queue.post([&, t, i] {
          if (std::this_thread::get_id() != loop) foreign = true;
          seen.push_back(t * 1000 + i);
        });
    });
  for (auto& p : posters) p.join();
  EXPECT_TRUE(queue.runUntil([&] { return seen.size() == 200; }, 10));
  EXPECT_FALSE(foreign);
  for (int t = 0; t < 4; ++t) {
    int last = -1;
    for (int v : seen)
      if (v / 1000 == t) {
        EXPECT_GT(v, last);
        last = v;
      }
  }
}

TEST(HostMainQueue, DelayedTasksRunByDueTimeAndTimersUntilInvalidated) {
  HostMainQueue queue;
  std::vector<std::string> order;
  const double start = queue.now();
  double ranLate = 0;
  queue.postAfter(0.15, [&] { order.push_back("late"); ranLate = queue.now(); });
  queue.postAfter(0.05, [&] { order.push_back("early"); });
  queue.post([&] { order.push_back("now"); });
  int ticks = 0, once = 0;
  std::shared_ptr<Timer> repeating;
  repeating = queue.scheduleTimer(0.01, true, [&] {
    if (++ticks == 3) repeating->invalidate();
  });
  auto single = queue.scheduleTimer(0.01, false, [&] { ++once; });
  auto dropped = queue.scheduleTimer(0.01, true, [&] { ADD_FAILURE() << "an invalidated timer fired"; });
  dropped->invalidate();
  EXPECT_TRUE(queue.runUntil([&] { return order.size() == 3; }, 10));
  EXPECT_EQ(order, (std::vector<std::string>{"now", "early", "late"}));
  EXPECT_GE(ranLate - start, 0.15);
  EXPECT_EQ(ticks, 3);
  EXPECT_EQ(once, 1);
  EXPECT_FALSE(single->isValid());
  EXPECT_FALSE(repeating->isValid());
}

TEST(HostMainQueue, RunUntilGivesUpAtItsLimitAndStopEndsTheLoopFromAnotherThread) {
  HostMainQueue queue;
  const double start = queue.now();
  EXPECT_FALSE(queue.runUntil([] { return false; }, 0.05));
  EXPECT_GE(queue.now() - start, 0.05);

  std::thread stopper([&] { queue.stop(); });
  queue.run();  // returns once stopped
  stopper.join();
  bool ran = false;
  queue.post([&] { ran = true; });
  EXPECT_TRUE(queue.runUntil([&] { return ran; }, 10));
}

TEST(HostMainQueue, BlockReallyWaitsWithoutRunningTasks) {
  HostMainQueue queue;
  bool ran = false;
  queue.post([&] { ran = true; });
  const double start = queue.now();
  queue.block(0.05);
  EXPECT_GE(queue.now() - start, 0.05);
  EXPECT_FALSE(ran);
  EXPECT_EQ(queue.pendingCount(), 1u);
}

}  // namespace
}  // namespace mirlo
