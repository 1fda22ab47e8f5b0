// The standard user defaults.
#pragma once

#include <memory>

#include "platform/defaults.h"

namespace mirlo::mac {

std::unique_ptr<Defaults> makeDefaults();

}  // namespace mirlo::mac
