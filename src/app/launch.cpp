#include "app/launch.h"

#include <memory>

#include "app/app_delegate.h"

namespace mirlo {

void finishLaunching(App& app, const std::vector<std::string>& openingURLs) {
  AppDelegate& delegate = app.delegate();
  delegate.applicationWillFinishLaunching();
  for (const auto& url : openingURLs) delegate.handleURLEvent(url);
  delegate.applicationDidFinishLaunching();
}

int runApplication(Platform platform, AppConfig config, const EventLoop& loop) {
  auto app = std::make_unique<App>(platform, std::move(config));
  return loop(*app);
}

}  // namespace mirlo
