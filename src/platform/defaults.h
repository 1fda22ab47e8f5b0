// The per-user defaults store.
#pragma once

#include <optional>
#include <string>

namespace mirlo {

class Defaults {
 public:
  virtual ~Defaults() = default;
  virtual bool hasObject(const std::string& key) = 0;
  // The stored value converted to a boolean the way the platform converts (false when absent).
  virtual bool boolForKey(const std::string& key) = 0;
  virtual void setBool(const std::string& key, bool value) = 0;
  // Nothing when absent or not a string.
  virtual std::optional<std::string> stringForKey(const std::string& key) = 0;
  virtual void setString(const std::string& key, const std::string& value) = 0;
};

}  // namespace mirlo
