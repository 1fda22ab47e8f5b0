// The command line, run as a separate program against the loopback service, with its home and
// its stores in a temporary directory: what a person at a terminal types and reads.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>

#include "base/json.h"
#include "platform/host/file_secret_store.h"
#include "host/cli_process.h"
#include "support/service_double.h"

namespace mirlo {
namespace {

namespace fs = std::filesystem;

using testing::Outcome;
using testing::slurp;

class CommandLine : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "mirlo-cli-XXXXXX").string();
    home_ = ::mkdtemp(pattern.data());
    service_.start();
  }
  void TearDown() override {
    service_.stop();
    std::error_code ec;
    fs::remove_all(home_, ec);
  }

  // Runs `mirlo ARGS…` with `input` on its standard input (not a terminal).
  Outcome mirlo(const std::vector<std::string>& args, const std::string& input = {}) {
    Outcome run = testing::runMirlo(home_, service_.baseUrl(), service_.anonKey(), args, input);
    printed_ += run.out + run.err;
    return run;
  }

  fs::path secretsFile() const { return home_ / "data" / "mirlo" / "secrets.json"; }

  std::string storedSession() {
    host::FileSecretStore store(secretsFile());
    std::string bytes;
    return store.copyItem("io.mirlo.app.session", bytes) == 0 ? bytes : std::string();
  }

  fs::path home_;
  testing::ServiceDouble service_;
  std::string printed_;  // everything the program ever printed
};

TEST_F(CommandLine, AWholeAccountAndCorrectionRoundTrip) {
  const std::string password = "  mot de passe d'été ✓ ";

  // Not signed in yet: a clear message and its own status.
  Outcome r = mirlo({"fix", "bonjour"});
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("Non connecté"), std::string::npos) << r.err;
  EXPECT_EQ(service_.requestCount(), 0u);

  // Sign up, password on standard input, spaces and accents kept as typed.
  r = mirlo({"signup", "lea@exemple.fr"}, password + "\n");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Connecté : lea@exemple.fr\n");
  auto signup = service_.requests().back();
  EXPECT_EQ(*parseJson(signup.body), (Json{{"email", "lea@exemple.fr"}, {"password", password}}));

  // The same address again: the service's refusal, in the card's words.
  r = mirlo({"signup", "lea@exemple.fr"}, password + "\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Ce compte existe déjà : utilise Se connecter\n");

  r = mirlo({"logout"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(storedSession(), "");

  r = mirlo({"login", "lea@exemple.fr"}, "wrong password\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Email ou mot de passe incorrect\n");
  r = mirlo({"login", "lea@exemple.fr"}, password + "\r\n");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(storedSession(), "");

  // Each run is a new process: the session is found again every time.
  r = mirlo({"fix", "il faut corriger sa"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "il faut corriger sa.");
  EXPECT_EQ(r.err, "");
  // A service that sends escape sequences does not reach the terminal with them.
  service_.setCorrector([](const std::string& text, const std::string&) { return "\x1b[2J\x1b]0;titre\x07" + text + ".\n"; });
  r = mirlo({"rephrase"}, "depuis l'entrée standard");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "[2J]0;titredepuis l'entrée standard.\n");
  service_.setCorrector([](const std::string& text, const std::string&) { return text + "."; });

  r = mirlo({"status"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Compte : lea@exemple.fr\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Offre : Gratuit\n"), std::string::npos) << r.out;

  // An expired access token: one refresh, then the correction goes through.
  service_.expireAccessTokens();
  const std::size_t refreshesBefore = service_.requestCount("/auth/v1/token");
  const std::string before = storedSession();
  r = mirlo({"fix", "encore"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "encore.");
  EXPECT_EQ(service_.requestCount("/auth/v1/token"), refreshesBefore + 1);
  EXPECT_NE(storedSession(), before) << "the new pair is kept for the next run";

  // Tokens are never printed.
  auto tokens = parseJson(storedSession());
  ASSERT_TRUE(tokens);
  EXPECT_EQ(printed_.find((*tokens)["access"].get<std::string>()), std::string::npos);
  EXPECT_EQ(printed_.find((*tokens)["refresh"].get<std::string>()), std::string::npos);

  r = mirlo({"logout"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(storedSession(), "");
  EXPECT_EQ(parseJson(slurp(secretsFile())), Json::object()) << "the secret file holds nothing any more";
  EXPECT_EQ(mirlo({"status"}).status, 3);
}

// On a train: a refresh whose connection is cut leaves the session for the next try; only the
// server's refusal of the refresh token signs out. (Every other answer to a refresh is told on
// the simulated network, in CorrectionFlow.OnlyARefusedRefreshSignsOut.)
TEST_F(CommandLine, OnlyARefusedRefreshSignsOut) {
  ASSERT_EQ(mirlo({"signup", "zoe@exemple.fr"}, "longenough\n").status, 0);
  const std::string session = storedSession();
  service_.expireAccessTokens();

  // Cut twice: a request on a kept-alive connection that dies is sent once more on a new one.
  testing::ScriptedAnswer cut;
  cut.dropConnection = true;
  service_.enqueue("/auth/v1/token", cut);
  service_.enqueue("/auth/v1/token", cut);
  Outcome r = mirlo({"fix", "texte"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(storedSession(), session);

  service_.enqueue("/auth/v1/token", testing::ScriptedAnswer::json(400, R"({"error_code":"refresh_token_not_found","msg":"Invalid Refresh Token"})"));
  r = mirlo({"fix", "texte"});
  EXPECT_EQ(r.status, 3);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "Reconnecte-toi à ton compte\n");
  EXPECT_EQ(storedSession(), "");
}

TEST_F(CommandLine, NetworkFailuresAreToldInFrenchWithTheDetailOnRequest) {
  ASSERT_EQ(mirlo({"signup", "zoe@exemple.fr"}, "longenough\n").status, 0);
  service_.stop();
  Outcome r = mirlo({"fix", "texte"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Le serveur ne répond pas, réessaie plus tard\n");
  r = mirlo({"--verbose", "fix", "texte"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("Le serveur ne répond pas, réessaie plus tard\nDétail : Couldn't connect to server", 0), 0u)
      << r.err;
  EXPECT_NE(storedSession(), "") << "a network failure keeps the session";
}

TEST_F(CommandLine, UsageAndTheDesktopProgram) {
  Outcome r = mirlo({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("login EMAIL"), std::string::npos);
  EXPECT_EQ(mirlo({"login"}).status, 64);
  EXPECT_EQ(mirlo({"frobnicate"}).status, 64);
  EXPECT_EQ(mirlo({"fix"}, "").status, 64);
  r = mirlo({});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("bureau"), std::string::npos);
  EXPECT_EQ(service_.requestCount(), 0u);
}

}  // namespace
}  // namespace mirlo
