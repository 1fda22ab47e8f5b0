#include "platform/mac/mac_screens.h"

#import <AppKit/AppKit.h>

#include <functional>
#include <memory>
#include <vector>

namespace mirlo::mac {

namespace {

Rect rectOf(NSRect r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }

Screen screenOf(NSScreen* screen) { return {rectOf([screen frame]), rectOf([screen visibleFrame])}; }

class MacScreens final : public Screens {
 public:
  MacScreens() = default;
  MacScreens(const MacScreens&) = delete;
  MacScreens& operator=(const MacScreens&) = delete;
  ~MacScreens() override {
    for (id observer : observers_) {
      [[NSNotificationCenter defaultCenter] removeObserver:observer];
      [observer release];
    }
  }

  // In the system's order: the screen with the menu bar first. Empty during some display changes.
  std::vector<Screen> screens() override {
    std::vector<Screen> all;
    for (NSScreen* screen in [NSScreen screens]) all.push_back(screenOf(screen));
    return all;
  }

  std::optional<Screen> mainScreen() override {
    NSScreen* main = [NSScreen mainScreen];
    if (!main) return std::nullopt;
    return screenOf(main);
  }

  Point mouseLocation() override {
    const NSPoint p = [NSEvent mouseLocation];
    return {p.x, p.y};
  }

  void addChangeHandler(std::function<void()> handler) override {
    auto shared = std::make_shared<std::function<void()>>(std::move(handler));
    id observer = [[NSNotificationCenter defaultCenter]
        addObserverForName:NSApplicationDidChangeScreenParametersNotification
                    object:nil
                     queue:[NSOperationQueue mainQueue]
                usingBlock:^(NSNotification*) {
                  (*shared)();
                }];
    observers_.push_back([observer retain]);
  }

 private:
  std::vector<id> observers_;
};

}  // namespace

std::unique_ptr<Screens> makeScreens() { return std::make_unique<MacScreens>(); }

}  // namespace mirlo::mac
