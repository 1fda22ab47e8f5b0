// The operations of the session that talk to Supabase Auth.
#include <cstdlib>
#include <memory>

#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "base/base64.h"
#include "base/json.h"
#include "base/text.h"
#include "base/url.h"

namespace mirlo {

namespace {

constexpr double kTimeoutSeconds = 15;

HttpRequest authRequest(const App& app, const std::string& url, const Json& body) {
  HttpRequest request;
  request.method = "POST";
  request.url = url;
  request.timeoutSeconds = kTimeoutSeconds;
  request.cachePolicy = CachePolicy::protocolDefault;
  request.headers = {{"Content-Type", "application/json"}, {"apikey", app.config().anonKey}};
  request.body = dumpJson(body);
  return request;
}

// Both tokens as strings, or nothing. A pair that is there but not usable (see usableToken) sets
// `unusable` and is nothing too.
std::optional<std::pair<std::string, std::string>> tokenPair(const Json& object, bool* unusable = nullptr) {
  if (!object.is_object()) return std::nullopt;
  auto access = object.find("access_token");
  auto refresh = object.find("refresh_token");
  if (access == object.end() || refresh == object.end() || !access->is_string() || !refresh->is_string())
    return std::nullopt;
  auto pair = std::make_pair(access->get<std::string>(), refresh->get<std::string>());
  if (!usableToken(pair.first) || !usableToken(pair.second)) {
    if (unusable) *unusable = true;
    return std::nullopt;
  }
  return pair;
}

// The addresses of sign-in and sign-up are built from the build's constants: one that does not
// parse is a broken build, not something a user can cause or recover from.
std::string checkedAddress(std::string address) {
  if (!url::parse(address)) std::abort();
  return address;
}

}  // namespace

std::string Auth::signInURL() const {
  return checkedAddress(app_.config().supabaseUrl + "/auth/v1/authorize?provider=" + url::encodeQueryValue("google") +
                        "&redirect_to=" + url::encodeQueryValue("mirlo://auth"));
}

bool Auth::handleCallback(const std::string& address) {
  auto parsed = url::parse(address);
  if (!parsed || !parsed->fragment) return false;
  std::optional<std::string> access, refresh;
  std::string_view fragment = *parsed->fragment;
  while (true) {
    auto amp = fragment.find('&');
    std::string_view piece = fragment.substr(0, amp);
    auto eq = piece.find('=');
    // A piece counts only when it splits into exactly two parts.
    if (eq != std::string_view::npos && piece.find('=', eq + 1) == std::string_view::npos) {
      std::string key(piece.substr(0, eq));
      std::string raw(piece.substr(eq + 1));
      std::string value = url::percentDecode(raw).value_or(raw);
      if (key == "access_token") access = value;
      if (key == "refresh_token") refresh = value;
    }
    if (amp == std::string_view::npos) break;
    fragment.remove_prefix(amp + 1);
  }
  if (!access || !refresh || !usableToken(*access) || !usableToken(*refresh)) return false;
  storeTokensAndPersist(*access, *refresh);
  app_.notifications().post(changed);
  return true;
}

void Auth::decodeEmail() {
  const std::string token = accessToken();
  auto firstDot = token.find('.');
  if (firstDot == std::string::npos) return;
  auto secondDot = token.find('.', firstDot + 1);
  std::string payload = token.substr(firstDot + 1, secondDot == std::string::npos ? std::string::npos
                                                                                   : secondDot - firstDot - 1);
  for (char& c : payload) {
    if (c == '-') c = '+';
    else if (c == '_') c = '/';
  }
  while (payload.size() % 4 != 0) payload.push_back('=');
  auto bytes = decodeBase64Strict(payload);
  if (!bytes) return;
  auto claims = parseJson(*bytes);
  if (!claims || !claims->is_object()) return;
  std::string decoded;
  if (auto it = claims->find("email"); it != claims->end() && it->is_string())
    decoded = text::unicodeLower(text::withoutControlCharacters(it->get<std::string>(), false));
  std::lock_guard lock(mutex_);
  email_ = decoded;
}

void Auth::signIn(const std::string& email, const std::string& password,
                  std::function<void(std::optional<std::string>)> done) {
  passwordRequest("/auth/v1/token?grant_type=password", {{"email", email}, {"password", password}}, std::move(done));
}

void Auth::signUp(const std::string& email, const std::string& password,
                  std::function<void(std::optional<std::string>)> done) {
  passwordRequest("/auth/v1/signup", {{"email", email}, {"password", password}}, std::move(done));
}

void Auth::passwordRequest(const std::string& path, const std::map<std::string, std::string>& body,
                           std::function<void(std::optional<std::string>)> done) {
  auto request = authRequest(app_, checkedAddress(app_.config().supabaseUrl + path), Json(body));
  MainQueue& main = app_.platform().mainQueue;
  app_.platform().http.send(std::move(request), [this, &main, done = std::move(done)](HttpResult result) mutable {
    main.post([this, result = std::move(result), done = std::move(done)] {
      if (std::holds_alternative<TransportError>(result)) {
        done("Connexion impossible, vérifie ton réseau");
        return;
      }
      const auto& response = std::get<HttpResponse>(result);
      auto object = parseJson(response.body);
      if (response.body.empty() || !object || !object->is_object()) {
        done("Réponse invalide");
        return;
      }
      bool unusable = false;
      if (auto tokens = tokenPair(*object, &unusable)) {
        storeTokensAndPersist(tokens->first, tokens->second);
        app_.notifications().post(changed);
        done(std::nullopt);
        return;
      }
      if (unusable) {
        done("Réponse invalide");
        return;
      }
      std::string code;
      if (auto it = object->find("error_code"); it != object->end() && it->is_string()) code = it->get<std::string>();
      if (code == "invalid_credentials") return done("Email ou mot de passe incorrect");
      if (code == "user_already_exists") return done("Ce compte existe déjà : utilise Se connecter");
      if (code == "weak_password") return done("Mot de passe trop court (8 caractères minimum)");
      // The auth server's own text for this one is English, and a person who sees it has only
      // to wait: say so in French.
      if (code == "over_request_rate_limit") return done("Trop de tentatives : réessaie dans quelques minutes");
      if (auto it = object->find("msg"); it != object->end() && it->is_string()) {
        auto message = text::withoutControlCharacters(it->get<std::string>(), true);
        if (!message.empty()) return done(message);
      }
      done("Erreur inconnue");
    });
  });
}

void Auth::refresh(std::function<void(RefreshOutcome)> done) {
  using Kind = RefreshOutcome::Kind;
  const std::string current = refreshToken();
  if (current.empty()) {
    done({Kind::refused, std::nullopt});
    return;
  }
  const std::string address = app_.config().supabaseUrl + "/auth/v1/token?grant_type=refresh_token";
  if (!url::parse(address)) {
    done({Kind::failed, std::nullopt});
    return;
  }
  auto request = authRequest(app_, address, Json{{"refresh_token", current}});
  MainQueue& main = app_.platform().mainQueue;
  app_.platform().http.send(std::move(request), [this, &main, done = std::move(done)](HttpResult result) {
    if (auto* failure = std::get_if<TransportError>(&result)) {
      done({Kind::failed, *failure});
      return;
    }
    const auto& response = std::get<HttpResponse>(result);
    bool unusable = false;
    if (auto object = parseJson(response.body)) {
      if (auto tokens = tokenPair(*object, &unusable)) {
        storeTokensAndPersist(tokens->first, tokens->second);
        done({Kind::refreshed, std::nullopt});
        return;
      }
    }
    // Tokens that cannot be used are an answer that cannot be read, not a refusal.
    if (unusable) {
      done({Kind::failed, std::nullopt});
      return;
    }
    // The body decides a success; only a client error without tokens is the server's refusal of
    // this refresh token. Anything else (a server error, a proxy's page) is kept for later.
    if (response.status >= 400 && response.status < 500) {
      main.post([this] { signOut(); });
      done({Kind::refused, std::nullopt});
      return;
    }
    done({Kind::failed, std::nullopt});
  });
}

}  // namespace mirlo
