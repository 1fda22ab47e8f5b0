#pragma once

#include <optional>
#include <string>

namespace mirlo {

// The system the program runs on. Texts that name keys ("⌘" or "Ctrl") or the system's own
// settings depend on it; the platform only says which one it is, the core chooses the words.
enum class HostSystem {
  macOS,         // a Mac keyboard: Command, Shift, Option, Control
  linuxDesktop,  // a PC keyboard: Control stands for Command, Alt for Option
};

class AppInfo {
 public:
  virtual ~AppInfo() = default;
  // The running version ("CFBundleShortVersionString" on macOS); nothing when unknown.
  virtual std::optional<std::string> shortVersionString() = 0;
  virtual HostSystem hostSystem() = 0;
};

}  // namespace mirlo
