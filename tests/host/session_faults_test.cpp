// The session the command line keeps in its file, under faults injected by strace: the program is
// killed, or the disk is full, at each call it makes that writes a file, flushes it or renames
// it, one call at a time. Whatever happens, a complete session stays stored (the old one or the
// new one, never neither), and a command whose session could not be saved never exits with 0.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "base/base64.h"
#include "base/json.h"
#include "host/cli_process.h"
#include "platform/host/file_secret_store.h"
#include "support/service_double.h"

namespace mirlo {
namespace {

namespace fs = std::filesystem;
using testing::Outcome;

constexpr const char* kService = "io.mirlo.app.session";
constexpr const char* kEmail = "lea@exemple.fr";
constexpr const char* kPassword = "motdepasse1";

// The calls through which the program changes a file, in the order a save makes them.
const char* const kFileCalls[] = {"write", "fsync", "rename"};

struct Faulted {
  Outcome outcome;
  bool struck = false;  // the call was reached: the fault happened
  bool killed = false;
};

bool completeSession(const std::string& stored) {
  auto session = parseJson(stored);
  return session && session->is_object() && session->value("access", "") != "" && session->value("refresh", "") != "";
}

class StoredSessionUnderFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* candidate : {"/usr/bin/strace", "/bin/strace"})
      if (::access(candidate, X_OK) == 0) strace_ = candidate;
    if (strace_.empty()) GTEST_SKIP() << "strace is missing (tools/setup installs it)";
    std::string pattern = (fs::temp_directory_path() / "mirlo-faults-XXXXXX").string();
    home_ = ::mkdtemp(pattern.data());
    service_.start();
    service_.addUser(kEmail, kPassword);
  }
  void TearDown() override {
    service_.stop();
    std::error_code ec;
    if (!home_.empty()) fs::remove_all(home_, ec);
  }

  fs::path dataDir() const { return home_ / "data" / "mirlo"; }

  // A session the service has just issued, stored as an earlier command left it; with its access
  // token expired, the next correction refreshes it.
  std::string storeIssuedSession(bool expired) {
    auto [access, refresh] = service_.issueSession(kEmail);
    if (expired) service_.expireAccessTokens();
    const std::string session = dumpJson(Json{{"access", access}, {"refresh", refresh}});
    fs::remove_all(dataDir());
    fs::create_directories(dataDir());
    std::ofstream(dataDir() / "secrets.json") << dumpJson(Json{{kService, encodeBase64(session)}});
    return session;
  }

  std::string storedSession() {
    host::FileSecretStore store(dataDir() / "secrets.json");
    std::string bytes;
    return store.copyItem(kService, bytes) == 0 ? bytes : std::string();
  }

  // Runs the command with the `n`th call of `call` (in each of its threads) failing as on a full
  // disk, or with the program killed as it makes it.
  Faulted run(const std::vector<std::string>& args, const std::string& input, const std::string& call, int n,
              bool kill) {
    const fs::path log = home_ / "strace.log";
    const std::string inject = call + (kill ? ":signal=KILL" : ":error=ENOSPC") + ":when=" + std::to_string(n);
    Faulted run;
    run.outcome = testing::runMirlo(home_, service_.baseUrl(), service_.anonKey(), args, input,
                                    {strace_, "-f", "-qq", "-o", log.string(), "-e", "trace=" + call, "-e",
                                     "inject=" + inject});
    const std::string trace = testing::slurp(log);
    run.killed = trace.find("killed by SIGKILL") != std::string::npos;
    run.struck = run.killed || trace.find("(INJECTED)") != std::string::npos;
    return run;
  }

  // Runs the command once per file call it makes, killed at it or failing it, each time from a
  // freshly stored session; `check` judges what was left stored.
  void atEveryFileCall(const std::vector<std::string>& args, const std::string& input, bool expired,
                       const std::function<void(const Faulted&, const std::string& before)>& check) {
    int struck = 0;
    for (bool kill : {false, true}) {
      for (const char* call : kFileCalls) {
        for (int n = 1;; ++n) {
          ASSERT_LT(n, 100) << "the program never stops calling " << call;
          const std::string before = storeIssuedSession(expired);
          Faulted run = this->run(args, input, call, n, kill);
          if (!run.struck) break;
          ++struck;
          SCOPED_TRACE(std::string(kill ? "killed at " : "ENOSPC at ") + call + " #" + std::to_string(n) +
                       ", exit status " + std::to_string(run.outcome.status) + ", stderr: " + run.outcome.err);
          for (const auto& entry : fs::directory_iterator(dataDir()))
            EXPECT_EQ(entry.path().filename().string().find(".corrupt-"), std::string::npos)
                << "the session file was left unreadable";
          if (run.killed) {
            EXPECT_NE(run.outcome.status, 0);
          }
          check(run, before);
        }
      }
    }
    EXPECT_GE(struck, 6) << "too few faults reached the program for this to mean anything";
  }

  std::string strace_;
  fs::path home_;
  testing::ServiceDouble service_;
};

TEST_F(StoredSessionUnderFaults, SigningInAgainKeepsTheOldSessionOrStoresTheNewOne) {
  atEveryFileCall({"login", kEmail}, std::string(kPassword) + "\n", false, [&](const Faulted& run, const std::string& before) {
    const std::string after = storedSession();
    EXPECT_TRUE(completeSession(after)) << "the session was lost: " << after;
    if (run.outcome.status == 0) {
      EXPECT_NE(after, before) << "said signed in, but the new session is not stored";
    }
  });
}

TEST_F(StoredSessionUnderFaults, ARefreshKeepsTheOldSessionOrStoresTheNewOne) {
  atEveryFileCall({"fix", "texte"}, "", true, [&](const Faulted& run, const std::string& before) {
    const std::string after = storedSession();
    EXPECT_TRUE(completeSession(after)) << "the session was lost: " << after;
    if (run.outcome.status == 0) {
      EXPECT_NE(after, before) << "the rotated session is not stored, yet the command succeeded";
      EXPECT_EQ(run.outcome.out, "texte.") << "succeeded without writing the corrected text";
    }
  });
}

TEST_F(StoredSessionUnderFaults, SigningOutLeavesTheSessionOrNothing) {
  atEveryFileCall({"logout"}, "", false, [&](const Faulted& run, const std::string& before) {
    const std::string after = storedSession();
    EXPECT_TRUE(after == before || after.empty()) << after;
    if (run.outcome.status == 0) {
      EXPECT_EQ(after, "") << "said signed out, but the session is still stored";
    }
  });
}

}  // namespace
}  // namespace mirlo
