// The command line of the mirlo program: the account and the correction round trip for
// terminals, scripts and editors, on the same core as the desktop program.
#pragma once

#include "app/app.h"

namespace mirlo::cli {

// Exit statuses.
inline constexpr int kOk = 0;
inline constexpr int kFailed = 1;          // the service or the network said no; the message says why
inline constexpr int kNoDesktop = 2;       // the desktop program cannot start here
inline constexpr int kNotSignedIn = 3;
inline constexpr int kUsage = 64;          // as sysexits' EX_USAGE

// Runs the command in `argv` against the service of `config`; returns the exit status.
int run(int argc, char** argv, const AppConfig& config);

}  // namespace mirlo::cli
