// Global and local event monitors of the application (NSEvent).
#pragma once

#include <memory>

#include "platform/event_monitor.h"

namespace mirlo::mac {

std::unique_ptr<EventMonitor> makeEventMonitor();

}  // namespace mirlo::mac
