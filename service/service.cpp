#include "service/service.h"

#include <fcntl.h>
#include <httplib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utf8proc.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

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

void sendJson(httplib::Response& res, int status, const Json& body) {
  res.status = status;
  res.set_content(dumpJson(body), kJson);
}

// Supabase Auth's error body.
void authError(httplib::Response& res, int status, const std::string& code, const std::string& msg) {
  sendJson(res, status, Json{{"code", status}, {"error_code", code}, {"msg", msg}});
}

Json authErrorBody(int status, const std::string& code, const std::string& msg) {
  return Json{{"code", status}, {"error_code", code}, {"msg", msg}};
}

// The correction function's error body.
Json functionError(const std::string& code, const std::string& error) { return Json{{"code", code}, {"error", error}}; }

// A JSON object body, or nothing (with `why` set) when the body is not one.
std::optional<Json> objectBody(const httplib::Request& req) {
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

std::string bearerToken(const httplib::Request& req) {
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
      server_(std::make_unique<httplib::Server>()) {
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

int Service::bind() {
  if (config_.port == 0) return server_->bind_to_any_port(config_.host);
  return server_->bind_to_port(config_.host, config_.port) ? config_.port : -1;
}

bool Service::run() { return server_->listen_after_bind(); }

void Service::stop() {
  if (server_) server_->stop();
}

bool Service::waitUntilReady(int timeoutMs) const {
  for (int waited = 0; waited < timeoutMs; waited += 5) {
    if (server_->is_running()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return server_->is_running();
}

// ---------------------------------------------------------------------------------------------
// Routing

void Service::routes() {
  auto& s = *server_;
  s.set_payload_max_length(config_.maxBodyBytes);
  s.set_read_timeout(10, 0);
  s.set_write_timeout(10, 0);
  s.set_keep_alive_max_count(1000);
  s.set_tcp_nodelay(true);

  if (config_.accessLog) {
    // The path only: the query may carry addresses and the bodies carry passwords and tokens.
    s.set_logger([](const httplib::Request& req, const httplib::Response& res) {
      std::fprintf(stderr, "%s %s %d\n", req.method.c_str(), req.path.c_str(), res.status);
    });
  }
  s.set_exception_handler([](const httplib::Request& req, httplib::Response& res, std::exception_ptr) {
    if (req.path.rfind("/functions/", 0) == 0)
      sendJson(res, 500, functionError("internal", "Erreur interne du service"));
    else
      authError(res, 500, "unexpected_failure", "Unexpected failure, please check server logs for more information");
  });
  // Errors that never reached a handler (unknown path, body over the limit) still answer in the
  // shape the caller expects.
  s.set_error_handler(httplib::Server::HandlerWithResponse([](const httplib::Request& req, httplib::Response& res) {
    if (!res.body.empty()) return httplib::Server::HandlerResponse::Unhandled;
    const bool tooLarge = res.status == 413;
    if (req.path.rfind("/functions/", 0) == 0) {
      sendJson(res, res.status,
               tooLarge ? functionError("too_large", "Requête trop volumineuse")
                        : functionError("not_found", "Fonction inconnue"));
    } else if (req.path.rfind("/auth/", 0) == 0) {
      const int status = res.status;
      authError(res, status, tooLarge ? "request_too_large" : "not_found",
                tooLarge ? "Request body too large" : "Not found");
    } else {
      res.set_content(tooLarge ? "<!doctype html><p>Requête trop volumineuse.</p>"
                               : "<!doctype html><meta charset=utf-8><title>Introuvable</title><p>Page introuvable.</p>",
                      kHtml);
    }
    return httplib::Server::HandlerResponse::Handled;
  }));

  s.Post("/auth/v1/signup", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) signup(req, res);
  });
  s.Post("/auth/v1/token", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) token(req, res);
  });
  s.Get("/auth/v1/user", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) getUser(req, res);
  });
  s.Post("/auth/v1/logout", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) logout(req, res);
  });
  // The browser's sign-in pages are opened without a key, as on the hosted gateway.
  s.Get("/auth/v1/authorize", [this](const auto& req, auto& res) { authorizePage(req, res); });
  s.Post("/auth/v1/authorize", [this](const auto& req, auto& res) { authorizeSubmit(req, res); });

  s.Post("/functions/v1/correct", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) correct(req, res);
  });
  s.Get("/functions/v1/account", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) account(req, res);
  });
  s.Post("/functions/v1/account/plan", [this](const auto& req, auto& res) {
    if (gatewayAllows(req, res)) changePlan(req, res);
  });

  s.Get("/version.json", [this](const auto&, auto& res) {
    res.set_header("Cache-Control", "no-cache");
    sendJson(res, 200, Json{{"version", config_.announcedVersion}});
  });
  s.Get("/", [this](const auto&, auto& res) {
    res.set_content(siteIndexPage(std::to_string(config_.freeDailyLimit)), kHtml);
  });
  s.Get("/compte.html", [this](const auto&, auto& res) { res.set_content(siteAccountPage(config_.anonKey), kHtml); });
  s.Get("/Mirlo.dmg", [](const auto&, auto& res) {
    res.status = 404;
    res.set_content(siteNoDiskImagePage(), kHtml);
  });
}

bool Service::gatewayAllows(const httplib::Request& req, httplib::Response& res) const {
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

std::optional<Service::Caller> Service::authenticate(const httplib::Request& req) const {
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

Service::SignInResult Service::passwordSignIn(const std::string& emailIn, const std::string& password) {
  const std::string email = lowerAscii(emailIn);
  if (email.empty()) return {400, authErrorBody(400, "validation_failed", "missing email or phone")};
  const auto found = store_->findUserByEmail(email);
  // Verify against a throw-away hash when the account does not exist, so that the answer's
  // timing does not tell which e-mails have accounts.
  const bool ok = verifyPassword(found ? found->second : dummyHash_, password) && found;
  if (!ok) return {400, authErrorBody(400, "invalid_credentials", "Invalid login credentials")};
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
  const auto hash = hashPassword(password, config_.passwordCost);
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

void Service::signup(const httplib::Request& req, httplib::Response& res) {
  const auto body = objectBody(req);
  std::string email, password;
  if (!body || !stringMember(*body, "email", email) || !stringMember(*body, "password", password))
    return authError(res, 400, "bad_json", "Could not parse request body as JSON");
  const auto r = passwordSignUp(email, password);
  sendJson(res, r.status, r.body);
}

void Service::token(const httplib::Request& req, httplib::Response& res) {
  const std::string grant = req.get_param_value("grant_type");
  if (grant != "password" && grant != "refresh_token")
    return authError(res, 400, "validation_failed", "unsupported_grant_type");
  const auto body = objectBody(req);
  if (!body) return authError(res, 400, "bad_json", "Could not parse request body as JSON");

  if (grant == "password") {
    std::string email, password;
    if (!stringMember(*body, "email", email) || !stringMember(*body, "password", password))
      return authError(res, 400, "bad_json", "Could not parse request body as JSON");
    const auto r = passwordSignIn(email, password);
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

void Service::getUser(const httplib::Request& req, httplib::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return authError(res, 403, "bad_jwt", "invalid JWT: unable to parse or verify signature");
  sendJson(res, 200, tokenResponse(caller->user, caller->sessionId, "", "password")["user"]);
}

void Service::logout(const httplib::Request& req, httplib::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return authError(res, 403, "bad_jwt", "invalid JWT: unable to parse or verify signature");
  if (store_->revokeSession(caller->sessionId) != StoreStatus::ok)
    return authError(res, 500, "unexpected_failure", "Unexpected failure, please check server logs for more information");
  res.status = 204;
}

// ---------------------------------------------------------------------------------------------
// Browser sign-in

bool Service::redirectAllowed(const std::string& url) const {
  for (const auto& allowed : config_.redirectAllowList)
    if (url == allowed) return true;
  // Pages of this service and of the local machine (a development server).
  const std::string self = config_.publicUrl.empty() ? "http://" + config_.host + ":" + std::to_string(config_.port)
                                                     : config_.publicUrl;
  auto under = [&](const std::string& base) {
    return url.rfind(base, 0) == 0 && (url.size() == base.size() || url[base.size()] == '/' ||
                                        url[base.size()] == ':' || url[base.size()] == '?');
  };
  return under(self) || under("http://127.0.0.1") || under("http://localhost");
}

void Service::authorizePage(const httplib::Request& req, httplib::Response& res) {
  const std::string provider = req.get_param_value("provider");
  if (provider != "google" && provider != "email")
    return authError(res, 400, "validation_failed",
                     "Unsupported provider: provider " + provider + " could not be found");
  std::string redirect = req.get_param_value("redirect_to");
  if (!redirectAllowed(redirect)) redirect = "/";
  res.set_header("Cache-Control", "no-store");
  res.set_content(signInPage(provider, redirect, "", ""), kHtml);
}

void Service::authorizeSubmit(const httplib::Request& req, httplib::Response& res) {
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
  const auto r = action == "signup" ? passwordSignUp(email, password) : passwordSignIn(email, password);
  if (r.status != 200) {
    std::string code;
    stringMember(r.body, "error_code", code);
    std::string message = "La connexion a échoué, réessaie.";
    if (code == "invalid_credentials") message = "Email ou mot de passe incorrect.";
    else if (code == "user_already_exists") message = "Ce compte existe déjà : utilise « Se connecter ».";
    else if (code == "weak_password") message = "Mot de passe trop court (8 caractères minimum).";
    else if (code == "validation_failed") message = "Adresse e-mail ou mot de passe invalide.";
    res.status = r.status == 500 ? 500 : 400;
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

void Service::correct(const httplib::Request& req, httplib::Response& res) {
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
  if (codePoints(text) > config_.maxTextChars)
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
    result = rephraser_.rephrase(text);
  }
  if (!result || result->empty()) {
    if (store_->release(user.id, day) != StoreStatus::ok)
      std::fprintf(stderr, "storage: cannot give back a correction: %s\n", store_->lastError().c_str());
    return sendJson(res, failureStatus, withPlan(functionError("upstream", failure), currentUsage()));
  }
  Json answer = withPlan(Json{{"result", *result}}, reservation.used);
  sendJson(res, 200, answer);
}

void Service::account(const httplib::Request& req, httplib::Response& res) {
  const auto caller = authenticate(req);
  if (!caller) return sendJson(res, 401, functionError("auth", "Session expirée : reconnecte-toi."));
  sendJson(res, 200,
           Json{{"email", caller->user.email},
                {"plan", caller->user.plan},
                {"usage", usageOf(caller->user)},
                {"plans", Json::array({"gratuit", "pro_mensuel", "pro_annuel", "lifetime"})}});
}

void Service::changePlan(const httplib::Request& req, httplib::Response& res) {
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
