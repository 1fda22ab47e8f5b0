// Shared helpers for the tests that talk over loopback: a result that another thread hands over,
// and the application on the simulated desktop with the real HTTP client in place of the
// simulated network.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "account/auth.h"
#include "app/app.h"
#include "platform/curl/curl_http_client.h"
#include "platform/sim/sim_desktop.h"
#include "support/service_double.h"

namespace mirlo::testing {

// A value delivered once from some thread; the test waits for it with a time limit.
template <typename T>
class Handover {
 public:
  void deliver(T value) {
    // Notifies under the lock: the waiter may destroy the handover as soon as it sees the value.
    std::lock_guard lock(mutex_);
    value_ = std::move(value);
    thread_ = std::this_thread::get_id();
    ready_.notify_all();
  }
  bool wait(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::unique_lock lock(mutex_);
    return ready_.wait_for(lock, limit, [this] { return value_.has_value(); });
  }
  bool has() const {
    std::lock_guard lock(mutex_);
    return value_.has_value();
  }
  T value() const {
    std::lock_guard lock(mutex_);
    return *value_;
  }
  std::thread::id thread() const {
    std::lock_guard lock(mutex_);
    return thread_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable ready_;
  std::optional<T> value_;
  std::thread::id thread_;
};

struct LoopbackWorld {
  LoopbackWorld() {
    service.start();
    sim::SimDesktop& d = desk;
    Platform platform{d.queue,    *http,      d.accessibility, d.keyboard, d.clipboard, d.events, d.hotKeys,
                      d.workspace, d.screens, d.secrets,       d.defaults, d.appInfo,   d.ui};
    app = std::make_unique<App>(platform, AppConfig{service.baseUrl(), service.anonKey(), "https://mirlo.test"});
  }
  ~LoopbackWorld() {
    // Network completions reach into the application: stop them before it goes.
    http.reset();
    app.reset();
  }

  // Runs the simulated main queue (waiting in real time for the network to post) until `done`
  // holds or the limit passes.
  template <typename Predicate>
  bool runUntil(Predicate done, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      desk.queue.waitForReady(std::chrono::milliseconds(20));
      desk.queue.runReady();
    }
    return true;
  }

  void signIn(const std::string& email = "lea@example.fr") {
    auto [access, refresh] = service.issueSession(email);
    app->auth().setTokens(access, refresh);
  }

  ServiceDouble service;
  sim::SimDesktop desk;
  std::unique_ptr<CurlHttpClient> http = std::make_unique<CurlHttpClient>();
  std::unique_ptr<App> app;
};

}  // namespace mirlo::testing
