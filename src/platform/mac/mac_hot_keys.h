// System-wide hot keys through the Carbon event manager.
#pragma once

#include <memory>

#include "platform/hot_keys.h"

namespace mirlo::mac {

std::unique_ptr<HotKeys> makeHotKeys();

}  // namespace mirlo::mac
