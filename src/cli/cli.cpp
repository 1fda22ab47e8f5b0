#include "cli/cli.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "account/auth.h"
#include "account/prefs.h"
#include "base/text.h"
#ifdef MIRLO_HAVE_DESKTOP
#include "desktop/desktop.h"
#endif
#include "engine/engine.h"
#include "mirlo/config.h"
#include "platform/curl/curl_http_client.h"
#include "platform/host/file_defaults.h"
#include "platform/host/headless.h"
#include "platform/host/host_main_queue.h"
#include "platform/host/session_store.h"

namespace mirlo::cli {
namespace {

// A correction may take the request, a refresh and the repeated request, each with its own
// 15-second time-out; nothing waits longer than this.
constexpr double kWaitLimitSeconds = 60;

constexpr const char* kUsageText =
    "Utilisation : mirlo [--verbose] [COMMANDE]\n"
    "\n"
    "Sans commande, lance le programme de bureau ; mirlo ADRESSE (mirlo://…) lui passe l'adresse.\n"
    "\n"
    "Commandes :\n"
    "  login EMAIL       se connecter (mot de passe lu sur le terminal, ou sur l'entrée standard)\n"
    "  signup EMAIL      créer un compte (même lecture du mot de passe)\n"
    "  logout            se déconnecter (la session est effacée de cet ordinateur)\n"
    "  status            compte, offre et quota quand il est connu\n"
    "  fix [TEXTE]       corriger TEXTE, ou l'entrée standard ; le texte corrigé seul sur la sortie\n"
    "  rephrase [TEXTE]  reformuler, de la même façon\n"
    "  --verbose, -v     avant la commande : ajoute le détail technique des erreurs de réseau\n"
    "  --help            cette aide\n"
    "  --version         la version\n"
    "\n"
    "Codes de sortie : 0 réussi, 1 échec (message sur la sortie d'erreur), 2 bureau indisponible,\n"
    "3 non connecté, 64 commande mal formée. Une session qui n'a pas pu être enregistrée donne 1,\n"
    "même quand le texte corrigé a été écrit.\n"
    "\n"
    "La session est gardée dans le trousseau du Secret Service ; sans lui, dans un fichier lisible\n"
    "par vous seul (non chiffré). MIRLO_SECRET_STORE=file impose le fichier.\n";

constexpr const char* kNotSignedInText = "Non connecté : utilise « mirlo login EMAIL » ou « mirlo signup EMAIL ».";
constexpr const char* kNotSavedText =
    "Impossible d'enregistrer la session sur cet ordinateur (disque plein ou trousseau verrouillé ?)";
constexpr const char* kNotErasedText =
    "Impossible d'effacer la session de cet ordinateur (disque plein ou trousseau verrouillé ?)";

// Each command is a process of its own: a session that only lives in memory is gone when it ends,
// so a failed save is a failure of the command, whatever else went well.
int sessionSavedOr(App& app, int status) {
  if (app.auth().sessionSaved()) return status;
  std::fprintf(stderr, "%s\n", kNotSavedText);
  return kFailed;
}

// Everything the application needs from the machine, for a terminal.
struct TerminalPlatform {
  HostMainQueue queue;
  CurlHttpClient http;
  host::HeadlessAccessibility accessibility;
  host::HeadlessKeyboard keyboard;
  host::HeadlessClipboard clipboard;
  host::HeadlessEventMonitor events;
  host::HeadlessHotKeys hotKeys;
  host::HeadlessWorkspace workspace;
  host::HeadlessScreens screens;
  std::unique_ptr<SecretStore> secrets = host::openSessionStore();
  host::FileDefaults defaults{host::FileDefaults::standardPath()};
  host::BuildAppInfo appInfo;
  host::HeadlessUI ui;

  Platform platform() {
    return Platform{queue,   http,      accessibility, keyboard, clipboard, events, hotKeys,
                    workspace, screens, *secrets,      defaults, appInfo,   ui};
  }
};

// Reads one line; the line end is not part of it, everything else (spaces included) is.
std::optional<std::string> readLine(std::FILE* in) {
  std::string line;
  int c;
  bool any = false;
  while ((c = std::fgetc(in)) != EOF) {
    any = true;
    if (c == '\n') break;
    line.push_back(static_cast<char>(c));
  }
  if (!any) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

// From the terminal without echo, else the first line of the standard input.
std::optional<std::string> readPassword() {
  if (!::isatty(STDIN_FILENO)) return readLine(stdin);
  std::fputs("Mot de passe : ", stderr);
  std::fflush(stderr);
  termios saved{};
  const bool canHide = ::tcgetattr(STDIN_FILENO, &saved) == 0;
  if (canHide) {
    termios hidden = saved;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    hidden.c_lflag |= ECHONL;
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  }
  auto password = readLine(stdin);
  if (canHide) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  return password;
}

std::string readAll(std::istream& in) { return std::string(std::istreambuf_iterator<char>(in), {}); }

int signInOrUp(App& app, HostMainQueue& queue, const std::string& command, const std::string& email) {
  auto password = readPassword();
  if (!password || password->empty()) {
    std::fputs("Mot de passe manquant\n", stderr);
    return kUsage;
  }
  std::optional<std::optional<std::string>> outcome;
  auto done = [&](std::optional<std::string> message) { outcome = std::move(message); };
  if (command == "login")
    app.auth().signIn(email, *password, done);
  else
    app.auth().signUp(email, *password, done);
  if (!queue.runUntil([&] { return outcome.has_value(); }, kWaitLimitSeconds)) {
    std::fputs("Connexion impossible, vérifie ton réseau\n", stderr);
    return kFailed;
  }
  if (*outcome) {
    std::fprintf(stderr, "%s\n", (*outcome)->c_str());
    return kFailed;
  }
  if (!app.auth().sessionSaved()) return sessionSavedOr(app, kFailed);
  const std::string who = app.auth().email();
  std::printf("Connecté%s%s\n", who.empty() ? "" : " : ", who.c_str());
  return kOk;
}

int status(App& app) {
  Auth& auth = app.auth();
  if (!auth.isSignedIn()) {
    std::fprintf(stderr, "%s\n", kNotSignedInText);
    return kNotSignedIn;
  }
  const std::string who = auth.email();
  std::printf("Compte : %s\n", who.empty() ? "(adresse inconnue)" : who.c_str());
  std::printf("Offre : %s\n", auth.planLabel().c_str());
  if (auth.quotaUsed() >= 0)
    std::printf("Quota : %lld/%lld aujourd'hui\n", static_cast<long long>(auth.quotaUsed()),
                static_cast<long long>(auth.quotaLimit()));
  return kOk;
}

int correct(App& app, HostMainQueue& queue, const std::string& mode, const std::string& text, bool verbose) {
  if (!app.auth().isSignedIn()) {
    std::fprintf(stderr, "%s\n", kNotSignedInText);
    return kNotSignedIn;
  }
  std::optional<CorrectionResult> result;
  // The answer arrives on the network thread; like the desktop flow, hop to the main queue, where
  // the session's plan and usage have been recorded just before.
  app.engine().request(text, mode, true, [&queue, &result](CorrectionResult outcome) {
    queue.post([&result, outcome = std::move(outcome)] { result = outcome; });
  });
  if (!queue.runUntil([&] { return result.has_value(); }, kWaitLimitSeconds)) {
    std::fputs("Connexion impossible, vérifie ton réseau\n", stderr);
    return kFailed;
  }
  // A failed refresh queued a sign-out before reporting; let it run so that the session file or
  // keychain reflects it when we exit.
  queue.runUntil([&] { return queue.pendingCount() == 0; }, 1);
  if (auto* corrected = std::get_if<std::string>(&*result)) {
    // A script writing the answer over its input must not take a short write for the answer.
    const bool written = std::fwrite(corrected->data(), 1, corrected->size(), stdout) == corrected->size() &&
                         std::fflush(stdout) == 0;
    if (!written) std::fputs("Impossible d'écrire le texte corrigé sur la sortie standard\n", stderr);
    return sessionSavedOr(app, written ? kOk : kFailed);
  }
  if (auto* failure = std::get_if<TransportError>(&*result)) {
    std::fprintf(stderr, "%s\n", transportMessage(*failure).c_str());
    if (verbose)
      std::fprintf(stderr, "Détail : %s\n", text::withoutControlCharacters(failure->description, false).c_str());
    return sessionSavedOr(app, kFailed);
  }
  const auto& error = std::get<MirloError>(*result);
  if (error.upsell) {
    // The card shows the spent allowance beside the message and offers the account section.
    if (error.code == "quota")
      std::fprintf(stderr, "3/3 %s\n", error.message.c_str());
    else
      std::fprintf(stderr, "%s\n", error.message.c_str());
    std::fprintf(stderr, "Passer en Pro : %s/#acces\n", app.config().siteUrl.c_str());
    return sessionSavedOr(app, kFailed);
  }
  std::fprintf(stderr, "%s\n", error.message.c_str());
  return sessionSavedOr(app, error.code == "auth" && !app.auth().isSignedIn() ? kNotSignedIn : kFailed);
}

// Whether an argument has the shape of an address, `scheme:…` (the browser starts the program with
// the address it was sent to). No command has that shape; what the address means, and whether it
// is one at all, is for the application to judge.
bool looksLikeURL(const std::string& argument) {
  auto colon = argument.find(':');
  if (colon == std::string::npos || colon == 0) return false;
  auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (!isAlpha(argument[0])) return false;
  for (std::size_t i = 1; i < colon; ++i) {
    const char c = argument[i];
    if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

}  // namespace

int run(int argc, char** argv, const AppConfig& config) {
  std::vector<std::string> args(argv + 1, argv + argc);
  bool verbose = false;
  while (!args.empty() && (args[0] == "--verbose" || args[0] == "-v")) {
    verbose = true;
    args.erase(args.begin());
  }
  // `mirlo mirlo://auth#…`: the desktop program, opened by those addresses (handed to the one
  // already running in this session, if there is one).
  const bool opening = !args.empty() && looksLikeURL(args[0]);
  if (args.empty() || opening) {
#ifdef MIRLO_HAVE_DESKTOP
    static_assert(desktop::kNoDesktop == kNoDesktop);
    return desktop::run(config, opening ? args : std::vector<std::string>{});
#else
    std::fprintf(stderr,
                 "mirlo %s : le programme de bureau n'est pas encore écrit pour cette plate-forme.\n"
                 "Les commandes de terminal fonctionnent : mirlo --help\n",
                 config::kVersion);
    return kNoDesktop;
#endif
  }
  const std::string& command = args[0];
  if (command == "--help" || command == "-h" || command == "help") {
    std::fputs(kUsageText, stdout);
    return kOk;
  }
  if (command == "--version") {
    std::printf("mirlo %s\n", config::kVersion);
    return kOk;
  }

  const bool known = command == "login" || command == "signup" || command == "logout" || command == "status" ||
                     command == "fix" || command == "rephrase";
  const bool needsEmail = command == "login" || command == "signup";
  const bool takesText = command == "fix" || command == "rephrase";
  if (!known || (needsEmail && args.size() != 2) || (!needsEmail && !takesText && args.size() != 1)) {
    std::fputs(kUsageText, stderr);
    return kUsage;
  }

  // Text to correct: the arguments as one text, else the whole standard input.
  std::string text;
  if (takesText) {
    if (args.size() > 1) {
      for (std::size_t i = 1; i < args.size(); ++i) text += (i > 1 ? " " : "") + args[i];
    } else {
      text = readAll(std::cin);
    }
    if (text.empty()) {
      std::fputs("Aucun texte à corriger\n", stderr);
      return kUsage;
    }
  }

  TerminalPlatform terminal;
  App app(terminal.platform(), config);
  if (needsEmail) return signInOrUp(app, terminal.queue, command, args[1]);
  if (command == "logout") {
    app.auth().signOut();
    if (!app.auth().sessionSaved()) {
      std::fprintf(stderr, "%s\n", kNotErasedText);
      return kFailed;
    }
    std::puts("Déconnecté");
    return kOk;
  }
  if (command == "status") return status(app);
  return correct(app, terminal.queue, command, text, verbose);
}

}  // namespace mirlo::cli
