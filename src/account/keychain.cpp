#include "account/keychain.h"

#include "base/text.h"

namespace mirlo {

void Keychain::save(const std::string& service, const std::string& value) {
  store_.deleteItems(service);
  if (value.empty()) return;
  store_.addItem(service, value);
}

std::string Keychain::load(const std::string& service) {
  std::string bytes;
  if (store_.copyItem(service, bytes) != 0) return {};
  if (!text::isValidUtf8(bytes)) return {};
  return bytes;
}

}  // namespace mirlo
