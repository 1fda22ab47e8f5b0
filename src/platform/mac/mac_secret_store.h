// The login keychain: generic-password items identified by their service alone.
#pragma once

#include <memory>

#include "platform/secret_store.h"

namespace mirlo::mac {

std::unique_ptr<SecretStore> makeSecretStore();

}  // namespace mirlo::mac
