// What the program's entry point does, in the core: make the application and its delegate, let
// the platform run its event loop, and hear of launch in its two halves.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/app.h"

namespace mirlo {

// Announces launch to the delegate the way the application framework does: launch is about to
// finish (the URL handler is installed), the URLs that opened the program arrive, then launch
// completes. For platforms whose framework does not announce launch itself.
void finishLaunching(App& app, const std::vector<std::string>& openingURLs = {});

// The platform's event loop. It makes the program an accessory application first (no Dock
// icon, no menu bar of its own: an operating-system setting with nothing to decide), announces
// launch to the delegate — by itself, or through `finishLaunching` — and runs until the program
// ends; its result is the process's exit status.
using EventLoop = std::function<int(App& app)>;

// Builds the application on the platform, keeps it (and its delegate) for the whole run, and
// runs the loop. The process has no orderly shutdown beyond the loop's end.
int runApplication(Platform platform, AppConfig config, const EventLoop& loop);

}  // namespace mirlo
