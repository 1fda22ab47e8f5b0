// What every service behind the program must answer at /functions/v1/correct. The texts are ones
// any correction leaves as they are ("Bonjour"), or go through the model stand-in, so that the
// checks hold whatever engine corrects.
#include <mutex>
#include <vector>

#include "contract.h"
#include "service/crypto.h"

namespace mirlo::service::testing {
namespace {

TEST_F(ContractTest, TheFreePlanAllowsThreeADay) {
  const Account lea = account();
  for (int i = 1; i <= 3; ++i) {
    auto r = correct(lea.accessToken, "Bonjour");
    ASSERT_EQ(r.status, 200) << r.raw;
    EXPECT_EQ(r.body["result"], "Bonjour");
    EXPECT_EQ(r.body["plan"], "gratuit");
    EXPECT_EQ(r.body["usage"], (Json{{"used", i}, {"limit", 3}}));
  }
  auto spent = correct(lea.accessToken, "Bonjour");
  EXPECT_EQ(spent.status, 429);
  EXPECT_EQ(spent.body["code"], "quota");
  EXPECT_TRUE(spent.body["error"].is_string());
  EXPECT_FALSE(spent.body.contains("result"));
  EXPECT_EQ(spent.body["plan"], "gratuit");
  EXPECT_EQ(spent.body["usage"], (Json{{"used", 3}, {"limit", 3}}));
  EXPECT_EQ(backend->usageToday(lea), 3);

  backend->nextDay(lea);
  auto tomorrow = correct(signIn(lea), "Bonjour");
  EXPECT_EQ(tomorrow.body["usage"], (Json{{"used", 1}, {"limit", 3}})) << tomorrow.raw;
}

TEST_F(ContractTest, PaidPlansHaveNoLimitButAreCounted) {
  const Account lea = account();
  for (int i = 0; i < 3; ++i) correct(lea.accessToken, "Bonjour");
  backend->setPlan(lea, "lifetime");

  auto r = correct(lea.accessToken, "Bonjour");
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.body["plan"], "lifetime");
  EXPECT_FALSE(r.body.contains("usage"));  // the program reads that as unlimited
  EXPECT_EQ(backend->usageToday(lea), 4);
}

TEST_F(ContractTest, TooLongIsRefusedWithoutCountingAndCharactersAreNotBytes) {
  const Account lea = account();
  auto r = correct(lea.accessToken, std::string(5001, 'a'));
  EXPECT_EQ(r.status, 413);
  EXPECT_EQ(r.body["code"], "too_long");
  EXPECT_TRUE(r.body["error"].is_string());
  EXPECT_EQ(r.body["usage"], (Json{{"used", 0}, {"limit", 3}}));

  // 5000 characters fit, whatever their bytes or their UTF-16 units.
  std::string accents, emoji;
  for (int i = 0; i < 5000; ++i) accents += "é", emoji += "😀";
  for (const std::string& text : {accents, emoji}) {
    auto fits = correct(lea.accessToken, text, "rephrase");
    EXPECT_EQ(fits.status, 200) << fits.raw.substr(0, 200);
    EXPECT_TRUE(fits.body["result"] == text);
  }
  EXPECT_EQ(backend->usageToday(lea), 2);
}

TEST_F(ContractTest, BadRequestsAreRefusedAndNeverCounted) {
  const Account lea = account();
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"{\"text\":", "bad_request"},
      {"[1,2]", "bad_request"},
      {R"({"text":42,"mode":"fix"})", "bad_request"},
      {R"({"text":"Bonjour","mode":"traduire"})", "bad_request"},
      {R"({"mode":"fix"})", "bad_request"},
      {R"({"text":"Bonjour","mode":"fix","device_id":{}})", "bad_request"},
      {"{\"text\":\"\xff\xfe\",\"mode\":\"fix\"}", "bad_request"},
      {R"({"text":"  \n","mode":"fix"})", "empty"},
  };
  for (const auto& [body, code] : refused) {
    auto r = post("/functions/v1/correct", body, lea.accessToken);
    EXPECT_EQ(r.status, 400) << body;
    EXPECT_EQ(r.body["code"], code) << body << " → " << r.raw;
    EXPECT_TRUE(r.body["error"].is_string()) << body;
    EXPECT_FALSE(r.body.contains("result")) << body;
    EXPECT_EQ(r.body["plan"], "gratuit") << body;
  }
  auto huge = post("/functions/v1/correct", std::string(2 << 20, ' '), lea.accessToken);
  EXPECT_EQ(huge.status, 413);
  EXPECT_EQ(huge.body["code"], "too_large");
  EXPECT_EQ(backend->usageToday(lea), 0);

  // SQL in the text is only text.
  auto sql = correct(lea.accessToken, "Robert'); DROP TABLE usage; --", "rephrase");
  EXPECT_EQ(sql.status, 200);
  EXPECT_EQ(sql.body["result"], "Robert'); DROP TABLE usage; --");
  EXPECT_EQ(backend->usageToday(lea), 1);
}

TEST_F(ContractTest, OnlyGenuineLiveAccessTokensAreLetIn) {
  const Account lea = account();
  const Json claims = claimsOf(lea.accessToken);
  const std::string forged = signJwt(claims, "not-the-service-secret-but-long-enough-anyway");
  const std::string demoSigned = signJwt(claims, kDemoApiKeySecret);
  const std::string unsignedToken =
      base64UrlEncode(R"({"alg":"none","typ":"JWT"})") + "." + base64UrlEncode(dumpJson(claims)) + ".";
  for (const auto& bad : {std::string(), std::string(config::kAnonKey), forged, demoSigned, unsignedToken,
                          std::string("abc.def.ghi"), lea.accessToken + "x"}) {
    auto r = correct(bad, "Bonjour");
    EXPECT_EQ(r.status, 401) << bad;
    EXPECT_EQ(r.body["code"], "auth") << bad << " → " << r.raw;
    EXPECT_FALSE(r.body.contains("result"));
  }

  backend->passTime(3601);
  EXPECT_EQ(correct(lea.accessToken, "Bonjour").body["code"], "auth");
  backend->passTime(-3601);

  EXPECT_EQ(correct(lea.accessToken, "Bonjour").status, 200);
  EXPECT_EQ(post("/auth/v1/logout", std::string(), lea.accessToken).status, 204);
  EXPECT_EQ(correct(lea.accessToken, "Bonjour").body["code"], "auth");
  EXPECT_EQ(backend->usageToday(lea), 1);
}

TEST_F(ContractTest, ConcurrentCorrectionsNeverLoseOrExceedTheCount) {
  const Account pro = account("pro");
  backend->setPlan(pro, "pro_annuel");
  const Account free = account("gratuit");

  // Thirty people at once on each account: every request is answered, with a correction or the
  // quota.
  std::mutex mutex;
  int freeGranted = 0, proGranted = 0, otherAnswers = 0, unanswered = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 30; ++t) {
    threads.emplace_back([&] {
      httplib::Client c("127.0.0.1", backend->port());
      c.set_read_timeout(60, 0);
      const std::string body = R"({"text":"Bonjour","mode":"fix","device_id":"d"})";
      const Reply a = postTo(c, "/functions/v1/correct", body, pro.accessToken);
      const Reply b = postTo(c, "/functions/v1/correct", body, free.accessToken);
      std::lock_guard lock(mutex);
      for (const Reply* r : {&a, &b}) {
        if (r->status == 0) ++unanswered;
        else if (!r->body.contains("result") && r->body.value("code", "") != "quota") ++otherAnswers;
      }
      proGranted += a.body.contains("result") ? 1 : 0;
      freeGranted += b.body.contains("result") ? 1 : 0;
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(unanswered, 0);
  EXPECT_EQ(otherAnswers, 0);
  EXPECT_EQ(freeGranted, 3);
  EXPECT_EQ(backend->usageToday(free), 3);
  EXPECT_GT(proGranted, 0);
  EXPECT_EQ(backend->usageToday(pro), proGranted);
}

TEST_F(ContractTest, AModelFailureGivesTheCorrectionBack) {
  const Account lea = account();
  backend->model().answer("\n Je te remercie vivement. \n");
  auto r = correct(lea.accessToken, "merci bcp", "rephrase");
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.body["result"], "Je te remercie vivement.");
  EXPECT_EQ(r.body["usage"]["used"], 1);
  EXPECT_EQ(backend->model().lastAuthorization(), std::string("Bearer ") + ModelStandIn::kKey);
  EXPECT_EQ(backend->model().lastRequest()["model"], ModelStandIn::kModel);
  EXPECT_EQ(backend->model().lastRequest()["messages"].back()["content"], "merci bcp");

  for (const auto& [status, answer] : std::vector<std::pair<int, std::string>>{
           {500, R"({"error":"overloaded"})"},
           {200, "pas du json"},
           {200, R"({"choices":[]})"},
           {200, R"({"choices":[{"message":{"content":42}}]})"},
           {200, dumpJson(ModelStandIn::completion("  \n "))}}) {
    backend->model().respond(status, answer);
    auto failed = correct(lea.accessToken, "merci bcp", "rephrase");
    EXPECT_EQ(failed.status, 502) << answer;
    EXPECT_EQ(failed.body["code"], "upstream") << answer << " → " << failed.raw;
    EXPECT_TRUE(failed.body["error"].is_string());
    EXPECT_FALSE(failed.body.contains("result"));
    EXPECT_EQ(failed.body["usage"], (Json{{"used", 1}, {"limit", 3}})) << answer;
  }
  EXPECT_EQ(backend->usageToday(lea), 1);
}

}  // namespace
}  // namespace mirlo::service::testing
