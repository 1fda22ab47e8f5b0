// Other applications' text through AT-SPI. The focused element is the one focus events last
// named, or else the focused object under the active window's application. Offsets on the bus
// count characters; the core counts UTF-16 units: both directions are converted here. Password
// fields are never read nor written.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/accessibility.h"
#include "platform/workspace.h"

namespace mirlo::linuxdesk {

class AtspiAccessibility final : public Accessibility {
 public:
  // `workspace` tells which application is in front when no focus event has named an element.
  explicit AtspiAccessibility(Workspace& workspace);
  ~AtspiAccessibility() override;
  AtspiAccessibility(const AtspiAccessibility&) = delete;
  AtspiAccessibility& operator=(const AtspiAccessibility&) = delete;

  // Asks every toolkit to build its accessibility tree (org.a11y.Status IsEnabled on the session
  // bus). False when the session bus does not take it.
  static bool enableDesktopAccessibility();

  bool isProcessTrusted() override;
  bool isProcessTrustedWithOptions(bool prompt) override;
  AXElementRef createSystemWide() override;
  AXElementRef createApplication(std::int32_t pid) override;
  AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute, AXValue& out) override;
  AXError copyParameterizedAttributeValue(const AXElementRef& element, const std::string& attribute,
                                          const AXValue& parameter, AXValue& out) override;
  AXError isAttributeSettable(const AXElementRef& element, const std::string& attribute, bool& settable) override;
  AXError setAttributeValue(const AXElementRef& element, const std::string& attribute, const AXValue& value) override;

  struct Impl;

 private:
  Impl* impl_;
};

// Character offsets (code points) and UTF-16 units of the same text; nothing past its end or
// inside a surrogate pair.
std::optional<std::int64_t> utf16OfCharacterOffset(std::string_view text, std::int64_t characters);
std::optional<std::int64_t> characterOffsetOfUtf16(std::string_view text, std::int64_t units);

// Which of the focused objects an application lists (by how many ancestors each has) is the
// widget itself: the deepest, the later one among equals. The list's order alone does not tell:
// a browser lists the focused field before the focused documents it also keeps.
std::optional<std::size_t> deepestFocused(const std::vector<int>& depths);

}  // namespace mirlo::linuxdesk
