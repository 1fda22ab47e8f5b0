// The HTTP client on libcurl: one background thread drives a curl multi handle for every request
// in flight. `send` may be called from any thread; each completion runs once, on that thread.
//
// The client only transports: it sends exactly the method, headers (in the given order) and body
// it is handed, and reports either the answer (status and body, whatever the status) or curl's own
// description of why there was none. TLS peers and host names are always verified, only http and
// https are spoken, and an answer larger than the size limit is cut off as a transport error.
// A redirect is followed only for a request without a body and only within the origin it was sent
// to; any other redirect is the answer. curl keeps no local cache, so both cache policies fetch
// from the network.
//
// Destroying the client stops the thread and abandons the requests still in flight: no completion
// starts once destruction has begun.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/http.h"

namespace mirlo {

class CurlHttpClient final : public HttpClient {
 public:
  struct Options {
    std::size_t maxBodyBytes = 16 * 1024 * 1024;  // a correction or a token answer is a few KB
    long maxRedirects = 5;
  };

  CurlHttpClient();
  explicit CurlHttpClient(Options options);
  ~CurlHttpClient() override;
  CurlHttpClient(const CurlHttpClient&) = delete;
  CurlHttpClient& operator=(const CurlHttpClient&) = delete;

  void send(HttpRequest request, std::function<void(HttpResult)> done) override;

 private:
  struct Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace mirlo
