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
    return result.has() ? result.value() : CorrectionResult{TransportError{"none"}};
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

struct Row {
  const char* name;
  int status;
  std::string body;
  std::string expected;
};

TEST_F(ServiceRequestLoopback, TheBodyAloneDecidesWhateverTheStatus) {
  const std::string invalid = "Réponse invalide du serveur";
  const std::vector<Row> rows = {
      {"result and code", 200, R"({"result":"Corrigé","code":"quota"})", text("Corrigé")},
      {"error status with a result", 500, R"({"result":"ok"})", text("ok")},
      {"200 without result", 200, R"({"plan":"free"})", error("Erreur inconnue", false, std::nullopt)},
      {"empty result", 200, R"({"result":"","error":"Vide"})", error("Vide", false, std::nullopt)},
      {"quota ignores its text", 429, R"({"code":"quota","error":"Limite atteinte"})",
       error("aujourd'hui", true, "quota")},
      {"too long, no text", 413, R"({"code":"too_long"})", error("Erreur inconnue", true, "too_long")},
      {"too long with text", 400, R"({"code":"too_long","error":"Texte trop long"})",
       error("Texte trop long", true, "too_long")},
      {"other code", 200, R"({"code":"maintenance","error":"Service en pause"})",
       error("Service en pause", false, "maintenance")},
      {"code not a text", 400, R"({"code":42,"error":"Oups"})", error("Oups", false, std::nullopt)},
      {"empty body", 200, "", error(invalid, false, std::nullopt)},
      {"not JSON", 502, "<html>Bad gateway</html>", error(invalid, false, std::nullopt)},
      {"array", 200, R"([{"result":"x"}])", error(invalid, false, std::nullopt)},
      {"bare string", 200, R"("bonjour")", error(invalid, false, std::nullopt)},
  };
  world.signIn();
  for (const auto& row : rows) {
    world.service.enqueue(kCorrect, ScriptedAnswer::json(row.status, row.body));
    EXPECT_EQ(show(correct("texte")), row.expected) << row.name;
  }
  EXPECT_EQ(world.service.requestCount(kCorrect), rows.size());
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

TEST_F(ServiceRequestLoopback, ASecondRejectionAfterTheRefreshIsAnOrdinaryError) {
  world.signIn();
  world.service.enqueue(kCorrect, ScriptedAnswer::json(401, R"({"code":"auth"})"));
  world.service.enqueue(kCorrect, ScriptedAnswer::json(401, R"({"code":"auth"})"));
  EXPECT_EQ(show(correct("a")), error("Erreur inconnue", false, "auth"));

  world.service.enqueue(kCorrect, ScriptedAnswer::json(401, R"({"code":"auth"})"));
  world.service.enqueue(kCorrect, ScriptedAnswer::json(401, R"({"code":"auth","error":"Jeton refusé"})"));
  EXPECT_EQ(show(correct("b")), error("Jeton refusé", false, "auth"));

  EXPECT_EQ(world.service.requestCount(kRefresh), 2u);  // one per correction
  EXPECT_EQ(world.service.requestCount(kCorrect), 4u);
  EXPECT_TRUE(world.app->auth().isSignedIn());
}

TEST_F(ServiceRequestLoopback, FailedRefreshAsksToReconnectAndSignsOut) {
  world.signIn();
  world.service.enqueue(kCorrect, ScriptedAnswer::json(401, R"({"code":"auth"})"));
  world.service.enqueue(kRefresh, ScriptedAnswer::json(400, R"({"error_code":"refresh_token_not_found"})"));
  EXPECT_EQ(show(correct("a")), error("Reconnecte-toi à ton compte", false, "auth"));
  EXPECT_TRUE(world.runUntil([&] { return !world.app->auth().isSignedIn(); }));
  EXPECT_EQ(world.app->auth().accessToken(), "");
  EXPECT_EQ(world.desk.secrets.items.count("io.mirlo.app.session"), 0u);
  EXPECT_EQ(world.service.requestCount(kCorrect), 1u);
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

  world.service.enqueue(kCorrect, ScriptedAnswer::json(200, R"({"result":"x","plan":"pro","usage":{"used":2}})"));
  correct("deux");
  EXPECT_EQ(world.app->auth().plan(), "pro");
  EXPECT_EQ(world.app->auth().quotaUsed(), 2);
  EXPECT_EQ(world.app->auth().quotaLimit(), 3);

  world.service.enqueue(kCorrect, ScriptedAnswer::json(200, R"({"result":"x","usage":{"used":1,"limit":50}})"));
  correct("trois");
  world.service.enqueue(kCorrect, ScriptedAnswer::json(200, R"({"result":"x","plan":"lifetime"})"));
  correct("quatre");
  EXPECT_EQ(world.app->auth().plan(), "lifetime");
  EXPECT_EQ(world.app->auth().quotaUsed(), -1);
  EXPECT_EQ(world.app->auth().quotaLimit(), 50);

  // The daily allowance, spent, comes back as the quota error with its figures.
  world.service.enqueue(kCorrect, ScriptedAnswer::json(429, R"({"code":"quota","plan":"free","usage":{"used":3,"limit":3}})"));
  EXPECT_EQ(show(correct("cinq")), error("aujourd'hui", true, "quota"));
  EXPECT_EQ(world.app->auth().quotaUsed(), 3);
}

TEST_F(ServiceRequestLoopback, TransportFailuresKeepCurlsWords) {
  world.signIn();
  ScriptedAnswer drop;
  drop.dropConnection = true;
  world.service.enqueue(kCorrect, drop);
  auto dropped = correct("a");
  ASSERT_TRUE(std::holds_alternative<TransportError>(dropped));
  EXPECT_FALSE(std::get<TransportError>(dropped).description.empty());

  world.service.stop();
  auto refused = correct("b");
  ASSERT_TRUE(std::holds_alternative<TransportError>(refused));
  EXPECT_NE(std::get<TransportError>(refused).description.find("connect"), std::string::npos)
      << std::get<TransportError>(refused).description;
}

}  // namespace
}  // namespace mirlo::testing
