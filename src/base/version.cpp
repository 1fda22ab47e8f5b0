#include "base/version.h"

#include <string>

#include "base/text.h"

namespace mirlo {
namespace {
bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
}  // namespace

int compareVersions(std::string_view utf8a, std::string_view utf8b) {
  // The platform compares UTF-16 code units; so do we, so that characters outside the basic
  // plane order the same way.
  const std::u16string a = text::toUtf16(utf8a), b = text::toUtf16(utf8b);
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      // Compare the two digit runs as numbers of any length: skip leading zeros, then the longer
      // run is larger, and equal lengths compare digit by digit.
      std::size_t ei = i, ej = j;
      while (ei < a.size() && isDigit(a[ei])) ++ei;
      while (ej < b.size() && isDigit(b[ej])) ++ej;
      std::size_t si = i, sj = j;
      while (si + 1 < ei && a[si] == u'0') ++si;
      while (sj + 1 < ej && b[sj] == u'0') ++sj;
      if (ei - si != ej - sj) return ei - si < ej - sj ? -1 : 1;
      for (; si < ei; ++si, ++sj)
        if (a[si] != b[sj]) return a[si] < b[sj] ? -1 : 1;
      i = ei;
      j = ej;
      continue;
    }
    if (a[i] != b[j]) return a[i] < b[j] ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

}  // namespace mirlo
