// The main queue: where everything in the core runs. `post` may be called from any thread; the
// rest only from the main queue itself.
#pragma once

#include <functional>
#include <memory>

namespace mirlo {

using Task = std::function<void()>;

class Timer {
 public:
  virtual ~Timer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
};

class MainQueue {
 public:
  virtual ~MainQueue() = default;

  // Runs the task later on the main queue, after every task posted before it. Thread-safe.
  virtual void post(Task task) = 0;

  // Runs the task on the main queue once `seconds` have passed.
  virtual void postAfter(double seconds, Task task) = 0;

  // A timer on the main queue; a repeating one fires every `interval` seconds until invalidated.
  virtual std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats, Task action) = 0;

  // Monotonic time in seconds.
  virtual double now() const = 0;

  // Blocks the main queue for `seconds` without running any task (a short, deliberate wait such
  // as for the user to let go of the modifier keys).
  virtual void block(double seconds) = 0;
};

}  // namespace mirlo
