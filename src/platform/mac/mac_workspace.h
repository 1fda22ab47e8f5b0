// Running applications, activations and opening URLs (NSWorkspace).
#pragma once

#include <memory>

#include "platform/workspace.h"

namespace mirlo::mac {

std::unique_ptr<Workspace> makeWorkspace();

}  // namespace mirlo::mac
