// The main queue of a program without a desktop (the command line, tools): tasks run on the
// thread that drives `run`/`runUntil`, in order of due time and then of posting, on the steady
// clock. `post`, `postAfter` and `stop` may be called from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

#include "platform/main_queue.h"

namespace mirlo {

class HostMainQueue final : public MainQueue {
 public:
  HostMainQueue();

  void post(Task task) override;
  void postAfter(double seconds, Task task) override;
  std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats, Task action) override;
  double now() const override;
  // Really sleeps: nothing else runs on the main queue meanwhile.
  void block(double seconds) override;

  // Runs tasks on the calling thread until `done` holds (checked before each task and whenever
  // the queue wakes), `stop` is called, or `limitSeconds` have passed. Returns whether `done`
  // held at the end.
  bool runUntil(const std::function<bool()>& done, double limitSeconds);
  // Runs tasks until `stop`.
  void run();
  // Makes the running loop return after its current task. Thread-safe.
  void stop();

  std::size_t pendingCount() const;

 private:
  using Key = std::pair<double, std::uint64_t>;
  void schedule(double due, Task task);

  const std::chrono::steady_clock::time_point origin_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<Key, Task> tasks_;
  std::uint64_t sequence_ = 0;
  bool stopRequested_ = false;
};

}  // namespace mirlo
