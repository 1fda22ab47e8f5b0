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

typedef struct CGColor* CGColorRef;
CGColorRef CGColorCreateSRGB(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha);
void CGColorRelease(CGColorRef color);

typedef struct CGPath* CGMutablePathRef;
typedef const struct CGPath* CGPathRef;
typedef struct CGAffineTransform CGAffineTransform;
CGMutablePathRef CGPathCreateMutable(void);
void CGPathMoveToPoint(CGMutablePathRef path, const CGAffineTransform* m, CGFloat x, CGFloat y);
void CGPathAddLineToPoint(CGMutablePathRef path, const CGAffineTransform* m, CGFloat x, CGFloat y);
void CGPathAddQuadCurveToPoint(CGMutablePathRef path, const CGAffineTransform* m, CGFloat cpx, CGFloat cpy,
                               CGFloat x, CGFloat y);
void CGPathRelease(CGPathRef path);

typedef struct CGImage* CGImageRef;

// Events.
typedef struct __CGEvent* CGEventRef;
typedef struct __CGEventSource* CGEventSourceRef;
typedef uint16_t CGKeyCode;
typedef uint64_t CGEventFlags;
typedef int32_t CGEventSourceStateID;
enum {
  kCGEventSourceStatePrivate = -1,
  kCGEventSourceStateCombinedSessionState = 0,
  kCGEventSourceStateHIDSystemState = 1,
};
typedef uint32_t CGEventTapLocation;
enum { kCGHIDEventTap = 0, kCGSessionEventTap = 1, kCGAnnotatedSessionEventTap = 2 };
CGEventSourceRef CGEventSourceCreate(CGEventSourceStateID stateID);
CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode virtualKey, bool keyDown);
void CGEventSetFlags(CGEventRef event, CGEventFlags flags);
void CGEventPost(CGEventTapLocation tap, CGEventRef event);
CGEventFlags CGEventSourceFlagsState(CGEventSourceStateID stateID);

#ifdef __cplusplus
}
#endif
