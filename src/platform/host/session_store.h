// Where this computer keeps the session: the Secret Service when one answers, else a file only
// the user can read, with one warning on standard error that it is not encrypted.
// MIRLO_SECRET_STORE=file asks for the file without the warning (tests, headless machines).
#pragma once

#include <memory>

#include "platform/secret_store.h"

namespace mirlo::host {

std::unique_ptr<SecretStore> openSessionStore();

}  // namespace mirlo::host
