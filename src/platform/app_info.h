#pragma once

#include <optional>
#include <string>

namespace mirlo {

class AppInfo {
 public:
  virtual ~AppInfo() = default;
  // The running version ("CFBundleShortVersionString" on macOS); nothing when unknown.
  virtual std::optional<std::string> shortVersionString() = 0;
};

}  // namespace mirlo
