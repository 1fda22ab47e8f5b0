// Monitors and the pointer from GDK, turned into bottom-left-origin coordinates measured from the
// primary monitor, as the core expects.
#pragma once

#include "platform/screens.h"

namespace mirlo::linuxdesk {

class GdkScreens final : public Screens {
 public:
  GdkScreens();  // throws NoDisplayError when GDK cannot open the display
  std::vector<Screen> screens() override;
  std::optional<Screen> mainScreen() override;
  Point mouseLocation() override;
};

// A top-left-origin rectangle of the X screen in the core's coordinates, given the primary
// monitor's top-left-origin geometry.
Rect flipToBottomLeft(const Rect& topLeft, const Rect& primary);

}  // namespace mirlo::linuxdesk
