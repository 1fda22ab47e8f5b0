// The defaults store of a desktop without one: a JSON object in a file, read once and written
// through on every change. A file that is not a JSON object reads as "nothing set" and is moved
// aside on the first read, so that what it held can still be recovered by hand.
#pragma once

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

#include "base/json.h"
#include "platform/defaults.h"

namespace mirlo::host {

class FileDefaults final : public Defaults {
 public:
  // "defaults.json" in the user's config directory.
  static std::filesystem::path standardPath();

  explicit FileDefaults(std::filesystem::path path);

  bool hasObject(const std::string& key) override;
  bool boolForKey(const std::string& key) override;
  void setBool(const std::string& key, bool value) override;
  std::optional<std::string> stringForKey(const std::string& key) override;
  void setString(const std::string& key, const std::string& value) override;

  // Where an unreadable file was moved, if one was.
  std::optional<std::filesystem::path> setAside() const;

 private:
  void loadLocked();
  void saveLocked();

  const std::filesystem::path path_;
  // Read from the main queue and from the network thread (the device identifier of a retried
  // correction), so guarded.
  mutable std::mutex mutex_;
  bool loaded_ = false;
  Json values_ = Json::object();
  std::optional<std::filesystem::path> setAside_;
};

}  // namespace mirlo::host
