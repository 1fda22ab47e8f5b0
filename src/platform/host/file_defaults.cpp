#include "platform/host/file_defaults.h"

#include "platform/host/host_files.h"

namespace mirlo::host {

std::filesystem::path FileDefaults::standardPath() { return configDirectory() / "defaults.json"; }

FileDefaults::FileDefaults(std::filesystem::path path) : path_(std::move(path)) {}

void FileDefaults::loadLocked() {
  if (loaded_) return;
  loaded_ = true;
  auto bytes = readFile(path_);
  if (!bytes) return;
  auto parsed = parseJson(*bytes);
  if (parsed && parsed->is_object()) {
    values_ = std::move(*parsed);
    return;
  }
  setAside_ = keepAside(path_);
}

void FileDefaults::saveLocked() { replaceFileAtomically(path_, values_.dump(2) + "\n"); }

bool FileDefaults::hasObject(const std::string& key) {
  std::lock_guard lock(mutex_);
  loadLocked();
  auto it = values_.find(key);
  return it != values_.end() && !it->is_null();
}

bool FileDefaults::boolForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  loadLocked();
  auto it = values_.find(key);
  if (it == values_.end()) return false;
  // The same conversion as the macOS defaults: numbers are true when not zero, strings when they
  // start with Y, y, T, t or a digit from 1 to 9; anything else is false.
  if (it->is_boolean()) return it->get<bool>();
  if (it->is_number()) return it->get<double>() != 0;
  if (it->is_string()) {
    const auto& s = it->get_ref<const std::string&>();
    if (s.empty()) return false;
    char c = s.front();
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
  }
  return false;
}

void FileDefaults::setBool(const std::string& key, bool value) {
  std::lock_guard lock(mutex_);
  loadLocked();
  values_[key] = value;
  saveLocked();
}

std::optional<std::string> FileDefaults::stringForKey(const std::string& key) {
  std::lock_guard lock(mutex_);
  loadLocked();
  auto it = values_.find(key);
  if (it == values_.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

void FileDefaults::setString(const std::string& key, const std::string& value) {
  std::lock_guard lock(mutex_);
  loadLocked();
  values_[key] = value;
  saveLocked();
}

std::optional<std::filesystem::path> FileDefaults::setAside() const {
  std::lock_guard lock(mutex_);
  return setAside_;
}

}  // namespace mirlo::host
