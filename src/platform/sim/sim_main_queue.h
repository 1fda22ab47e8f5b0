// A main queue on a virtual clock. Nothing runs by itself: the test (or the scenario runner) moves
// time with `advance`, which runs every task that falls due, in order of due time and then of
// posting. `post` is thread-safe, so real network threads can hand work over.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "platform/main_queue.h"

namespace mirlo::sim {

class SimMainQueue final : public MainQueue {
 public:
  void post(Task task) override;
  void postAfter(double seconds, Task task) override;
  std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats, Task action) override;
  double now() const override;
  void block(double seconds) override;

  // Runs every task due at the current time, including those that they post for now.
  void runReady();
  // Moves the clock forward by `seconds`, running due tasks at their own times.
  void advance(double seconds);
  // Waits (in real time, at most `limit`) until some task is due now, e.g. one posted by a real
  // network thread. True when there is one.
  bool waitForReady(std::chrono::milliseconds limit);

  std::size_t pendingCount() const;
  // Total time the main queue spent blocked (waiting for keys to be released, say).
  double blockedSeconds() const;

 private:
  using Key = std::pair<double, std::uint64_t>;
  void schedule(double due, Task task);
  bool popDue(double limit, Task& task);

  mutable std::mutex mutex_;
  std::condition_variable posted_;
  std::map<Key, Task> tasks_;
  double now_ = 0;
  double blocked_ = 0;
  std::uint64_t sequence_ = 0;
};

}  // namespace mirlo::sim
