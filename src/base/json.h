// JSON through nlohmann/json. Answers from the network are untrusted: parse them with
// `parseJson`, which never throws and refuses invalid UTF-8 and absurd nesting.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string_view>

namespace mirlo {

using Json = nlohmann::json;

// Nothing when the text is not valid JSON (invalid UTF-8 included) or nests deeper than
// `maxDepth` levels.
std::optional<Json> parseJson(std::string_view text, int maxDepth = 64);

// A compact serialisation that never throws: invalid UTF-8 in strings is replaced by U+FFFD.
std::string dumpJson(const Json& value);

}  // namespace mirlo
