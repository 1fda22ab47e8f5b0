// Unicode text helpers. Text in the core is UTF-8; lengths and locations that other applications
// see are counted in UTF-16 code units, as the accessibility interface counts them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace mirlo::text {

// Removes Unicode white space and line ends from both ends. Invalid UTF-8 is kept as it is.
std::string trimWhitespace(std::string_view s);

// Removes only spaces and tabs from both ends (line breaks stay).
std::string trimSpacesAndTabs(std::string_view s);

// Number of user-perceived characters (extended grapheme clusters). Each invalid byte counts as one.
std::size_t graphemeCount(std::string_view s);

// Length of the text in UTF-16 code units (a character outside the basic plane counts 2).
// Each invalid byte counts as one unit, as its replacement character would.
std::int64_t utf16Length(std::string_view s);

// The UTF-8 byte offset of the given UTF-16 offset, or nothing when it lies past the end or
// inside a surrogate pair.
std::optional<std::size_t> utf8OffsetOfUtf16(std::string_view s, std::int64_t utf16Offset);

// Conversions between UTF-8 and UTF-16. Invalid input becomes U+FFFD.
std::u16string toUtf16(std::string_view s);
std::string toUtf8(std::u16string_view s);

// True when the bytes are valid UTF-8.
bool isValidUtf8(std::string_view s);

// The text without control characters (C0, DEL and C1, which terminals read as escape
// sequences) and without invalid bytes. With `keepLineBreaks`, tabs, line feeds and the carriage
// return of a CRLF stay.
std::string withoutControlCharacters(std::string_view s, bool keepLineBreaks);

// Lower-cases ASCII letters only, locale-free.
std::string asciiLower(std::string_view s);

// Lower-cases with Unicode simple case mapping (so "É" becomes "é").
std::string unicodeLower(std::string_view s);

}  // namespace mirlo::text
