// Version ordering as the platform's numeric string comparison does it: runs of decimal digits
// compare as numbers, every other character compares literally by code unit; no locale.
#pragma once

#include <string_view>

namespace mirlo {

// Negative when a orders before b, zero when equal, positive after.
int compareVersions(std::string_view a, std::string_view b);

}  // namespace mirlo
