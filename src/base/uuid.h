#pragma once

#include <string>

namespace mirlo {

// A random (version 4) UUID in its canonical upper-case 8-4-4-4-12 form, 36 characters.
std::string makeUuidString();

}  // namespace mirlo
