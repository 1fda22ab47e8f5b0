// The program over a real connection, where the network's threads meet the main queue: which
// thread hears each answer, and what the session looks like while refreshes overlap. What each
// answer reads like to the user is checked on the simulated network and end to end.
#include <gtest/gtest.h>

#include <atomic>

#include "account/auth.h"
#include "engine/engine.h"
#include "threads/loopback.h"

namespace mirlo::testing {
namespace {

using namespace std::chrono_literals;

TEST(AppLoopback, SignInWithNoServerIsToldOnTheMainQueue) {
  LoopbackWorld world;
  world.service.stop();
  Handover<std::optional<std::string>> message;
  world.app->auth().signIn("a@b.c", "x", [&](std::optional<std::string> m) { message.deliver(std::move(m)); });
  ASSERT_TRUE(world.runUntil([&] { return message.has(); }));
  EXPECT_EQ(message.thread(), std::this_thread::get_id()) << "not called on the main queue";
  EXPECT_EQ(message.value(), "Connexion impossible, vérifie ton réseau");
}

TEST(AppLoopback, WithoutAccessTokenTheAnonymousKeyIsTheBearer) {
  LoopbackWorld world;
  Handover<CorrectionResult> result;
  world.app->engine().request("salut", "fix", true, [&](CorrectionResult r) { result.deliver(std::move(r)); });
  ASSERT_TRUE(world.runUntil([&] { return result.has(); }));
  EXPECT_EQ(world.service.requests().at(0).header("Authorization"), "Bearer " + world.service.anonKey());
  // The service refuses it; with no refresh token there is nothing to refresh.
  const CorrectionResult answer = result.value();
  ASSERT_TRUE(std::holds_alternative<MirloError>(answer));
  EXPECT_EQ(std::get<MirloError>(answer).message, "Reconnecte-toi à ton compte");
  EXPECT_EQ(world.service.requestCount("/auth/v1/token"), 0u);
}

TEST(AppLoopback, UsageReachesTheSessionThroughTheMainQueue) {
  LoopbackWorld world;
  world.signIn();
  Handover<CorrectionResult> result;
  world.app->engine().request("un", "fix", true, [&](CorrectionResult r) { result.deliver(std::move(r)); });
  ASSERT_TRUE(result.wait());
  // The figures are queued, not written from the network thread.
  EXPECT_EQ(world.app->auth().quotaUsed(), -1);
  EXPECT_EQ(world.app->auth().plan(), "");
  world.desk.queue.runReady();
  EXPECT_EQ(world.app->auth().plan(), "free");
  EXPECT_EQ(world.app->auth().quotaUsed(), 1);
  EXPECT_EQ(world.app->auth().quotaLimit(), 3);
}

TEST(AppLoopback, OverlappingRefreshesWhileTheMainQueueReadsTheSession) {
  LoopbackWorld world;
  world.signIn();
  Auth& auth = world.app->auth();
  constexpr const char* kRefresh = "/auth/v1/token?grant_type=refresh_token";
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
