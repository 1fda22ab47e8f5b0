#include "platform/mac/mac_main_queue.h"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

#include <chrono>
#include <cmath>

namespace mirlo::mac {

namespace {

class MacTimer final : public Timer {
 public:
  explicit MacTimer(NSTimer* timer) : timer_([timer retain]) {}
  ~MacTimer() override { [timer_ release]; }  // the run loop keeps a timer it runs on its own
  MacTimer(const MacTimer&) = delete;
  MacTimer& operator=(const MacTimer&) = delete;

  void invalidate() override { [timer_ invalidate]; }
  bool isValid() const override { return [timer_ isValid]; }

 private:
  NSTimer* timer_;
};

class MacMainQueue final : public MainQueue {
 public:
  void post(Task task) override {
    dispatch_async(dispatch_get_main_queue(), ^{
      task();
    });
  }

  void postAfter(double seconds, Task task) override {
    const auto delta = static_cast<int64_t>(std::llround(seconds * static_cast<double>(NSEC_PER_SEC)));
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, delta), dispatch_get_main_queue(), ^{
      task();
    });
  }

  std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats, Task action) override {
    NSTimer* timer = [NSTimer timerWithTimeInterval:interval
                                            repeats:repeats ? YES : NO
                                              block:^(NSTimer*) {
                                                action();
                                              }];
    // In the common modes, where the main dispatch queue runs its tasks too: a timer scheduled in
    // the default mode only would not fire while a menu is open or a window is being moved.
    [[NSRunLoop mainRunLoop] addTimer:timer forMode:NSRunLoopCommonModes];
    return std::make_shared<MacTimer>(timer);
  }

  double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }

  void block(double seconds) override { [NSThread sleepForTimeInterval:seconds]; }
};

}  // namespace

std::unique_ptr<MainQueue> makeMainQueue() { return std::make_unique<MacMainQueue>(); }

}  // namespace mirlo::mac
