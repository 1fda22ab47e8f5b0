// The Mirlo application on macOS: an accessory application whose delegate hands launch and the
// mirlo:// URL events to the core.
#import <AppKit/AppKit.h>
#include <Carbon/Carbon.h>

#include <optional>
#include <string>

#include "app/app.h"
#include "app/app_delegate.h"
#include "app/launch.h"
#include "platform/mac/mac_platform.h"

@interface MirloApplicationDelegate : NSObject <NSApplicationDelegate> {
  mirlo::App* app_;
}
- (instancetype)initWithApp:(mirlo::App*)app;
- (void)handleURLEvent:(NSAppleEventDescriptor*)event withReplyEvent:(NSAppleEventDescriptor*)reply;
@end

@implementation MirloApplicationDelegate
- (instancetype)initWithApp:(mirlo::App*)app {
  if ((self = [super init])) app_ = app;
  return self;
}

- (void)applicationWillFinishLaunching:(NSNotification*)notification {
  (void)notification;
  // Before launch completes, so that the URL that launched the program is delivered.
  [[NSAppleEventManager sharedAppleEventManager] setEventHandler:self
                                                     andSelector:@selector(handleURLEvent:withReplyEvent:)
                                                   forEventClass:kInternetEventClass
                                                      andEventID:kAEGetURL];
  app_->delegate().applicationWillFinishLaunching();
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  (void)notification;
  app_->delegate().applicationDidFinishLaunching();
}

- (void)handleURLEvent:(NSAppleEventDescriptor*)event withReplyEvent:(NSAppleEventDescriptor*)reply {
  (void)reply;
  std::optional<std::string> url;
  NSString* direct = [[event paramDescriptorForKeyword:keyDirectObject] stringValue];
  if (const char* utf8 = direct ? [direct UTF8String] : nullptr) url = std::string(utf8);
  app_->delegate().handleURLEvent(url);
}
@end

int main() {
  @autoreleasepool {
    mirlo::mac::MacPlatform platform;
    return mirlo::runApplication(platform.platform(), mirlo::AppConfig::fromBuild(), [](mirlo::App& app) {
      NSApplication* application = [NSApplication sharedApplication];
      // Kept for the whole run, which ends only with the process: the application does not
      // retain its delegate.
      MirloApplicationDelegate* delegate = [[MirloApplicationDelegate alloc] initWithApp:&app];
      [application setDelegate:delegate];
      [application setActivationPolicy:NSApplicationActivationPolicyAccessory];
      [application run];
      [application setDelegate:nil];
      [delegate release];
      return 0;
    });
  }
}
