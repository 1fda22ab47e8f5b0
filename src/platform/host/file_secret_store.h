// The secret store used when no Secret Service answers: one file, readable by its owner only
// (mode 0600, in a 0700 directory), holding a JSON object of service → base64 of the bytes. It is
// NOT encrypted: anyone who can read the user's files can read the session. The command line says
// so when it falls back to it.
//
// Every change rewrites the whole file the way replaceFileAtomically does (a temporary file, flushed
// to disk, renamed over the old one): a process killed or a disk filled at any point leaves either
// the old file or the new one, and another process reading meanwhile sees one of the two.
//
// Statuses follow the keychain's numbers, so that callers need not care which store they have.
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

#include "platform/secret_store.h"

namespace mirlo::host {

class FileSecretStore final : public SecretStore {
 public:
  static constexpr std::int32_t kIoError = -36;

  // "secrets.json" in the user's data directory.
  static std::filesystem::path standardPath();

  explicit FileSecretStore(std::filesystem::path path);

  std::int32_t replaceItem(const std::string& service, const std::string& bytes) override;
  std::int32_t deleteItems(const std::string& service) override;
  std::int32_t copyItem(const std::string& service, std::string& out) override;

  const std::filesystem::path& path() const { return path_; }

 private:
  const std::filesystem::path path_;
  // The session is persisted from the network thread after a refresh. Other processes are not
  // locked out: each writes a whole file, and the last rename wins.
  std::mutex mutex_;
};

}  // namespace mirlo::host
