// Another application's user interface as the accessibility interface shows it: elements with
// attributes. Close to the macOS calls so that adapters stay literal. Failures are error codes,
// never exceptions; lengths and locations are UTF-16 code units.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "base/geometry.h"

namespace mirlo {

// An opaque handle on a UI element of another process. Shared ownership plays the role of the
// platform's retain and release.
class AXElement {
 public:
  virtual ~AXElement() = default;
};
using AXElementRef = std::shared_ptr<AXElement>;

struct AXRange {
  std::int64_t location = 0;
  std::int64_t length = 0;
  friend bool operator==(const AXRange&, const AXRange&) = default;
};

// The kinds of value an attribute holds, as far as this program reads and writes them.
using AXValue = std::variant<std::monostate, std::string, AXRange, Rect, bool, AXElementRef>;

// The platform's error codes (zero is success).
enum class AXError : std::int32_t {
  success = 0,
  failure = -25200,
  illegalArgument = -25201,
  invalidUIElement = -25202,
  cannotComplete = -25204,
  attributeUnsupported = -25205,
  notImplemented = -25208,
  apiDisabled = -25211,
  noValue = -25212,
};

namespace ax {
inline constexpr const char* kFocusedUIElement = "AXFocusedUIElement";
inline constexpr const char* kSelectedText = "AXSelectedText";
inline constexpr const char* kSelectedTextRange = "AXSelectedTextRange";
inline constexpr const char* kValue = "AXValue";
inline constexpr const char* kBoundsForRange = "AXBoundsForRange";
inline constexpr const char* kEnhancedUserInterface = "AXEnhancedUserInterface";
inline constexpr const char* kManualAccessibility = "AXManualAccessibility";
}  // namespace ax

class Accessibility {
 public:
  virtual ~Accessibility() = default;

  virtual bool isProcessTrusted() = 0;
  // The same question, asking the system to prompt the user (and list the program) when `prompt`.
  virtual bool isProcessTrustedWithOptions(bool prompt) = 0;

  virtual AXElementRef createSystemWide() = 0;
  virtual AXElementRef createApplication(std::int32_t pid) = 0;

  virtual AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute, AXValue& out) = 0;
  virtual AXError copyParameterizedAttributeValue(const AXElementRef& element, const std::string& attribute,
                                                  const AXValue& parameter, AXValue& out) = 0;
  virtual AXError isAttributeSettable(const AXElementRef& element, const std::string& attribute,
                                      bool& settable) = 0;
  virtual AXError setAttributeValue(const AXElementRef& element, const std::string& attribute,
                                    const AXValue& value) = 0;
};

}  // namespace mirlo
