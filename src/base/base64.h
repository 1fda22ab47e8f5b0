#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mirlo {

// Strict standard base64 (RFC 4648 section 4): the length must be a multiple of four, padding
// only at the end, no white space and no other alphabet. Nothing on any error.
std::optional<std::string> decodeBase64Strict(std::string_view in);

std::string encodeBase64(std::string_view bytes);

// The URL-safe alphabet without padding, as JSON Web Tokens write their parts.
std::string encodeBase64Url(std::string_view bytes);

}  // namespace mirlo
