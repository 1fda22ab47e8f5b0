// Core Graphics, as far as Mirlo uses it (from Apple's Core Graphics reference). On Apple's
// platforms NSPoint, NSSize and NSRect are the Core Graphics types; with GNUstep's Foundation the
// same holds here, so that code mixing the two type-checks as it does on a Mac.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

#ifdef __OBJC__
#import <Foundation/NSGeometry.h>
typedef NSPoint CGPoint;
typedef NSSize CGSize;
typedef NSRect CGRect;
#else
typedef double CGFloat;
struct CGPoint {
  CGFloat x;
  CGFloat y;
};
typedef struct CGPoint CGPoint;
struct CGSize {
  CGFloat width;
  CGFloat height;
};
typedef struct CGSize CGSize;
struct CGRect {
  CGPoint origin;
  CGSize size;
};
typedef struct CGRect CGRect;
#endif

#ifdef __cplusplus
extern "C" {
#endif

static inline CGPoint CGPointMake(CGFloat x, CGFloat y) {
  CGPoint p;
  p.x = x;
  p.y = y;
  return p;
}
static inline CGSize CGSizeMake(CGFloat width, CGFloat height) {
  CGSize s;
  s.width = width;
  s.height = height;
  return s;
}
static inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
  CGRect r;
  r.origin.x = x;
  r.origin.y = y;
  r.size.width = width;
  r.size.height = height;
  return r;
}
extern const CGRect CGRectZero;

#pragma clang assume_nonnull begin

typedef struct CGColor* CGColorRef;
CGColorRef CGColorCreateSRGB(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha);  // macOS 10.15
void CGColorRelease(CGColorRef _Nullable color);

typedef struct CGPath* CGMutablePathRef;
typedef const struct CGPath* CGPathRef;
typedef struct CGAffineTransform CGAffineTransform;
CGMutablePathRef CGPathCreateMutable(void);
// A null transform is the identity.
void CGPathMoveToPoint(CGMutablePathRef _Nullable path, const CGAffineTransform* _Nullable m, CGFloat x, CGFloat y);
void CGPathAddLineToPoint(CGMutablePathRef _Nullable path, const CGAffineTransform* _Nullable m, CGFloat x, CGFloat y);
void CGPathAddQuadCurveToPoint(CGMutablePathRef _Nullable path, const CGAffineTransform* _Nullable m, CGFloat cpx,
                               CGFloat cpy, CGFloat x, CGFloat y);
void CGPathRelease(CGPathRef _Nullable path);

typedef struct CGImage* CGImageRef;

// Events. The state and tap identifiers are enumerations (distinct types in C++); the flags are
// options (the integer type itself).
typedef struct __CGEvent* CGEventRef;
typedef struct __CGEventSource* CGEventSourceRef;
typedef uint16_t CGKeyCode;
typedef CF_OPTIONS(uint64_t, CGEventFlags) {
  kCGEventFlagMaskAlphaShift = 0x00010000,
  kCGEventFlagMaskShift = 0x00020000,
  kCGEventFlagMaskControl = 0x00040000,
  kCGEventFlagMaskAlternate = 0x00080000,
  kCGEventFlagMaskCommand = 0x00100000,
};
typedef CF_ENUM(int32_t, CGEventSourceStateID) {
  kCGEventSourceStatePrivate = -1,
  kCGEventSourceStateCombinedSessionState = 0,
  kCGEventSourceStateHIDSystemState = 1,
};
typedef CF_ENUM(uint32_t, CGEventTapLocation) {
  kCGHIDEventTap = 0,
  kCGSessionEventTap,
  kCGAnnotatedSessionEventTap,
};
CGEventSourceRef _Nullable CGEventSourceCreate(CGEventSourceStateID stateID);
// A null source is allowed (the event then carries no source state).
CGEventRef _Nullable CGEventCreateKeyboardEvent(CGEventSourceRef _Nullable source, CGKeyCode virtualKey, bool keyDown);
void CGEventSetFlags(CGEventRef _Nullable event, CGEventFlags flags);
void CGEventPost(CGEventTapLocation tap, CGEventRef _Nullable event);
CGEventFlags CGEventSourceFlagsState(CGEventSourceStateID stateID);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
