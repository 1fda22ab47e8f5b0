// One secret string per service name in the system's secret store.
#pragma once

#include <string>

#include "platform/secret_store.h"

namespace mirlo {

class Keychain {
 public:
  explicit Keychain(SecretStore& store) : store_(store) {}

  // Replaces whatever is stored for the service in one step; the empty value deletes it. False
  // when the store refused: what was stored before is then still there.
  //
  // The original design deleted the item and added the new one. Between the two, a kill or a full
  // disk lost the session, another process found nobody signed in, and a refused add kept a
  // refresh token the service had already replaced. One replacing step closes all three.
  bool save(const std::string& service, const std::string& value);

  // The stored value, or the empty string when there is none or it cannot be read.
  std::string load(const std::string& service);

 private:
  SecretStore& store_;
};

}  // namespace mirlo
