// The general pasteboard, plain text only.
#pragma once

#include <memory>

#include "platform/clipboard.h"

namespace mirlo::mac {

std::unique_ptr<Clipboard> makeClipboard();

}  // namespace mirlo::mac
