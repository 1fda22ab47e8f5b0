#include "platform/sim/sim_http.h"

namespace mirlo::sim {

void SimHttp::send(HttpRequest request, std::function<void(HttpResult)> done) {
  std::optional<SimAnswer> answer;
  Responder responder;
  {
    std::lock_guard lock(mutex_);
    sent_.push_back(request);
    for (auto it = queued_.begin(); it != queued_.end(); ++it) {
      if (request.url.find(it->first) != std::string::npos) {
        answer = std::move(it->second);
        queued_.erase(it);
        break;
      }
    }
    responder = responder_;
  }
  if (!answer && responder) answer = responder(request);
  if (!answer) answer = SimAnswer::failure(TransportFailure::refused, kCannotConnect);
  if (answer->delay >= request.timeoutSeconds) answer = SimAnswer::failure(TransportFailure::timedOut, kTimedOut, request.timeoutSeconds);
  // The completion comes from the network, not the main queue; it is carried by the virtual clock
  // only so that its time is exact.
  clock_.postAfter(answer->delay, [done = std::move(done), result = std::move(answer->result)] { done(result); });
}

void SimHttp::enqueue(std::string fragment, SimAnswer answer) {
  std::lock_guard lock(mutex_);
  queued_.emplace_back(std::move(fragment), std::move(answer));
}

void SimHttp::setResponder(Responder responder) {
  std::lock_guard lock(mutex_);
  responder_ = std::move(responder);
}

std::vector<HttpRequest> SimHttp::requests() const {
  std::lock_guard lock(mutex_);
  return sent_;
}

std::size_t SimHttp::requestCount(const std::string& fragment) const {
  std::lock_guard lock(mutex_);
  std::size_t n = 0;
  for (const auto& r : sent_)
    if (r.url.find(fragment) != std::string::npos) ++n;
  return n;
}

}  // namespace mirlo::sim
