// Signing in with Supabase Auth: the browser address and its callback, e-mail and password, the
// refresh of an expired session, and reading the e-mail from the access token.
#include <gtest/gtest.h>

#include <algorithm>

#include "base/base64.h"
#include "base/json.h"
#include "base/url.h"
#include "support/sim_app.h"

namespace mirlo {
namespace {

using sim::SimAnswer;
using testing::accessTokenFor;
using testing::SimWorld;

constexpr const char* kService = "io.mirlo.app.session";
constexpr const char* kPasswordPath = "/auth/v1/token?grant_type=password";
constexpr const char* kRefreshPath = "/auth/v1/token?grant_type=refresh_token";

long changes(SimWorld& w) {
  const auto& posted = w.app->notifications().posted();
  return std::count(posted.begin(), posted.end(), std::string(Auth::changed));
}

std::string base64url(const std::string& bytes) {
  std::string s = encodeBase64(bytes);
  std::replace(s.begin(), s.end(), '+', '-');
  std::replace(s.begin(), s.end(), '/', '_');
  while (!s.empty() && s.back() == '=') s.pop_back();
  return s;
}

std::string tokenWithPayload(const std::string& payload) { return "eyJhbGciOiJIUzI1NiJ9." + payload + ".sig"; }

std::string tokenAnswer(const std::string& access, const std::string& refresh) {
  return dumpJson(Json{{"access_token", access}, {"refresh_token", refresh}, {"token_type", "bearer"},
                       {"expires_in", 3600}, {"user", {{"id", "u-1"}}}});
}

// --- The browser sign-in.

TEST(SignInAddress, AsksGoogleAndComesBackThroughTheUrlScheme) {
  SimWorld w;
  EXPECT_EQ(w.app->auth().signInURL(),
            "https://project.supabase.test/auth/v1/authorize?provider=google&redirect_to=mirlo://auth");
}

TEST(Callback, AFragmentWithBothTokensSignsIn) {
  SimWorld w;
  const std::string access = accessTokenFor("Zoe@Example.fr");
  EXPECT_TRUE(w.app->auth().handleCallback("mirlo://auth#access_token=" + access +
                                           "&expires_in=3600&refresh_token=r%2E1&token_type=bearer"));
  Auth& auth = w.app->auth();
  EXPECT_TRUE(auth.isSignedIn());
  EXPECT_EQ(auth.accessToken(), access);
  EXPECT_EQ(auth.refreshToken(), "r.1") << "values are percent-decoded";
  EXPECT_EQ(auth.email(), "zoe@example.fr");
  EXPECT_EQ(changes(w), 1);
  EXPECT_EQ(*parseJson(w.desk.secrets.items.at(kService)), (Json{{"access", access}, {"refresh", "r.1"}}));
}

TEST(Callback, RefusedCallbacksChangeNothing) {
  const std::string access = accessTokenFor("a@b.fr");
  const std::string refused[] = {
      "mirlo://auth?access_token=" + access + "&refresh_token=r",  // query, not fragment
      "mirlo://auth",
      "mirlo://auth#",
      "mirlo://auth#access_token=" + access,
      "mirlo://auth#refresh_token=r",
      "mirlo://auth#error=access_denied&error_description=denied",
      "mirlo://auth#access_token=" + access + "&refresh_token=r=x",  // "=" in the value: piece skipped
      "mirlo://auth#access_token=" + access + "&refresh_token",
      "mirlo://auth#access_token=" + access + "&refresh token=r",    // not a URL
      "mirlo://auth#access_token=" + access + "&refresh_token=r#2",  // a second "#"
      "not a url at all",
      "",
      "mirlo://auth#ACCESS_TOKEN=" + access + "&REFRESH_TOKEN=r",     // keys are exact
  };
  for (const auto& address : refused) {
    SimWorld w;
    EXPECT_FALSE(w.app->auth().handleCallback(address)) << address;
    EXPECT_FALSE(w.app->auth().isSignedIn()) << address;
    EXPECT_TRUE(w.desk.secrets.items.empty()) << address;
    EXPECT_EQ(changes(w), 0) << address;
  }
}

TEST(Callback, PiecesAreTakenAsGiven) {
  SimWorld w;
  // Empty pieces are skipped; the later of two duplicates wins, unless it is itself skipped;
  // a malformed escape keeps the raw value.
  EXPECT_TRUE(w.app->auth().handleCallback(
      "mirlo://auth#&&access_token=old&refresh_token=first&access_token=new&refresh_token=a=b&&"));
  EXPECT_EQ(w.app->auth().accessToken(), "new");
  EXPECT_EQ(w.app->auth().refreshToken(), "first");

  SimWorld raw;
  EXPECT_TRUE(raw.app->auth().handleCallback("mirlo://auth#access_token=a&refresh_token=100%25%FF"));
  EXPECT_EQ(raw.app->auth().refreshToken(), "100%25%FF") << "an escape that does not decode to text is kept raw";
}

// --- The e-mail in the access token.

// The e-mail the menu shows comes from the access token's claims, whatever the token's padding
// or alphabet; an unreadable token keeps the previous e-mail.
TEST(DecodeEmail, TheEmailIsReadFromTheClaimsAndUnreadableTokensKeepThePreviousOne) {
  SimWorld w;
  Auth& auth = w.app->auth();
  // base64url characters are mapped back to the standard alphabet ("?>" encodes to "Pz4").
  const std::string mixed = base64url(R"({"email":"ÉLODIE@EXEMPLE.FR","n":"??>>"})");
  ASSERT_NE(mixed.find('-'), std::string::npos);
  ASSERT_NE(mixed.find('_'), std::string::npos);
  auth.setTokens(tokenWithPayload(mixed), "r");
  EXPECT_EQ(auth.email(), "élodie@exemple.fr");
  // A claim that is missing or not a string empties the e-mail.
  auth.setTokens(tokenWithPayload(base64url(R"({"sub":"u-1"})")), "r");
  EXPECT_EQ(auth.email(), "");
  w.signIn("x@y.fr");
  auth.setTokens(tokenWithPayload(base64url(R"({"email":42})")), "r");
  EXPECT_EQ(auth.email(), "");
  // Control characters would reach a terminal through `mirlo status`.
  auth.setTokens(tokenWithPayload(base64url("{\"email\":\"L\u00e9a\\u001b[31m@x.fr\\n\"}")), "r");
  EXPECT_EQ(auth.email(), "léa[31m@x.fr");
  // Only the second part is read, even with more than three.
  auth.setTokens("a." + base64url(R"({"email":"Two@Parts.fr"})"), "r");
  EXPECT_EQ(auth.email(), "two@parts.fr");

  // The same claim, padded with spaces inside the JSON so that its base64url form has each length.
  for (int spaces = 0; spaces < 3; ++spaces) {
    const std::string encoded = base64url("{" + std::string(spaces, ' ') + R"("email":"Ana@Exemple.FR"})");
    auth.setTokens(tokenWithPayload(base64url(R"({"sub":"u-1"})")), "r");  // no e-mail in between
    auth.setTokens(tokenWithPayload(encoded), "r");
    EXPECT_EQ(auth.email(), "ana@exemple.fr") << "length " << encoded.size() << " mod 4 = " << encoded.size() % 4;
  }

  const std::string good = base64url(R"({"email":"x@y.fr"})");
  ASSERT_EQ(good.size() % 4, 0u);
  const std::string unreadable[] = {
      tokenWithPayload(good + "A"),                               // 4n+1 characters: cannot be base64
      tokenWithPayload(good.substr(0, 8) + "*" + good.substr(9)),  // outside the alphabet
      tokenWithPayload(base64url("not json")),
      tokenWithPayload(base64url(R"(["email","x@y.fr"])")),  // JSON, not an object
      "no-dots-at-all",
      "",
  };
  for (const auto& token : unreadable) {
    auth.setTokens(token, "r");
    EXPECT_EQ(auth.email(), "ana@exemple.fr") << token;
  }
}

// --- E-mail and password.

struct PasswordOutcome {
  bool called = false;
  std::optional<std::string> message;
};

TEST(PasswordSignIn, SendsTheCredentialsAsTheyAreAndSignsInOnATokenPair) {
  SimWorld w;
  const std::string access = accessTokenFor("Marc@Exemple.fr");
  w.desk.http.enqueue(kPasswordPath, SimAnswer::json(200, tokenAnswer(access, "r-new")));
  PasswordOutcome outcome;
  const std::string password = "  mot de passe à l'été ✓ ";
  w.app->auth().signIn(" Marc@Exemple.fr", password, [&](std::optional<std::string> message) {
    outcome = {true, std::move(message)};
  });
  EXPECT_FALSE(outcome.called) << "the answer comes later, on the main queue";
  w.advance();
  ASSERT_TRUE(outcome.called);
  EXPECT_EQ(outcome.message, std::nullopt);
  EXPECT_TRUE(w.app->auth().isSignedIn());
  EXPECT_EQ(w.app->auth().email(), "marc@exemple.fr");
  EXPECT_EQ(changes(w), 1);

  auto requests = w.desk.http.requests();
  ASSERT_EQ(requests.size(), 1u);
  const HttpRequest& r = requests[0];
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.url, std::string("https://project.supabase.test") + kPasswordPath);
  EXPECT_EQ(r.timeoutSeconds, 15);
  using Headers = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(r.headers, (Headers{{"Content-Type", "application/json"}, {"apikey", "anon-key-for-tests"}}));
  ASSERT_TRUE(r.body);
  EXPECT_EQ(*parseJson(*r.body), (Json{{"email", " Marc@Exemple.fr"}, {"password", password}}));
}

TEST(PasswordSignIn, AnswersAreJudgedByTheirBodyAlone) {
  struct Case {
    SimAnswer answer;
    std::optional<std::string> message;
  };
  const std::string pair = tokenAnswer(accessTokenFor("a@b.fr"), "r");
  const Case cases[] = {
      {SimAnswer::json(400, pair), std::nullopt},
      {SimAnswer::json(200, R"({"id":"u-1","email":"a@b.fr","confirmation_sent_at":"2024-01-01"})"), "Erreur inconnue"},
      {SimAnswer::json(400, R"({"error_code":"invalid_credentials","msg":"Invalid login credentials"})"),
       "Email ou mot de passe incorrect"},
      {SimAnswer::json(422, R"({"error_code":"user_already_exists","msg":"User already registered"})"),
       "Ce compte existe déjà : utilise Se connecter"},
      {SimAnswer::json(422, R"({"error_code":"weak_password","msg":"Password should be at least 8"})"),
       "Mot de passe trop court (8 caractères minimum)"},
      {SimAnswer::json(429, R"({"error_code":"over_request_rate_limit","msg":"Too many requests"})"), "Trop de tentatives : réessaie dans quelques minutes"},
      {SimAnswer::json(429, R"({"error_code":"over_email_send_rate_limit","msg":"Too many requests"})"), "Too many requests"},
      {SimAnswer::json(400, R"({"error_code":7,"msg":"Bad"})"), "Bad"},
      {SimAnswer::json(400, R"({"error_code":"x","msg":["not","text"]})"), "Erreur inconnue"},
      {SimAnswer::json(400, R"({"error_code":"x","msg":"Trop\u001b[5m vite"})"), "Trop[5m vite"},
      {SimAnswer::json(200, R"({"access_token":"a","refresh_token":5})"), "Erreur inconnue"},
      {SimAnswer::json(200, ""), "Réponse invalide"},
      {SimAnswer::json(502, "<html>Bad gateway</html>"), "Réponse invalide"},
      {SimAnswer::json(200, "[1,2]"), "Réponse invalide"},
      {SimAnswer::json(200, "\"text\""), "Réponse invalide"},
      {SimAnswer::failure(TransportFailure::noConnection, "The Internet connection appears to be offline."), "Connexion impossible, vérifie ton réseau"},
  };
  for (const auto& c : cases) {
    SimWorld w;
    w.desk.http.enqueue(kPasswordPath, c.answer);
    PasswordOutcome outcome;
    w.app->auth().signIn("a@b.fr", "pw", [&](auto message) { outcome = {true, message}; });
    w.advance();
    ASSERT_TRUE(outcome.called);
    EXPECT_EQ(outcome.message, c.message);
    EXPECT_EQ(w.app->auth().isSignedIn(), !c.message.has_value());
    EXPECT_EQ(changes(w), c.message ? 0 : 1);
  }
}

// A time-out is a transport failure like any other: its 15 seconds are asserted with the request above.

// --- Tokens the program would send back in its headers.

// A line break in a token would add headers of the service's choosing to every later request; a
// token of megabytes would make every later request fail. Wherever tokens arrive, such a pair is
// refused and never stored.
TEST(Tokens, AnyThatCouldNotGoIntoAHeaderAreRefusedWhereverTheyArrive) {
  const std::string good = accessTokenFor("a@b.fr");
  const std::string unusable[] = {"r\r\nX-Injected: 1", "r\n", std::string("r\0x", 3), "r\x1b[2J", "r t",
                                  std::string(8193, 'r')};
  for (const auto& bad : unusable) {
    SCOPED_TRACE(::testing::PrintToString(bad.substr(0, 20)));
    SimWorld signIn;
    signIn.desk.http.enqueue(kPasswordPath, SimAnswer::json(200, tokenAnswer(good, bad)));
    PasswordOutcome outcome;
    signIn.app->auth().signIn("a@b.fr", "pw", [&](auto message) { outcome = {true, message}; });
    signIn.advance();
    EXPECT_EQ(outcome.message, "Réponse invalide");
    EXPECT_FALSE(signIn.app->auth().isSignedIn());
    EXPECT_TRUE(signIn.desk.secrets.items.empty());

    SimWorld refresh;
    refresh.signIn("lea@example.fr", "refresh-1");
    refresh.desk.http.enqueue(kRefreshPath, SimAnswer::json(200, tokenAnswer(bad, "refresh-2")));
    std::optional<RefreshOutcome::Kind> kind;
    refresh.app->auth().refresh([&](RefreshOutcome o) { kind = o.kind; });
    refresh.advance();
    EXPECT_EQ(kind, RefreshOutcome::Kind::failed) << "an unreadable answer, not a refusal";
    EXPECT_EQ(refresh.app->auth().refreshToken(), "refresh-1");

    SimWorld callback;
    EXPECT_FALSE(callback.app->auth().handleCallback("mirlo://auth#access_token=" + good + "&refresh_token=" +
                                                     url::encodeQueryValue(bad)));
    EXPECT_TRUE(callback.desk.secrets.items.empty());

    // Stored by an earlier version: read as signed out, so that signing in again replaces it.
    SimWorld stored;
    stored.desk.secrets.items[kService] = dumpJson(Json{{"access", good}, {"refresh", bad}});
    EXPECT_FALSE(stored.app->auth().isSignedIn());
  }
}

// --- Refresh.

TEST(Refresh, WithoutARefreshTokenFailsAtOnceAndDoesNotSignOut) {
  SimWorld w;
  std::optional<RefreshOutcome::Kind> result;
  w.app->auth().refresh([&](RefreshOutcome outcome) { result = outcome.kind; });
  EXPECT_EQ(result, RefreshOutcome::Kind::refused) << "called on the caller's thread, before returning";
  w.advance(60);
  EXPECT_EQ(w.desk.http.requestCount(), 0u);
  EXPECT_EQ(changes(w), 0);
}

TEST(Refresh, ANewPairReplacesTheOldOneSilently) {
  SimWorld w;
  w.signIn("old@example.fr", "refresh-1");
  const std::string access = accessTokenFor("New@Example.fr");
  w.desk.http.enqueue(kRefreshPath, SimAnswer::json(400, tokenAnswer(access, "refresh-2")));
  std::optional<RefreshOutcome::Kind> result;
  w.app->auth().refresh([&](RefreshOutcome outcome) { result = outcome.kind; });
  w.advance();
  EXPECT_EQ(result, RefreshOutcome::Kind::refreshed);
  EXPECT_EQ(w.app->auth().refreshToken(), "refresh-2");
  EXPECT_EQ(w.app->auth().email(), "new@example.fr");
  EXPECT_EQ(*parseJson(w.desk.secrets.items.at(kService)), (Json{{"access", access}, {"refresh", "refresh-2"}}));
  EXPECT_EQ(changes(w), 0);

  auto requests = w.desk.http.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].url, std::string("https://project.supabase.test") + kRefreshPath);
  EXPECT_EQ(*parseJson(*requests[0].body), (Json{{"refresh_token", "refresh-1"}}));
  for (const auto& [name, value] : requests[0].headers) EXPECT_NE(name, "Authorization");
}

// What a failure that is not a refusal leaves is told with the correction that needed it, in
// engine_flow_test.cpp.
TEST(Refresh, ARefusalSignsOutAfterReportingIt) {
  const SimAnswer refusals[] = {
      SimAnswer::json(400, R"({"error_code":"refresh_token_not_found","msg":"Invalid Refresh Token"})"),
      SimAnswer::json(401, ""),
      SimAnswer::json(403, "<html>Forbidden</html>"),
  };
  for (const auto& answer : refusals) {
    SimWorld w;
    w.signIn();
    std::optional<RefreshOutcome::Kind> result;
    bool signedInWhenDone = false;
    w.desk.http.enqueue(kRefreshPath, answer);
    w.app->auth().refresh([&](RefreshOutcome outcome) {
      result = outcome.kind;
      signedInWhenDone = w.app->auth().isSignedIn();
    });
    w.advance();
    EXPECT_EQ(result, RefreshOutcome::Kind::refused);
    EXPECT_TRUE(signedInWhenDone) << "the sign-out is queued for the main queue, after the report";
    EXPECT_FALSE(w.app->auth().isSignedIn());
    EXPECT_TRUE(w.desk.secrets.items.empty());
    EXPECT_EQ(changes(w), 1);
  }
}

}  // namespace
}  // namespace mirlo
