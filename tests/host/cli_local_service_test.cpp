// The command line against the real local service, each a process of its own: what a person
// trying Mirlo on one machine with no account anywhere sees.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "host/cli_process.h"
#include "mirlo/config.h"
#include "support/loopback_ports.h"

namespace mirlo {
namespace {

namespace fs = std::filesystem;
using testing::Outcome;

#ifdef MIRLO_SERVICE_PATH

class CommandLineWithLocalService : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "mirlo-local-XXXXXX").string();
    home_ = ::mkdtemp(pattern.data());
    port_ = testing::freeLoopbackPort();
    const std::string portText = std::to_string(port_);
    const std::string dataDir = (home_ / "service").string();
    service_ = ::fork();
    if (service_ == 0) {
      ::execl(MIRLO_SERVICE_PATH, MIRLO_SERVICE_PATH, "--port", portText.c_str(), "--data-dir", dataDir.c_str(),
              static_cast<char*>(nullptr));
      ::_exit(127);
    }
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!testing::loopbackPortAnswers(port_)) {
      ASSERT_LT(std::chrono::steady_clock::now(), limit) << "mirlo-service did not start listening";
      ASSERT_EQ(::waitpid(service_, nullptr, WNOHANG), 0) << "mirlo-service exited at start";
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  void TearDown() override {
    if (service_ > 0) {
      ::kill(service_, SIGTERM);
      ::waitpid(service_, nullptr, 0);
    }
    std::error_code ec;
    fs::remove_all(home_, ec);
  }

  // The build's own anonymous key: the one the shipped program sends and the service accepts.
  Outcome mirlo(const std::vector<std::string>& args, const std::string& input = {}) {
    return testing::runMirlo(home_, "http://127.0.0.1:" + std::to_string(port_), config::kAnonKey, args, input);
  }

  fs::path home_;
  int port_ = 0;
  pid_t service_ = -1;
};

TEST_F(CommandLineWithLocalService, ANewAccountCorrectsFrenchUntilTheDailyAllowanceIsSpent) {
  Outcome r = mirlo({"signup", "lea@exemple.fr"}, "motdepasse1\n");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Connecté : lea@exemple.fr\n");

  r = mirlo({"fix", "Bonjour, je suis tres content de vous voir."});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Bonjour, je suis très content de vous voir.");

  r = mirlo({"fix"}, "Merci beaucoup,\n  a demain !\n");  // spacing and line breaks kept as sent
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, 17), "Merci beaucoup,\n ");
  EXPECT_EQ(r.out.back(), '\n');

  EXPECT_EQ(mirlo({"fix", "troisième"}).status, 0);

  r = mirlo({"fix", "une de trop"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("3/3 aujourd'hui"), std::string::npos) << r.err;

  r = mirlo({"login", "lea@exemple.fr"}, "mauvais mot de passe\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Email ou mot de passe incorrect\n");

  r = mirlo({"signup", "zoe@exemple.fr"}, "court\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "Mot de passe trop court (8 caractères minimum)\n");
}

#else

TEST(CommandLineWithLocalService, NeedsTheLocalService) { GTEST_SKIP() << "mirlo-service is not built here"; }

#endif

}  // namespace
}  // namespace mirlo
