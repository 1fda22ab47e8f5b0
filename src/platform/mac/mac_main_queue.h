// The main dispatch queue and run-loop timers of the application's main thread.
#pragma once

#include <memory>

#include "platform/main_queue.h"

namespace mirlo::mac {

std::unique_ptr<MainQueue> makeMainQueue();

}  // namespace mirlo::mac
