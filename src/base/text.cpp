#include "base/text.h"

#include <utf8proc.h>

#include <vector>

namespace mirlo::text {
namespace {

struct Decoded {
  std::int32_t codepoint;  // -1 for an invalid byte
  std::size_t bytes;
};

Decoded decodeAt(std::string_view s, std::size_t i) {
  utf8proc_int32_t cp = 0;
  auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                            static_cast<utf8proc_ssize_t>(s.size() - i), &cp);
  if (n <= 0) return {-1, 1};
  return {cp, static_cast<std::size_t>(n)};
}

bool isWhitespaceOrLineEnd(std::int32_t cp) {
  if (cp < 0) return false;
  // Unicode's White_Space property, line and paragraph separators included.
  switch (cp) {
    case 0x09: case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x20: case 0x85: case 0xA0:
    case 0x1680: case 0x2028: case 0x2029: case 0x202F: case 0x205F: case 0x3000:
      return true;
    default:
      return cp >= 0x2000 && cp <= 0x200A;
  }
}

template <typename Pred>
std::string trimIf(std::string_view s, Pred isTrimmed) {
  std::vector<std::pair<std::size_t, Decoded>> chars;
  for (std::size_t i = 0; i < s.size();) {
    auto d = decodeAt(s, i);
    chars.emplace_back(i, d);
    i += d.bytes;
  }
  std::size_t first = 0;
  while (first < chars.size() && isTrimmed(chars[first].second.codepoint)) ++first;
  std::size_t last = chars.size();
  while (last > first && isTrimmed(chars[last - 1].second.codepoint)) --last;
  if (first == last) return {};
  std::size_t begin = chars[first].first;
  std::size_t end = chars[last - 1].first + chars[last - 1].second.bytes;
  return std::string(s.substr(begin, end - begin));
}

void appendUtf8(std::string& out, std::int32_t cp) {
  utf8proc_uint8_t buf[4];
  auto n = utf8proc_encode_char(cp, buf);
  out.append(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
}

}  // namespace

std::string trimWhitespace(std::string_view s) { return trimIf(s, isWhitespaceOrLineEnd); }

std::string trimSpacesAndTabs(std::string_view s) {
  return trimIf(s, [](std::int32_t cp) { return cp == ' ' || cp == '\t'; });
}

std::size_t graphemeCount(std::string_view s) {
  std::size_t count = 0;
  utf8proc_int32_t state = 0;
  std::int32_t previous = -1;
  for (std::size_t i = 0; i < s.size();) {
    auto d = decodeAt(s, i);
    i += d.bytes;
    if (d.codepoint < 0 || previous < 0) {
      ++count;  // an invalid byte stands alone, and so does whatever follows it
      state = 0;
    } else if (utf8proc_grapheme_break_stateful(previous, d.codepoint, &state)) {
      ++count;
    }
    previous = d.codepoint;
  }
  return count;
}

std::int64_t utf16Length(std::string_view s) {
  std::int64_t units = 0;
  for (std::size_t i = 0; i < s.size();) {
    auto d = decodeAt(s, i);
    i += d.bytes;
    units += d.codepoint > 0xFFFF ? 2 : 1;
  }
  return units;
}

std::optional<std::size_t> utf8OffsetOfUtf16(std::string_view s, std::int64_t utf16Offset) {
  if (utf16Offset < 0) return std::nullopt;
  std::int64_t units = 0;
  std::size_t i = 0;
  while (units < utf16Offset) {
    if (i >= s.size()) return std::nullopt;
    auto d = decodeAt(s, i);
    i += d.bytes;
    units += d.codepoint > 0xFFFF ? 2 : 1;
  }
  if (units != utf16Offset) return std::nullopt;  // inside a surrogate pair
  return i;
}

std::u16string toUtf16(std::string_view s) {
  std::u16string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    auto d = decodeAt(s, i);
    i += d.bytes;
    std::int32_t cp = d.codepoint < 0 ? 0xFFFD : d.codepoint;
    if (cp > 0xFFFF) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
  }
  return out;
}

std::string toUtf8(std::u16string_view s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    std::int32_t cp = s[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;  // a lone surrogate
    }
    appendUtf8(out, cp);
  }
  return out;
}

bool isValidUtf8(std::string_view s) {
  for (std::size_t i = 0; i < s.size();) {
    auto d = decodeAt(s, i);
    if (d.codepoint < 0) return false;
    i += d.bytes;
  }
  return true;
}

std::string withoutControlCharacters(std::string_view s, bool keepLineBreaks) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    const auto d = decodeAt(s, i);
    const std::int32_t cp = d.codepoint;
    bool keep = cp >= 0x20 && cp != 0x7F && !(cp >= 0x80 && cp <= 0x9F);
    if (keepLineBreaks && (cp == '\t' || cp == '\n' || (cp == '\r' && i + 1 < s.size() && s[i + 1] == '\n')))
      keep = true;
    if (keep) out.append(s.substr(i, d.bytes));
    i += d.bytes;
  }
  return out;
}

std::string asciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::string unicodeLower(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size();) {
    auto d = decodeAt(s, i);
    if (d.codepoint < 0) {
      out.push_back(s[i]);
    } else {
      appendUtf8(out, utf8proc_tolower(d.codepoint));
    }
    i += d.bytes;
  }
  return out;
}

}  // namespace mirlo::text
