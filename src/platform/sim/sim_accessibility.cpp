#include "platform/sim/sim_accessibility.h"

#include <algorithm>

#include "base/text.h"

namespace mirlo::sim {

bool SimElement::validRange(AXRange range) const {
  if (range.location < 0 || range.length < 0) return false;
  if (range.location > text::utf16Length(text) - range.length) return false;
  return text::utf8OffsetOfUtf16(text, range.location) && text::utf8OffsetOfUtf16(text, range.location + range.length);
}

std::string SimElement::textIn(AXRange range) const {
  if (!validRange(range)) return {};
  auto begin = *text::utf8OffsetOfUtf16(text, range.location);
  auto end = *text::utf8OffsetOfUtf16(text, range.location + range.length);
  return text.substr(begin, end - begin);
}

std::string SimElement::selectedText() const { return textIn(selection); }

bool SimElement::replaceSelection(const std::string& replacement) {
  if (!validRange(selection)) return false;
  history.push_back({text, selection});
  auto begin = *text::utf8OffsetOfUtf16(text, selection.location);
  auto end = *text::utf8OffsetOfUtf16(text, selection.location + selection.length);
  if (undoesInTwoSteps && end > begin && !replacement.empty()) {
    text.erase(begin, end - begin);
    history.push_back({text, {selection.location, 0}});
    end = begin;
  }
  text.replace(begin, end - begin, replacement);
  selection = {selection.location + text::utf16Length(replacement), 0};
  return true;
}

bool SimElement::undo() {
  if (history.empty()) return false;
  text = std::move(history.back().text);
  selection = history.back().selection;
  history.pop_back();
  return true;
}

bool SimElement::selectText(const std::string& needle) {
  auto at = text.find(needle);
  if (at == std::string::npos) return false;
  selection = {text::utf16Length(std::string_view(text).substr(0, at)), text::utf16Length(needle)};
  return true;
}

void SimElement::setText(std::string value, AXRange newSelection) {
  text = std::move(value);
  selection = newSelection;
  history.clear();
}

std::size_t SimAccessibility::callCount(const std::string& call) const {
  return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
}

bool SimAccessibility::isProcessTrustedWithOptions(bool prompt) {
  if (prompt && !trusted) ++promptCount;
  return trusted;
}

AXElementRef SimAccessibility::createSystemWide() { return systemWide_; }

AXElementRef SimAccessibility::createApplication(std::int32_t pid) {
  auto& app = applications[pid];
  if (!app) {
    app = std::make_shared<SimElement>();
    app->pid = pid;
  }
  if (deadPids.count(pid)) app->answers = false;
  return app;
}

AXError SimAccessibility::reach(const std::string& call, const AXElementRef& ref,
                                std::shared_ptr<SimElement>& element) {
  calls.push_back(call);
  if (beforeCall) beforeCall(call);
  if (!trusted) return AXError::apiDisabled;
  element = std::dynamic_pointer_cast<SimElement>(ref);
  if (!element) return AXError::illegalArgument;
  if (element == systemWide_) return AXError::success;
  if (!element->alive) return AXError::invalidUIElement;
  if (!element->answers) return AXError::cannotComplete;
  return AXError::success;
}

AXError SimAccessibility::copyAttributeValue(const AXElementRef& ref, const std::string& attribute, AXValue& out) {
  std::shared_ptr<SimElement> element;
  if (auto error = reach("copy " + attribute, ref, element); error != AXError::success) return error;
  if (element == systemWide_) {
    if (attribute != ax::kFocusedUIElement) return AXError::attributeUnsupported;
    if (focusedOverride) {
      out = *focusedOverride;
      return AXError::success;
    }
    auto focus = focusedElement();
    if (!focus) return AXError::noValue;
    out = AXElementRef(focus);
    return AXError::success;
  }
  if (auto it = element->overrides.find(attribute); it != element->overrides.end()) {
    out = it->second;
    return AXError::success;
  }
  if (attribute == ax::kSelectedText) {
    if (!element->exposesSelectedText) return AXError::attributeUnsupported;
    out = element->selectedText();
    return AXError::success;
  }
  if (attribute == ax::kSelectedTextRange) {
    if (!element->exposesSelectedRange) return AXError::attributeUnsupported;
    out = element->selection;
    return AXError::success;
  }
  if (attribute == ax::kValue) {
    if (!element->exposesValue) return AXError::attributeUnsupported;
    out = element->text;
    return AXError::success;
  }
  if (auto it = element->written.find(attribute); it != element->written.end()) {
    out = it->second;
    return AXError::success;
  }
  return AXError::attributeUnsupported;
}

AXError SimAccessibility::copyParameterizedAttributeValue(const AXElementRef& ref, const std::string& attribute,
                                                          const AXValue& parameter, AXValue& out) {
  std::shared_ptr<SimElement> element;
  if (auto error = reach("copy " + attribute, ref, element); error != AXError::success) return error;
  if (element == systemWide_) return AXError::illegalArgument;
  if (attribute != ax::kBoundsForRange) return AXError::attributeUnsupported;
  const auto* range = std::get_if<AXRange>(&parameter);
  if (!range) return AXError::illegalArgument;
  if (auto it = element->overrides.find(attribute); it != element->overrides.end()) {
    out = it->second;
    return AXError::success;
  }
  if (element->bounds) {
    auto rect = element->bounds(*range);
    if (!rect) return AXError::noValue;
    out = *rect;
    return AXError::success;
  }
  // A text view measures ranges that start inside the text, cut at its end.
  const auto length = text::utf16Length(element->text);
  if (range->location < 0 || range->length < 0 || range->location > length) return AXError::illegalArgument;
  const auto measured = std::min(range->length, length - range->location);
  out = Rect{element->origin.x + static_cast<double>(range->location) * element->charWidth, element->origin.y,
             static_cast<double>(measured) * element->charWidth, element->lineHeight};
  return AXError::success;
}

AXError SimAccessibility::isAttributeSettable(const AXElementRef& ref, const std::string& attribute, bool& settable) {
  std::shared_ptr<SimElement> element;
  if (auto error = reach("settable " + attribute, ref, element); error != AXError::success) return error;
  if (element == systemWide_) return AXError::illegalArgument;
  if (attribute == ax::kSelectedText) {
    settable = element->selectedTextSettable;
  } else if (attribute == ax::kSelectedTextRange) {
    settable = element->acceptsSelectedRange;
  } else {
    settable = false;
  }
  return AXError::success;
}

AXError SimAccessibility::setAttributeValue(const AXElementRef& ref, const std::string& attribute,
                                            const AXValue& value) {
  std::shared_ptr<SimElement> element;
  if (auto error = reach("set " + attribute, ref, element); error != AXError::success) return error;
  if (element == systemWide_) return AXError::illegalArgument;
  if (attribute == ax::kSelectedText) {
    const auto* replacement = std::get_if<std::string>(&value);
    if (!replacement) return AXError::illegalArgument;
    if (!element->selectedTextSettable) return AXError::attributeUnsupported;
    if (!element->acceptsSelectedText) return AXError::cannotComplete;
    return element->replaceSelection(*replacement) ? AXError::success : AXError::illegalArgument;
  }
  if (attribute == ax::kSelectedTextRange) {
    const auto* range = std::get_if<AXRange>(&value);
    if (!range) return AXError::illegalArgument;
    if (!element->acceptsSelectedRange) return AXError::cannotComplete;
    if (!element->validRange(*range)) return AXError::illegalArgument;
    element->selection = *range;
    return AXError::success;
  }
  element->written[attribute] = value;
  return AXError::success;
}

}  // namespace mirlo::sim
