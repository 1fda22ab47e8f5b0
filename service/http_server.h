// The service's HTTP/1.1 server, on Boost.Beast and Asio. One I/O thread reads and writes every
// connection without blocking, so a slow or idle client costs a socket and a few kilobytes, never
// a thread. Handlers do blocking work (password hashing, the database, the correction engine, a
// model call), so they run on a fixed pool of worker threads, one request of a connection at a
// time: pipelined requests are answered in the order they came.
//
// Every request is held to its limits before anything is buffered: one deadline for the whole of
// its head and body (not renewed by each byte that trickles in), a size for the head, and a size
// for the body whatever its framing (Content-Length or chunked) and once inflated (gzip,
// deflate). A request over a limit is refused as soon as the limit is crossed.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace mirlo::service::http {

struct CaseInsensitiveLess {
  bool operator()(const std::string& a, const std::string& b) const;
};
using Headers = std::multimap<std::string, std::string, CaseInsensitiveLess>;
using Params = std::multimap<std::string, std::string>;

// The member names are the ones the service's handlers were first written against.
struct Request {
  std::string method;
  std::string path;  // percent-decoded, without the query
  Headers headers;
  Params params;     // the query's, then those of a form body (application/x-www-form-urlencoded)
  std::string body;  // already inflated when it came compressed
  std::string remote_addr;

  bool has_header(const std::string& name) const { return headers.count(name) != 0; }
  std::string get_header_value(const std::string& name) const;
  bool has_param(const std::string& name) const { return params.count(name) != 0; }
  std::string get_param_value(const std::string& name) const;
};

struct Response {
  int status = -1;  // -1: left to the server (200 once a handler returns)
  Headers headers;
  std::string body;

  void set_header(const std::string& name, const std::string& value);
  void set_content(std::string content, const std::string& contentType);
  void set_redirect(const std::string& url, int redirectStatus);
  // Runs, once, when this answer could not be handed to the client: it had gone away before the
  // answer was written, the write failed, or the server stopped first.
  std::function<void()> undelivered;
};

struct Limits {
  std::size_t maxConnections = 128;
  std::size_t maxHeaderBytes = 16 * 1024;
  std::size_t maxBodyBytes = 1 << 20;  // after inflating, too
  // From the moment the server waits for a request to its last body byte; also how long an idle
  // kept-alive connection is kept.
  std::chrono::milliseconds requestDeadline{10'000};
  std::chrono::milliseconds writeDeadline{10'000};
  // How long a refused request's remaining bytes are read and thrown away, so that a client
  // still sending them reads the refusal instead of a reset connection.
  std::chrono::milliseconds lingerTime{5'000};
  unsigned workers = 16;
};

class Server {
 public:
  using Handler = std::function<void(const Request&, Response&)>;
  using Logger = std::function<void(const Request&, const Response&)>;

  explicit Server(Limits limits);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // An exact path; GET routes answer HEAD too. Routes are set before run().
  void route(const std::string& method, const std::string& path, Handler handler);
  // Sees every answer whose status is 400 or more, those of handlers and those the server makes
  // itself with an empty body (404 unknown path, 400 malformed request, 413 body too large, 415
  // unknown content encoding, 431 head too large).
  void setErrorHandler(Handler handler);
  // Makes the answer when a handler throws.
  void setExceptionHandler(Handler handler);
  void setLogger(Logger logger);

  // Listens on host:port (0: any free port); the port, or -1 with the reason in `error`. The
  // address is never shared with another server.
  int bind(const std::string& host, int port, std::string* error);
  // Serves until stop(); false when nothing was bound.
  bool run();
  // Safe from any thread. Handlers already running finish; their answers are not sent.
  void stop();
  bool running() const;

  struct Impl;  // the connections reach it; defined with them

 private:
  std::unique_ptr<Impl> impl_;
};

// `text` with every byte that a log line must not carry raw (controls, escape sequences, bytes
// outside printable ASCII, and '%' itself) written as %XX.
std::string loggable(std::string_view text);

}  // namespace mirlo::service::http
