// The system's secret store (the keychain), one generic item per service name. Statuses are the
// platform's: zero is success.
#pragma once

#include <cstdint>
#include <string>

namespace mirlo {

class SecretStore {
 public:
  // The keychain's "no such item"; every store answers it when nothing matched.
  static constexpr std::int32_t kItemNotFound = -25300;

  virtual ~SecretStore() = default;
  // Makes `bytes` the service's one item, readable only while the user's session is unlocked, in
  // a single step: whoever reads meanwhile finds the old item or the new one, never neither, and
  // a failure leaves the old item as it was.
  virtual std::int32_t replaceItem(const std::string& service, const std::string& bytes) = 0;
  // Deletes every item of the service.
  virtual std::int32_t deleteItems(const std::string& service) = 0;
  // Reads the one item of the service into `out`.
  virtual std::int32_t copyItem(const std::string& service, std::string& out) = 0;
};

}  // namespace mirlo
