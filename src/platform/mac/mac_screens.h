// The displays and the pointer (NSScreen, NSEvent); AppKit's coordinates are the core's.
#pragma once

#include <memory>

#include "platform/screens.h"

namespace mirlo::mac {

std::unique_ptr<Screens> makeScreens();

}  // namespace mirlo::mac
