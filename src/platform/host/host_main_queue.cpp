#include "platform/host/host_main_queue.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <thread>

namespace mirlo {

namespace {

class HostTimer final : public Timer {
 public:
  void invalidate() override { valid_ = false; }
  bool isValid() const override { return valid_; }

 private:
  std::atomic<bool> valid_{true};
};

}  // namespace

HostMainQueue::HostMainQueue() : origin_(std::chrono::steady_clock::now()) {}

double HostMainQueue::now() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - origin_).count();
}

void HostMainQueue::schedule(double due, Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.emplace(Key{due, sequence_++}, std::move(task));
  }
  changed_.notify_all();
}

void HostMainQueue::post(Task task) { schedule(now(), std::move(task)); }

void HostMainQueue::postAfter(double seconds, Task task) {
  schedule(now() + std::max(0.0, seconds), std::move(task));
}

std::shared_ptr<Timer> HostMainQueue::scheduleTimer(double interval, bool repeats, Task action) {
  auto timer = std::make_shared<HostTimer>();
  interval = std::max(interval, 0.0001);
  // Each firing schedules the next; the pending task holds the timer only weakly, so a dropped
  // or invalidated timer stops by itself.
  auto fire = std::make_shared<std::function<void(double)>>();
  std::weak_ptr<std::function<void(double)>> weakFire = fire;
  *fire = [this, weak = std::weak_ptr<HostTimer>(timer), interval, repeats, action = std::move(action),
           weakFire](double due) {
    auto self = weak.lock();
    if (!self || !self->isValid()) return;
    if (!repeats) self->invalidate();
    action();
    if (!repeats || !self->isValid()) return;
    auto next = weakFire.lock();
    if (!next) return;
    // Keeps the cadence; after a long stall it fires once, not once per missed interval.
    const double nextDue = std::max(due + interval, now());
    schedule(nextDue, [next, nextDue] { (*next)(nextDue); });
  };
  const double first = now() + interval;
  schedule(first, [fire, first] { (*fire)(first); });
  return timer;
}

void HostMainQueue::block(double seconds) {
  if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

bool HostMainQueue::runUntil(const std::function<bool()>& done, double limitSeconds) {
  const double deadline = limitSeconds >= 0 ? now() + limitSeconds : std::numeric_limits<double>::infinity();
  while (true) {
    if (done && done()) return true;
    Task task;
    {
      std::unique_lock lock(mutex_);
      if (stopRequested_) {
        stopRequested_ = false;
        break;
      }
      const double current = now();
      if (current >= deadline) break;
      if (!tasks_.empty() && tasks_.begin()->first.first <= current) {
        task = std::move(tasks_.begin()->second);
        tasks_.erase(tasks_.begin());
      } else {
        double wakeAt = deadline;
        if (!tasks_.empty()) wakeAt = std::min(wakeAt, tasks_.begin()->first.first);
        if (wakeAt == std::numeric_limits<double>::infinity()) {
          changed_.wait(lock);
        } else {
          changed_.wait_until(lock, origin_ + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                  std::chrono::duration<double>(wakeAt)));
        }
        continue;
      }
    }
    task();
  }
  return done && done();
}

void HostMainQueue::run() { runUntil({}, -1); }

void HostMainQueue::stop() {
  {
    std::lock_guard lock(mutex_);
    stopRequested_ = true;
  }
  changed_.notify_all();
}

std::size_t HostMainQueue::pendingCount() const {
  std::lock_guard lock(mutex_);
  return tasks_.size();
}

}  // namespace mirlo
