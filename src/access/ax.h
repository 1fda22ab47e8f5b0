// Reading and writing the text of whatever element has the keyboard focus in another
// application. Every operation fails quietly: a failure is nothing or false, and the caller
// decides what to fall back to. Locations and lengths are UTF-16 code units.
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"

namespace mirlo {

struct AXSelection {
  AXElementRef element;
  std::string text;  // never empty
  AXRange range;
};

class AX {
 public:
  explicit AX(Platform& platform) : platform_(platform) {}

  AXElementRef focusedElement();
  std::optional<AXSelection> selection();
  std::optional<std::string> textValue(const AXElementRef& element);
  bool setSelectedText(const AXElementRef& element, const std::string& text);
  bool setSelectedRange(const AXElementRef& element, std::int64_t location, std::int64_t length);
  // Where the selection is on screen: its last character when it has more than one, else the
  // whole range measured with a length of at least 1.
  std::optional<Rect> selectionRect(const AXElementRef& element, AXRange range);
  // The screen rectangle (bottom-left origin) of a range; nothing for non-finite or empty bounds.
  std::optional<Rect> boundsFor(const AXElementRef& element, std::int64_t location, std::int64_t length);
  // Asks the frontmost application to build its accessibility tree.
  void enableInFrontmostApp();
  // Sets both "build your tree" attributes on an application's element.
  void enableApplication(std::int32_t pid);

 private:
  Platform& platform_;
};

}  // namespace mirlo
