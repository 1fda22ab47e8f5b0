// The main queue on the GLib main loop of the default main context. Tasks posted from any thread
// run in the order they were posted; delays and timers are GLib timeout sources.
#pragma once

#include <glib.h>

#include <memory>

#include "platform/main_queue.h"

namespace mirlo::linuxdesk {

class GLibMainQueue final : public MainQueue {
 public:
  GLibMainQueue();
  ~GLibMainQueue() override;
  GLibMainQueue(const GLibMainQueue&) = delete;
  GLibMainQueue& operator=(const GLibMainQueue&) = delete;

  void post(Task task) override;
  void postAfter(double seconds, Task task) override;
  std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats, Task action) override;
  double now() const override;
  void block(double seconds) override;

  // Runs the loop until `quit`.
  void run();
  void quit();
  // Runs one iteration of the loop, waiting for work when `mayBlock`; true when something ran.
  bool iterate(bool mayBlock);

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace mirlo::linuxdesk
