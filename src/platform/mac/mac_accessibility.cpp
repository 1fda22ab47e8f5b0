#include "platform/mac/mac_accessibility.h"

#include <ApplicationServices/ApplicationServices.h>

#include "platform/mac/cf.h"

namespace mirlo::mac {

namespace {

// One owned reference on a UI element of another process.
class MacElement final : public AXElement {
 public:
  explicit MacElement(AXUIElementRef ref) : ref_(ref) {}
  AXUIElementRef ref() const { return ref_.get(); }

 private:
  CFOwned<AXUIElementRef> ref_;
};

AXUIElementRef refOf(const AXElementRef& element) {
  auto* mac = dynamic_cast<MacElement*>(element.get());
  return mac ? mac->ref() : nullptr;
}

AXElementRef adopt(AXUIElementRef owned) {
  if (!owned) return nullptr;
  return std::make_shared<MacElement>(owned);
}

AXError errorOf(::AXError code) { return static_cast<AXError>(code); }

// What a copied value holds, in the core's terms. Borrowed: the caller keeps its reference.
mirlo::AXValue fromCF(CFTypeRef value) {
  if (!value) return std::monostate{};
  const CFTypeID type = CFGetTypeID(value);
  if (type == CFStringGetTypeID()) {
    if (auto text = toUTF8(static_cast<CFStringRef>(value))) return *text;
    return std::monostate{};
  }
  if (type == CFBooleanGetTypeID()) return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
  if (type == AXUIElementGetTypeID()) {
    CFRetain(value);  // the element outlives the copied value: it takes its own reference
    return adopt(static_cast<AXUIElementRef>(value));
  }
  if (type == AXValueGetTypeID()) {
    auto axValue = static_cast<AXValueRef>(value);
    switch (AXValueGetType(axValue)) {
      case kAXValueTypeCFRange: {
        CFRange range;
        if (AXValueGetValue(axValue, kAXValueTypeCFRange, &range)) return AXRange{range.location, range.length};
        break;
      }
      case kAXValueTypeCGRect: {
        CGRect rect;
        if (AXValueGetValue(axValue, kAXValueTypeCGRect, &rect))
          return Rect{rect.origin.x, rect.origin.y, rect.size.width, rect.size.height};
        break;
      }
      default:
        break;
    }
  }
  return std::monostate{};
}

// A new Core Foundation value (+1) for the core's value; null for an empty or foreign one.
CFOwned<CFTypeRef> toCF(const mirlo::AXValue& value) {
  if (auto* text = std::get_if<std::string>(&value)) {
    auto string = makeString(*text);
    CFTypeRef ref = string.get();
    if (ref) CFRetain(ref);
    return CFOwned<CFTypeRef>(ref);
  }
  if (auto* range = std::get_if<AXRange>(&value)) {
    const CFRange cfRange = CFRangeMake(static_cast<CFIndex>(range->location), static_cast<CFIndex>(range->length));
    return CFOwned<CFTypeRef>(AXValueCreate(kAXValueTypeCFRange, &cfRange));
  }
  if (auto* rect = std::get_if<Rect>(&value)) {
    const CGRect cgRect = CGRectMake(rect->x, rect->y, rect->width, rect->height);
    return CFOwned<CFTypeRef>(AXValueCreate(kAXValueTypeCGRect, &cgRect));
  }
  if (auto* flag = std::get_if<bool>(&value)) {
    CFTypeRef constant = *flag ? kCFBooleanTrue : kCFBooleanFalse;
    return CFOwned<CFTypeRef>(CFRetain(constant));
  }
  if (auto* element = std::get_if<AXElementRef>(&value)) {
    AXUIElementRef ref = refOf(*element);
    return CFOwned<CFTypeRef>(ref ? CFRetain(ref) : nullptr);
  }
  return {};
}

// How long one request may wait for another application's answer. The system's own limit is
// several seconds, during which the main thread (card, menu, hot keys) would stand still behind an
// application that hangs; a request that runs out fails like any other, and the caller falls back.
constexpr float kMessagingTimeoutSeconds = 1.0f;

class MacAccessibility final : public Accessibility {
 public:
  // Set on the system-wide element, the limit applies to every request this process makes.
  MacAccessibility() {
    CFOwned<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
    if (systemWide) AXUIElementSetMessagingTimeout(systemWide.get(), kMessagingTimeoutSeconds);
  }

  bool isProcessTrusted() override { return AXIsProcessTrusted(); }

  bool isProcessTrustedWithOptions(bool prompt) override {
    const void* keys[] = {kAXTrustedCheckOptionPrompt};
    const void* values[] = {prompt ? kCFBooleanTrue : kCFBooleanFalse};
    CFOwned<CFDictionaryRef> options(CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                        &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
    return AXIsProcessTrustedWithOptions(options.get());
  }

  AXElementRef createSystemWide() override { return adopt(AXUIElementCreateSystemWide()); }

  AXElementRef createApplication(std::int32_t pid) override { return adopt(AXUIElementCreateApplication(pid)); }

  AXError copyAttributeValue(const AXElementRef& element, const std::string& attribute, mirlo::AXValue& out) override {
    out = std::monostate{};
    AXUIElementRef ref = refOf(element);
    auto name = makeString(attribute);
    if (!ref || !name) return AXError::illegalArgument;
    CFOwned<CFTypeRef> value;
    const ::AXError code = AXUIElementCopyAttributeValue(ref, name.get(), value.out());
    if (code == kAXErrorSuccess) out = fromCF(value.get());
    return errorOf(code);
  }

  AXError copyParameterizedAttributeValue(const AXElementRef& element, const std::string& attribute,
                                          const mirlo::AXValue& parameter, mirlo::AXValue& out) override {
    out = std::monostate{};
    AXUIElementRef ref = refOf(element);
    auto name = makeString(attribute);
    auto cfParameter = toCF(parameter);
    if (!ref || !name || !cfParameter) return AXError::illegalArgument;
    CFOwned<CFTypeRef> value;
    const ::AXError code = AXUIElementCopyParameterizedAttributeValue(ref, name.get(), cfParameter.get(), value.out());
    if (code == kAXErrorSuccess) out = fromCF(value.get());
    return errorOf(code);
  }

  AXError isAttributeSettable(const AXElementRef& element, const std::string& attribute, bool& settable) override {
    settable = false;
    AXUIElementRef ref = refOf(element);
    auto name = makeString(attribute);
    if (!ref || !name) return AXError::illegalArgument;
    Boolean result = false;
    const ::AXError code = AXUIElementIsAttributeSettable(ref, name.get(), &result);
    settable = code == kAXErrorSuccess && result;
    return errorOf(code);
  }

  AXError setAttributeValue(const AXElementRef& element, const std::string& attribute,
                            const mirlo::AXValue& value) override {
    AXUIElementRef ref = refOf(element);
    auto name = makeString(attribute);
    auto cfValue = toCF(value);
    if (!ref || !name || !cfValue) return AXError::illegalArgument;
    return errorOf(AXUIElementSetAttributeValue(ref, name.get(), cfValue.get()));
  }
};

}  // namespace

std::unique_ptr<Accessibility> makeAccessibility() { return std::make_unique<MacAccessibility>(); }

}  // namespace mirlo::mac
