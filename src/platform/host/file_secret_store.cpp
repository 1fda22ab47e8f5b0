#include "platform/host/file_secret_store.h"

#include <optional>

#include "base/base64.h"
#include "base/json.h"
#include "platform/host/host_files.h"

namespace mirlo::host {
namespace {

// The stored items, read afresh each time so that another process's sign-out is seen. A file
// that is not an object of strings is moved aside and reads as empty.
Json readItems(const std::filesystem::path& path) {
  auto bytes = readFile(path);
  if (!bytes) return Json::object();
  auto parsed = parseJson(*bytes);
  bool valid = parsed && parsed->is_object();
  if (valid)
    for (const auto& [key, value] : parsed->items()) valid = valid && value.is_string();
  if (valid) return std::move(*parsed);
  keepAside(path);
  return Json::object();
}

}  // namespace

std::filesystem::path FileSecretStore::standardPath() { return dataDirectory() / "secrets.json"; }

FileSecretStore::FileSecretStore(std::filesystem::path path) : path_(std::move(path)) {}

std::int32_t FileSecretStore::replaceItem(const std::string& service, const std::string& bytes) {
  std::lock_guard lock(mutex_);
  Json items = readItems(path_);
  items[service] = encodeBase64(bytes);
  return replaceFileAtomically(path_, dumpJson(items)) ? 0 : kIoError;
}

std::int32_t FileSecretStore::deleteItems(const std::string& service) {
  std::lock_guard lock(mutex_);
  Json items = readItems(path_);
  if (items.erase(service) == 0) return kItemNotFound;
  return replaceFileAtomically(path_, dumpJson(items)) ? 0 : kIoError;
}

std::int32_t FileSecretStore::copyItem(const std::string& service, std::string& out) {
  std::lock_guard lock(mutex_);
  Json items = readItems(path_);
  auto it = items.find(service);
  if (it == items.end()) return kItemNotFound;
  auto bytes = decodeBase64Strict(it->get<std::string>());
  if (!bytes) return kIoError;
  out = std::move(*bytes);
  return 0;
}

}  // namespace mirlo::host
