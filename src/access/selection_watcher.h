// Watches the user's mouse and keys in every application and decides when to offer the card next
// to a fresh selection; routes Command+Z to the engine's undo and closes the card on Escape, a
// click elsewhere or scrolling.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "base/lifetime.h"
#include "platform/event_monitor.h"
#include "platform/main_queue.h"

namespace mirlo {

class App;

class SelectionWatcher {
 public:
  explicit SelectionWatcher(App& app);

  void start();
  // Lets the same text be offered again.
  void forget() { lastShown_.clear(); }
  const std::string& lastShown() const { return lastShown_; }

  void keyDown(const InputEvent& event);
  void keyUp(const InputEvent& event);
  void checkSoon();
  void check(int retriesLeft);

  const std::set<std::int32_t>& axBoostedPids() const { return axBoostedPids_; }

 private:
  App& app_;
  std::string lastShown_;
  std::set<std::int32_t> axBoostedPids_;
  std::shared_ptr<Timer> holdTimer_;
  std::uint16_t codeA_ = 0;
  std::uint16_t codeZ_ = 6;
  Lifetime life_;
};

}  // namespace mirlo
