// A scripted network on the virtual clock. Each request is answered by the first matching
// scripted answer (queued per address fragment, used once each), else by the responder, else it
// fails as an unreachable server would. Answers arrive after their delay on the virtual clock; a
// delay at or past the request's time-out ends in a time-out failure instead.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/http.h"
#include "platform/sim/sim_main_queue.h"

namespace mirlo::sim {

struct SimAnswer {
  HttpResult result;
  double delay = 0;

  static SimAnswer json(long status, std::string body, double delay = 0) {
    return {HttpResponse{status, std::move(body)}, delay};
  }
  static SimAnswer failure(TransportFailure kind, std::string description, double delay = 0) {
    return {TransportError{kind, std::move(description)}, delay};
  }
};

class SimHttp final : public HttpClient {
 public:
  using Responder = std::function<std::optional<SimAnswer>(const HttpRequest&)>;

  static constexpr const char* kTimedOut = "The request timed out.";
  static constexpr const char* kCannotConnect = "Could not connect to the server.";

  explicit SimHttp(SimMainQueue& clock) : clock_(clock) {}

  void send(HttpRequest request, std::function<void(HttpResult)> done) override;

  // The next request whose address contains `fragment` gets this answer.
  void enqueue(std::string fragment, SimAnswer answer);
  // Answers requests that no queued answer matched.
  void setResponder(Responder responder);

  std::vector<HttpRequest> requests() const;
  std::size_t requestCount(const std::string& fragment = {}) const;

 private:
  SimMainQueue& clock_;
  mutable std::mutex mutex_;
  std::deque<std::pair<std::string, SimAnswer>> queued_;
  Responder responder_;
  std::vector<HttpRequest> sent_;
};

}  // namespace mirlo::sim
