#include "platform/mac/mac_screens.h"

#import <AppKit/AppKit.h>

namespace mirlo::mac {

namespace {

Rect rectOf(NSRect r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }

Screen screenOf(NSScreen* screen) { return {rectOf([screen frame]), rectOf([screen visibleFrame])}; }

class MacScreens final : public Screens {
 public:
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
};

}  // namespace

std::unique_ptr<Screens> makeScreens() { return std::make_unique<MacScreens>(); }

}  // namespace mirlo::mac
