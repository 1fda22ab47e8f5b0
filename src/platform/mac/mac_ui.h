// The program's surfaces drawn with AppKit: the status item and its menu, the card panel,
// windows, and the views described by the core.
#pragma once

#include <memory>

#include "platform/main_queue.h"
#include "platform/ui.h"

namespace mirlo::mac {

// `mainQueue` runs the few things the core timed itself (an emitter's end of production).
std::unique_ptr<UI> makeUI(MainQueue& mainQueue);

}  // namespace mirlo::mac
