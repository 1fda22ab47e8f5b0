// AppKit and Foundation declarations of current macOS that GNUstep's headers lack or name
// differently, from Apple's AppKit reference. Included before every Objective-C++ file by
// tools/check-macos only; on a Mac the SDK declares all of it.
#pragma once
#import <AppKit/AppKit.h>
#include <QuartzCore/QuartzCore.h>

// Event types and masks under their current names (GNUstep has the older NSLeftMouseDown… and
// NSLeftMouseDownMask… spellings with the same values).
enum {
  NSEventTypeLeftMouseDown = 1,
  NSEventTypeLeftMouseUp = 2,
  NSEventTypeKeyDown = 10,
  NSEventTypeKeyUp = 11,
  NSEventTypeScrollWheel = 22,
};
enum : unsigned long long {
  NSEventMaskLeftMouseDown = 1ull << 1,
  NSEventMaskLeftMouseUp = 1ull << 2,
  NSEventMaskKeyDown = 1ull << 10,
  NSEventMaskKeyUp = 1ull << 11,
  NSEventMaskScrollWheel = 1ull << 22,
};

// Modifier flags under their current names (GNUstep has NSShiftKeyMask and NSCommandKeyMask with
// the same values). NSEventModifierFlags is an options type: the integer itself in C++.
enum : NSEventModifierFlags {
  NSEventModifierFlagShift = 1 << 17,
  NSEventModifierFlagCommand = 1 << 20,
};

@interface NSEvent (MirloCurrentAppKit)
+ (id)addGlobalMonitorForEventsMatchingMask:(NSEventMask)mask handler:(void (^)(NSEvent* event))block;
+ (id)addLocalMonitorForEventsMatchingMask:(NSEventMask)mask handler:(NSEvent* (^)(NSEvent* event))block;
@end

@interface NSPasteboard (MirloCurrentAppKit)
- (NSInteger)clearContents;
@end

extern NSString* const NSWorkspaceDidActivateApplicationNotification;
extern NSString* const NSWorkspaceApplicationKey;

// Fonts with weights (macOS 10.11, 10.15).
@interface NSFont (MirloCurrentAppKit)
+ (NSFont*)systemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight;
+ (NSFont*)monospacedSystemFontOfSize:(CGFloat)fontSize weight:(NSFontWeight)weight;
@end

// Layer backing and tracking areas.
@interface NSView (MirloCurrentAppKit)
@property BOOL wantsLayer;
@property(retain) CALayer* layer;
@property(readonly, copy) NSArray<NSTrackingArea*>* trackingAreas;
- (void)addTrackingArea:(NSTrackingArea*)trackingArea;
- (void)removeTrackingArea:(NSTrackingArea*)trackingArea;
- (void)updateTrackingAreas;
@end

@interface NSButton (MirloCurrentAppKit)
@property(copy) NSColor* contentTintColor;  // macOS 10.14
@end

@interface NSControl (MirloCurrentAppKit)
@property NSLineBreakMode lineBreakMode;
@property BOOL usesSingleLineMode;
@end

@interface NSTextField (MirloCurrentAppKit)
+ (instancetype)labelWithString:(NSString*)stringValue;  // macOS 10.12
@property NSInteger maximumNumberOfLines;
@property(copy) NSString* placeholderString;  // macOS 10.10
@end

@interface NSStatusItem (MirloCurrentAppKit)
@property(readonly, retain) NSStatusBarButton* button;  // macOS 10.10
@end

// NSAnimatablePropertyContainer.
@interface NSWindow (MirloCurrentAppKit)
- (instancetype)animator;
@end

@interface NSView (MirloAnimatable)
- (instancetype)animator;
@end

@interface NSAnimationContext (MirloCurrentAppKit)
@property(retain) CAMediaTimingFunction* timingFunction;
@end

// Current names of older constants (same values as GNUstep's NSSwitchButton,
// NSMomentaryPushInButton and NSRoundedBezelStyle).
static const NSButtonType NSButtonTypeMomentaryPushIn = NSMomentaryPushInButton;
static const NSButtonType NSButtonTypeSwitch = NSSwitchButton;
static const NSBezelStyle NSBezelStyleRounded = NSRoundedBezelStyle;
static const NSProgressIndicatorStyle NSProgressIndicatorStyleSpinning = NSProgressIndicatorSpinningStyle;
enum { NSUnderlineStylePatternDot = 0x0100 };

// Apple events (GNUstep declares the two classes without their methods).
typedef uint32_t AEEventClass;
typedef uint32_t AEEventID;
typedef uint32_t AEKeyword;
@interface NSAppleEventManager (MirloCurrentFoundation)
+ (NSAppleEventManager*)sharedAppleEventManager;
- (void)setEventHandler:(id)handler
            andSelector:(SEL)handleEventSelector
          forEventClass:(AEEventClass)eventClass
             andEventID:(AEEventID)eventID;
@end
@interface NSAppleEventDescriptor (MirloCurrentFoundation)
- (NSAppleEventDescriptor*)paramDescriptorForKeyword:(AEKeyword)keyword;
@property(readonly, copy) NSString* stringValue;
@end

@interface NSApplication (MirloCurrentAppKit)
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
@end

@interface NSImage (MirloCurrentAppKit)
+ (NSImage*)imageWithSize:(NSSize)size flipped:(BOOL)drawingHandlerShouldBeCalledWithFlippedContext
           drawingHandler:(BOOL (^)(NSRect dstRect))drawingHandler;  // macOS 10.8
@end
