#include "service_fixture.h"

namespace mirlo::service::testing {
namespace {

using AuthTest = ServiceTest;

TEST_F(AuthTest, SignUpAnswersASupabaseTokenResponse) {
  auto r = signUp("Lea@Example.FR");
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.body["token_type"], "bearer");
  EXPECT_EQ(r.body["expires_in"], 3600);
  EXPECT_EQ(r.body["expires_at"], clock.load() + 3600);
  EXPECT_EQ(r.body["user"]["email"], "lea@example.fr");
  const std::string refresh = r.body["refresh_token"];
  EXPECT_GE(refresh.size(), 32u);
  EXPECT_EQ(refresh.find('='), std::string::npos);  // the program drops fragment values holding '='

  const Json claims = claimsOf(r.body["access_token"]);
  EXPECT_EQ(claims["sub"], r.body["user"]["id"]);
  EXPECT_EQ(claims["email"], "lea@example.fr");
  EXPECT_EQ(claims["role"], "authenticated");
  EXPECT_EQ(claims["aud"], "authenticated");
  EXPECT_EQ(claims["iat"], clock.load());
  EXPECT_EQ(claims["exp"], clock.load() + 3600);
  EXPECT_TRUE(claims["session_id"].is_string());

  // The same person signs in with the password later, whatever the case of the address.
  EXPECT_EQ(signIn("LEA@example.fr").status, 200);
}

TEST_F(AuthTest, SignUpRefusalsUseSupabaseErrorBodies) {
  ASSERT_EQ(signUp("lea@example.fr").status, 200);

  auto again = signUp("LEA@example.fr", "unautremotdepasse");
  EXPECT_EQ(again.status, 422);
  EXPECT_EQ(again.body, (Json{{"code", 422}, {"error_code", "user_already_exists"}, {"msg", "User already registered"}}));

  auto weak = signUp("paul@example.fr", "1234567");
  EXPECT_EQ(weak.status, 422);
  EXPECT_EQ(weak.body["error_code"], "weak_password");
  EXPECT_EQ(weak.body["msg"], "Password should be at least 8 characters.");
  // Eight characters, not eight bytes: "é" counts once.
  EXPECT_EQ(signUp("zoe@example.fr", "éééééé").body["error_code"], "weak_password");
  EXPECT_EQ(signIn("paul@example.fr", "1234567").body["error_code"], "invalid_credentials");

  EXPECT_EQ(signUp("pas-une-adresse").status, 400);
  EXPECT_EQ(signUp("pas-une-adresse").body["error_code"], "validation_failed");

  for (const char* body : {"{", "[]", "\"texte\"", R"({"email":42,"password":"motdepasse"})",
                                 R"({"email":"x@example.fr","password":["motdepasse"]})"}) {
    auto bad = post("/auth/v1/signup", std::string(body));
    EXPECT_EQ(bad.status, 400) << body;
    EXPECT_EQ(bad.body["error_code"], "bad_json") << body;
  }
}

TEST_F(AuthTest, WrongPasswordAndUnknownAccountLookTheSame) {
  ASSERT_EQ(signUp("lea@example.fr").status, 200);
  const Json expected = {{"code", 400}, {"error_code", "invalid_credentials"}, {"msg", "Invalid login credentials"}};
  auto wrong = signIn("lea@example.fr", "mauvaismotdepasse");
  auto unknown = signIn("personne@example.fr", "motdepasse");
  EXPECT_EQ(wrong.status, 400);
  EXPECT_EQ(wrong.body, expected);
  EXPECT_EQ(unknown.status, 400);
  EXPECT_EQ(unknown.body, expected);
  // SQL in the credentials is only data.
  EXPECT_EQ(signIn("' OR 1=1 --", "' OR '1'='1").body, expected);

  auto grant = postJson("/auth/v1/token?grant_type=magic", Json{{"email", "lea@example.fr"}});
  EXPECT_EQ(grant.status, 400);
}

TEST_F(AuthTest, TheGatewayWantsAGenuineApiKey) {
  const std::string body = dumpJson({{"email", "lea@example.fr"}, {"password", "motdepasse"}});
  auto none = post("/auth/v1/signup", body, "", "");
  EXPECT_EQ(none.status, 401);
  EXPECT_EQ(none.body["message"], "No API key found in request");

  const std::int64_t in2030 = 1'900'000'000;
  const std::string otherSecret = signJwt({{"role", "anon"}, {"exp", in2030}}, "another-secret-of-at-least-32-characters!!");
  const std::string userRole = signJwt({{"role", "authenticated"}, {"exp", in2030}}, kDemoApiKeySecret);
  const std::string expired = signJwt({{"role", "anon"}, {"exp", 1'000'000'000}}, kDemoApiKeySecret);
  for (const auto& key : {otherSecret, userRole, expired, std::string("n'importe quoi")}) {
    auto r = post("/auth/v1/signup", body, "", key);
    EXPECT_EQ(r.status, 401);
    EXPECT_EQ(r.body["message"], "Invalid API key");
  }
  EXPECT_FALSE(service->store().findUserByEmail("lea@example.fr"));
  EXPECT_EQ(post("/auth/v1/signup", std::string(body)).status, 200);  // the build's own demo key
}

TEST_F(AuthTest, RefreshTokensRotateWithAShortReuseWindow) {
  auto first = signUp("lea@example.fr");
  const std::string r0 = first.body["refresh_token"];

  auto second = refresh(r0);
  ASSERT_EQ(second.status, 200) << second.raw;
  const std::string r1 = second.body["refresh_token"];
  EXPECT_NE(r1, r0);
  EXPECT_EQ(claimsOf(second.body["access_token"])["session_id"], claimsOf(first.body["access_token"])["session_id"]);

  // A second tab or a retried request within the window gets the same successor.
  clock += 5;
  auto retried = refresh(r0);
  ASSERT_EQ(retried.status, 200) << retried.raw;
  EXPECT_EQ(retried.body["refresh_token"], r1);

  // Once the successor has been used in turn, r0 is stale even inside the window: theft.
  auto third = refresh(r1);
  ASSERT_EQ(third.status, 200);
  const std::string r2 = third.body["refresh_token"];
  const std::string access = third.body["access_token"];
  auto stolen = refresh(r0);
  EXPECT_EQ(stolen.status, 400);
  EXPECT_EQ(stolen.body, (Json{{"code", 400}, {"error_code", "refresh_token_already_used"},
                               {"msg", "Invalid Refresh Token: Already Used"}}));
  // The whole session ends: its latest tokens no longer work either.
  EXPECT_EQ(refresh(r2).body["error_code"], "refresh_token_not_found");
  EXPECT_EQ(correct(access, "Bonjour").body["code"], "auth");

  auto unknown = refresh("inconnu");
  EXPECT_EQ(unknown.status, 400);
  EXPECT_EQ(unknown.body["msg"], "Invalid Refresh Token: Refresh Token Not Found");

  // Past the window, any reuse ends the session, and only that one.
  const std::string s0 = signIn("lea@example.fr").body["refresh_token"];
  const std::string s1 = refresh(s0).body["refresh_token"];
  clock += 11;
  EXPECT_EQ(refresh(s0).body["error_code"], "refresh_token_already_used");
  EXPECT_EQ(refresh(s1).status, 400);
  EXPECT_EQ(signIn("lea@example.fr").status, 200);
}

TEST_F(AuthTest, BrowserSignInRedirectsWithTheTokensInTheFragment) {
  auto page = reply(client->Get("/auth/v1/authorize?provider=google&redirect_to=mirlo%3A%2F%2Fauth"));
  ASSERT_EQ(page.status, 200);
  EXPECT_NE(page.raw.find("name=\"redirect_to\" value=\"mirlo://auth\""), std::string::npos);
  EXPECT_NE(page.raw.find("type=\"password\""), std::string::npos);

  EXPECT_EQ(reply(client->Get("/auth/v1/authorize?provider=myspace&redirect_to=mirlo://auth")).status, 400);

  httplib::Params form{{"provider", "google"}, {"redirect_to", "mirlo://auth"}, {"email", "lea@example.fr"},
                       {"password", "motdepasse"}, {"action", "signup"}};
  auto made = reply(client->Post("/auth/v1/authorize", form));
  ASSERT_EQ(made.status, 303) << made.raw;
  ASSERT_EQ(made.location.rfind("mirlo://auth#access_token=", 0), 0u) << made.location;
  const std::string fragment = made.location.substr(made.location.find('#') + 1);
  std::map<std::string, std::string> pairs;
  for (std::size_t at = 0; at <= fragment.size();) {
    const auto amp = std::min(fragment.find('&', at), fragment.size());
    const auto piece = fragment.substr(at, amp - at);
    pairs[piece.substr(0, piece.find('='))] = piece.substr(piece.find('=') + 1);
    at = amp + 1;
  }
  EXPECT_EQ(pairs["token_type"], "bearer");
  EXPECT_EQ(correct(pairs["access_token"], "Bonjour").status, 200);
  EXPECT_EQ(refresh(pairs["refresh_token"]).status, 200);

  // A wrong password shows the page again with the reason, and no tokens anywhere.
  form = {{"provider", "google"}, {"redirect_to", "mirlo://auth"}, {"email", "lea@example.fr"},
          {"password", "mauvais-mot"}, {"action", "signin"}};
  auto wrong = reply(client->Post("/auth/v1/authorize", form));
  EXPECT_EQ(wrong.status, 400);
  EXPECT_TRUE(wrong.location.empty());
  EXPECT_NE(wrong.raw.find("Email ou mot de passe incorrect."), std::string::npos);
}

}  // namespace
}  // namespace mirlo::service::testing
