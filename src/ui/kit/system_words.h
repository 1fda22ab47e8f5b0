// The words that differ with the system the program runs on: the names of the keys in a shortcut
// and the sentences that name the computer or its settings. The platform says which system it is
// (`AppInfo::hostSystem`); the wording is decided here, once for every surface.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/app_info.h"

namespace mirlo::words {

// One name per key, as key caps show them: "⌘" "⇧" "A" on a Mac, "Ctrl" "Maj" "A" on a PC.
// `modifiers` are the core's modifier flags (Command stands for Control on a PC).
std::vector<std::string> keyCaps(HostSystem system, std::uint64_t modifiers, const std::string& key);

// The same shortcut in running text: "⌘⇧A" on a Mac, "Ctrl+Maj+A" on a PC.
std::string shortcut(HostSystem system, std::uint64_t modifiers, const std::string& key);

// The sign-in page's subtitle: the account follows the user from one computer to the next.
std::string accountPromise(HostSystem system);
// The permission page's subtitle: why the access is needed.
std::string permissionReason(HostSystem system);
// The recap's subtitle: where the program lives on the screen.
std::string whereMirloLives(HostSystem system);

}  // namespace mirlo::words
