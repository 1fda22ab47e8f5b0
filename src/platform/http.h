// One HTTP request with its answer. The completion arrives on a background thread, once, with
// either a transport failure (no connection, time-out, TLS failure…) or an answer; the core hops
// to the main queue itself.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace mirlo {

enum class CachePolicy {
  protocolDefault,
  reloadIgnoringLocalCacheData,
};

struct HttpRequest {
  std::string method = "GET";
  std::string url;
  std::vector<std::pair<std::string, std::string>> headers;  // sent in this order
  std::optional<std::string> body;
  double timeoutSeconds = 60;
  CachePolicy cachePolicy = CachePolicy::protocolDefault;
};

struct HttpResponse {
  long status = 0;
  std::string body;  // empty when the answer had none
};

struct TransportError {
  std::string description;  // the platform's own words, shown to the user as they are
};

using HttpResult = std::variant<HttpResponse, TransportError>;

class HttpClient {
 public:
  virtual ~HttpClient() = default;
  virtual void send(HttpRequest request, std::function<void(HttpResult)> done) = 0;
};

}  // namespace mirlo
