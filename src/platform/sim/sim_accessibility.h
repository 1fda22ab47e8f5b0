// Other applications' text as the accessibility interface would show it: a focused text element
// with its text and selection (UTF-16 ranges), switches for what it answers and accepts, and a
// simple one-line layout for the bounds of a range (top-left origin, as the interface reports).
// The element keeps an edit history so that the application's own undo can take edits back,
// those written through accessibility included.
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

  bool alive = true;                 // false: the element is gone (every call: invalid element)
  bool answers = true;               // false: every call fails as with a hung or dead process
  bool exposesSelectedText = true;
  bool exposesSelectedRange = true;
  bool exposesValue = true;
  bool selectedTextSettable = true;  // what the settable test answers for "AXSelectedText"
  bool acceptsSelectedText = true;   // settable, yet the write itself may fail
  bool acceptsSelectedRange = true;
  // GTK's text views record a replacement as two edits, the deletion and then the insertion, and
  // their undo takes back one at a time.
  bool undoesInTwoSteps = false;

  // Answers given instead of the real ones, attribute by attribute (a value of the wrong type,
  // say). For "AXBoundsForRange" it replaces the answer for every range.
  std::map<std::string, AXValue> overrides;

  // Bounds: by default each UTF-16 unit is `charWidth` wide on one line at `origin`. `bounds`, when
  // set, replaces the layout (and may return odd rectangles or nothing).
  Point origin{100, 200};
  double charWidth = 8;
  double lineHeight = 18;
  std::function<std::optional<Rect>(AXRange)> bounds;

  // Attributes written on the element that are not text (the arming attributes, say).
  std::map<std::string, AXValue> written;

  // What the text and selection were before each edit, the newest last.
  struct Snapshot {
    std::string text;
    AXRange selection;
  };
  std::vector<Snapshot> history;

  std::string selectedText() const;
  bool validRange(AXRange range) const;
  // Replaces the selection as a text view does: the caret ends after the inserted text. The edit
  // can be undone. False (and nothing changes) when the selection lies outside the text.
  bool replaceSelection(const std::string& replacement);
  // Takes back the last edit and selects the text it had replaced. False when there is none.
  bool undo();

  // For scripts: selects the first occurrence of `needle` (false when absent); replaces the whole
  // text without history; the text of a UTF-16 range (empty when the range is not valid).
  bool selectText(const std::string& needle);
  void setText(std::string value, AXRange newSelection = {});
  std::string textIn(AXRange range) const;
};

class SimAccessibility final : public Accessibility {
 public:
  bool trusted = true;
  int promptCount = 0;
  // The focused element: `focused` when a story sets it, else what `focusSource` gives (the
  // desktop makes it follow the front application).
  std::shared_ptr<SimElement> focused;
  std::function<std::shared_ptr<SimElement>()> focusSource;
  // Answer given for "AXFocusedUIElement" instead of the element (a value of the wrong type).
  std::optional<AXValue> focusedOverride;
  // Application elements created so far, by process id; they record what was set on them.
  std::map<std::int32_t, std::shared_ptr<SimElement>> applications;
  std::set<std::int32_t> deadPids;
  // Each call, as "copy AXSelectedText", "set AXSelectedTextRange", "settable AXSelectedText"…
  std::vector<std::string> calls;
  // Runs before each call is answered, with its description: lets a story change the world
  // between two calls (an element that vanishes, a selection that moves).
  std::function<void(const std::string& call)> beforeCall;

  std::shared_ptr<SimElement> focusedElement() const {
    if (focused || !focusSource) return focused;
    return focusSource();
  }
  std::size_t callCount(const std::string& call) const;

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
  // Records the call and finds the element; a non-success code when the call cannot reach it.
  AXError reach(const std::string& call, const AXElementRef& ref, std::shared_ptr<SimElement>& element);

  std::shared_ptr<SimElement> systemWide_ = std::make_shared<SimElement>();
};

}  // namespace mirlo::sim
