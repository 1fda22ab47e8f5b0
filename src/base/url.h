// A strict URL reader in the manner of RFC 3986: a string with characters outside the URL
// alphabet, a malformed percent escape or a malformed scheme does not parse.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mirlo::url {

struct Url {
  std::string scheme;                  // as written (not lower-cased)
  std::optional<std::string> host;     // present when the URL has an authority ("//…")
  std::optional<int> port;
  std::string path;
  std::optional<std::string> query;    // without the "?"
  std::optional<std::string> fragment; // without the "#"
};

std::optional<Url> parse(std::string_view text);

// Decodes %XX escapes; nothing when an escape is malformed or the result is not valid UTF-8.
std::optional<std::string> percentDecode(std::string_view text);

// Percent-encodes everything but unreserved characters and the sub-delimiters, ':', '@', '/' and
// '?' that a query component may hold as they are; '&', '=', '+' and '#' are encoded.
std::string encodeQueryValue(std::string_view text);

}  // namespace mirlo::url
