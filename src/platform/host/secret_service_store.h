// The session's secret in the Secret Service (GNOME Keyring, KWallet…) through libsecret: one item
// per service, found by a "service" attribute under this program's own schema, stored in the
// default collection. That collection is unlocked with the user's login and locked with it, so an
// item there is readable only while the user's session is unlocked: the Secret Service's own
// equivalent of the keychain's "accessible when unlocked", with nothing to set per item.
//
// Statuses: 0 on success, the keychain's "not found" number when nothing matched, and a negative
// GLib error code otherwise; callers only compare with zero.
#pragma once

#include <cstdint>
#include <string>

#include "platform/secret_store.h"

namespace mirlo::host {

class SecretServiceStore final : public SecretStore {
 public:
  static constexpr std::int32_t kUnavailable = -25291;

  // True when this build has libsecret and a Secret Service answers on the session bus.
  static bool available();

  // One store call: the Secret Service replaces the item with the same attributes in place.
  std::int32_t replaceItem(const std::string& service, const std::string& bytes) override;
  std::int32_t deleteItems(const std::string& service) override;
  std::int32_t copyItem(const std::string& service, std::string& out) override;
};

}  // namespace mirlo::host
