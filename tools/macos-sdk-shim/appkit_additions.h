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

@interface NSEvent (MirloCurrentAppKit)
+ (id)addGlobalMonitorForEventsMatchingMask:(NSEventMask)mask handler:(void (^)(NSEvent* event))block;
+ (id)addLocalMonitorForEventsMatchingMask:(NSEventMask)mask handler:(NSEvent* (^)(NSEvent* event))block;
@end

@interface NSPasteboard (MirloCurrentAppKit)
- (NSInteger)clearContents;
@end

extern NSString* const NSWorkspaceDidActivateApplicationNotification;
extern NSString* const NSWorkspaceApplicationKey;
