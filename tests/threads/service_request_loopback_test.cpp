#include <gtest/gtest.h>

#include "account/auth.h"
#include "account/prefs.h"
#include "base/json.h"
#include "engine/engine.h"
#include "threads/loopback.h"

namespace mirlo::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kCorrect = "/functions/v1/correct";
constexpr const char* kRefresh = "/auth/v1/token?grant_type=refresh_token";

// What the caller would show: the text, or the error with its flags.
std::string show(const CorrectionResult& result) {
  if (auto* text = std::get_if<std::string>(&result)) return "text: " + *text;
  if (auto* failure = std::get_if<MirloError>(&result))
    return "error: " + failure->message + (failure->upsell ? " +upsell" : "") + " code=" + failure->code.value_or("none");
  return "transport: " + std::get<TransportError>(result).description;
}
std::string text(const std::string& t) { return show(CorrectionResult{t}); }
std::string error(const std::string& message, bool upsell, std::optional<std::string> code) {
  return show(CorrectionResult{MirloError{message, upsell, std::move(code)}});
}

class ServiceRequestLoopback : public ::testing::Test {
 protected:
  // Sends one correction and runs the main queue until its completion arrives.
  CorrectionResult correct(const std::string& text, const std::string& mode = "fix") {
    Handover<CorrectionResult> result;
    world.app->engine().request(text, mode, true, [&](CorrectionResult r) { result.deliver(std::move(r)); });
    EXPECT_TRUE(world.runUntil([&] { return result.has(); })) << "no completion";
    world.desk.queue.runReady();  // the usage update queued before the completion
    EXPECT_EQ(result.deliveries(), result.has() ? 1 : 0);
    return result.has() ? result.value() : CorrectionResult{TransportError{TransportFailure::other, "none"}};
  }

  LoopbackWorld world;
};

TEST_F(ServiceRequestLoopback, SendsTheAddressHeadersAndThreeMemberBody) {
  world.signIn();
  auto result = correct("  bonjour tout le monde ", "rephrase");
  EXPECT_EQ(show(result), text("  bonjour tout le monde ."));

  auto seen = world.service.requests().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.target, kCorrect);
  EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"Content-Type", "apikey", "Authorization"}));
  EXPECT_EQ(seen.header("Content-Type"), "application/json");
  EXPECT_EQ(seen.header("apikey"), world.service.anonKey());
  EXPECT_EQ(seen.header("Authorization"), "Bearer " + world.app->auth().accessToken());
  auto body = parseJson(seen.body);
  ASSERT_TRUE(body && body->is_object());
  EXPECT_EQ(*body, (Json{{"text", "  bonjour tout le monde "},
                         {"mode", "rephrase"},
                         {"device_id", world.app->prefs().deviceId()}}));
}

TEST_F(ServiceRequestLoopback, WithoutAccessTokenTheAnonymousKeyIsTheBearer) {
  auto result = correct("salut");
  auto seen = world.service.requests().at(0);
  EXPECT_EQ(seen.header("Authorization"), "Bearer " + world.service.anonKey());
  // The service refuses it; with no refresh token there is nothing to refresh.
  EXPECT_EQ(show(result), error("Reconnecte-toi à ton compte", false, "auth"));
  EXPECT_EQ(world.service.requestCount("/auth/v1/token"), 0u);
}

TEST_F(ServiceRequestLoopback, RejectedTokenRefreshesOnceThenRepeatsTheRequest) {
  world.signIn();
  const std::string oldRefresh = world.app->auth().refreshToken();
  world.service.expireAccessTokens();

  EXPECT_EQ(show(correct("merci")), text("merci."));

  auto seen = world.service.requests();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].target, kCorrect);
  EXPECT_EQ(seen[1].target, kRefresh);
  EXPECT_EQ(parseJson(seen[1].body), (Json{{"refresh_token", oldRefresh}}));
  EXPECT_FALSE(seen[1].header("Authorization"));
  EXPECT_EQ(seen[2].target, kCorrect);
  EXPECT_NE(seen[2].header("Authorization"), seen[0].header("Authorization"));
  EXPECT_EQ(seen[2].header("Authorization"), "Bearer " + world.app->auth().accessToken());
  EXPECT_NE(world.app->auth().refreshToken(), oldRefresh);
  EXPECT_EQ(world.app->auth().email(), "lea@example.fr");
  // The new pair is what the keychain now holds.
  EXPECT_NE(world.desk.secrets.items.at("io.mirlo.app.session").find(world.app->auth().refreshToken()),
            std::string::npos);
}

TEST_F(ServiceRequestLoopback, UsageReachesTheSessionThroughTheMainQueue) {
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

TEST_F(ServiceRequestLoopback, TransportFailuresSayWhatKindTheyAre) {
  world.signIn();
  ScriptedAnswer drop;
  drop.dropConnection = true;
  world.service.enqueue(kCorrect, drop);
  world.service.enqueue(kCorrect, drop);  // a dead kept-alive connection is tried once more
  auto dropped = correct("a");
  ASSERT_TRUE(std::holds_alternative<TransportError>(dropped));
  EXPECT_EQ(std::get<TransportError>(dropped).kind, TransportFailure::other);
  EXPECT_FALSE(std::get<TransportError>(dropped).description.empty());

  world.service.stop();
  auto refused = correct("b");
  ASSERT_TRUE(std::holds_alternative<TransportError>(refused));
  EXPECT_EQ(std::get<TransportError>(refused).kind, TransportFailure::refused);
  EXPECT_NE(std::get<TransportError>(refused).description.find("connect"), std::string::npos)
      << std::get<TransportError>(refused).description;
}

}  // namespace
}  // namespace mirlo::testing
