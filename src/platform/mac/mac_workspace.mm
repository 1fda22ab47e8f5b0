#include "platform/mac/mac_workspace.h"

#import <AppKit/AppKit.h>

#include "platform/mac/ns.h"

#include <vector>

namespace mirlo::mac {

namespace {

RunningApp runningAppOf(NSRunningApplication* application) {
  RunningApp app;
  app.pid = [application processIdentifier];
  if (auto identifier = utf8Of([application bundleIdentifier])) app.bundleIdentifier = *identifier;
  return app;
}

class MacWorkspace final : public Workspace {
 public:
  ~MacWorkspace() override {
    for (id observer : observers_) [observer release];
  }

  std::optional<RunningApp> frontmostApplication() override {
    NSRunningApplication* front = [[NSWorkspace sharedWorkspace] frontmostApplication];
    if (!front) return std::nullopt;
    return runningAppOf(front);
  }

  std::vector<RunningApp> runningApplications() override {
    std::vector<RunningApp> apps;
    for (NSRunningApplication* application in [[NSWorkspace sharedWorkspace] runningApplications])
      apps.push_back(runningAppOf(application));
    return apps;
  }

  // Never removed: the observer lives as long as the program.
  void observeActivations(ActivationHandler handler) override {
    NSNotificationCenter* center = [[NSWorkspace sharedWorkspace] notificationCenter];
    id observer = [center addObserverForName:NSWorkspaceDidActivateApplicationNotification
                                      object:nil
                                       queue:[NSOperationQueue mainQueue]
                                  usingBlock:^(NSNotification* notification) {
                                    id entry = [[notification userInfo] objectForKey:NSWorkspaceApplicationKey];
                                    if (![entry isKindOfClass:[NSRunningApplication class]]) {
                                      handler(std::nullopt);
                                      return;
                                    }
                                    handler(runningAppOf(static_cast<NSRunningApplication*>(entry)));
                                  }];
    if (observer) observers_.push_back([observer retain]);
  }

  bool openURL(const std::string& url) override {
    NSString* string = makeNSString(url);
    NSURL* address = string ? [NSURL URLWithString:string] : nil;
    if (!address) return false;
    return [[NSWorkspace sharedWorkspace] openURL:address];
  }

 private:
  std::vector<id> observers_;
};

}  // namespace

std::unique_ptr<Workspace> makeWorkspace() { return std::make_unique<MacWorkspace>(); }

}  // namespace mirlo::mac
