#include "platform/sim/sim_accessibility.h"

#include "base/text.h"

namespace mirlo::sim {

bool SimElement::validRange(AXRange range) const {
  if (range.location < 0 || range.length < 0) return false;
  if (range.location > text::utf16Length(text) - range.length) return false;
  return text::utf8OffsetOfUtf16(text, range.location) && text::utf8OffsetOfUtf16(text, range.location + range.length);
}

std::string SimElement::selectedText() const {
  if (!validRange(selection)) return {};
  auto begin = *text::utf8OffsetOfUtf16(text, selection.location);
  auto end = *text::utf8OffsetOfUtf16(text, selection.location + selection.length);
  return text.substr(begin, end - begin);
}

bool SimElement::replaceSelection(const std::string& replacement) {
  if (!validRange(selection)) return false;
  auto begin = *text::utf8OffsetOfUtf16(text, selection.location);
  auto end = *text::utf8OffsetOfUtf16(text, selection.location + selection.length);
  text.replace(begin, end - begin, replacement);
  selection = {selection.location + text::utf16Length(replacement), 0};
  return true;
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

AXError SimAccessibility::copyAttributeValue(const AXElementRef& ref, const std::string& attribute, AXValue& out) {
  calls.push_back("copy " + attribute);
  if (!trusted) return AXError::apiDisabled;
  auto element = std::dynamic_pointer_cast<SimElement>(ref);
  if (!element) return AXError::illegalArgument;
  if (element == systemWide_) {
    if (attribute != ax::kFocusedUIElement) return AXError::attributeUnsupported;
    if (!focused) return AXError::noValue;
    out = AXElementRef(focused);
    return AXError::success;
  }
  if (!element->answers) return AXError::cannotComplete;
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
  calls.push_back("copy " + attribute);
  if (!trusted) return AXError::apiDisabled;
  auto element = std::dynamic_pointer_cast<SimElement>(ref);
  if (!element || element == systemWide_) return AXError::illegalArgument;
  if (!element->answers) return AXError::cannotComplete;
  if (attribute != ax::kBoundsForRange) return AXError::attributeUnsupported;
  const auto* range = std::get_if<AXRange>(&parameter);
  if (!range) return AXError::illegalArgument;
  if (element->bounds) {
    auto rect = element->bounds(*range);
    if (!rect) return AXError::noValue;
    out = *rect;
    return AXError::success;
  }
  if (range->location < 0 || range->length < 0 || range->location > text::utf16Length(element->text))
    return AXError::illegalArgument;
  out = Rect{element->origin.x + static_cast<double>(range->location) * element->charWidth, element->origin.y,
             static_cast<double>(range->length) * element->charWidth, element->lineHeight};
  return AXError::success;
}

AXError SimAccessibility::isAttributeSettable(const AXElementRef& ref, const std::string& attribute, bool& settable) {
  calls.push_back("settable " + attribute);
  if (!trusted) return AXError::apiDisabled;
  auto element = std::dynamic_pointer_cast<SimElement>(ref);
  if (!element || element == systemWide_) return AXError::illegalArgument;
  if (!element->answers) return AXError::cannotComplete;
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
  calls.push_back("set " + attribute);
  if (!trusted) return AXError::apiDisabled;
  auto element = std::dynamic_pointer_cast<SimElement>(ref);
  if (!element || element == systemWide_) return AXError::illegalArgument;
  if (!element->answers) return AXError::cannotComplete;
  if (attribute == ax::kSelectedText) {
    const auto* replacement = std::get_if<std::string>(&value);
    if (!replacement) return AXError::illegalArgument;
    if (!element->selectedTextSettable || !element->acceptsSelectedText) return AXError::cannotComplete;
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
