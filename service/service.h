// mirlo-service: a small, real stand-in for the hosted service on one machine. It speaks the
// hosted service's contracts: Supabase-compatible sign-up, sign-in and token refresh behind an
// API-key gateway, the browser sign-in page, the correction endpoint with plans and a daily
// quota, and the product web site's few files.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "service/crypto.h"
#include "service/engine.h"
#include "service/http_server.h"
#include "service/rephraser.h"
#include "service/sign_in_limits.h"
#include "service/store.h"

namespace mirlo::service {

// The local Supabase stack's well-known demo secret, which signs the demo anonymous key that a
// default build of the program sends.
inline constexpr const char* kDemoApiKeySecret = "super-secret-jwt-token-with-at-least-32-characters-long";

struct ServiceConfig {
  std::string dataDir;  // holds service.db and the secrets file; created with mode 0700
  std::string host = "127.0.0.1";
  int port = 54321;  // 0: any free port (tests)
  // The address clients use, for the token issuer and the site's links; empty: http://host:port.
  std::string publicUrl;
  // API keys are HS256 JWTs with role "anon" or "service_role" signed with this secret.
  std::string apiKeySecret = kDemoApiKeySecret;
  // The anonymous key the site's pages send from the browser.
  std::string anonKey;
  std::string announcedVersion;  // "version" of /version.json
  PasswordCost passwordCost = PasswordCost::interactive();
  std::int64_t accessTokenSeconds = 3600;
  std::int64_t refreshReuseSeconds = 10;
  std::size_t maxTextChars = 5000;
  std::size_t maxBodyBytes = 1 << 20;
  // The HTTP layer: connections kept at once, the size of a request's head, the time allowed to
  // receive a whole request, and the threads that run handlers.
  std::size_t maxConnections = 128;
  std::size_t maxHeaderBytes = 16 * 1024;
  std::chrono::milliseconds requestDeadline{10'000};
  unsigned workers = 16;
  SignInLimits signIn;
  int freeDailyLimit = 3;
  // Where the browser sign-in may send tokens, besides the service itself and loopback pages.
  std::vector<std::string> redirectAllowList = {"mirlo://auth"};
  RephraseConfig rephrase;
  EngineConfig engine;  // corrections for "fix"
  std::int64_t maxDatabasePages = 0;
  bool accessLog = true;
  // Seconds since the epoch; tests move it forward.
  std::function<std::int64_t()> clock;
};

class Service {
 public:
  static std::unique_ptr<Service> create(ServiceConfig config, std::string* error);
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Binds the listening socket; the port bound, or -1 (with the reason in `error`).
  int bind(std::string* error);
  int bind() { return bind(nullptr); }
  // Serves until stop(); returns false if the server could not run.
  bool run();
  void stop();
  // Blocks until the server accepts connections (or `timeoutMs` passes).
  bool waitUntilReady(int timeoutMs) const;

  Store& store() { return *store_; }
  CorrectionEngine& engine() { return *engine_; }
  const ServiceConfig& config() const { return config_; }
  // The UTC day that usage is counted against, "YYYY-MM-DD".
  std::string today() const;

 private:
  Service(ServiceConfig config, std::unique_ptr<Store> store, std::unique_ptr<CorrectionEngine> engine,
          std::string jwtSecret, std::string sealKey);
  void routes();
  std::int64_t now() const;

  // Gateway and token checks.
  bool gatewayAllows(const http::Request& req, http::Response& res) const;
  struct Caller {
    User user;
    std::string sessionId;
  };
  std::optional<Caller> authenticate(const http::Request& req) const;

  // Auth endpoints.
  void signup(const http::Request& req, http::Response& res);
  void token(const http::Request& req, http::Response& res);
  void getUser(const http::Request& req, http::Response& res);
  void logout(const http::Request& req, http::Response& res);
  void authorizePage(const http::Request& req, http::Response& res);
  void authorizeSubmit(const http::Request& req, http::Response& res);

  // Functions.
  void correct(const http::Request& req, http::Response& res);
  void account(const http::Request& req, http::Response& res);
  void changePlan(const http::Request& req, http::Response& res);

  // Shared steps.
  struct SignInResult {
    int status = 0;
    Json body;  // a token response, or an error body
  };
  SignInResult passwordSignIn(const std::string& email, const std::string& password, const std::string& address);
  SignInResult passwordSignUp(const std::string& email, const std::string& password);
  SignInResult issueSession(const User& user, const std::string& method);
  static SignInResult tooManyAttempts();
  Json tokenResponse(const User& user, const std::string& sessionId, const std::string& refreshToken,
                     const std::string& method) const;
  Json usageOf(const User& user) const;
  bool redirectAllowed(const std::string& url) const;

  ServiceConfig config_;
  std::unique_ptr<Store> store_;
  std::unique_ptr<CorrectionEngine> engine_;
  Rephraser rephraser_;
  std::string jwtSecret_;
  std::string sealKey_;
  std::string dummyHash_;  // verified against when the e-mail is unknown, so timing does not tell
  FailedSignIns failedSignIns_;
  HashGate hashGate_;
  std::unique_ptr<http::Server> server_;
};

// Plans and their daily allowance (negative: unlimited); nothing for an unknown plan name.
std::optional<int> dailyLimitOf(const std::string& plan, int freeLimit);

// The pages of the product web site.
std::string siteIndexPage(const std::string& freeLimit);
std::string siteAccountPage(const std::string& anonKey);
std::string siteNoDiskImagePage();
std::string signInPage(const std::string& provider, const std::string& redirectTo, const std::string& email,
                       const std::string& message);

// Loads the service's secrets from `path`, creating them (mode 0600) on first start.
struct Secrets {
  std::string jwtSecret;
  std::string sealKey;
};
std::optional<Secrets> loadOrCreateSecrets(const std::string& path, std::string* error);

}  // namespace mirlo::service
