#include "engine/key_map.h"

namespace mirlo {

std::optional<std::uint16_t> KeyMap::keyCode(const std::string& character) {
  if (!keyboard_.hasLayoutData()) return std::nullopt;
  for (std::uint16_t code = 0; code < 128; ++code) {
    auto produced = keyboard_.translate(code);
    if (!produced || produced->empty()) continue;
    if (*produced == character) return code;
  }
  return std::nullopt;
}

}  // namespace mirlo
