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

// What kind of transport failure happened. The platform only tells which; the core chooses the
// words a person reads.
enum class TransportFailure {
  noConnection,  // this computer has no network
  timedOut,
  hostNotFound,
  tls,           // no secure connection could be made (handshake, certificate)
  refused,       // nobody answers at the server's address
  other,         // the connection broke, the answer was too large…
};

struct TransportError {
  TransportFailure kind = TransportFailure::other;
  std::string description;  // the platform's technical words, for --verbose and logs
};

using HttpResult = std::variant<HttpResponse, TransportError>;

class HttpClient {
 public:
  virtual ~HttpClient() = default;
  virtual void send(HttpRequest request, std::function<void(HttpResult)> done) = 0;
};

}  // namespace mirlo
