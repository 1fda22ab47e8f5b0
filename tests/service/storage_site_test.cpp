#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "service_fixture.h"

namespace mirlo::service::testing {
namespace {

using StorageTest = ServiceTest;
using SiteTest = ServiceTest;

int modeOf(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 0777) : -1;
}

std::string integrity(const std::string& path) {
  sqlite3* db = nullptr;
  std::string out = "cannot open";
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* s = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr);
    if (sqlite3_step(s) == SQLITE_ROW) out = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
    sqlite3_finalize(s);
  }
  sqlite3_close(db);
  return out;
}

TEST_F(StorageTest, SecretsAndDatabaseArePrivateAndSurviveARestart) {
  const std::string token = accountToken("lea@example.fr");
  EXPECT_EQ(modeOf(root + "/data"), 0700);
  EXPECT_EQ(modeOf(root + "/data/secrets.json"), 0600);
  EXPECT_EQ(modeOf(root + "/data/service.db"), 0600);
  EXPECT_EQ(service->store().schemaVersion(), Store::latestSchemaVersion());

  for (int i = 0; i < 3; ++i) EXPECT_EQ(correct(token, "Bonjour").status, 200);

  // Loosened permissions are tightened again, and the same secret still signs: sessions live on,
  // and so does the day's count.
  ::chmod((root + "/data/secrets.json").c_str(), 0644);
  restart();
  EXPECT_EQ(modeOf(root + "/data/secrets.json"), 0600);
  auto spent = correct(token, "Bonjour");
  EXPECT_EQ(spent.body["code"], "quota") << spent.raw;
}

TEST_F(StorageTest, NeitherPasswordsNorRefreshTokensAreStoredInClear) {
  auto r = signUp("lea@example.fr", "un-secret-tres-long");
  const std::string refresh = r.body["refresh_token"];
  stop();
  std::string bytes;
  for (const char* f : {"/data/service.db", "/data/service.db-wal"}) {
    std::FILE* in = std::fopen((root + f).c_str(), "rb");
    if (!in) continue;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, in)) > 0;) bytes.append(buf, n);
    std::fclose(in);
  }
  EXPECT_NE(bytes.find("lea@example.fr"), std::string::npos);  // the search is real
  EXPECT_EQ(bytes.find("un-secret-tres-long"), std::string::npos);
  EXPECT_EQ(bytes.find(refresh), std::string::npos);
  EXPECT_NE(bytes.find("$argon2id$"), std::string::npos);
  start();
}

TEST_F(StorageTest, ADatabaseThatIsFullRefusesCleanlyAndLetsNothingThrough) {
  const std::string token = accountToken("lea@example.fr");
  const std::string sub = claimsOf(token)["sub"];
  // Cap the file at its present size: the next write that needs a page fails.
  sqlite3* db = nullptr;
  sqlite3_open((root + "/data/service.db").c_str(), &db);
  sqlite3_stmt* s = nullptr;
  sqlite3_prepare_v2(db, "PRAGMA page_count", -1, &s, nullptr);
  sqlite3_step(s);
  const auto pages = sqlite3_column_int64(s, 0);
  sqlite3_finalize(s);
  sqlite3_close(db);
  restart([&](ServiceConfig& c) { c.maxDatabasePages = pages; });

  int refused = 0;
  for (int i = 0; i < 200 && refused == 0; ++i) {
    auto r = signUp("compte" + std::to_string(i) + "@example.fr");
    if (r.status == 200) continue;
    ++refused;
    EXPECT_EQ(r.status, 500);
    EXPECT_EQ(r.body["error_code"], "unexpected_failure");
    EXPECT_FALSE(r.body.contains("access_token"));
  }
  EXPECT_EQ(refused, 1);
  // Corrections are either counted or refused, never handed out uncounted.
  int granted = 0;
  for (int i = 0; i < 3; ++i) {
    auto r = correct(token, "Bonjour");
    if (r.body.contains("result")) ++granted;
    else EXPECT_TRUE(r.body["code"] == "storage" || r.body["code"] == "quota") << r.raw;
  }
  EXPECT_EQ(service->store().usage(sub, service->today()), granted);
  stop();
  EXPECT_EQ(integrity(root + "/data/service.db"), "ok");
  start();
}

TEST_F(StorageTest, KillingTheServiceMidWriteLosesNoCommittedCount) {
  stop();
  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  const std::string path = root + "/data/service.db";
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(pipeFds[0]);
    auto store = Store::open(path, nullptr);
    if (!store || store->createUser(User{"u1", "lea@example.fr", "lifetime", 1, 1, 0}, "h") != StoreStatus::ok)
      ::_exit(1);
    for (;;) {
      const auto r = store->reserve("u1", "2027-01-15", -1);
      if (r.kind != UsageReservation::granted) ::_exit(2);
      if (::write(pipeFds[1], &r.used, sizeof r.used) != sizeof r.used) ::_exit(3);
    }
  }
  ::close(pipeFds[1]);
  int last = 0;
  while (last < 300 && ::read(pipeFds[0], &last, sizeof last) == sizeof last) {
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  while (::read(pipeFds[0], &last, sizeof last) == sizeof last) {
  }
  ::close(pipeFds[0]);
  ASSERT_GE(last, 300);

  EXPECT_EQ(integrity(path), "ok");
  auto store = Store::open(path, nullptr);
  ASSERT_TRUE(store);
  const auto used = store->usage("u1", "2027-01-15");
  ASSERT_TRUE(used);
  // Every reported commit is there; at most the one in flight also made it.
  EXPECT_GE(*used, last);
  EXPECT_LE(*used, last + 1);
  store.reset();
  start();
}

TEST_F(StorageTest, ADatabaseFromANewerServiceIsNotTouched) {
  stop();
  sqlite3* db = nullptr;
  sqlite3_open((root + "/data/service.db").c_str(), &db);
  sqlite3_exec(db, ("PRAGMA user_version=" + std::to_string(Store::latestSchemaVersion() + 1)).c_str(), nullptr,
               nullptr, nullptr);
  sqlite3_close(db);
  std::string error;
  EXPECT_FALSE(Store::open(root + "/data/service.db", &error));
  EXPECT_NE(error.find("newer"), std::string::npos);
}

TEST_F(SiteTest, TheSiteServesWhatTheProgramFetchesAndOpens) {
  auto version = reply(client->Get("/version.json"));
  EXPECT_EQ(version.status, 200);
  EXPECT_EQ(version.body, (Json{{"version", "9.8.7"}}));

  auto index = reply(client->Get("/"));
  EXPECT_EQ(index.status, 200);
  EXPECT_NE(index.raw.find("id=\"acces\""), std::string::npos);

  auto account = reply(client->Get("/compte.html"));
  EXPECT_EQ(account.status, 200);
  EXPECT_NE(account.raw.find(config::kAnonKey), std::string::npos);
  EXPECT_NE(account.raw.find("/functions/v1/account/plan"), std::string::npos);

  auto dmg = reply(client->Get("/Mirlo.dmg"));
  EXPECT_EQ(dmg.status, 404);
  EXPECT_NE(dmg.raw.find("n'a pas d'image disque"), std::string::npos);
}

TEST_F(SiteTest, TheAccountPageShowsAndChangesThePlan) {
  const std::string token = accountToken("lea@example.fr");
  correct(token, "Bonjour");
  auto changed = setPlan(token, "lifetime");
  ASSERT_EQ(changed.status, 200) << changed.raw;
  EXPECT_EQ(changed.body["plan"], "lifetime");
  EXPECT_EQ(setPlan(token, "platine").body["code"], "bad_request");

  auto shown = get("/functions/v1/account", token);
  EXPECT_EQ(shown.body["email"], "lea@example.fr");
  EXPECT_EQ(shown.body["plan"], "lifetime");
  EXPECT_EQ(shown.body["usage"], (Json{{"used", 1}, {"limit", nullptr}}));
}

}  // namespace
}  // namespace mirlo::service::testing
