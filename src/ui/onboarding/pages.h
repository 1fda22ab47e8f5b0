// Layout helpers shared by the onboarding pages.
#pragma once

#include <cstdint>

#include "platform/ui.h"

namespace mirlo::onboarding {

// The view centred horizontally in the window, its bottom at `y`.
View centred(View view, double y);
// The view with its origin at (x, y).
View placedAt(View view, double x, double y);
// The next demonstration generation; running out would let a stale cycle act, so it is fatal.
std::int64_t nextGeneration(std::int64_t generation);

}  // namespace mirlo::onboarding
