// The accessibility client interface of macOS (AXUIElement and AXValue).
#pragma once

#include <memory>

#include "platform/accessibility.h"

namespace mirlo::mac {

std::unique_ptr<Accessibility> makeAccessibility();

}  // namespace mirlo::mac
