// The benchmark's client: signs in to a running mirlo-service and sends corrections from several
// threads, then prints the rate and the latency percentiles. Run by service/bench.sh.
#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/json.h"
#include "mirlo/config.h"

int main(int argc, char** argv) {
  std::string host = "127.0.0.1", email = "bench@example.fr", password = "banc-d-essai-2024",
              mode = "fix", text = "Bonjour, je voulais te dire que la réunion de demain est reportée a jeudi prochain.";
  int port = 54321, threads = 4, requests = 2000;
  bool signup = false;
  for (int i = 1; i + 1 < argc || (i < argc && std::string(argv[i]) == "--signup"); ++i) {
    const std::string a = argv[i];
    if (a == "--signup") { signup = true; continue; }
    const std::string v = argv[++i];
    if (a == "--port") port = std::atoi(v.c_str());
    else if (a == "--host") host = v;
    else if (a == "--threads") threads = std::max(1, std::atoi(v.c_str()));
    else if (a == "--requests") requests = std::max(1, std::atoi(v.c_str()));
    else if (a == "--email") email = v;
    else if (a == "--mode") mode = v;
    else if (a == "--text") text = v;
  }
  const httplib::Headers keyHeader = {{"apikey", mirlo::config::kAnonKey}};
  httplib::Client auth(host, port);
  const std::string credentials = mirlo::dumpJson({{"email", email}, {"password", password}});
  auto res = auth.Post(signup ? "/auth/v1/signup" : "/auth/v1/token?grant_type=password", keyHeader, credentials,
                       "application/json");
  const auto body = res ? mirlo::parseJson(res->body) : std::nullopt;
  if (!body || !body->is_object() || !body->contains("access_token")) {
    std::fprintf(stderr, "bench: cannot sign in: %s\n", res ? res->body.c_str() : "no answer");
    return 1;
  }
  if (signup) return 0;
  const std::string token = (*body)["access_token"].get<std::string>();
  const std::string payload = mirlo::dumpJson({{"text", text}, {"mode", mode}, {"device_id", "bench"}});

  std::atomic<int> next{0}, failures{0};
  std::mutex mutex;
  std::vector<double> latencies;
  latencies.reserve(static_cast<std::size_t>(requests));
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> pool;
  for (int t = 0; t < threads; ++t) {
    pool.emplace_back([&] {
      httplib::Client client(host, port);
      client.set_keep_alive(true);
      client.set_tcp_nodelay(true);
      const httplib::Headers headers = {{"apikey", mirlo::config::kAnonKey}, {"Authorization", "Bearer " + token}};
      std::vector<double> mine;
      while (next.fetch_add(1) < requests) {
        const auto t0 = std::chrono::steady_clock::now();
        auto r = client.Post("/functions/v1/correct", headers, payload, "application/json");
        const auto t1 = std::chrono::steady_clock::now();
        if (!r || r->status != 200) ++failures;
        mine.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
      }
      std::lock_guard lock(mutex);
      latencies.insert(latencies.end(), mine.begin(), mine.end());
    });
  }
  for (auto& th : pool) th.join();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::sort(latencies.begin(), latencies.end());
  auto pct = [&](double p) {
    return latencies[std::min(latencies.size() - 1, static_cast<std::size_t>(p / 100.0 * static_cast<double>(latencies.size())))];
  };
  std::printf("%d corrections (%s), %d threads, %d failed\n", requests, mode.c_str(), threads, failures.load());
  std::printf("%.0f corrections/s; latency ms: p50 %.2f  p90 %.2f  p99 %.2f  max %.2f\n",
              static_cast<double>(requests) / seconds, pct(50), pct(90), pct(99), latencies.back());
  return failures.load() == 0 ? 0 : 1;
}
