#include <mutex>
#include <vector>

#include "service_fixture.h"

namespace mirlo::service::testing {
namespace {

using CorrectTest = ServiceTest;

TEST_F(CorrectTest, TheFreePlanAllowsThreeADayAndTheCountSurvivesARestart) {
  const std::string token = accountToken("lea@example.fr");
  for (int i = 1; i <= 3; ++i) {
    auto r = correct(token, "Bonjour");
    ASSERT_EQ(r.status, 200) << r.raw;
    EXPECT_EQ(r.body["plan"], "gratuit");
    EXPECT_EQ(r.body["usage"], (Json{{"used", i}, {"limit", 3}}));
  }
  auto spent = correct(token, "Bonjour");
  EXPECT_EQ(spent.body["code"], "quota");
  EXPECT_FALSE(spent.body.contains("result"));
  EXPECT_EQ(spent.body["usage"], (Json{{"used", 3}, {"limit", 3}}));

  restart();
  EXPECT_EQ(correct(token, "Bonjour").body["code"], "quota");

  clock += 24 * 3600;  // the next day, with a fresh session since access tokens last an hour
  EXPECT_EQ(correct(token, "Bonjour").body["code"], "auth");
  auto tomorrow = correct(signIn("lea@example.fr").body.value("access_token", ""), "Bonjour");
  EXPECT_EQ(tomorrow.body["usage"], (Json{{"used", 1}, {"limit", 3}}));
}

TEST_F(CorrectTest, PaidPlansHaveNoLimit) {
  const std::string token = accountToken("lea@example.fr");
  for (int i = 0; i < 3; ++i) correct(token, "Bonjour");
  auto changed = setPlan(token, "lifetime");
  ASSERT_EQ(changed.status, 200) << changed.raw;
  EXPECT_EQ(changed.body["plan"], "lifetime");

  auto r = correct(token, "Bonjour");
  ASSERT_EQ(r.status, 200);
  EXPECT_EQ(r.body["plan"], "lifetime");
  EXPECT_FALSE(r.body.contains("usage"));  // the program reads that as unlimited
  EXPECT_EQ(service->store().usage(claimsOf(token)["sub"], service->today()), 4);

  EXPECT_EQ(setPlan(token, "platine").body["code"], "bad_request");
  EXPECT_EQ(get("/functions/v1/account", token).body["plan"], "lifetime");
}

TEST_F(CorrectTest, TooLongIsRefusedWithoutCountingAndCharactersAreNotBytes) {
  const std::string token = accountToken("lea@example.fr");
  auto r = correct(token, std::string(5001, 'a'));
  EXPECT_EQ(r.status, 413);
  EXPECT_EQ(r.body["code"], "too_long");
  EXPECT_TRUE(r.body["error"].is_string());
  EXPECT_EQ(r.body["usage"]["used"], 0);

  std::string accents;
  for (int i = 0; i < 2500; ++i) accents += "é ";  // 5000 characters, 7500 bytes
  auto fits = correct(token, accents);
  EXPECT_EQ(fits.status, 200) << fits.raw.substr(0, 200);
  EXPECT_EQ(fits.body["result"], accents);
}

TEST_F(CorrectTest, BadRequestsAreRefusedAndNeverCounted) {
  const std::string token = accountToken("lea@example.fr");
  const std::string sub = claimsOf(token)["sub"];
  for (const std::string& body :
       {std::string("{\"text\":"), std::string("[1,2]"), std::string(R"({"text":42,"mode":"fix"})"),
        std::string(R"({"text":"Bonjour","mode":"traduire"})"), std::string(R"({"mode":"fix"})"),
        std::string(R"({"text":"Bonjour","mode":"fix","device_id":{}})"), std::string(R"({"text":"  \n","mode":"fix"})"),
        std::string("{\"text\":\"\xff\xfe\",\"mode\":\"fix\"}")}) {
    auto r = post("/functions/v1/correct", body, token);
    EXPECT_EQ(r.status, 400) << body;
    EXPECT_TRUE(r.body["code"].is_string()) << body;
    EXPECT_TRUE(r.body["error"].is_string()) << body;
    EXPECT_FALSE(r.body.contains("result")) << body;
  }
  auto huge = post("/functions/v1/correct", std::string(2 << 20, ' '), token);
  EXPECT_EQ(huge.status, 413);
  EXPECT_EQ(huge.body["code"], "too_large");
  EXPECT_EQ(service->store().usage(sub, service->today()), 0);

  // SQL in the text is only text.
  auto sql = correct(token, "Robert'); DROP TABLE usage; --");
  EXPECT_EQ(sql.status, 200);
  EXPECT_EQ(service->store().usage(sub, service->today()), 1);
}

TEST_F(CorrectTest, OnlyGenuineLiveAccessTokensAreLetIn) {
  auto made = signUp("lea@example.fr");
  const std::string token = made.body["access_token"];
  Json claims = claimsOf(token);

  const std::string forged = signJwt(claims, "not-the-service-secret-but-long-enough-anyway");
  const std::string demoSigned = signJwt(claims, kDemoApiKeySecret);
  const std::string unsignedToken =
      base64UrlEncode(R"({"alg":"none","typ":"JWT"})") + "." + base64UrlEncode(dumpJson(claims)) + ".";
  for (const auto& bad : {std::string(), std::string(config::kAnonKey), forged, demoSigned, unsignedToken,
                          std::string("abc.def.ghi"), token + "x"}) {
    auto r = correct(bad, "Bonjour");
    EXPECT_EQ(r.status, 401) << bad;
    EXPECT_EQ(r.body["code"], "auth") << bad;
    EXPECT_FALSE(r.body.contains("result"));
  }

  clock += 3601;
  EXPECT_EQ(correct(token, "Bonjour").body["code"], "auth");
  clock -= 3601;

  EXPECT_EQ(correct(token, "Bonjour").status, 200);
  EXPECT_EQ(post("/auth/v1/logout", std::string(), token).status, 204);
  EXPECT_EQ(correct(token, "Bonjour").body["code"], "auth");
  EXPECT_EQ(refresh(made.body["refresh_token"]).status, 400);
}

TEST_F(CorrectTest, ConcurrentCorrectionsNeverLoseOrExceedTheCount) {
  const std::string pro = accountToken("pro@example.fr");
  ASSERT_EQ(setPlan(pro, "pro_annuel").status, 200);
  const std::string free = accountToken("gratuit@example.fr");

  std::mutex mutex;
  int freeGranted = 0, freeRefused = 0, proGranted = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&] {
      httplib::Client c("127.0.0.1", port);
      auto send = [&](const std::string& token) {
        httplib::Headers h{{"apikey", config::kAnonKey}, {"Authorization", "Bearer " + token}};
        auto r = c.Post("/functions/v1/correct", h, R"({"text":"Bonjour","mode":"fix","device_id":"d"})",
                        "application/json");
        return r ? parseJson(r->body).value_or(Json()) : Json();
      };
      for (int i = 0; i < 8; ++i) {
        const Json a = send(pro);
        const Json b = send(free);
        std::lock_guard lock(mutex);
        proGranted += a.contains("result") ? 1 : 0;
        if (b.contains("result")) ++freeGranted;
        else if (b.value("code", "") == "quota") ++freeRefused;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(proGranted, 48);
  EXPECT_EQ(freeGranted, 3);
  EXPECT_EQ(freeRefused, 45);
  EXPECT_EQ(service->store().usage(claimsOf(pro)["sub"], service->today()), 48);
  EXPECT_EQ(service->store().usage(claimsOf(free)["sub"], service->today()), 3);
}

// A loopback stand-in for an OpenAI-compatible endpoint.
struct FakeModel {
  FakeModel() {
    server.Post("/v1/chat/completions", [this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard lock(mutex);
      lastAuthorization = req.get_header_value("Authorization");
      lastRequest = parseJson(req.body).value_or(Json());
      res.status = status;
      res.set_content(answer, "application/json");
    });
    port = server.bind_to_any_port("127.0.0.1");
    thread = std::thread([this] { server.listen_after_bind(); });
    for (int i = 0; i < 1000 && !server.is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ~FakeModel() {
    server.stop();
    thread.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port) + "/v1"; }

  httplib::Server server;
  std::thread thread;
  int port = 0;
  std::mutex mutex;
  int status = 200;
  std::string answer;
  std::string lastAuthorization;
  Json lastRequest;
};

TEST_F(CorrectTest, RephraseGoesThroughTheConfiguredModel) {
  FakeModel model;
  restart([&](ServiceConfig& c) { c.rephrase = {model.url(), "cle-du-modele", "mistral-small", 5}; });
  const std::string token = accountToken("lea@example.fr");
  model.answer = R"({"choices":[{"message":{"role":"assistant","content":"\n Je te remercie vivement. \n"}}]})";
  auto r = correct(token, "merci bcp", "rephrase");
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.body["result"], "Je te remercie vivement.");
  EXPECT_EQ(r.body["usage"]["used"], 1);
  {
    std::lock_guard lock(model.mutex);
    EXPECT_EQ(model.lastAuthorization, "Bearer cle-du-modele");
    EXPECT_EQ(model.lastRequest["model"], "mistral-small");
    EXPECT_EQ(model.lastRequest["messages"].back()["content"], "merci bcp");
  }

  // A failing or nonsensical model gives a clear error, and the correction is given back.
  for (const auto& [status, answer] : std::vector<std::pair<int, std::string>>{
           {500, R"({"error":"overloaded"})"}, {200, "pas du json"}, {200, R"({"choices":[]})"},
           {200, R"({"choices":[{"message":{"content":42}}]})"}}) {
    {
      std::lock_guard lock(model.mutex);
      model.status = status;
      model.answer = answer;
    }
    auto failed = correct(token, "merci bcp", "rephrase");
    EXPECT_EQ(failed.body["code"], "upstream") << answer;
    EXPECT_FALSE(failed.body.contains("result"));
    EXPECT_EQ(failed.body["usage"]["used"], 1) << answer;
  }
}

TEST_F(CorrectTest, RephraseWithoutAModelSaysSo) {
  const std::string token = accountToken("lea@example.fr");
  auto r = correct(token, "merci bcp", "rephrase");
  EXPECT_EQ(r.body["code"], "unavailable");
  EXPECT_EQ(r.body["error"], "La reformulation n'est pas disponible sur ce service local");
  EXPECT_EQ(r.body["usage"]["used"], 0);
}

}  // namespace
}  // namespace mirlo::service::testing
