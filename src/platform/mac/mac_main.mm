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
#include "platform/mac/ns.h"

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
  app_->delegate().handleURLEvent(mirlo::mac::utf8Of([[event paramDescriptorForKeyword:keyDirectObject] stringValue]));
}
@end

namespace {

NSMenuItem* menuItem(const char* title, SEL action, NSString* key, NSEventModifierFlags modifiers) {
  NSMenuItem* item = [[[NSMenuItem alloc] initWithTitle:mirlo::mac::makeNSString(title)
                                                 action:action
                                          keyEquivalent:key] autorelease];
  [item setKeyEquivalentModifierMask:modifiers];
  return item;
}

// AppKit delivers Command-key equivalents (Command+V in a text field, Command+W on a window)
// through the items of the main menu; without them the sign-in fields would take no paste. An
// accessory application shows no menu bar, so this menu is never seen: its items, with no target,
// act on whatever text field or window has the keyboard.
NSMenu* makeMainMenu() {
  const NSEventModifierFlags command = NSEventModifierFlagCommand;
  NSMenu* edit = [[[NSMenu alloc] initWithTitle:mirlo::mac::makeNSString("Édition")] autorelease];
  [edit addItem:menuItem("Annuler", @selector(undo:), @"z", command)];
  [edit addItem:menuItem("Rétablir", @selector(redo:), @"z", command | NSEventModifierFlagShift)];
  [edit addItem:[NSMenuItem separatorItem]];
  [edit addItem:menuItem("Couper", @selector(cut:), @"x", command)];
  [edit addItem:menuItem("Copier", @selector(copy:), @"c", command)];
  [edit addItem:menuItem("Coller", @selector(paste:), @"v", command)];
  [edit addItem:menuItem("Tout sélectionner", @selector(selectAll:), @"a", command)];
  [edit addItem:[NSMenuItem separatorItem]];
  [edit addItem:menuItem("Fermer la fenêtre", @selector(performClose:), @"w", command)];

  NSMenu* main = [[[NSMenu alloc] initWithTitle:@""] autorelease];
  NSMenuItem* editItem = menuItem("Édition", nullptr, @"", 0);
  [editItem setSubmenu:edit];
  [main addItem:editItem];
  return main;
}

}  // namespace

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
      [application setMainMenu:makeMainMenu()];
      [application run];
      [application setDelegate:nil];
      [delegate release];
      return 0;
    });
  }
}
