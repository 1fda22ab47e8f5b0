// What a scenario prints: the person's view of the desktop and of the program, in a stable,
// line-based form (documented in docs/scenarios.md). Lists of events (keys, requests,
// notifications, opened addresses) show what happened since the previous print of that list.
#pragma once

#include <cstddef>
#include <ostream>
#include <vector>

#include "app/app.h"
#include "platform/http.h"
#include "platform/sim/sim_desktop.h"

namespace mirlo::scenario {

struct World {
  sim::SimDesktop& desk;
  App* app;  // nothing before launch
  std::vector<HttpRequest> requests;
};

class Printer {
 public:
  explicit Printer(std::ostream& out) : out_(out) {}

  void element(const World& world);
  void clipboard(const World& world);
  void card(const World& world);
  void windows(const World& world);
  void window(const sim::SimWindow& window);
  // Only the titles of the open windows.
  void titles(const World& world);
  void menu(const World& world);
  void keys(const World& world);
  void requests(const World& world);
  void notifications(const World& world);
  void opened(const World& world);
  void busy(const World& world);
  void undo(const World& world);
  void time(const World& world);

 private:
  void views(const sim::SimNodes& nodes, int depth);

  std::ostream& out_;
  std::size_t keysShown_ = 0;
  std::size_t requestsShown_ = 0;
  std::size_t notificationsShown_ = 0;
  std::size_t openedShown_ = 0;
};

}  // namespace mirlo::scenario
