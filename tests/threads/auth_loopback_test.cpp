// Signing in and refreshing over a real connection: what reaches the wire and which thread hears
// the answer. How each answer reads to the user is checked on the simulated network.
#include <gtest/gtest.h>

#include <atomic>

#include "account/auth.h"
#include "base/json.h"
#include "threads/loopback.h"

namespace mirlo::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kPassword = "/auth/v1/token?grant_type=password";
constexpr const char* kRefresh = "/auth/v1/token?grant_type=refresh_token";

class AuthLoopback : public ::testing::Test {
 protected:
  using Message = std::optional<std::string>;

  Message signIn(const std::string& email, const std::string& password) {
    Handover<Message> message;
    world.app->auth().signIn(email, password, [&](Message m) { message.deliver(std::move(m)); });
    EXPECT_TRUE(world.runUntil([&] { return message.has(); }));
    EXPECT_EQ(message.thread(), std::this_thread::get_id()) << "not called on the main queue";
    return message.has() ? message.value() : Message{"no answer"};
  }

  LoopbackWorld world;
};

TEST_F(AuthLoopback, PasswordSignInStoresTheSessionFromTheTokenAnswer) {
  world.service.addUser("Lea@Example.fr", "correct horse");
  int changes = 0;
  world.app->notifications().observe(Auth::changed, [&] { ++changes; });
  EXPECT_EQ(signIn("Lea@Example.fr", "correct horse"), std::nullopt);

  auto seen = world.service.requests().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.target, kPassword);
  EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"Content-Type", "apikey"}));
  EXPECT_EQ(seen.header("apikey"), world.service.anonKey());
  EXPECT_EQ(parseJson(seen.body), (Json{{"email", "Lea@Example.fr"}, {"password", "correct horse"}}));

  Auth& auth = world.app->auth();
  EXPECT_TRUE(auth.isSignedIn());
  EXPECT_EQ(auth.email(), "lea@example.fr");
  EXPECT_EQ(changes, 1);
  EXPECT_NE(world.desk.secrets.items.at("io.mirlo.app.session").find(auth.refreshToken()), std::string::npos);
}

TEST_F(AuthLoopback, NoServerMeansNoConnection) {
  world.service.stop();
  EXPECT_EQ(signIn("a@b.c", "x"), "Connexion impossible, vérifie ton réseau");
}

TEST_F(AuthLoopback, RefreshRotatesTheTokensOnTheNetworkThread) {
  world.signIn();
  Auth& auth = world.app->auth();
  const std::string before = auth.refreshToken();
  Handover<RefreshOutcome::Kind> refreshed;
  auth.refresh([&](RefreshOutcome outcome) { refreshed.deliver(outcome.kind); });
  ASSERT_TRUE(refreshed.wait());
  EXPECT_EQ(refreshed.value(), RefreshOutcome::Kind::refreshed);
  EXPECT_NE(refreshed.thread(), std::this_thread::get_id());
  EXPECT_NE(auth.refreshToken(), before);
  EXPECT_EQ(auth.email(), "lea@example.fr");
  EXPECT_EQ(world.desk.queue.pendingCount(), 0u) << "a success needs nothing from the main queue";

  auto seen = world.service.requests().at(0);
  EXPECT_EQ(seen.target, kRefresh);
  EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"Content-Type", "apikey"}));
  EXPECT_EQ(parseJson(seen.body), (Json{{"refresh_token", before}}));
}

TEST_F(AuthLoopback, RefusedRefreshReportsFirstThenSignsOutOnTheMainQueue) {
  world.signIn();
  Auth& auth = world.app->auth();
  world.service.enqueue(kRefresh, ScriptedAnswer::json(400, authError(400, "refresh_token_not_found", "Invalid Refresh Token")));
  Handover<RefreshOutcome::Kind> refreshed;
  auth.refresh([&](RefreshOutcome outcome) { refreshed.deliver(outcome.kind); });
  ASSERT_TRUE(refreshed.wait());
  EXPECT_EQ(refreshed.value(), RefreshOutcome::Kind::refused);
  EXPECT_NE(refreshed.thread(), std::this_thread::get_id());
  EXPECT_TRUE(world.runUntil([&] { return !auth.isSignedIn(); }));
  EXPECT_EQ(world.desk.secrets.items.count("io.mirlo.app.session"), 0u);
}

TEST_F(AuthLoopback, OverlappingRefreshesWhileTheMainQueueReadsTheSession) {
  world.signIn();
  Auth& auth = world.app->auth();
  world.service.enqueue(kRefresh, ScriptedAnswer::json(200, tokenResponse(makeAccessToken("a@x.fr", "1"), "r-a", "a@x.fr"), 0.05));
  world.service.enqueue(kRefresh, ScriptedAnswer::json(200, tokenResponse(makeAccessToken("b@x.fr", "2"), "r-b", "b@x.fr")));
  std::atomic<int> finished{0};
  auth.refresh([&](RefreshOutcome) { ++finished; });
  auth.refresh([&](RefreshOutcome) { ++finished; });
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  std::size_t reads = 0;
  while (finished < 2 && std::chrono::steady_clock::now() < deadline)
    reads += auth.accessToken().size() + auth.email().size() + (auth.isSignedIn() ? 1 : 0);
  EXPECT_GT(reads, 0u);
  ASSERT_EQ(finished.load(), 2);
  // The later completion wins.
  EXPECT_EQ(auth.refreshToken(), "r-a");
  EXPECT_EQ(auth.email(), "a@x.fr");
}

}  // namespace
}  // namespace mirlo::testing
