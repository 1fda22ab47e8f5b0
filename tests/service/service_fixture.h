// A real mirlo-service on a loopback port with its own data directory and a clock the test moves.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "base/json.h"
#include "mirlo/config.h"
#include "service/service.h"

namespace mirlo::service::testing {

struct Reply {
  int status = 0;
  Json body;  // null when the body was not JSON
  std::string raw;
  std::string location;
};

inline Reply replyOf(const httplib::Result& r) {
  Reply out;
  if (!r) return out;
  out.status = r->status;
  out.raw = r->body;
  out.body = parseJson(r->body).value_or(Json());
  out.location = r->get_header_value("Location");
  return out;
}

// A POST as the program sends it: the project's key, and the person's token when there is one.
inline Reply postTo(httplib::Client& client, const std::string& path, const std::string& body,
                    const std::string& bearer = "", const std::string& key = config::kAnonKey) {
  httplib::Headers h;
  if (!key.empty()) h.emplace("apikey", key);
  if (!bearer.empty()) h.emplace("Authorization", "Bearer " + bearer);
  return replyOf(client.Post(path, h, body, "application/json"));
}

// A mirlo-service in this process on a loopback port, with its own data directory and a clock the
// test moves; stopped and its directory removed with this object.
struct LocalService {
  LocalService() {
    char tmpl[] = "/tmp/mirlo-service-test-XXXXXX";
    if (::mkdtemp(tmpl)) root = tmpl;
  }
  ~LocalService() {
    stop();
    std::error_code ec;
    if (!root.empty()) std::filesystem::remove_all(root, ec);
  }
  LocalService(const LocalService&) = delete;
  LocalService& operator=(const LocalService&) = delete;

  // Starts it, `tweak` adjusting the configuration; false, with the reason as a test failure,
  // when it cannot.
  bool start(const std::function<void(ServiceConfig&)>& tweak = {}) {
    ServiceConfig c;
    c.dataDir = root + "/data";
    c.port = 0;
    c.anonKey = config::kAnonKey;
    c.announcedVersion = "9.8.7";
    c.passwordCost = PasswordCost::minimum();
    c.accessLog = false;
    c.clock = [this] { return clock.load(); };
    if (tweak) tweak(c);
    std::string error;
    service = Service::create(c, &error);
    if (!service) ADD_FAILURE() << error;
    if (!service || (port = service->bind()) <= 0) return false;
    server = std::thread([this] { service->run(); });
    return service->waitUntilReady(5000);
  }
  void stop() {
    if (!service) return;
    service->stop();
    if (server.joinable()) server.join();
    service.reset();
  }

  std::string root;
  std::atomic<std::int64_t> clock{1'800'000'000};  // 2027-01-15, mid-morning UTC
  std::unique_ptr<Service> service;
  std::thread server;
  int port = 0;
};

class ServiceTest : public ::testing::Test, public LocalService {
 protected:
  void SetUp() override {
    ASSERT_FALSE(root.empty());
    start();
  }

  void start(const std::function<void(ServiceConfig&)>& tweak = {}) {
    ASSERT_TRUE(LocalService::start(tweak)) << "mirlo-service did not start";
    client = std::make_unique<httplib::Client>("127.0.0.1", port);
    client->set_read_timeout(30, 0);
  }
  void stop() {
    client.reset();
    LocalService::stop();
  }
  void restart(const std::function<void(ServiceConfig&)>& tweak = {}) {
    stop();
    start(tweak);
  }

  static Reply reply(const httplib::Result& r) { return replyOf(r); }

  Reply post(const std::string& path, const std::string& body, const std::string& bearer = "",
             const std::string& key = config::kAnonKey) {
    return postTo(*client, path, body, bearer, key);
  }
  Reply postJson(const std::string& path, const Json& body, const std::string& bearer = "") {
    return post(path, dumpJson(body), bearer);
  }
  Reply get(const std::string& path, const std::string& bearer = "") {
    httplib::Headers h{{"apikey", config::kAnonKey}};
    if (!bearer.empty()) h.emplace("Authorization", "Bearer " + bearer);
    return reply(client->Get(path, h));
  }

  Reply signUp(const std::string& email, const std::string& password = "motdepasse") {
    return postJson("/auth/v1/signup", Json{{"email", email}, {"password", password}});
  }
  Reply signIn(const std::string& email, const std::string& password = "motdepasse") {
    return postJson("/auth/v1/token?grant_type=password", Json{{"email", email}, {"password", password}});
  }
  Reply refresh(const std::string& token) {
    return postJson("/auth/v1/token?grant_type=refresh_token", Json{{"refresh_token", token}});
  }
  // A new account's access token.
  std::string accountToken(const std::string& email) {
    auto r = signUp(email);
    EXPECT_EQ(r.status, 200) << r.raw;
    return r.body.value("access_token", "");
  }
  Reply correct(const std::string& token, const std::string& text, const std::string& mode = "fix") {
    return postJson("/functions/v1/correct", Json{{"text", text}, {"mode", mode}, {"device_id", "appareil-1"}}, token);
  }
  Reply setPlan(const std::string& token, const std::string& plan) {
    return postJson("/functions/v1/account/plan", Json{{"plan", plan}}, token);
  }

  std::unique_ptr<httplib::Client> client;
};

// The claims of a JWT, without checking anything.
inline Json claimsOf(const std::string& jwt) {
  const auto a = jwt.find('.'), b = jwt.rfind('.');
  if (a == std::string::npos || a == b) return Json();
  const auto payload = base64UrlDecode(jwt.substr(a + 1, b - a - 1));
  return payload ? parseJson(*payload).value_or(Json()) : Json();
}

}  // namespace mirlo::service::testing
