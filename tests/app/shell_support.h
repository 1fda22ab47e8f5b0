// Helpers shared by the shell's tests: reading the status menu as lines, launching, and the
// service's answers.
#pragma once

#include <string>
#include <vector>

#include "app/launch.h"
#include "support/sim_app.h"

namespace mirlo::testing {

// One line per item: the title, then "[off]" when disabled, "[x]" when checked, and the key
// equivalent with "⌘⇧" or "⌘"; separators read "---".
inline std::vector<std::string> menuLines(const sim::SimStatusItem& item) {
  std::vector<std::string> lines;
  for (const auto& it : item.menu) {
    if (it.separator) {
      lines.push_back("---");
      continue;
    }
    std::string line = it.title;
    if (!it.enabled) line += " [off]";
    if (it.checked) line += " [x]";
    if (!it.keyEquivalent.empty()) {
      std::string mods;
      if (it.keyEquivalentModifiers & 0x100000) mods += "⌘";
      if (it.keyEquivalentModifiers & 0x20000) mods += "⇧";
      line += " " + mods + it.keyEquivalent;
    }
    lines.push_back(line);
  }
  return lines;
}

inline const MenuItem* menuItem(const sim::SimStatusItem& item, const std::string& title) {
  for (const auto& it : item.menu)
    if (!it.separator && it.title == title) return &it;
  return nullptr;
}

inline void launch(SimWorld& world, const std::vector<std::string>& urls = {}) {
  finishLaunching(*world.app, urls);
  world.advance();
}

inline std::string signInCallback(const std::string& email, const std::string& refresh = "refresh-9") {
  return "mirlo://auth#access_token=" + accessTokenFor(email) + "&refresh_token=" + refresh +
         "&expires_in=3600&token_type=bearer";
}

}  // namespace mirlo::testing
