// The system's secret store (the keychain), one generic item per service name. Statuses are the
// platform's: zero is success.
#pragma once

#include <cstdint>
#include <string>

namespace mirlo {

class SecretStore {
 public:
  virtual ~SecretStore() = default;
  // Deletes every item of the service.
  virtual std::int32_t deleteItems(const std::string& service) = 0;
  // Adds an item readable only while the user's session is unlocked.
  virtual std::int32_t addItem(const std::string& service, const std::string& bytes) = 0;
  // Reads the one item of the service into `out`.
  virtual std::int32_t copyItem(const std::string& service, std::string& out) = 0;
};

}  // namespace mirlo
