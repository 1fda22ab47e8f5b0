// The correction request as the service sees it, and every kind of answer as the user sees it.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/json.h"
#include "support/sim_app.h"

namespace mirlo {
namespace {

using sim::SimAnswer;
using testing::SimWorld;

constexpr const char* kCorrect = "/functions/v1/correct";

class ServiceRequest : public ::testing::Test {
 protected:
  // Sends one request and runs the clock until its completion; returns what `done` received.
  CorrectionResult send(const std::string& text = "Bonjour", const std::string& mode = "fix") {
    std::optional<CorrectionResult> outcome;
    world.app->engine().request(text, mode, true, [&](CorrectionResult r) { outcome = std::move(r); });
    world.advance(30);
    EXPECT_TRUE(outcome.has_value()) << "the completion never came";
    return outcome.value_or(CorrectionResult{MirloError{"no completion", false, std::nullopt}});
  }

  void answer(long status, const std::string& body) { world.desk.http.enqueue(kCorrect, SimAnswer::json(status, body)); }

  static MirloError errorOf(const CorrectionResult& r) {
    if (auto* e = std::get_if<MirloError>(&r)) return *e;
    ADD_FAILURE() << "expected a service error";
    return {};
  }

  SimWorld world;
};

// Headers as they reach the wire are checked over loopback; here what only the request carries.
TEST_F(ServiceRequest, SendsTheTextModeAndDeviceWithAFifteenSecondLimit) {
  world.signIn("lea@example.fr");
  answer(200, R"({"result":"ok"})");
  send("  Je suis alé \n", "rephrase");

  auto requests = world.desk.http.requests();
  ASSERT_EQ(requests.size(), 1u);
  const auto& r = requests[0];
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.url, "https://project.supabase.test/functions/v1/correct");
  EXPECT_DOUBLE_EQ(r.timeoutSeconds, 15);
  EXPECT_EQ(r.cachePolicy, CachePolicy::protocolDefault);
  auto body = parseJson(r.body.value_or(""));
  ASSERT_TRUE(body && body->is_object());
  EXPECT_EQ(body->size(), 3u);
  EXPECT_EQ((*body)["text"], "  Je suis alé \n");  // sent as selected, not trimmed
  EXPECT_EQ((*body)["mode"], "rephrase");
  const std::string device = (*body)["device_id"];
  EXPECT_EQ(device, world.app->prefs().deviceId());
  EXPECT_EQ(device.size(), 36u);
}

TEST_F(ServiceRequest, AnAddressThatDoesNotParseFailsAtOnceWithoutARequest) {
  SimWorld broken(AppConfig{"https://exa mple.test", "k", "https://site.test"});
  std::optional<CorrectionResult> outcome;
  broken.app->engine().request("x", "fix", true, [&](CorrectionResult r) { outcome = r; });
  ASSERT_TRUE(outcome.has_value());  // synchronously, on the caller's thread
  EXPECT_EQ(std::get<MirloError>(*outcome), (MirloError{"Configuration invalide", false, std::nullopt}));
  EXPECT_EQ(broken.desk.http.requests().size(), 0u);
}

// The body alone decides, whatever the status: a result wins, else the code and error text.
TEST_F(ServiceRequest, EachAnswerBecomesWhatTheUserReads) {
  const std::string invalid = "Réponse invalide du serveur";
  struct Case {
    long status;
    const char* body;
    MirloError expected;
  } cases[] = {
      {200, R"({"plan":"gratuit"})", {"Erreur inconnue", false, std::nullopt}},
      {200, R"({"result":""})", {"Erreur inconnue", false, std::nullopt}},  // empty counts as none
      {200, R"({"result":"","error":"Vide"})", {"Vide", false, std::nullopt}},
      {429, R"({"code":"quota","error":"Limite atteinte"})", {"aujourd'hui", true, "quota"}},
      {400, R"({"code":"too_long","error":"Texte trop long, 2000 caractères au plus"})", {"Texte trop long, 2000 caractères au plus", true, "too_long"}},
      {413, R"({"code":"too_long"})", {"Erreur inconnue", true, "too_long"}},
      {400, R"({"code":"rate","error":"Doucement"})", {"Doucement", false, "rate"}},
      {200, R"({"code":"maintenance","error":"Service en pause"})", {"Service en pause", false, "maintenance"}},
      {400, R"({"code":"QUOTA","error":"x"})", {"x", false, "QUOTA"}},  // codes compare exactly
      {400, R"({"code":42,"error":"Panne"})", {"Panne", false, std::nullopt}},
      {400, R"({"error":"Panne"})", {"Panne", false, std::nullopt}},
      {400, R"({"error":17})", {"Erreur inconnue", false, std::nullopt}},
      {200, "", {invalid, false, std::nullopt}},
      {502, "<html>Bad gateway</html>", {invalid, false, std::nullopt}},
      {200, "[1,2]", {invalid, false, std::nullopt}},
      {200, R"("Bonjour")", {invalid, false, std::nullopt}},
      {200, "42", {invalid, false, std::nullopt}},
      {200, "null", {invalid, false, std::nullopt}},
      {200, "{\"result\":", {invalid, false, std::nullopt}},
      {200, "\xff\xfe{}", {invalid, false, std::nullopt}},
  };
  for (const auto& c : cases) {
    answer(c.status, c.body);
    EXPECT_EQ(errorOf(send()), c.expected) << c.body;
  }
  answer(500, R"({"result":"Bonjour.","code":"quota"})");
  EXPECT_EQ(std::get<std::string>(send()), "Bonjour.");
}

TEST_F(ServiceRequest, HostileAnswersEndInAMessageNeverACrash) {
  answer(200, std::string(200000, '[') + std::string(200000, ']'));
  EXPECT_EQ(errorOf(send()).message, "Réponse invalide du serveur");

  answer(200, R"({"result":{"nested":[1,2,{"x":null}]},"usage":"lots","plan":[]})");
  EXPECT_EQ(errorOf(send()).message, "Erreur inconnue");

  answer(200, R"({"result":"Bonjour", "usage":{"used":1e300,"limit":-99999999999999999999}})");
  EXPECT_EQ(std::get<std::string>(send()), "Bonjour");
  EXPECT_EQ(world.app->auth().quotaUsed(), -1);
  EXPECT_EQ(world.app->auth().quotaLimit(), 3);

  const std::string huge(8 * 1024 * 1024, 'a');
  answer(200, R"({"result":")" + huge + R"("})");
  EXPECT_EQ(std::get<std::string>(send()).size(), huge.size());
}

TEST_F(ServiceRequest, ATransportFailureIsPassedOnAsItIs) {
  world.desk.http.enqueue(kCorrect, SimAnswer::failure("The Internet connection appears to be offline."));
  auto r = send();
  ASSERT_TRUE(std::holds_alternative<TransportError>(r));
  EXPECT_EQ(std::get<TransportError>(r).description, "The Internet connection appears to be offline.");

  world.desk.http.enqueue(kCorrect, SimAnswer::json(200, R"({"result":"late"})", 16));
  EXPECT_EQ(std::get<TransportError>(send()).description, sim::SimHttp::kTimedOut);
}

TEST_F(ServiceRequest, PlanAndUsageAreRecordedWhateverTheOutcome) {
  auto& auth = world.app->auth();
  answer(200, R"({"code":"quota","plan":"gratuit","usage":{"used":3,"limit":3}})");
  send();
  EXPECT_EQ(auth.plan(), "gratuit");
  EXPECT_EQ(auth.quotaUsed(), 3);
  EXPECT_EQ(auth.quotaLimit(), 3);

  answer(200, R"({"result":"ok","usage":{"used":2}})");  // no limit: back to 3
  auth.setQuotaLimit(100);
  send();
  EXPECT_EQ(auth.quotaUsed(), 2);
  EXPECT_EQ(auth.quotaLimit(), 3);

  auth.setQuotaLimit(100);
  answer(200, R"({"result":"ok","plan":"pro_annuel"})");  // a plan without usage: unknown usage
  send();
  EXPECT_EQ(auth.plan(), "pro_annuel");
  EXPECT_EQ(auth.quotaUsed(), -1);
  EXPECT_EQ(auth.quotaLimit(), 100);

  answer(200, R"({"result":"ok","plan":7})");  // not a text: plan kept, usage unknown
  auth.setQuotaUsed(1);
  send();
  EXPECT_EQ(auth.plan(), "pro_annuel");
  EXPECT_EQ(auth.quotaUsed(), -1);
}

TEST_F(ServiceRequest, TheUsageUpdateIsQueuedBeforeAnythingTheCompletionQueues) {
  answer(200, R"({"result":"ok","plan":"lifetime"})");
  std::string planSeenByTheNextTask;
  world.app->engine().request("x", "fix", true, [&](CorrectionResult) {
    world.desk.queue.post([&] { planSeenByTheNextTask = world.app->auth().plan(); });
  });
  world.advance(1);
  EXPECT_EQ(planSeenByTheNextTask, "lifetime");
}

class ServiceRequestAuth : public ServiceRequest {
 protected:
  void SetUp() override { world.signIn("lea@example.fr", "old-refresh"); }
  std::size_t refreshes() { return world.desk.http.requestCount("grant_type=refresh_token"); }
};

// Refreshing once and repeating the request is told in tests/scenarios/auth-refresh-once.
TEST_F(ServiceRequestAuth, AFailedRefreshAsksTheUserToSignInAgainAndSignsOut) {
  answer(401, R"({"code":"auth","error":"JWT expired"})");
  world.desk.http.enqueue("grant_type=refresh_token",
                          SimAnswer::json(400, R"({"error_code":"refresh_token_not_found","msg":"Invalid Refresh Token"})"));
  EXPECT_EQ(errorOf(send()), (MirloError{"Reconnecte-toi à ton compte", false, "auth"}));
  EXPECT_EQ(refreshes(), 1u);
  EXPECT_FALSE(world.app->auth().isSignedIn());
  EXPECT_EQ(world.desk.secrets.items.count("io.mirlo.app.session"), 0u);
  EXPECT_EQ(world.desk.http.requestCount(kCorrect), 1u);
}

}  // namespace
}  // namespace mirlo
