#include "base/json.h"

namespace mirlo {

std::optional<Json> parseJson(std::string_view text, int maxDepth) {
  // Bound the nesting before building anything, so that a body of a million '[' cannot exhaust
  // the stack of the recursive parser.
  int depth = 0;
  bool inString = false, escaped = false;
  for (char c : text) {
    if (inString) {
      if (escaped) escaped = false;
      else if (c == '\\') escaped = true;
      else if (c == '"') inString = false;
      continue;
    }
    if (c == '"') inString = true;
    else if (c == '[' || c == '{') {
      if (++depth > maxDepth) return std::nullopt;
    } else if (c == ']' || c == '}') --depth;
  }
  Json parsed = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) return std::nullopt;
  return parsed;
}

std::string dumpJson(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

}  // namespace mirlo
