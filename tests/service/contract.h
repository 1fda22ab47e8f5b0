// The hosted service's contract, as the program sees it: sign-up and sign-in under /auth/v1 and
// the correction at /functions/v1/correct, one base address. The same checks run against every
// service that claims to keep it; a Backend says how to do, on one of them, what a person cannot
// do through that address (change a plan, move to the next day, read the count).
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/json.h"
#include "mirlo/config.h"
#include "service_fixture.h"

namespace mirlo::service::testing {

// A loopback stand-in for an OpenAI-compatible chat-completions endpoint. By default it answers
// with the user's own text, as a model would for a text with nothing to correct; a test can make
// it answer anything else.
class ModelStandIn {
 public:
  ModelStandIn() {
    server_.Post(R"(/v1/chat/completions)", [this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard lock(mutex_);
      ++calls_;
      lastAuthorization_ = req.get_header_value("Authorization");
      lastRequest_ = parseJson(req.body).value_or(Json());
      if (echo_) {
        std::string text;
        if (lastRequest_.is_object() && lastRequest_["messages"].is_array() && !lastRequest_["messages"].empty())
          text = lastRequest_["messages"].back().value("content", "");
        res.set_content(dumpJson(completion(text)), "application/json");
        return;
      }
      res.status = status_;
      res.set_content(answer_, "application/json");
    });
    server_.set_tcp_nodelay(true);  // as a real server: no 40 ms wait for a delayed acknowledgement
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!server_.is_running() && std::chrono::steady_clock::now() < limit)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ~ModelStandIn() {
    server_.stop();
    thread_.join();
  }
  ModelStandIn(const ModelStandIn&) = delete;
  ModelStandIn& operator=(const ModelStandIn&) = delete;

  // The base address, to which "/chat/completions" is appended.
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/v1"; }
  static constexpr const char* kKey = "cle-du-modele";
  static constexpr const char* kModel = "modele-de-test";

  static Json completion(const std::string& content) {
    return Json{{"choices", Json::array({Json{{"message", Json{{"role", "assistant"}, {"content", content}}}}})}};
  }
  void echo() {
    std::lock_guard lock(mutex_);
    echo_ = true;
  }
  void answer(const std::string& content) { respond(200, dumpJson(completion(content))); }
  void respond(int status, const std::string& body) {
    std::lock_guard lock(mutex_);
    echo_ = false;
    status_ = status;
    answer_ = body;
  }
  int calls() {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  Json lastRequest() {
    std::lock_guard lock(mutex_);
    return lastRequest_;
  }
  std::string lastAuthorization() {
    std::lock_guard lock(mutex_);
    return lastAuthorization_;
  }

 private:
  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
  std::mutex mutex_;
  bool echo_ = true;
  int status_ = 200;
  std::string answer_;
  int calls_ = 0;
  Json lastRequest_;
  std::string lastAuthorization_;
};

struct Account {
  std::string email;
  std::string id;
  std::string accessToken;
  std::string refreshToken;
};

class Backend {
 public:
  virtual ~Backend() = default;
  // Where the program would be pointed: /auth/v1/… and /functions/v1/correct under it.
  virtual int port() = 0;
  virtual ModelStandIn& model() = 0;
  // A paid or free plan for the account, as the payment side would set it.
  virtual void setPlan(const Account& account, const std::string& plan) = 0;
  // The account's count for today becomes yesterday's: a new UTC day begins for it.
  virtual void nextDay(const Account& account) = 0;
  // The account's count for today, as stored.
  virtual int usageToday(const Account& account) = 0;
  // Moves the auth server's clock: access tokens expire.
  virtual void passTime(std::int64_t seconds) = 0;
};

// The backend of this test program: mirlo-service, or the hosted service's function.
std::unique_ptr<Backend> makeBackend();

class ContractTest : public ::testing::Test {
 protected:
  void SetUp() override {
    backend = makeBackend();
    ASSERT_TRUE(backend);
    backend->model().echo();
    client = std::make_unique<httplib::Client>("127.0.0.1", backend->port());
    client->set_read_timeout(30, 0);
  }

  Reply post(const std::string& path, const std::string& body, const std::string& bearer = "") {
    return postTo(*client, path, body, bearer);
  }

  // A new account, signed in. Every test makes its own, so that services shared between tests
  // start each one afresh.
  Account account(const std::string& name = "lea") {
    const std::string email = name + "." + std::to_string(++counter_) + "." +
                              std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) +
                              "@example.fr";
    const Reply r = post("/auth/v1/signup", dumpJson({{"email", email}, {"password", "motdepasse"}}));
    EXPECT_EQ(r.status, 200) << r.raw;
    return Account{email, r.body["user"].value("id", ""), r.body.value("access_token", ""),
                   r.body.value("refresh_token", "")};
  }
  std::string signIn(const Account& a) {
    const Reply r =
        post("/auth/v1/token?grant_type=password", dumpJson({{"email", a.email}, {"password", "motdepasse"}}));
    EXPECT_EQ(r.status, 200) << r.raw;
    return r.body.value("access_token", "");
  }
  Reply correct(const std::string& token, const std::string& text, const std::string& mode = "fix") {
    return post("/functions/v1/correct", dumpJson({{"text", text}, {"mode", mode}, {"device_id", "appareil-1"}}),
                token);
  }

  std::unique_ptr<Backend> backend;
  std::unique_ptr<httplib::Client> client;

 private:
  static inline std::atomic<int> counter_{0};
};

}  // namespace mirlo::service::testing
