// Displays and the pointer, in bottom-left-origin screen coordinates.
#pragma once

#include <optional>
#include <vector>

#include "base/geometry.h"

namespace mirlo {

struct Screen {
  Rect frame;
  Rect visibleFrame;  // without the menu bar and the Dock
};

class Screens {
 public:
  virtual ~Screens() = default;
  virtual std::vector<Screen> screens() = 0;  // the primary screen first
  virtual std::optional<Screen> mainScreen() = 0;
  virtual Point mouseLocation() = 0;
};

}  // namespace mirlo
