// Every kind of answer to a correction request as the user sees it. The request itself, a transport
// failure, the time-out and the refresh of an expired session are in the scenarios under
// tests/scenarios/; a refused refresh in engine_flow_test.cpp.
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

// Escape sequences would recolour or clear a terminal, retitle its window, or land in the
// user's document: control characters never get through, line breaks and tabs do.
TEST_F(ServiceRequest, ControlCharactersFromTheServiceAreNeverShownOrWritten) {
  answer(200, R"({"result":"Bonjour\u001b[2J\r\n\tà tous\u0007\u009b31m\r fin"})");
  EXPECT_EQ(std::get<std::string>(send()), "Bonjour[2J\r\n\tà tous31m fin");
  answer(200, R"({"result":"\u001b\u0000"})");
  EXPECT_EQ(errorOf(send()).message, "Erreur inconnue") << "nothing left is no result";
  answer(400, R"({"code":"rate","error":"Panne\u001b]0;titre\u0007 du serveur"})");
  EXPECT_EQ(errorOf(send()).message, "Panne]0;titre du serveur");
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

}  // namespace
}  // namespace mirlo
