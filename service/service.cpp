#include "service/service.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utf8proc.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "base/text.h"
#include "base/url.h"

namespace mirlo::service {

namespace {

const char* const kJson = "application/json";
const char* const kHtml = "text/html; charset=utf-8";

std::string isoTime(std::int64_t t) {
  const std::time_t tt = static_cast<std::time_t>(t);
  std::tm tm{};
  gmtime_r(&tt, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

std::size_t codePoints(std::string_view s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80 ? 1 : 0;
  return n;
}

void sendJson(http::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(dumpJson(body), kJson);
}

// Supabase Auth's error body.
void authError(http::Response& res, int status, const std::string& code, const std::string& msg) {
  sendJson(res, status, Json{{"code", status}, {"error_code", code}, {"msg", msg}});
}

Json authErrorBody(int status, const std::string& code, const std::string& msg) {
  return Json{{"code", status}, {"error_code", code}, {"msg", msg}};
}

// The correction function's error body.
Json functionError(const std::string& code, const std::string& error) { return Json{{"code", code}, {"error", error}}; }

// A JSON object body, or nothing (with `why` set) when the body is not one.
std::optional<Json> objectBody(const http::Request& req) {
  auto body = parseJson(req.body);
  if (!body || !body->is_object()) return std::nullopt;
  return body;
}

// A member that must be a string when present: true and `out` set (empty when absent), or
// false when it has another type.
bool stringMember(const Json& obj, const char* key, std::string& out) {
  const auto it = obj.find(key);
  if (it == obj.end() || it->is_null()) {
    out.clear();
    return true;
  }
  if (!it->is_string()) return false;
  out = it->get<std::string>();
  return true;
}

bool plausibleEmail(const std::string& email) {
  if (email.size() > 255 || email.size() < 3) return false;
  const auto at = email.find('@');
  if (at == std::string::npos || at == 0 || email.find('@', at + 1) != std::string::npos) return false;
  const auto dot = email.find('.', at + 2);
  if (dot == std::string::npos || dot + 1 >= email.size()) return false;
  for (unsigned char c : email)
    if (c <= ' ' || c == 0x7f || c == '<' || c == '>' || c == '(' || c == ')' || c == ',' || c == ';' || c == ':' ||
        c == '\\' || c == '"' || c == '[' || c == ']')
      return false;
  return true;
}

std::string lowerAscii(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

std::string bearerToken(const http::Request& req) {
  const std::string h = req.get_header_value("Authorization");
  if (h.size() > 7 && lowerAscii(h.substr(0, 7)) == "bearer ") return h.substr(7);
  return {};
}

bool isLoopback(const std::string& addr) {
  return addr == "127.0.0.1" || addr == "::1" || addr == "::ffff:127.0.0.1" || addr.rfind("127.", 0) == 0;
}

std::string percentEncode(const std::string& s) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : s) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.' ||
        c == '~')
      out += static_cast<char>(c);
    else
      out += '%', out += hex[c >> 4], out += hex[c & 15];
  }
  return out;
}

}  // namespace

std::optional<int> dailyLimitOf(const std::string& plan, int freeLimit) {
  if (plan == "gratuit") return freeLimit;
  if (plan == "pro_mensuel" || plan == "pro_annuel" || plan == "lifetime") return -1;
  return std::nullopt;
}

std::optional<Secrets> loadOrCreateSecrets(const std::string& path, std::string* error) {
  auto fail = [&](const std::string& why) -> std::optional<Secrets> {
    if (error) *error = why;
    return std::nullopt;
  };
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0 && errno == ENOENT) {
    const Json fresh = {{"jwt_secret", base64UrlEncode(randomBytes(32))}, {"seal_key", base64UrlEncode(randomBytes(32))}};
    const std::string text = dumpJson(fresh) + "\n";
    const std::string tmp = path + ".new";
    ::unlink(tmp.c_str());
    const int w = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (w < 0) return fail("cannot create " + tmp + ": " + std::strerror(errno));
    const bool written = ::write(w, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && ::fsync(w) == 0;
    ::close(w);
    if (!written || ::rename(tmp.c_str(), path.c_str()) != 0) {
      ::unlink(tmp.c_str());
      return fail("cannot write " + path + ": " + std::strerror(errno));
    }
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  }
  if (fd < 0) return fail("cannot read " + path + ": " + std::strerror(errno));
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return fail(path + " is not a regular file");
  }
  if ((st.st_mode & 077) != 0) ::fchmod(fd, 0600);  // never leave the secrets readable by others
  std::string text(static_cast<std::size_t>(st.st_size > 4096 ? 4096 : st.st_size), '\0');
  const ssize_t n = ::read(fd, text.data(), text.size());
  ::close(fd);
  if (n < 0) return fail("cannot read " + path);
  text.resize(static_cast<std::size_t>(n));
  const auto parsed = parseJson(text);
  Secrets s;
  if (parsed && parsed->is_object()) {
    std::string jwt, seal;
    if (stringMember(*parsed, "jwt_secret", jwt) && stringMember(*parsed, "seal_key", seal)) {
      const auto j = base64UrlDecode(jwt);
      const auto k = base64UrlDecode(seal);
      if (j && k && j->size() >= 32 && k->size() == 32) return Secrets{*j, *k};
    }
  }
  return fail(path + " is damaged; move it away to start with new secrets (every session will end)");
}

std::unique_ptr<Service> Service::create(ServiceConfig config, std::string* error) {
  auto fail = [&](const std::string& why) -> std::unique_ptr<Service> {
    if (error) *error = why;
    return nullptr;
  };
  if (!initCrypto()) return fail("libsodium could not start");
  if (config.dataDir.empty()) return fail("no data directory");
  if (::mkdir(config.dataDir.c_str(), 0700) != 0 && errno != EEXIST)
    return fail("cannot create " + config.dataDir + ": " + std::strerror(errno));
  if (!config.clock)
    config.clock = [] {
      return static_cast<std::int64_t>(
          std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count());
    };
  std::string why;
  const auto secrets = loadOrCreateSecrets(config.dataDir + "/secrets.json", &why);
  if (!secrets) return fail(why);
  auto store = Store::open(config.dataDir + "/service.db", &why, Store::Options{config.maxDatabasePages});
  if (!store) return fail("database " + config.dataDir + "/service.db: " + why);
  auto engine = openFrenchEngine(config.engine);  // loads in the background
  return std::unique_ptr<Service>(
      new Service(std::move(config), std::move(store), std::move(engine), secrets->jwtSecret, secrets->sealKey));
}

Service::Service(ServiceConfig config, std::unique_ptr<Store> store, std::unique_ptr<CorrectionEngine> engine,
                 std::string jwtSecret, std::string sealKey)
    : config_(std::move(config)),
      store_(std::move(store)),
      engine_(std::move(engine)),
      rephraser_(config_.rephrase),
      jwtSecret_(std::move(jwtSecret)),
      sealKey_(std::move(sealKey)),
      failedSignIns_(config_.signIn),
      hashGate_(config_.signIn) {
  http::Limits limits;
  limits.maxConnections = config_.maxConnections;
  limits.maxHeaderBytes = config_.maxHeaderBytes;
  limits.maxBodyBytes = config_.maxBodyBytes;
  limits.requestDeadline = config_.requestDeadline;
  limits.workers = config_.workers;
  server_ = std::make_unique<http::Server>(limits);
  dummyHash_ = hashPassword(randomToken(), config_.passwordCost).value_or("");
  routes();
}

Service::~Service() { stop(); }

std::int64_t Service::now() const { return config_.clock(); }

std::string Service::today() const {
  const std::time_t tt = static_cast<std::time_t>(now());
  std::tm tm{};
  gmtime_r(&tt, &tm);
  char buf[16];
  std::strftime(buf, sizeof buf, "%Y-%m-%d", &tm);
  return buf;
}

int Service::bind(std::string* error) {
  const int port = server_->bind(config_.host, config_.port, error);
  if (port > 0) config_.port = port;  // the issuer and the sign-in's own pages name the real port
  return port;
}

bool Service::run() { return server_->run(); }

void Service::stop() {
  if (server_) server_->stop();
}

bool Service::waitUntilReady(int timeoutMs) const {
  for (int waited = 0; waited < timeoutMs; waited += 5) {
    if (server_->running()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return server_->running();
}

// ---------------------------------------------------------------------------------------------
// Routing

void Service::routes() {
  auto& s = *server_;
  if (config_.accessLog) {
    // The path only: the query may carry addresses and the bodies carry passwords and tokens.
    // Escaped, since a decoded path could otherwise forge lines or reach the operator's terminal.
    s.setLogger([](const http::Request& req, const http::Response& res) {
      std::fprintf(stderr, "%s %s %d\n", http::loggable(req.method).c_str(), http::loggable(req.path).c_str(),
                   res.status);
    });
  }
  s.setExceptionHandler([](const http::Request& req, http::Response& res) {
    if (req.path.rfind("/functions/", 0) == 0)
      sendJson(res, 500, functionError("internal", "Erreur interne du service"));
    else
      authError(res, 500, "unexpected_failure", "Unexpected failure, please check server logs for more information");
  });
  // Errors that never reached a handler (unknown path, body over the limit, a malformed request)
  // still answer in the shape the caller expects.
  s.setErrorHandler([](const http::Request& req, http::Response& res) {
    if (!res.body.empty()) return;
    const int status = res.status;
    const bool tooLarge = status == 413, notFound = status == 404;
    if (req.path.rfind("/functions/", 0) == 0) {
      sendJson(res, status,
               tooLarge   ? functionError("too_large", "Requête trop volumineuse")
               : notFound ? functionError("not_found", "Fonction inconnue")
                          : functionError("bad_request", "Requête invalide"));
    } else if (req.path.rfind("/auth/", 0) == 0) {
      authError(res, status, tooLarge ? "request_too_large" : notFound ? "not_found" : "bad_request",
                tooLarge ? "Request body too large" : notFound ? "Not found" : "Bad request");
    } else {
      res.set_content(tooLarge   ? "<!doctype html><p>Requête trop volumineuse.</p>"
                      : notFound ? "<!doctype html><meta charset=utf-8><title>Introuvable</title><p>Page introuvable.</p>"
                                 : "<!doctype html><meta charset=utf-8><p>Requête invalide.</p>",
                      kHtml);
    }
  });

  s.route("POST", "/auth/v1/signup", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) signup(req, res);
  });
  s.route("POST", "/auth/v1/token", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) token(req, res);
  });
  s.route("GET", "/auth/v1/user", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) getUser(req, res);
  });
  s.route("POST", "/auth/v1/logout", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) logout(req, res);
  });
  // The browser's sign-in pages are opened without a key, as on the hosted gateway.
  s.route("GET", "/auth/v1/authorize", [this](const auto& req, auto& res) { authorizePage(req, res); });
  s.route("POST", "/auth/v1/authorize", [this](const auto& req, auto& res) { authorizeSubmit(req, res); });

  s.route("POST", "/functions/v1/correct", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) correct(req, res);
  });
  s.route("GET", "/functions/v1/account", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) account(req, res);
  });
  s.route("POST", "/functions/v1/account/plan", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) changePlan(req, res);
  });

  s.route("GET", "/version.json", [this](const auto&, auto& res) {
    res.set_header("Cache-Control", "no-cache");
    sendJson(res, 200, Json{{"version", config_.announcedVersion}});
  });
  s.route("GET", "/", [this](const auto&, auto& res) {
    res.set_content(siteIndexPage(std::to_string(config_.freeDailyLimit)), kHtml);
  });
  s.route("GET", "/compte.html", [this](const auto&, auto& res) { res.set_content(siteAccountPage(config_.anonKey), kHtml); });
  s.route("GET", "/Mirlo.dmg", [](const auto&, auto& res) {
    res.status = 404;
    res.set_content(siteNoDiskImagePage(), kHtml);
  });
}

bool Service::gatewayAllows(const http::Request& req, http::Response& res) const {
  const std::string key = req.get_header_value("apikey");
  if (key.empty()) {
    sendJson(res, 401, Json{{"message", "No API key found in request"}});
    return false;
  }
  const auto check = verifyJwt(key, config_.apiKeySecret, now());
  std::string role;
  if (check.payload) stringMember(*check.payload, "role", role);
  if (role != "anon" && role != "service_role") {
    sendJson(res, 401, Json{{"message", "Invalid API key"}});
    return false;
  }
  return true;
}

std::optional<Service::Caller> Service::authenticate(const http::Request& req) const {
  const std::string token = bearerToken(req);
  if (token.empty()) return std::nullopt;
  const auto check = verifyJwt(token, jwtSecret_, now());
  if (!check.payload) return std::nullopt;
  std::string sub, role, aud, session;
  if (!stringMember(*check.payload, "sub", sub) || !stringMember(*check.payload, "role", role) ||
      !stringMember(*check.payload, "aud", aud) || !stringMember(*check.payload, "session_id", session))
    return std::nullopt;
  if (role != "authenticated" || aud != "authenticated" || sub.empty() || session.empty()) return std::nullopt;
  // A signed-out or stolen-and-revoked session ends its access tokens too.
  if (!store_->sessionActive(session, sub)) return std::nullopt;
  auto user = store_->findUser(sub);
  if (!user) return std::nullopt;
  return Caller{std::move(*user), session};
}

// ---------------------------------------------------------------------------------------------
// Sessions

Json Service::tokenResponse(const User& user, const std::string& sessionId, const std::string& refreshToken,
                            const std::string& method) const {
  const std::int64_t t = now();
  const std::int64_t exp = t + config_.accessTokenSeconds;
  const std::string issuer =
      (config_.publicUrl.empty() ? "http://" + config_.host + ":" + std::to_string(config_.port) : config_.publicUrl) +
      "/auth/v1";
  const Json appMetadata = {{"provider", "email"}, {"providers", Json::array({"email"})}};
  const Json claims = {{"iss", issuer},
                       {"sub", user.id},
                       {"aud", "authenticated"},
                       {"exp", exp},
                       {"iat", t},
                       {"email", user.email},
                       {"phone", ""},
                       {"app_metadata", appMetadata},
                       {"user_metadata", Json::object()},
                       {"role", "authenticated"},
                       {"aal", "aal1"},
                       {"amr", Json::array({Json{{"method", method}, {"timestamp", t}}})},
                       {"session_id", sessionId},
                       {"is_anonymous", false}};
  const Json userObject = {{"id", user.id},
                           {"aud", "authenticated"},
                           {"role", "authenticated"},
                           {"email", user.email},
                           {"email_confirmed_at", isoTime(user.createdAt)},
                           {"phone", ""},
                           {"confirmed_at", isoTime(user.createdAt)},
                           {"last_sign_in_at", isoTime(user.lastSignInAt ? user.lastSignInAt : t)},
                           {"app_metadata", appMetadata},
                           {"user_metadata", Json::object()},
                           {"identities", Json::array()},
                           {"created_at", isoTime(user.createdAt)},
                           {"updated_at", isoTime(user.updatedAt)},
                           {"is_anonymous", false}};
  return Json{{"access_token", signJwt(claims, jwtSecret_)},
              {"token_type", "bearer"},
              {"expires_in", config_.accessTokenSeconds},
              {"expires_at", exp},
              {"refresh_token", refreshToken},
              {"user", userObject}};
}

Service::SignInResult Service::issueSession(const User& user, const std::string& method) {
  const std::string sessionId = randomUuid();
  const std::string refresh = randomToken();
  if (store_->createSession(sessionId, user.id, refresh, now()) != StoreStatus::ok) {
    std::fprintf(stderr, "storage: cannot record a session: %s\n", store_->lastError().c_str());
    return {500, authErrorBody(500, "unexpected_failure",
                               "Unexpected failure, please check server logs for more information")};
  }
  return {200, tokenResponse(user, sessionId, refresh, method)};
}

// Supabase Auth's answer when sign-in attempts come too fast.
Service::SignInResult Service::tooManyAttempts() {
  return {429, authErrorBody(429, "over_request_rate_limit", "Request rate limit reached")};
}

Service::SignInResult Service::passwordSignIn(const std::string& emailIn, const std::string& password,
                                              const std::string& address) {
  const std::string email = lowerAscii(emailIn);
  if (email.empty()) return {400, authErrorBody(400, "validation_failed", "missing email or phone")};
  // Unknown e-mails are counted like known ones, so that the limit does not tell them apart.
  if (!failedSignIns_.allowed(email, address, now())) return tooManyAttempts();
  const auto slot = hashGate_.enter();
  if (!slot) return tooManyAttempts();
  const auto found = store_->findUserByEmail(email);
  // Verify against a throw-away hash when the account does not exist, so that the answer's
  // timing does not tell which e-mails have accounts.
  const bool ok = verifyPassword(found ? found->second : dummyHash_, password) && found;
  if (!ok) {
    failedSignIns_.failed(email, address, now());
    return {400, authErrorBody(400, "invalid_credentials", "Invalid login credentials")};
  }
  failedSignIns_.succeeded(email);
  return issueSession(found->first, "password");
}

Service::SignInResult Service::passwordSignUp(const std::string& emailIn, const std::string& password) {
  const std::string email = lowerAscii(emailIn);
  if (email.empty()) return {400, authErrorBody(400, "validation_failed", "To signup, please provide your email")};
  if (!plausibleEmail(email))
    return {400, authErrorBody(400, "validation_failed", "Unable to validate email address: invalid format")};
  if (password.empty()) return {422, authErrorBody(422, "validation_failed", "Signup requires a valid password")};
  if (codePoints(password) < 8) {
    Json body = authErrorBody(422, "weak_password", "Password should be at least 8 characters.");
    body["weak_password"] = Json{{"reasons", Json::array({"length"})}};
    return {422, body};
  }
  if (password.size() > 72)
    return {422, authErrorBody(422, "validation_failed", "Password cannot be longer than 72 characters")};
  if (store_->findUserByEmail(email))
    return {422, authErrorBody(422, "user_already_exists", "User already registered")};
  std::optional<std::string> hash;
  {
    const auto slot = hashGate_.enter();
    if (!slot) return tooManyAttempts();
    hash = hashPassword(password, config_.passwordCost);
  }
  if (!hash) return {500, authErrorBody(500, "unexpected_failure", "Unexpected failure, please check server logs for more information")};
  const std::int64_t t = now();
  User user{randomUuid(), email, "gratuit", t, t, 0};
  switch (store_->createUser(user, *hash)) {
    case StoreStatus::ok:
      break;
    case StoreStatus::conflict:  // a concurrent sign-up with the same e-mail won
      return {422, authErrorBody(422, "user_already_exists", "User already registered")};
    default:
      std::fprintf(stderr, "storage: cannot create an account: %s\n", store_->lastError().c_str());
      return {500, authErrorBody(500, "unexpected_failure",
                                 "Unexpected failure, please check server logs for more information")};
  }
  return issueSession(user, "password");
}

void Service::signup(const http::Request& req, http::Response& res) {
  const auto body = objectBody(req);
  std::string email, password;
  if (!body || !stringMember(*body, "email", email) || !stringMember(*body, "password", password))
    return authError(res, 400, "bad_json", "Could not parse request body as JSON");
  const auto r = passwordSignUp(email, password);
  sendJson(res, r.status, r.body);
}

void Service::token(const http::Request& req, http::Response& res) {
  const std::string grant = req.get_param_value("grant_type");
  if (grant != "password" && grant != "refresh_token")
    return authError(res, 400, "validation_failed", "unsupported_grant_type");
  const auto body = objectBody(req);
  if (!body) return authError(res, 400, "bad_json", "Could not parse request body as JSON");

  if (grant == "password") {
    std::string email, password;
    if (!stringMember(*body, "email", email) || !stringMember(*body, "password", password))
      return authError(res, 400, "bad_json", "Could not parse request body as JSON");
    const auto r = passwordSignIn(email, password, req.remote_addr);
    return sendJson(res, r.status, r.body);
  }

  std::string refresh;
  if (!stringMember(*body, "refresh_token", refresh))
    return authError(res, 400, "bad_json", "Could not parse request body as JSON");
  if (refresh.empty()) return authError(res, 400, "refresh_token_not_found", "Invalid Refresh Token: Refresh Token Not Found");
  const auto out = store_->rotate(refresh, now(), config_.refreshReuseSeconds, sealKey_);
  switch (out.kind) {
    case RefreshOutcome::notFound:
      return authError(res, 400, "refresh_token_not_found", "Invalid Refresh Token: Refresh Token Not Found");
    case RefreshOutcome::alreadyUsed:
      return authError(res, 400, "refresh_token_already_used", "Invalid Refresh Token: Already Used");
    case RefreshOutcome::failed:
      std::fprintf(stderr, "storage: cannot rotate a refresh token: %s\n", store_->lastError().c_str());
      return authError(res, 500, "unexpected_failure", "Unexpected failure, please check server logs for more information");
    case RefreshOutcome::rotated:
      break;
  }
  const auto user = store_->findUser(out.userId);
  if (!user) return authError(res, 400, "refresh_token_not_found", "Invalid Refresh Token: Refresh Token Not Found");
  sendJson(res, 200, tokenResponse(*user, out.sessionId, out.refreshToken, "token_refresh"));
}

void Service::getUser(const http::Request& req, http::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return authError(res, 403, "bad_jwt", "invalid JWT: unable to parse or verify signature");
  sendJson(res, 200, tokenResponse(caller->user, caller->sessionId, "", "password")["user"]);
}

void Service::logout(const http::Request& req, http::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return authError(res, 403, "bad_jwt", "invalid JWT: unable to parse or verify signature");
  if (store_->revokeSession(caller->sessionId) != StoreStatus::ok)
    return authError(res, 500, "unexpected_failure", "Unexpected failure, please check server logs for more information");
  res.status = 204;
}

// ---------------------------------------------------------------------------------------------
// Browser sign-in

namespace {

// Where a browser would send a request for `address`: its scheme, host and port. Nothing for an
// address that is not read the same way by every browser: one with user information
// ("http://127.0.0.1:@evil.example/" goes to evil.example), a host in anything but plain letters,
// digits, dots and hyphens (or a bracketed IPv6 literal), or a fragment, which the tokens'
// own would follow.
struct Origin {
  std::string scheme, host;
  int port = 0;
  bool operator==(const Origin&) const = default;
};

std::optional<Origin> originOf(const std::string& address) {
  const auto parsed = url::parse(address);  // strict: no control character, space or backslash
  if (!parsed || !parsed->host || parsed->fragment) return std::nullopt;
  const auto authorityStart = address.find("//") + 2;
  const auto authorityEnd = address.find_first_of("/?#", authorityStart);
  if (address.substr(authorityStart, authorityEnd - authorityStart).find('@') != std::string::npos) return std::nullopt;
  Origin o{lowerAscii(parsed->scheme), lowerAscii(*parsed->host), 0};
  if (o.scheme != "http" && o.scheme != "https") return std::nullopt;
  if (o.host.empty()) return std::nullopt;
  if (o.host.front() == '[') {
    if (o.host.find_first_not_of("[]:.0123456789abcdef") != std::string::npos) return std::nullopt;
  } else if (o.host.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") != std::string::npos) {
    return std::nullopt;
  }
  o.port = parsed->port.value_or(o.scheme == "https" ? 443 : 80);
  return o;
}

}  // namespace

bool Service::redirectAllowed(const std::string& address) const {
  // A line break would end the Location header early: the answer would lose its tokens.
  for (unsigned char c : address)
    if (c < 0x20 || c == 0x7f) return false;
  for (const auto& allowed : config_.redirectAllowList)
    if (address == allowed) return true;
  const auto origin = originOf(address);
  if (!origin) return false;
  // Pages of this service, and of the local machine (a development server) on any port.
  const auto self = originOf(config_.publicUrl.empty()
                                 ? "http://" + config_.host + ":" + std::to_string(config_.port)
                                 : config_.publicUrl);
  if (self && *origin == *self) return true;
  return origin->scheme == "http" &&
         (origin->host == "127.0.0.1" || origin->host == "localhost" || origin->host == "[::1]");
}

void Service::authorizePage(const http::Request& req, http::Response& res) {
  const std::string provider = req.get_param_value("provider");
  if (provider != "google" && provider != "email")
    return authError(res, 400, "validation_failed",
                     "Unsupported provider: provider " + provider + " could not be found");
  std::string redirect = req.get_param_value("redirect_to");
  if (!redirectAllowed(redirect)) redirect = "/";
  res.set_header("Cache-Control", "no-store");
  res.set_content(signInPage(provider, redirect, "", ""), kHtml);
}

void Service::authorizeSubmit(const http::Request& req, http::Response& res) {
  const std::string provider = req.get_param_value("provider");
  std::string redirect = req.get_param_value("redirect_to");
  if (!redirectAllowed(redirect)) redirect = "/";
  const std::string action = req.get_param_value("action");
  res.set_header("Cache-Control", "no-store");
  if (action == "cancel") {
    res.set_redirect(redirect + "#error=access_denied&error_code=access_denied&error_description=" +
                         percentEncode("L'utilisateur a annulé la connexion"),
                     303);
    return;
  }
  const std::string email = req.get_param_value("email");
  const std::string password = req.get_param_value("password");
  const auto r =
      action == "signup" ? passwordSignUp(email, password) : passwordSignIn(email, password, req.remote_addr);
  if (r.status != 200) {
    std::string code;
    stringMember(r.body, "error_code", code);
    std::string message = "La connexion a échoué, réessaie.";
    if (code == "invalid_credentials") message = "Email ou mot de passe incorrect.";
    else if (code == "user_already_exists") message = "Ce compte existe déjà : utilise « Se connecter ».";
    else if (code == "weak_password") message = "Mot de passe trop court (8 caractères minimum).";
    else if (code == "validation_failed") message = "Adresse e-mail ou mot de passe invalide.";
    else if (code == "over_request_rate_limit") message = "Trop de tentatives : réessaie dans quelques minutes.";
    res.status = r.status == 500 || r.status == 429 ? r.status : 400;
    res.set_content(signInPage(provider, redirect, email, message), kHtml);
    return;
  }
  // The implicit flow: the tokens travel in the fragment, which browsers never send to servers.
  const auto& b = r.body;
  const std::string fragment = "access_token=" + b["access_token"].get<std::string>() +
                               "&expires_at=" + std::to_string(b["expires_at"].get<std::int64_t>()) +
                               "&expires_in=" + std::to_string(b["expires_in"].get<std::int64_t>()) +
                               "&refresh_token=" + b["refresh_token"].get<std::string>() + "&token_type=bearer" +
                               (action == "signup" ? "&type=signup" : "");
  res.set_redirect(redirect + "#" + fragment, 303);
}

// ---------------------------------------------------------------------------------------------
// Functions

Json Service::usageOf(const User& user) const {
  const auto limit = dailyLimitOf(user.plan, config_.freeDailyLimit).value_or(config_.freeDailyLimit);
  const auto used = store_->usage(user.id, today()).value_or(0);
  return Json{{"used", used}, {"limit", limit < 0 ? Json(nullptr) : Json(limit)}};
}

void Service::correct(const http::Request& req, http::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return sendJson(res, 401, functionError("auth", "Session expirée : reconnecte-toi."));
  const User& user = caller->user;
  const int limit = dailyLimitOf(user.plan, config_.freeDailyLimit).value_or(config_.freeDailyLimit);
  // Every answer past this point tells the account's plan, and its usage when it has a limit.
  auto withPlan = [&](Json body, int used) {
    body["plan"] = user.plan;
    if (limit >= 0) body["usage"] = Json{{"used", used}, {"limit", limit}};
    return body;
  };
  auto currentUsage = [&] { return store_->usage(user.id, today()).value_or(0); };

  const auto body = objectBody(req);
  std::string text, mode, device;
  if (!body || !stringMember(*body, "text", text) || !stringMember(*body, "mode", mode) ||
      !stringMember(*body, "device_id", device) || !body->contains("text"))
    return sendJson(res, 400, withPlan(functionError("bad_request", "Requête invalide"), currentUsage()));
  if (mode != "fix" && mode != "rephrase")
    return sendJson(res, 400, withPlan(functionError("bad_request", "Mode inconnu : « fix » ou « rephrase »"), currentUsage()));
  if (text.find_first_not_of(" \t\r\n") == std::string::npos)
    return sendJson(res, 400, withPlan(functionError("empty", "Aucun texte à corriger"), currentUsage()));
  if (mirlo::text::graphemeCount(text) > config_.maxTextChars)
    return sendJson(res, 413,
                    withPlan(functionError("too_long", "Texte trop long : " + std::to_string(config_.maxTextChars) +
                                                           " caractères au maximum"),
                             currentUsage()));
  if (mode == "rephrase" && !rephraser_.configured())
    return sendJson(res, 503,
                    withPlan(functionError("unavailable", "La reformulation n'est pas disponible sur ce service local"),
                             currentUsage()));

  const std::string day = today();
  const auto reservation = store_->reserve(user.id, day, limit);
  if (reservation.kind == UsageReservation::quota)
    return sendJson(res, 429,
                    withPlan(functionError("quota", "Tu as utilisé tes " + std::to_string(limit) +
                                                        " corrections gratuites d'aujourd'hui"),
                             reservation.used));
  if (reservation.kind == UsageReservation::failed) {
    // Without a count there is no correction: the quota must never be bypassed by a fault.
    std::fprintf(stderr, "storage: cannot count a correction: %s\n", store_->lastError().c_str());
    return sendJson(res, 503, functionError("storage", "Le service ne peut rien enregistrer pour le moment, réessaie plus tard"));
  }

  std::optional<std::string> result;
  int failureStatus = 502;
  std::string failure = "La reformulation a échoué, réessaie dans un instant";
  if (mode == "fix") {
    auto answer = engine_->correct(text, EngineClock::now() + config_.engine.budget);
    if (answer.outcome == EngineAnswer::Outcome::corrected) result = std::move(answer.text);
    else if (answer.outcome == EngineAnswer::Outcome::overBudget)
      failureStatus = 504, failure = "La correction prend trop de temps, réessaie dans un instant ou avec un texte plus court";
    else failure = "La correction a échoué, réessaie dans un instant";
  } else {
    bool overBudget = false;
    result = rephraser_.rephrase(text, &overBudget);
    if (overBudget)
      failureStatus = 504, failure = "La reformulation prend trop de temps, réessaie dans un instant ou avec un texte plus court";
  }
  if (!result || result->empty()) {
    if (store_->release(user.id, day) != StoreStatus::ok)
      std::fprintf(stderr, "storage: cannot give back a correction: %s\n", store_->lastError().c_str());
    return sendJson(res, failureStatus, withPlan(functionError("upstream", failure), currentUsage()));
  }
  Json answer = withPlan(Json{{"result", *result}}, reservation.used);
  sendJson(res, 200, answer);
  // A client that has gone away never received its correction: it is not counted.
  res.undelivered = [this, id = user.id, day] {
    if (store_->release(id, day) != StoreStatus::ok)
      std::fprintf(stderr, "storage: cannot give back a correction: %s\n", store_->lastError().c_str());
  };
}

void Service::account(const http::Request& req, http::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return sendJson(res, 401, functionError("auth", "Session expirée : reconnecte-toi."));
  sendJson(res, 200,
           Json{{"email", caller->user.email},
                {"plan", caller->user.plan},
                {"usage", usageOf(caller->user)},
                {"plans", Json::array({"gratuit", "pro_mensuel", "pro_annuel", "lifetime"})}});
}

void Service::changePlan(const http::Request& req, http::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return sendJson(res, 401, functionError("auth", "Session expirée : reconnecte-toi."));
  // There is no payment here: only someone at this machine may change a plan.
  if (!isLoopback(req.remote_addr))
    return sendJson(res, 403, functionError("forbidden", "Le forfait ne se change que depuis cette machine"));
  const auto body = objectBody(req);
  std::string plan;
  if (!body || !stringMember(*body, "plan", plan) || !dailyLimitOf(plan, config_.freeDailyLimit))
    return sendJson(res, 400, functionError("bad_request", "Forfait inconnu"));
  if (store_->setPlan(caller->user.id, plan, now()) != StoreStatus::ok)
    return sendJson(res, 503, functionError("storage", "Le service ne peut rien enregistrer pour le moment, réessaie plus tard"));
  User updated = caller->user;
  updated.plan = plan;
  sendJson(res, 200, Json{{"email", updated.email}, {"plan", plan}, {"usage", usageOf(updated)}});
}

}  // namespace mirlo::service
