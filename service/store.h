// The service's storage: one SQLite file with versioned migrations. Every write runs inside a
// transaction, and one connection serves all request threads behind a mutex, so two concurrent
// corrections can never both read the same usage count and lose one of them.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

struct sqlite3;

namespace mirlo::service {

struct User {
  std::string id;
  std::string email;
  std::string plan;
  std::int64_t createdAt = 0;
  std::int64_t updatedAt = 0;
  std::int64_t lastSignInAt = 0;
};

// What a write came to. `failed` is a storage fault (read-only file, disk full, corruption):
// the transaction was rolled back and nothing changed.
enum class StoreStatus { ok, conflict, notFound, failed };

struct RefreshOutcome {
  enum Kind { rotated, notFound, alreadyUsed, failed } kind = failed;
  std::string userId;
  std::string sessionId;
  std::string refreshToken;  // the token the client holds from now on
};

struct UsageReservation {
  enum Kind { granted, quota, failed } kind = failed;
  int used = 0;  // today's count after the reservation (or the count that hit the limit)
};

class Store {
 public:
  struct Options {
    // A cap on the file's size in pages (0: SQLite's own limit); past it writes fail cleanly.
    std::int64_t maxPages = 0;
  };

  // Opens (creating when needed, with mode 0600) and migrates. Nothing, with a reason in
  // `error`, when the file cannot be opened or migrated.
  static std::unique_ptr<Store> open(const std::string& path, std::string* error, Options options);
  static std::unique_ptr<Store> open(const std::string& path, std::string* error) {
    return open(path, error, Options{});
  }
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  static int latestSchemaVersion();
  int schemaVersion();

  StoreStatus createUser(const User& user, const std::string& passwordHash);
  // The user and their password hash, by e-mail (compared without regard to ASCII case).
  std::optional<std::pair<User, std::string>> findUserByEmail(const std::string& email);
  std::optional<User> findUser(const std::string& id);
  StoreStatus setPlan(const std::string& userId, const std::string& plan, std::int64_t now);

  // A new sign-in: a session and its first refresh token (stored hashed).
  StoreStatus createSession(const std::string& sessionId, const std::string& userId, const std::string& refreshToken,
                            std::int64_t now);
  bool sessionActive(const std::string& sessionId, const std::string& userId);
  StoreStatus revokeSession(const std::string& sessionId);

  // Exchanges a refresh token for its successor. A token already exchanged less than
  // `reuseSeconds` ago yields the same successor again (two tabs or a retried request); later
  // reuse is taken as theft and ends the whole session. `sealKey` (32 bytes) protects the
  // successor kept for that window.
  RefreshOutcome rotate(const std::string& refreshToken, std::int64_t now, std::int64_t reuseSeconds,
                        const std::string& sealKey);

  // Counts one correction for `day` unless `limit` (negative: none) is already reached.
  UsageReservation reserve(const std::string& userId, const std::string& day, int limit);
  // Gives back a reservation whose correction could not be delivered.
  StoreStatus release(const std::string& userId, const std::string& day);
  std::optional<int> usage(const std::string& userId, const std::string& day);

  // The last SQLite error text, for the operator's log (never holds bound values).
  std::string lastError();

 private:
  explicit Store(sqlite3* db) : db_(db) {}
  bool migrate(std::string* error);
  bool exec(const char* sql);

  std::mutex mutex_;
  sqlite3* db_;
  std::string lastError_;
};

}  // namespace mirlo::service
