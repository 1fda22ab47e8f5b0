// The running bundle's version.
#pragma once

#include <memory>

#include "platform/app_info.h"

namespace mirlo::mac {

std::unique_ptr<AppInfo> makeAppInfo();

}  // namespace mirlo::mac
