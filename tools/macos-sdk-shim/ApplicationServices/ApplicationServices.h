// The accessibility client interface (HIServices, from Apple's AXUIElement.h, AXValue.h and
// AXError.h references), with Core Foundation and Core Graphics.
#pragma once
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef CF_ENUM(int32_t, AXError) {
  kAXErrorSuccess = 0,
  kAXErrorFailure = -25200,
  kAXErrorIllegalArgument = -25201,
  kAXErrorInvalidUIElement = -25202,
  kAXErrorInvalidUIElementObserver = -25203,
  kAXErrorCannotComplete = -25204,
  kAXErrorAttributeUnsupported = -25205,
  kAXErrorActionUnsupported = -25206,
  kAXErrorNotificationUnsupported = -25207,
  kAXErrorNotImplemented = -25208,
  kAXErrorNotificationAlreadyRegistered = -25209,
  kAXErrorNotificationNotRegistered = -25210,
  kAXErrorAPIDisabled = -25211,
  kAXErrorNoValue = -25212,
  kAXErrorParameterizedAttributeUnsupported = -25213,
  kAXErrorNotEnoughPrecision = -25214,
};

typedef const struct __AXUIElement* AXUIElementRef;
typedef const struct __AXValue* AXValueRef;

// A distinct enumeration type since macOS 10.11; the older names are plain integer constants, which
// C++ does not convert to it.
typedef CF_ENUM(UInt32, AXValueType) {
  kAXValueTypeCGPoint = 1,
  kAXValueTypeCGSize = 2,
  kAXValueTypeCGRect = 3,
  kAXValueTypeCFRange = 4,
  kAXValueTypeAXError = 5,
  kAXValueTypeIllegal = 0,
};
static const UInt32 kAXValueCGPointType = kAXValueTypeCGPoint;
static const UInt32 kAXValueCGSizeType = kAXValueTypeCGSize;
static const UInt32 kAXValueCGRectType = kAXValueTypeCGRect;
static const UInt32 kAXValueCFRangeType = kAXValueTypeCFRange;
static const UInt32 kAXValueAXErrorType = kAXValueTypeAXError;
static const UInt32 kAXValueIllegalType = kAXValueTypeIllegal;

#pragma clang assume_nonnull begin

extern CFStringRef kAXTrustedCheckOptionPrompt;  // macOS 10.9

// The documented ownership rule, stated for the static analyzer: Create and Copy give +1.
#define MIRLO_CF_RETURNS_RETAINED __attribute__((cf_returns_retained))

Boolean AXIsProcessTrusted(void);
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef _Nullable options);  // macOS 10.9

CFTypeID AXUIElementGetTypeID(void);
MIRLO_CF_RETURNS_RETAINED AXUIElementRef AXUIElementCreateSystemWide(void);
MIRLO_CF_RETURNS_RETAINED AXUIElementRef AXUIElementCreateApplication(pid_t pid);
AXError AXUIElementCopyAttributeValue(AXUIElementRef element, CFStringRef attribute,
                                      MIRLO_CF_RETURNS_RETAINED CFTypeRef _Nullable* _Nonnull value);
AXError AXUIElementCopyParameterizedAttributeValue(AXUIElementRef element, CFStringRef parameterizedAttribute,
                                                   CFTypeRef parameter,
                                                   MIRLO_CF_RETURNS_RETAINED CFTypeRef _Nullable* _Nonnull result);
AXError AXUIElementIsAttributeSettable(AXUIElementRef element, CFStringRef attribute, Boolean* settable);
AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value);
// On the system-wide element, the time-out of every later request of this process.
AXError AXUIElementSetMessagingTimeout(AXUIElementRef element, float timeoutInSeconds);

CFTypeID AXValueGetTypeID(void);
MIRLO_CF_RETURNS_RETAINED AXValueRef _Nullable AXValueCreate(AXValueType theType, const void* valuePtr);
AXValueType AXValueGetType(AXValueRef value);
Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void* valuePtr);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
