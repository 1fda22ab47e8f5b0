#include "platform/host/session_store.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/host/file_secret_store.h"
#include "platform/host/secret_service_store.h"

namespace mirlo::host {

std::unique_ptr<SecretStore> openSessionStore() {
  const char* forced = std::getenv("MIRLO_SECRET_STORE");
  const bool fileForced = forced && std::string(forced) == "file";
  if (!fileForced && SecretServiceStore::available()) return std::make_unique<SecretServiceStore>();
  auto file = std::make_unique<FileSecretStore>(FileSecretStore::standardPath());
  if (!fileForced)
    std::fprintf(stderr,
                 "mirlo : aucun trousseau (Secret Service) ne répond ; la session est gardée sans "
                 "chiffrement dans %s\n",
                 file->path().c_str());
  return file;
}

}  // namespace mirlo::host
