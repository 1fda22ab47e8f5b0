// One secret string per service name in the system's secret store.
#pragma once

#include <string>

#include "platform/secret_store.h"

namespace mirlo {

class Keychain {
 public:
  explicit Keychain(SecretStore& store) : store_(store) {}

  // Replaces whatever is stored for the service: always delete, then add. The empty value only
  // deletes. Statuses are ignored.
  void save(const std::string& service, const std::string& value);

  // The stored value, or the empty string when there is none or it cannot be read.
  std::string load(const std::string& service);

 private:
  SecretStore& store_;
};

}  // namespace mirlo
