// The client of the correction service: one request per correction, judged by its JSON body alone.
#include <memory>

#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "base/json.h"
#include "base/text.h"
#include "base/url.h"
#include "engine/engine.h"

namespace mirlo {

namespace {

constexpr double kTimeoutSeconds = 15;

std::optional<std::string> stringMember(const Json& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

// An integer that fits the quota figures; JSON numbers with a fraction are not integers.
std::optional<std::int64_t> integerMember(const Json& object, const char* key) {
  auto it = object.find(key);
  if (it == object.end()) return std::nullopt;
  if (it->is_number_integer()) {
    if (it->is_number_unsigned() && it->get<std::uint64_t>() > static_cast<std::uint64_t>(INT64_MAX))
      return std::nullopt;
    return it->get<std::int64_t>();
  }
  return std::nullopt;
}

// A text of the answer as it may be shown or written into a document: a terminal or an editor
// would take control characters for commands (colours, a cleared screen, a window title).
std::optional<std::string> shownMember(const Json& object, const char* key) {
  auto text = stringMember(object, key);
  if (text) *text = text::withoutControlCharacters(*text, true);
  return text;
}

MirloError errorWith(const Json& answer, bool upsell, std::optional<std::string> code) {
  auto message = shownMember(answer, "error");
  if (!message || message->empty()) message = "Erreur inconnue";
  return MirloError{*message, upsell, std::move(code)};
}

}  // namespace

std::string transportMessage(const TransportError& failure) {
  switch (failure.kind) {
    case TransportFailure::noConnection: return "Pas de connexion Internet : vérifie ton réseau";
    case TransportFailure::timedOut: return "Le serveur a mis trop de temps à répondre";
    case TransportFailure::hostNotFound: return "Serveur introuvable : vérifie ton réseau";
    case TransportFailure::tls: return "Connexion sécurisée au serveur impossible";
    case TransportFailure::refused: return "Le serveur ne répond pas, réessaie plus tard";
    case TransportFailure::other: break;
  }
  return "La connexion au serveur a échoué";
}

void Engine::request(const std::string& text, const std::string& mode, bool allowRetry,
                     std::function<void(CorrectionResult)> done) {
  const std::string& endpoint = app_.prefs().endpoint();
  if (!url::parse(endpoint)) {
    done(MirloError{"Configuration invalide", false, std::nullopt});
    return;
  }

  const std::string anonKey = app_.prefs().anonKey();
  const std::string accessToken = app_.auth().accessToken();
  HttpRequest http;
  http.method = "POST";
  http.url = endpoint;
  http.timeoutSeconds = kTimeoutSeconds;
  http.cachePolicy = CachePolicy::protocolDefault;
  http.headers = {
      {"Content-Type", "application/json"},
      {"apikey", anonKey},
      {"Authorization", "Bearer " + (accessToken.empty() ? anonKey : accessToken)},
  };
  http.body = dumpJson(Json{{"text", text}, {"mode", mode}, {"device_id", app_.prefs().deviceId()}});

  App& app = app_;
  app_.platform().http.send(std::move(http), [&app, this, text, mode, allowRetry,
                                                   done = std::move(done)](HttpResult result) mutable {
    if (auto* failure = std::get_if<TransportError>(&result)) {
      done(*failure);
      return;
    }
    const auto& body = std::get<HttpResponse>(result).body;
    auto parsed = body.empty() ? std::nullopt : parseJson(body);
    if (!parsed || !parsed->is_object()) {
      done(MirloError{"Réponse invalide du serveur", false, std::nullopt});
      return;
    }
    const Json answer = std::move(*parsed);

    // Plan and usage are recorded whatever the outcome, before anything `done` queues.
    app.platform().mainQueue.post([&app, answer] {
      Auth& auth = app.auth();
      if (auto plan = stringMember(answer, "plan")) auth.setPlan(*plan);
      auto usage = answer.find("usage");
      if (usage != answer.end() && usage->is_object()) {
        auth.setQuotaUsed(integerMember(*usage, "used").value_or(-1));
        auth.setQuotaLimit(integerMember(*usage, "limit").value_or(3));
      } else if (usage == answer.end() && answer.contains("plan")) {
        auth.setQuotaUsed(-1);
      }
      if (auto* delegate = app.launchedDelegate()) delegate->rebuildMenu();
    });

    if (auto fixedText = shownMember(answer, "result"); fixedText && !fixedText->empty()) {
      done(*fixedText);
      return;
    }
    auto code = stringMember(answer, "code");
    if (code == "auth" && allowRetry) {
      app.auth().refresh([this, text, mode, done = std::move(done)](RefreshOutcome outcome) mutable {
        switch (outcome.kind) {
          case RefreshOutcome::Kind::refreshed:
            this->request(text, mode, false, std::move(done));
            return;
          case RefreshOutcome::Kind::refused:
            done(MirloError{"Reconnecte-toi à ton compte", false, std::string("auth")});
            return;
          case RefreshOutcome::Kind::failed:
            // The session is kept: this correction fails as a request would have.
            if (outcome.transport) done(*outcome.transport);
            else done(MirloError{"Réponse invalide du serveur", false, std::nullopt});
            return;
        }
      });
      return;
    }
    if (code == "quota") {
      done(MirloError{"aujourd'hui", true, code});
      return;
    }
    done(errorWith(answer, code == "too_long", code));
  });
}

}  // namespace mirlo
