// mirlo-service: the local stand-in for the hosted service. See service/README.md.
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "mirlo/config.h"
#include "service/service.h"

namespace {

const char* const kUsage = R"(Usage: mirlo-service [options]
  --host ADDRESS           listening address (default 127.0.0.1)
  --port PORT              listening port (default 54321)
  --data-dir DIR           database and secrets (default $XDG_DATA_HOME/mirlo-service)
  --public-url URL         address clients use (default http://HOST:PORT)
  --announce-version V     version offered by /version.json (default: this build's version)
  --set-plan EMAIL PLAN    change an account's plan (gratuit, pro_mensuel, pro_annuel, lifetime) and exit
  --engine NAME            grammalecte (default) or hunspell (spelling only, for comparison)
  --engine-processes N     corrections made at the same time, one Grammalecte process each (default 2)
Environment:
  MIRLO_REPHRASE_URL, MIRLO_REPHRASE_MODEL, MIRLO_REPHRASE_KEY
                           an OpenAI-compatible endpoint for "rephrase" (e.g. http://127.0.0.1:11434/v1)
  MIRLO_SERVICE_API_KEY_SECRET
                           secret of the accepted API keys (default: the local demo secret)
)";

std::string env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

std::string defaultDataDir() {
  std::string base = env("XDG_DATA_HOME");
  if (base.empty()) {
    const std::string home = env("HOME");
    if (home.empty()) return "mirlo-service-data";
    ::mkdir((home + "/.local").c_str(), 0700);
    base = home + "/.local/share";
  }
  ::mkdir(base.c_str(), 0700);
  return base + "/mirlo-service";
}

}  // namespace

int main(int argc, char** argv) {
  using namespace mirlo::service;
  ServiceConfig config;
  config.anonKey = mirlo::config::kAnonKey;
  config.announcedVersion = mirlo::config::kVersion;
  std::string setPlanEmail, setPlanName;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto next = [&]() -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "mirlo-service: %s needs a value\n%s", a.c_str(), kUsage);
        std::exit(2);
      }
      return argv[++i];
    };
    if (a == "--host") config.host = next();
    else if (a == "--port") config.port = std::atoi(next().c_str());
    else if (a == "--data-dir") config.dataDir = next();
    else if (a == "--public-url") config.publicUrl = next();
    else if (a == "--announce-version") config.announcedVersion = next();
    else if (a == "--set-plan") setPlanEmail = next(), setPlanName = next();
    else if (a == "--engine") {
      const std::string name = next();
      if (name != "grammalecte" && name != "hunspell")
        return std::fprintf(stderr, "mirlo-service: unknown engine %s\n%s", name.c_str(), kUsage), 2;
      config.engine.grammalecte = name == "grammalecte";
    } else if (a == "--engine-processes") config.engine.processes = std::atoi(next().c_str());
    else if (a == "--help" || a == "-h") return std::fputs(kUsage, stdout), 0;
    else return std::fprintf(stderr, "mirlo-service: unknown option %s\n%s", a.c_str(), kUsage), 2;
  }
  if (config.port <= 0 || config.port > 65535) return std::fprintf(stderr, "mirlo-service: invalid port\n"), 2;
  if (config.engine.processes < 1 || config.engine.processes > 64)
    return std::fprintf(stderr, "mirlo-service: --engine-processes wants 1 to 64\n"), 2;
  if (config.dataDir.empty()) config.dataDir = defaultDataDir();
  config.rephrase = {env("MIRLO_REPHRASE_URL"), env("MIRLO_REPHRASE_KEY"), env("MIRLO_REPHRASE_MODEL")};
  if (!env("MIRLO_SERVICE_API_KEY_SECRET").empty()) config.apiKeySecret = env("MIRLO_SERVICE_API_KEY_SECRET");

  if (!setPlanEmail.empty()) {
    if (!initCrypto()) return 1;
    std::string error;
    ::mkdir(config.dataDir.c_str(), 0700);
    auto store = Store::open(config.dataDir + "/service.db", &error);
    if (!store) return std::fprintf(stderr, "mirlo-service: %s\n", error.c_str()), 1;
    if (!dailyLimitOf(setPlanName, 3)) return std::fprintf(stderr, "mirlo-service: unknown plan %s\n", setPlanName.c_str()), 2;
    const auto user = store->findUserByEmail(setPlanEmail);
    if (!user) return std::fprintf(stderr, "mirlo-service: no account %s\n", setPlanEmail.c_str()), 1;
    if (store->setPlan(user->first.id, setPlanName, static_cast<std::int64_t>(std::time(nullptr))) != StoreStatus::ok)
      return std::fprintf(stderr, "mirlo-service: %s\n", store->lastError().c_str()), 1;
    std::printf("%s: %s\n", setPlanEmail.c_str(), setPlanName.c_str());
    return 0;
  }

  // Signals are taken by one thread that stops the server, never inside a handler.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  std::string error;
  auto service = Service::create(config, &error);
  if (!service) return std::fprintf(stderr, "mirlo-service: %s\n", error.c_str()), 1;
  const int port = service->bind(&error);
  if (port < 0) return std::fprintf(stderr, "mirlo-service: %s\n", error.c_str()), 1;
  std::thread([&service, stopSignals] {
    int sig = 0;
    sigwait(&stopSignals, &sig);
    service->stop();
  }).detach();
  std::fprintf(stderr, "mirlo-service: listening on http://%s:%d (data in %s)\n", config.host.c_str(), port,
               config.dataDir.c_str());
  if (!config.rephrase.configured())
    std::fprintf(stderr, "mirlo-service: rephrasing is off (set MIRLO_REPHRASE_URL and MIRLO_REPHRASE_MODEL)\n");
  // Which checker corrects, once it has loaded (corrections asked for meanwhile wait for it).
  std::atomic<bool> serving{true};
  std::thread announce([&] {
    for (int waited = 0; serving && waited < 60000; waited += 100)
      if (service->engine().waitUntilSettled(std::chrono::milliseconds(100))) break;
    if (serving) std::fprintf(stderr, "mirlo-service: %s\n", service->engine().describe().c_str());
  });
  const bool ok = service->run();
  serving = false;
  announce.join();
  std::fprintf(stderr, "mirlo-service: stopped\n");
  return ok ? 0 : 1;
}
