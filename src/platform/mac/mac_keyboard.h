// Synthesised keys (Core Graphics events) and the current keyboard layout (text input sources).
#pragma once

#include <memory>

#include "platform/keyboard.h"

namespace mirlo::mac {

std::unique_ptr<Keyboard> makeKeyboard();

}  // namespace mirlo::mac
