// Displays and the pointer, in bottom-left-origin screen coordinates.
#pragma once

#include <functional>
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
  // `handler` runs on the main queue after a display was plugged in, unplugged or rearranged.
  virtual void addChangeHandler(std::function<void()> handler) = 0;
};

}  // namespace mirlo
