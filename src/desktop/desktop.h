// The desktop program: the whole application on the person's desktop, built from this machine's
// platform adapters, running until it is told to end.
#pragma once

#include <string>
#include <vector>

#include "app/app.h"

namespace mirlo::desktop {

// Exit statuses of the desktop program (the command line reports the same numbers).
inline constexpr int kEnded = 0;
inline constexpr int kNoDesktop = 2;  // no display to run on; the message says why

// Starts the program on the desktop and runs it; the URLs are those that opened it. Returns the
// process's exit status.
int run(const AppConfig& config, const std::vector<std::string>& openingURLs = {});

}  // namespace mirlo::desktop
