// What one correction costs the hosted function itself, beside mirlo-service, on loopback: both
// answer through the same instant model stand-in, so the time measured is each service's own
// (checking the token, counting the correction, the model's round trip, the answer).
//
//   mirlo-supabase-bench [corrections]     (tools/bench-supabase builds it optimised and runs it)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "supabase/supabase_stack.h"

using namespace mirlo;
using namespace mirlo::supabase::testing;
using service::testing::ModelStandIn;
using service::testing::Reply;
using service::testing::replyOf;

namespace {

Reply send(httplib::Client& c, const std::string& path, const Json& body, const std::string& token = "") {
  httplib::Headers h{{"apikey", config::kAnonKey}};
  if (!token.empty()) h.emplace("Authorization", "Bearer " + token);
  return replyOf(c.Post(path, h, dumpJson(body), "application/json"));
}

// Milliseconds for each of `n` corrections sent one after the other, after a warm-up.
std::vector<double> measure(int port, const std::string& token, const std::string& mode, int n) {
  httplib::Client c("127.0.0.1", port);
  c.set_keep_alive(true);
  c.set_tcp_nodelay(true);
  const Json body = {{"text", "Je suis allé au marché hier matin pour acheter des légumes frais et du pain."},
                     {"mode", mode},
                     {"device_id", "banc"}};
  std::vector<double> ms;
  for (int i = -20; i < n; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    const Reply r = send(c, "/functions/v1/correct", body, token);
    const auto t1 = std::chrono::steady_clock::now();
    if (!r.body.contains("result")) {
      std::fprintf(stderr, "a correction failed: %s\n", r.raw.c_str());
      std::exit(1);
    }
    if (i >= 0) ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
  }
  std::sort(ms.begin(), ms.end());
  return ms;
}

void report(const char* what, const std::vector<double>& ms) {
  auto at = [&](double q) { return ms[std::min(ms.size() - 1, static_cast<std::size_t>(q * ms.size()))]; };
  std::printf("| %s | %zu | %.1f ms | %.1f ms | %.1f ms |\n", what, ms.size(), at(0.5), at(0.9), at(0.99));
}

}  // namespace

int main(int argc, char** argv) {
  const int n = argc > 1 ? std::max(1, std::atoi(argv[1])) : 500;
  std::string error;
  auto stack = SupabaseStack::start(&error);
  if (!stack) return std::fprintf(stderr, "%s\n", error.c_str()), 1;

  // The hosted function, called directly (no gateway in front), for an unlimited account.
  httplib::Client gateway("127.0.0.1", stack->port());
  const Reply made = send(gateway, "/auth/v1/signup", {{"email", "banc@example.fr"}, {"password", "motdepasse"}});
  const std::string token = made.body.value("access_token", "");
  stack->database().query("insert into public.account_plans (user_id, plan) values ($1, 'lifetime')",
                          {made.body["user"].value("id", "")});
  const auto hosted = measure(stack->functionPort(), token, "fix", n);

  // mirlo-service, rephrasing through the same model stand-in, for an unlimited account.
  char tmpl[] = "/tmp/mirlo-bench-XXXXXX";
  if (!::mkdtemp(tmpl)) return 1;
  service::ServiceConfig c;
  c.dataDir = std::string(tmpl) + "/data";
  c.port = 0;
  c.accessLog = false;
  c.rephrase = {stack->model().url(), ModelStandIn::kKey, ModelStandIn::kModel, 10};
  auto local = service::Service::create(c, &error);
  if (!local) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
  const int port = local->bind();
  std::thread server([&] { local->run(); });
  local->waitUntilReady(5000);
  httplib::Client lc("127.0.0.1", port);
  const std::string localToken =
      send(lc, "/auth/v1/signup", {{"email", "banc@example.fr"}, {"password", "motdepasse"}}).body.value("access_token", "");
  send(lc, "/functions/v1/account/plan", {{"plan", "lifetime"}}, localToken);
  const auto standIn = measure(port, localToken, "rephrase", n);
  local->stop();
  server.join();
  std::error_code ec;
  std::filesystem::remove_all(tmpl, ec);

  std::printf("| service | corrections | p50 | p90 | p99 |\n|---|---|---|---|---|\n");
  report("correct function (Deno, PostgreSQL, auth check)", hosted);
  report("mirlo-service", standIn);
  return 0;
}
