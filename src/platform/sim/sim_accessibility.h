// Other applications' text as the accessibility interface would show it: a focused text element
// with its text and selection (UTF-16 ranges), flags for what it answers and accepts, and a
// simple one-line layout for the bounds of a range (top-left origin, as the interface reports).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/accessibility.h"

namespace mirlo::sim {

class SimElement final : public AXElement {
 public:
  std::string text;
  AXRange selection;
  std::int32_t pid = 0;

  bool answers = true;               // false: every call fails as with a dead process
  bool exposesSelectedText = true;
  bool exposesSelectedRange = true;
  bool exposesValue = true;
  bool selectedTextSettable = true;
  bool acceptsSelectedText = true;   // settable, yet the write itself may fail
  bool acceptsSelectedRange = true;

  // Bounds: by default each UTF-16 unit is `charWidth` wide on one line at `origin`. `bounds`, when
  // set, replaces the layout (and may return odd rectangles or nothing).
  Point origin{100, 200};
  double charWidth = 8;
  double lineHeight = 18;
  std::function<std::optional<Rect>(AXRange)> bounds;

  // Attributes written on the element that are not text (the arming attributes, say).
  std::map<std::string, AXValue> written;

  std::string selectedText() const;
  // Replaces the selection as a text view would: the caret ends after the inserted text.
  bool replaceSelection(const std::string& replacement);
  bool validRange(AXRange range) const;
};

class SimAccessibility final : public Accessibility {
 public:
  bool trusted = true;
  int promptCount = 0;
  std::shared_ptr<SimElement> focused;
  // Application elements created so far, by process id; they record what was set on them.
  std::map<std::int32_t, std::shared_ptr<SimElement>> applications;
  std::set<std::int32_t> deadPids;
  // Each call, as "copy AXSelectedText", "set AXSelectedTextRange", … for tests that count them.
  std::vector<std::string> calls;

  bool isProcessTrusted() override { return trusted; }
  bool isProcessTrustedWithOptions(bool prompt) override;
  AXElementRef createSystemWide() override;
  AXElementRef createApplication(std::int32_t pid) override;
  AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute, AXValue& out) override;
  AXError copyParameterizedAttributeValue(const AXElementRef& element, const std::string& attribute,
                                          const AXValue& parameter, AXValue& out) override;
  AXError isAttributeSettable(const AXElementRef& element, const std::string& attribute, bool& settable) override;
  AXError setAttributeValue(const AXElementRef& element, const std::string& attribute, const AXValue& value) override;

 private:
  std::shared_ptr<SimElement> systemWide_ = std::make_shared<SimElement>();
};

}  // namespace mirlo::sim
