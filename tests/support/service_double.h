// A stand-in for the hosted service, in process, on 127.0.0.1 with a port of its own: the
// correction function (POST /functions/v1/correct) and Supabase Auth's password, refresh and
// sign-up endpoints, answering the way they do. Every request is recorded as it arrived on the
// wire (header order included). Any path can be scripted with its next answers (status, body,
// delay, or a dropped connection); unscripted requests get the contract's own behaviour.
//
// A test owns one: `start()`, point the program at `baseUrl()`, look at `requests()`, and let the
// destructor (or `stop()`) end it. Delayed answers are cut short by `stop()`.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace mirlo::testing {

struct RecordedRequest {
  std::string method;
  std::string target;  // path with query, as sent
  std::vector<std::pair<std::string, std::string>> headers;  // in the order they were sent
  std::string body;

  std::string path() const { return target.substr(0, target.find('?')); }
  // The first header of that name (case-insensitive).
  std::optional<std::string> header(const std::string& name) const;
  // The header names in order, leaving out the ones HTTP itself needs (Host, Content-Length).
  std::vector<std::string> headerNames() const;
};

struct ScriptedAnswer {
  int status = 200;
  std::string body;
  double delaySeconds = 0;
  bool dropConnection = false;  // close without answering
  std::vector<std::pair<std::string, std::string>> headers;  // extra headers, e.g. Location

  static ScriptedAnswer json(int status, std::string body, double delay = 0) {
    ScriptedAnswer answer;
    answer.status = status;
    answer.body = std::move(body);
    answer.delaySeconds = delay;
    return answer;
  }
};

// Supabase Auth's token answer for an account.
std::string tokenResponse(const std::string& access, const std::string& refresh, const std::string& email);
// Supabase Auth's error answer: {"code": status, "error_code": …, "msg": …}.
std::string authError(int status, const std::string& errorCode, const std::string& msg);
// An unsigned JWT-shaped token whose payload carries the e-mail.
std::string makeAccessToken(const std::string& email, const std::string& nonce);

class ServiceDouble {
 public:
  explicit ServiceDouble(std::string anonKey = "anon-key-for-tests");
  ~ServiceDouble();
  ServiceDouble(const ServiceDouble&) = delete;
  ServiceDouble& operator=(const ServiceDouble&) = delete;

  void start();
  void stop();
  int port() const { return port_; }
  std::string baseUrl() const;  // "http://127.0.0.1:<port>"

  // The next request whose target equals `target` (path with query), or whose path equals it,
  // gets this answer; answers queue up and are used once each.
  void enqueue(const std::string& target, ScriptedAnswer answer);

  // --- The contract's own behaviour.
  // Accounts known to Auth; sign-up adds to them.
  void addUser(const std::string& email, const std::string& password);
  // A session as a sign-in would issue it, for tests that start signed in.
  std::pair<std::string, std::string> issueSession(const std::string& email);
  // Every access token issued so far is refused by the correction function from now on.
  void expireAccessTokens();
  // How the correction function rewrites a text (default: unchanged with a final full stop).
  void setCorrector(std::function<std::string(const std::string& text, const std::string& mode)> corrector);
  std::string anonKey() const { return anonKey_; }

  // --- What arrived.
  std::vector<RecordedRequest> requests() const;
  std::size_t requestCount(const std::string& path = {}) const;
  // Waits (at most `limit`) until at least `count` requests have arrived.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

 private:
  struct Reply {
    int status = 200;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
  };
  void acceptLoop();
  void serve(int fd);
  std::optional<ScriptedAnswer> takeScripted(const RecordedRequest& request);
  Reply answer(const RecordedRequest& request);
  Reply correct(const RecordedRequest& request);
  Reply token(const RecordedRequest& request);
  Reply signUp(const RecordedRequest& request);
  // A new token pair for the account; the caller holds the lock.
  std::pair<std::string, std::string> issue(const std::string& email);

  const std::string anonKey_;
  int listenFd_ = -1;
  int port_ = 0;
  std::thread acceptThread_;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  bool stopping_ = false;
  std::vector<int> connections_;
  std::vector<std::thread> connectionThreads_;
  std::vector<RecordedRequest> requests_;
  std::deque<std::pair<std::string, ScriptedAnswer>> scripted_;
  std::map<std::string, std::string> passwords_;       // e-mail → password
  std::map<std::string, std::string> refreshTokens_;   // live refresh token → e-mail
  std::map<std::string, std::string> accessTokens_;    // valid access token → e-mail
  std::map<std::string, std::int64_t> usage_;          // e-mail → corrections today
  std::uint64_t counter_ = 0;
  std::function<std::string(const std::string&, const std::string&)> corrector_;
};

}  // namespace mirlo::testing
