#include "base/version.h"

#include <cctype>

namespace mirlo {
namespace {
bool isDigit(char c) { return c >= '0' && c <= '9'; }
}  // namespace

int compareVersions(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      // Compare the two digit runs as numbers of any length: skip leading zeros, then the longer
      // run is larger, and equal lengths compare digit by digit.
      std::size_t ei = i, ej = j;
      while (ei < a.size() && isDigit(a[ei])) ++ei;
      while (ej < b.size() && isDigit(b[ej])) ++ej;
      std::size_t si = i, sj = j;
      while (si + 1 < ei && a[si] == '0') ++si;
      while (sj + 1 < ej && b[sj] == '0') ++sj;
      if (ei - si != ej - sj) return ei - si < ej - sj ? -1 : 1;
      for (; si < ei; ++si, ++sj)
        if (a[si] != b[sj]) return a[si] < b[sj] ? -1 : 1;
      i = ei;
      j = ej;
      continue;
    }
    auto ca = static_cast<unsigned char>(a[i]), cb = static_cast<unsigned char>(b[j]);
    if (ca != cb) return ca < cb ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

}  // namespace mirlo
