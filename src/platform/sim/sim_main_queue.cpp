#include "platform/sim/sim_main_queue.h"

#include <algorithm>
#include <atomic>

namespace mirlo::sim {

namespace {

class SimTimer final : public Timer {
 public:
  void invalidate() override { valid_ = false; }
  bool isValid() const override { return valid_; }

 private:
  std::atomic<bool> valid_{true};
};

}  // namespace

void SimMainQueue::schedule(double due, Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.emplace(Key{due, sequence_++}, std::move(task));
  }
  posted_.notify_all();
}

void SimMainQueue::post(Task task) {
  double due;
  {
    std::lock_guard lock(mutex_);
    due = now_;
  }
  schedule(due, std::move(task));
}

void SimMainQueue::postAfter(double seconds, Task task) { schedule(now() + std::max(0.0, seconds), std::move(task)); }

std::shared_ptr<Timer> SimMainQueue::scheduleTimer(double interval, bool repeats, Task action) {
  auto timer = std::make_shared<SimTimer>();
  interval = std::max(interval, 0.0001);
  // Each firing schedules the next one; the task holds the timer weakly so that a dropped,
  // invalidated timer leaves nothing behind.
  auto fire = std::make_shared<std::function<void(double)>>();
  std::weak_ptr<std::function<void(double)>> weakFire = fire;
  *fire = [this, weak = std::weak_ptr<SimTimer>(timer), interval, repeats, action = std::move(action),
           weakFire](double due) {
    auto self = weak.lock();
    if (!self || !self->isValid()) return;
    if (!repeats) self->invalidate();
    action();
    if (repeats && self->isValid()) {
      if (auto next = weakFire.lock()) schedule(due + interval, [next, due, interval] { (*next)(due + interval); });
    }
  };
  const double first = now() + interval;
  schedule(first, [fire, first] { (*fire)(first); });
  return timer;
}

double SimMainQueue::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

void SimMainQueue::block(double seconds) {
  std::lock_guard lock(mutex_);
  now_ += std::max(0.0, seconds);
  blocked_ += std::max(0.0, seconds);
}

bool SimMainQueue::popDue(double limit, Task& task) {
  std::lock_guard lock(mutex_);
  if (tasks_.empty()) return false;
  auto first = tasks_.begin();
  if (first->first.first > limit) return false;
  // A task that fell due while the queue was blocked runs now, not in the past.
  now_ = std::max(now_, first->first.first);
  task = std::move(first->second);
  tasks_.erase(first);
  return true;
}

void SimMainQueue::runReady() {
  Task task;
  while (popDue(now(), task)) task();
}

void SimMainQueue::advance(double seconds) {
  const double target = now() + std::max(0.0, seconds);
  Task task;
  while (popDue(target, task)) task();
  std::lock_guard lock(mutex_);
  now_ = std::max(now_, target);
}

bool SimMainQueue::waitForReady(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  return posted_.wait_for(lock, limit, [this] { return !tasks_.empty() && tasks_.begin()->first.first <= now_; });
}

std::size_t SimMainQueue::pendingCount() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

double SimMainQueue::blockedSeconds() const {
  std::lock_guard lock(mutex_);
  return blocked_;
}

}  // namespace mirlo::sim
