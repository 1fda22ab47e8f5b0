#include "access/ax.h"

#include <cmath>
#include <algorithm>

#include "base/text.h"

namespace mirlo {

AXElementRef AX::focusedElement() {
  auto& access = platform_.accessibility;
  auto systemWide = access.createSystemWide();
  if (!systemWide) return nullptr;
  AXValue value;
  if (access.copyAttributeValue(systemWide, ax::kFocusedUIElement, value) != AXError::success) return nullptr;
  auto* element = std::get_if<AXElementRef>(&value);
  return element ? *element : nullptr;
}

std::optional<AXSelection> AX::selection() {
  auto element = focusedElement();
  if (!element) return std::nullopt;
  auto& access = platform_.accessibility;
  AXValue value;
  if (access.copyAttributeValue(element, ax::kSelectedText, value) != AXError::success) return std::nullopt;
  auto* selected = std::get_if<std::string>(&value);
  if (!selected || selected->empty()) return std::nullopt;

  AXSelection result{element, *selected, {0, text::utf16Length(*selected)}};
  AXValue rangeValue;
  if (access.copyAttributeValue(element, ax::kSelectedTextRange, rangeValue) == AXError::success) {
    if (auto* range = std::get_if<AXRange>(&rangeValue)) result.range = *range;
  }
  return result;
}

std::optional<std::string> AX::textValue(const AXElementRef& element) {
  if (!element) return std::nullopt;
  AXValue value;
  if (platform_.accessibility.copyAttributeValue(element, ax::kValue, value) != AXError::success) return std::nullopt;
  if (auto* s = std::get_if<std::string>(&value)) return *s;
  return std::nullopt;
}

bool AX::setSelectedText(const AXElementRef& element, const std::string& replacement) {
  if (!element) return false;
  auto& access = platform_.accessibility;
  bool settable = false;
  if (access.isAttributeSettable(element, ax::kSelectedText, settable) != AXError::success || !settable) return false;
  return access.setAttributeValue(element, ax::kSelectedText, replacement) == AXError::success;
}

bool AX::setSelectedRange(const AXElementRef& element, std::int64_t location, std::int64_t length) {
  if (!element) return false;
  return platform_.accessibility.setAttributeValue(element, ax::kSelectedTextRange, AXRange{location, length}) ==
         AXError::success;
}

std::optional<Rect> AX::boundsFor(const AXElementRef& element, std::int64_t location, std::int64_t length) {
  if (!element) return std::nullopt;
  AXValue value;
  if (platform_.accessibility.copyParameterizedAttributeValue(element, ax::kBoundsForRange,
                                                              AXRange{location, length}, value) != AXError::success)
    return std::nullopt;
  auto* bounds = std::get_if<Rect>(&value);
  if (!bounds) return std::nullopt;
  if (!std::isfinite(bounds->width) || !std::isfinite(bounds->height)) return std::nullopt;
  if (!(bounds->width > 0) && !(bounds->height > 0)) return std::nullopt;
  // An infinite origin would place the card just as far away as an infinite size.
  if (!std::isfinite(bounds->x) || !std::isfinite(bounds->y)) return std::nullopt;
  // The accessibility interface measures from the top-left of the primary screen.
  auto screens = platform_.screens.screens();
  double maxY = screens.empty() ? 0 : screens.front().frame.maxY();
  return Rect{bounds->x, maxY - bounds->y - bounds->height, bounds->width, bounds->height};
}

std::optional<Rect> AX::selectionRect(const AXElementRef& element, AXRange range) {
  if (range.length > 1) {
    // The range comes from another application: a location so large that its last character
    // cannot be named is measured as a whole instead.
    std::int64_t last = 0;
    if (!__builtin_add_overflow(range.location, range.length - 1, &last)) {
      if (auto rect = boundsFor(element, last, 1)) return rect;
    }
  }
  return boundsFor(element, range.location, std::max<std::int64_t>(range.length, 1));
}

void AX::enableInFrontmostApp() {
  auto front = platform_.workspace.frontmostApplication();
  if (!front) return;
  enableApplication(front->pid);
}

void AX::enableApplication(std::int32_t pid) {
  auto& access = platform_.accessibility;
  auto app = access.createApplication(pid);
  if (!app) return;
  access.setAttributeValue(app, ax::kEnhancedUserInterface, true);
  access.setAttributeValue(app, ax::kManualAccessibility, true);
}

}  // namespace mirlo
