#include "service/store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "service/crypto.h"

namespace mirlo::service {

namespace {

// Each entry moves the schema one version up; applied in order, each in its own transaction.
// Never edit a published entry: add a new one.
const std::vector<const char*> kMigrations = {
    // 1: accounts, sessions with their refresh tokens, and the daily usage count.
    R"sql(
    CREATE TABLE users (
      id TEXT PRIMARY KEY,
      email TEXT NOT NULL UNIQUE COLLATE NOCASE,
      password_hash TEXT NOT NULL,
      plan TEXT NOT NULL DEFAULT 'gratuit'
        CHECK (plan IN ('gratuit', 'pro_mensuel', 'pro_annuel', 'lifetime')),
      created_at INTEGER NOT NULL,
      updated_at INTEGER NOT NULL,
      last_sign_in_at INTEGER
    );
    CREATE TABLE sessions (
      id TEXT PRIMARY KEY,
      user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
      created_at INTEGER NOT NULL,
      revoked INTEGER NOT NULL DEFAULT 0
    );
    CREATE TABLE refresh_tokens (
      token_hash TEXT PRIMARY KEY,
      session_id TEXT NOT NULL REFERENCES sessions(id) ON DELETE CASCADE,
      created_at INTEGER NOT NULL,
      revoked_at INTEGER,
      successor_sealed BLOB
    );
    CREATE INDEX refresh_tokens_session ON refresh_tokens(session_id);
    CREATE TABLE usage (
      user_id TEXT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
      day TEXT NOT NULL,
      used INTEGER NOT NULL CHECK (used >= 0),
      PRIMARY KEY (user_id, day)
    );
    )sql",
    // 2: sessions remember when they were last refreshed, for the operator's inspection.
    R"sql(
    ALTER TABLE sessions ADD COLUMN refreshed_at INTEGER;
    )sql",
};

class Statement {
 public:
  Statement(sqlite3* db, const char* sql) { ok_ = sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) == SQLITE_OK; }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(const std::string& value) {
    if (ok_) ok_ = sqlite3_bind_text(stmt_, ++index_, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT) == SQLITE_OK;
    return *this;
  }
  Statement& bindBlob(const std::string& value) {
    if (ok_) ok_ = sqlite3_bind_blob(stmt_, ++index_, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT) == SQLITE_OK;
    return *this;
  }
  Statement& bind(std::int64_t value) {
    if (ok_) ok_ = sqlite3_bind_int64(stmt_, ++index_, value) == SQLITE_OK;
    return *this;
  }
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return ok_ ? sqlite3_step(stmt_) : SQLITE_ERROR; }
  bool run() { return step() == SQLITE_DONE; }
  std::string text(int col) {
    const auto* p = sqlite3_column_text(stmt_, col);
    return p ? std::string(reinterpret_cast<const char*>(p), static_cast<std::size_t>(sqlite3_column_bytes(stmt_, col)))
             : std::string();
  }
  std::string blob(int col) {
    const auto* p = static_cast<const char*>(sqlite3_column_blob(stmt_, col));
    return p ? std::string(p, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, col))) : std::string();
  }
  bool isNull(int col) { return sqlite3_column_type(stmt_, col) == SQLITE_NULL; }
  std::int64_t integer(int col) { return sqlite3_column_int64(stmt_, col); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
  bool ok_ = false;
  int index_ = 0;
};

// BEGIN IMMEDIATE takes the write lock at once, so a read-then-write inside cannot race another
// process on the same file either. Rolled back unless committed.
class Transaction {
 public:
  explicit Transaction(sqlite3* db) : db_(db) {
    began_ = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  ~Transaction() {
    if (began_ && !done_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  bool began() const { return began_; }
  bool commit() {
    done_ = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    return done_;
  }

 private:
  sqlite3* db_;
  bool began_ = false;
  bool done_ = false;
};

User readUser(Statement& s) {
  User u;
  u.id = s.text(0);
  u.email = s.text(1);
  u.plan = s.text(2);
  u.createdAt = s.integer(3);
  u.updatedAt = s.integer(4);
  u.lastSignInAt = s.isNull(5) ? 0 : s.integer(5);
  return u;
}

}  // namespace

int Store::latestSchemaVersion() { return static_cast<int>(kMigrations.size()); }

std::unique_ptr<Store> Store::open(const std::string& path, std::string* error, Options options) {
  // Create the file ourselves so that it is never readable by others, whatever the umask.
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd >= 0) ::close(fd);
  // A file loosened since (by hand, a copy, a restore) is tightened again, with the journal
  // files that hold its latest writes: SQLite gives new ones the database's own mode.
  for (const char* suffix : {"", "-wal", "-shm"}) {
    const int f = ::open((path + suffix).c_str(), O_RDONLY | O_CLOEXEC);
    if (f < 0) continue;
    struct stat st {};
    if (::fstat(f, &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 077) != 0) ::fchmod(f, 0600);
    ::close(f);
  }
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr) !=
      SQLITE_OK) {
    if (error) *error = db ? sqlite3_errmsg(db) : "cannot open the database";
    sqlite3_close(db);
    return nullptr;
  }
  std::unique_ptr<Store> store(new Store(db));
  sqlite3_busy_timeout(db, 5000);
  sqlite3_extended_result_codes(db, 1);
  // WAL with full syncs: a commit that returned survives a kill or a power cut, and a write cut
  // short is rolled back at the next open.
  if (!store->exec("PRAGMA journal_mode=WAL") || !store->exec("PRAGMA synchronous=FULL") ||
      !store->exec("PRAGMA foreign_keys=ON")) {
    if (error) *error = store->lastError_;
    return nullptr;
  }
  if (options.maxPages > 0) store->exec(("PRAGMA max_page_count=" + std::to_string(options.maxPages)).c_str());
  if (!store->migrate(error)) return nullptr;
  return store;
}

Store::~Store() { sqlite3_close(db_); }

bool Store::exec(const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
  lastError_ = message ? message : sqlite3_errmsg(db_);
  sqlite3_free(message);
  return false;
}

std::string Store::lastError() {
  std::lock_guard lock(mutex_);
  return lastError_;
}

int Store::schemaVersion() {
  std::lock_guard lock(mutex_);
  Statement s(db_, "PRAGMA user_version");
  return s.step() == SQLITE_ROW ? static_cast<int>(s.integer(0)) : -1;
}

bool Store::migrate(std::string* error) {
  int version = 0;
  {
    Statement s(db_, "PRAGMA user_version");
    if (s.step() != SQLITE_ROW) {
      if (error) *error = sqlite3_errmsg(db_);
      return false;
    }
    version = static_cast<int>(s.integer(0));
  }
  if (version > latestSchemaVersion()) {
    if (error) *error = "the database was written by a newer version of the service (schema " + std::to_string(version) + ")";
    return false;
  }
  for (int v = version; v < latestSchemaVersion(); ++v) {
    Transaction tx(db_);
    const std::string bump = "PRAGMA user_version=" + std::to_string(v + 1);
    if (!tx.began() || !exec(kMigrations[static_cast<std::size_t>(v)]) || !exec(bump.c_str()) || !tx.commit()) {
      if (error) *error = "migration to schema " + std::to_string(v + 1) + " failed: " + (lastError_.empty() ? sqlite3_errmsg(db_) : lastError_);
      return false;
    }
  }
  return true;
}

StoreStatus Store::createUser(const User& user, const std::string& passwordHash) {
  std::lock_guard lock(mutex_);
  Transaction tx(db_);
  if (!tx.began()) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  Statement s(db_,
              "INSERT INTO users (id, email, password_hash, plan, created_at, updated_at, last_sign_in_at) "
              "VALUES (?, ?, ?, ?, ?, ?, NULL)");
  s.bind(user.id).bind(user.email).bind(passwordHash).bind(user.plan).bind(user.createdAt).bind(user.updatedAt);
  const int rc = s.step();
  if ((rc & 0xff) == SQLITE_CONSTRAINT) return StoreStatus::conflict;
  if (rc != SQLITE_DONE || !tx.commit()) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  return StoreStatus::ok;
}

std::optional<std::pair<User, std::string>> Store::findUserByEmail(const std::string& email) {
  std::lock_guard lock(mutex_);
  Statement s(db_,
              "SELECT id, email, plan, created_at, updated_at, last_sign_in_at, password_hash FROM users WHERE email = ?");
  s.bind(email);
  if (s.step() != SQLITE_ROW) return std::nullopt;
  auto user = readUser(s);
  return std::make_pair(std::move(user), s.text(6));
}

std::optional<User> Store::findUser(const std::string& id) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT id, email, plan, created_at, updated_at, last_sign_in_at FROM users WHERE id = ?");
  s.bind(id);
  if (s.step() != SQLITE_ROW) return std::nullopt;
  return readUser(s);
}

StoreStatus Store::setPlan(const std::string& userId, const std::string& plan, std::int64_t now) {
  std::lock_guard lock(mutex_);
  Transaction tx(db_);
  if (!tx.began()) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  Statement s(db_, "UPDATE users SET plan = ?, updated_at = ? WHERE id = ?");
  s.bind(plan).bind(now).bind(userId);
  const int rc = s.step();
  if ((rc & 0xff) == SQLITE_CONSTRAINT) return StoreStatus::conflict;  // not a known plan
  if (rc != SQLITE_DONE) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  if (sqlite3_changes(db_) == 0) return StoreStatus::notFound;
  if (!tx.commit()) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  return StoreStatus::ok;
}

StoreStatus Store::createSession(const std::string& sessionId, const std::string& userId,
                                 const std::string& refreshToken, std::int64_t now) {
  std::lock_guard lock(mutex_);
  Transaction tx(db_);
  if (!tx.began()) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  Statement session(db_, "INSERT INTO sessions (id, user_id, created_at, refreshed_at) VALUES (?, ?, ?, ?)");
  Statement token(db_, "INSERT INTO refresh_tokens (token_hash, session_id, created_at) VALUES (?, ?, ?)");
  Statement signIn(db_, "UPDATE users SET last_sign_in_at = ? WHERE id = ?");
  if (!session.bind(sessionId).bind(userId).bind(now).bind(now).run() ||
      !token.bind(sha256Hex(refreshToken)).bind(sessionId).bind(now).run() || !signIn.bind(now).bind(userId).run() ||
      !tx.commit())
    return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  return StoreStatus::ok;
}

bool Store::sessionActive(const std::string& sessionId, const std::string& userId) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT 1 FROM sessions WHERE id = ? AND user_id = ? AND revoked = 0");
  s.bind(sessionId).bind(userId);
  return s.step() == SQLITE_ROW;
}

StoreStatus Store::revokeSession(const std::string& sessionId) {
  std::lock_guard lock(mutex_);
  Transaction tx(db_);
  Statement s(db_, "UPDATE sessions SET revoked = 1 WHERE id = ?");
  if (!tx.began() || !s.bind(sessionId).run() || !tx.commit()) return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  return StoreStatus::ok;
}

RefreshOutcome Store::rotate(const std::string& refreshToken, std::int64_t now, std::int64_t reuseSeconds,
                             const std::string& sealKey) {
  std::lock_guard lock(mutex_);
  RefreshOutcome out;
  Transaction tx(db_);
  if (!tx.began()) return lastError_ = sqlite3_errmsg(db_), out;
  Statement find(db_,
                 "SELECT t.session_id, t.revoked_at, t.successor_sealed, s.user_id, s.revoked "
                 "FROM refresh_tokens t JOIN sessions s ON s.id = t.session_id WHERE t.token_hash = ?");
  find.bind(sha256Hex(refreshToken));
  const int rc = find.step();
  if (rc == SQLITE_DONE) return out.kind = RefreshOutcome::notFound, out;
  if (rc != SQLITE_ROW) return lastError_ = sqlite3_errmsg(db_), out;
  out.sessionId = find.text(0);
  out.userId = find.text(3);
  if (find.integer(4) != 0) return out.kind = RefreshOutcome::notFound, out;

  if (!find.isNull(1)) {
    // Already exchanged. Within the reuse window, hand out the same successor while it is
    // itself still unused; otherwise somebody is replaying an old token: end the session.
    const auto successor = unseal(find.blob(2), sealKey);
    if (now - find.integer(1) <= reuseSeconds && successor) {
      Statement live(db_, "SELECT 1 FROM refresh_tokens WHERE token_hash = ? AND revoked_at IS NULL");
      live.bind(sha256Hex(*successor));
      if (live.step() == SQLITE_ROW) {
        out.refreshToken = *successor;
        out.kind = RefreshOutcome::rotated;
        return out;
      }
    }
    Statement revoke(db_, "UPDATE sessions SET revoked = 1 WHERE id = ?");
    if (!revoke.bind(out.sessionId).run() || !tx.commit()) return lastError_ = sqlite3_errmsg(db_), out;
    out.kind = RefreshOutcome::alreadyUsed;
    return out;
  }

  const std::string successor = randomToken();
  Statement insert(db_, "INSERT INTO refresh_tokens (token_hash, session_id, created_at) VALUES (?, ?, ?)");
  Statement retire(db_, "UPDATE refresh_tokens SET revoked_at = ?, successor_sealed = ? WHERE token_hash = ?");
  Statement touch(db_, "UPDATE sessions SET refreshed_at = ? WHERE id = ?");
  if (!insert.bind(sha256Hex(successor)).bind(out.sessionId).bind(now).run() ||
      !retire.bind(now).bindBlob(seal(successor, sealKey)).bind(sha256Hex(refreshToken)).run() ||
      !touch.bind(now).bind(out.sessionId).run() || !tx.commit())
    return lastError_ = sqlite3_errmsg(db_), out;
  out.refreshToken = successor;
  out.kind = RefreshOutcome::rotated;
  return out;
}

UsageReservation Store::reserve(const std::string& userId, const std::string& day, int limit) {
  std::lock_guard lock(mutex_);
  UsageReservation out;
  Transaction tx(db_);
  if (!tx.began()) return lastError_ = sqlite3_errmsg(db_), out;
  Statement read(db_, "SELECT used FROM usage WHERE user_id = ? AND day = ?");
  read.bind(userId).bind(day);
  const int rc = read.step();
  if (rc != SQLITE_ROW && rc != SQLITE_DONE) return lastError_ = sqlite3_errmsg(db_), out;
  const int used = rc == SQLITE_ROW ? static_cast<int>(read.integer(0)) : 0;
  if (limit >= 0 && used >= limit) {
    out.kind = UsageReservation::quota;
    out.used = used;
    return out;
  }
  Statement write(db_,
                  "INSERT INTO usage (user_id, day, used) VALUES (?, ?, 1) "
                  "ON CONFLICT (user_id, day) DO UPDATE SET used = used + 1");
  if (!write.bind(userId).bind(day).run() || !tx.commit()) return lastError_ = sqlite3_errmsg(db_), out;
  out.kind = UsageReservation::granted;
  out.used = used + 1;
  return out;
}

StoreStatus Store::release(const std::string& userId, const std::string& day) {
  std::lock_guard lock(mutex_);
  Transaction tx(db_);
  Statement s(db_, "UPDATE usage SET used = used - 1 WHERE user_id = ? AND day = ? AND used > 0");
  if (!tx.began() || !s.bind(userId).bind(day).run() || !tx.commit())
    return lastError_ = sqlite3_errmsg(db_), StoreStatus::failed;
  return StoreStatus::ok;
}

std::optional<int> Store::usage(const std::string& userId, const std::string& day) {
  std::lock_guard lock(mutex_);
  Statement s(db_, "SELECT used FROM usage WHERE user_id = ? AND day = ?");
  s.bind(userId).bind(day);
  const int rc = s.step();
  if (rc == SQLITE_ROW) return static_cast<int>(s.integer(0));
  if (rc == SQLITE_DONE) return 0;
  return std::nullopt;
}

}  // namespace mirlo::service
