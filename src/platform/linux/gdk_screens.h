// Monitors and the pointer from GDK, turned into bottom-left-origin coordinates measured from the
// primary monitor, as the core expects.
#pragma once

#include <functional>
#include <vector>

#include "platform/screens.h"

namespace mirlo::linuxdesk {

class GdkScreens final : public Screens {
 public:
  GdkScreens();  // throws NoDisplayError when GDK cannot open the display
  ~GdkScreens() override;
  GdkScreens(const GdkScreens&) = delete;
  GdkScreens& operator=(const GdkScreens&) = delete;
  std::vector<Screen> screens() override;
  std::optional<Screen> mainScreen() override;
  Point mouseLocation() override;
  void addChangeHandler(std::function<void()> handler) override;

 private:
  static void onMonitorsChanged(void* self);
  static int tellChange(void* self);

  std::vector<std::function<void()>> changeHandlers_;
  unsigned long addedId_ = 0, removedId_ = 0, rearrangedId_ = 0;
  unsigned idle_ = 0;
};

// A top-left-origin rectangle of the X screen in the core's coordinates, given the primary
// monitor's top-left-origin geometry.
Rect flipToBottomLeft(const Rect& topLeft, const Rect& primary);
// The inverse: a rectangle in the core's coordinates placed on the X screen.
Rect flipToTopLeft(const Rect& bottomLeft, const Rect& primary);
// The primary monitor's geometry on the X screen (top-left origin); the whole screen's origin, empty,
// when GDK has no display or no monitor.
Rect primaryMonitorGeometry();

}  // namespace mirlo::linuxdesk
