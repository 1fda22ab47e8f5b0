#include "account/keychain.h"

#include "base/text.h"

namespace mirlo {

bool Keychain::save(const std::string& service, const std::string& value) {
  if (value.empty()) {
    const auto status = store_.deleteItems(service);
    return status == 0 || status == SecretStore::kItemNotFound;
  }
  return store_.replaceItem(service, value) == 0;
}

std::string Keychain::load(const std::string& service) {
  std::string bytes;
  if (store_.copyItem(service, bytes) != 0) return {};
  if (!text::isValidUtf8(bytes)) return {};
  return bytes;
}

}  // namespace mirlo
