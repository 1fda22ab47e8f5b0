// The first-run window: sign-in, the accessibility permission, then a demonstration.
#pragma once

#include <cstdint>
#include <memory>

#include "base/lifetime.h"
#include "platform/ui.h"

namespace mirlo {

class App;

class Onboarding {
 public:
  explicit Onboarding(App& app);

  // Opens (creating it once) and fronts the window at the first unfinished step. Deferred to the
  // main queue so that it can be called from any main-queue context.
  void show();
  void showIfNeeded();
  void refresh();

  Window* window() { return window_.get(); }

 private:
  App& app_;
  std::shared_ptr<Window> window_;
  Lifetime life_;
};

}  // namespace mirlo
