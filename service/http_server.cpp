#include "service/http_server.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <zlib.h>

#include <atomic>
#include <utility>  // before Asio, whose coroutine header uses std::exchange without it

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <list>
#include <optional>

namespace mirlo::service::http {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace bhttp = boost::beast::http;
using tcp = net::ip::tcp;
using Clock = std::chrono::steady_clock;

namespace {

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
  return true;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// %XX escapes decoded (a malformed one is kept as it is); '+' is a space in queries and forms.
std::string percentDecode(std::string_view s, bool plusIsSpace) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size()) {
      const int hi = hexValue(s[i + 1]), lo = hexValue(s[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
        continue;
      }
    }
    out += plusIsSpace && s[i] == '+' ? ' ' : s[i];
  }
  return out;
}

void parseForm(std::string_view text, Params& into) {
  while (!text.empty()) {
    const auto amp = text.find('&');
    const std::string_view pair = text.substr(0, amp);
    if (!pair.empty()) {
      const auto eq = pair.find('=');
      into.emplace(percentDecode(pair.substr(0, eq), true),
                   eq == std::string_view::npos ? std::string() : percentDecode(pair.substr(eq + 1), true));
    }
    if (amp == std::string_view::npos) break;
    text.remove_prefix(amp + 1);
  }
}

enum class Coding { identity, gzip, deflate, unknown };

Coding contentCoding(std::string_view value) {
  value = trim(value);
  if (value.empty() || equalsIgnoringCase(value, "identity")) return Coding::identity;
  if (equalsIgnoringCase(value, "gzip") || equalsIgnoringCase(value, "x-gzip")) return Coding::gzip;
  if (equalsIgnoringCase(value, "deflate")) return Coding::deflate;
  return Coding::unknown;  // other codings, and lists of several (a bomb inside a bomb)
}

enum class Inflated { ok, tooLarge, corrupt };

// Inflates `in` into `out`, stopping as soon as the output would pass `limit`: a few hundred
// kilobytes of zeros compressed can stand for gigabytes.
Inflated inflateLimited(const std::string& in, int windowBits, std::size_t limit, std::string& out) {
  z_stream zs{};
  if (inflateInit2(&zs, windowBits) != Z_OK) return Inflated::corrupt;
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
  zs.avail_in = static_cast<uInt>(in.size());
  out.clear();
  char chunk[16384];
  int rc = Z_OK;
  Inflated verdict = Inflated::ok;
  while (rc != Z_STREAM_END) {
    zs.next_out = reinterpret_cast<Bytef*>(chunk);
    zs.avail_out = sizeof chunk;
    rc = inflate(&zs, Z_NO_FLUSH);
    if (rc != Z_OK && rc != Z_STREAM_END) {
      verdict = Inflated::corrupt;  // damaged data, or a stream that ends too soon
      break;
    }
    const std::size_t produced = sizeof chunk - zs.avail_out;
    if (out.size() + produced > limit) {
      verdict = Inflated::tooLarge;
      break;
    }
    out.append(chunk, produced);
    if (rc == Z_OK && produced == 0 && zs.avail_in == 0) {
      verdict = Inflated::corrupt;
      break;
    }
  }
  if (verdict == Inflated::ok && zs.avail_in != 0) verdict = Inflated::corrupt;  // bytes after the end
  inflateEnd(&zs);
  return verdict;
}

Inflated decodeBody(Coding coding, std::string& body, std::size_t limit) {
  if (coding == Coding::identity) return Inflated::ok;
  std::string out;
  Inflated r;
  if (coding == Coding::gzip) {
    r = inflateLimited(body, 16 + MAX_WBITS, limit, out);
  } else {
    // "deflate" is the zlib format; some clients send the bare deflate stream.
    r = inflateLimited(body, MAX_WBITS, limit, out);
    if (r == Inflated::corrupt) r = inflateLimited(body, -MAX_WBITS, limit, out);
  }
  if (r == Inflated::ok) body = std::move(out);
  return r;
}

bool safeHeaderValue(std::string_view v) {
  for (unsigned char c : v)
    if ((c < 0x20 && c != '\t') || c == 0x7f) return false;
  return true;
}

class Connection;

}  // namespace

bool CaseInsensitiveLess::operator()(const std::string& a, const std::string& b) const {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const char x = lowerAscii(a[i]), y = lowerAscii(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

std::string Request::get_header_value(const std::string& name) const {
  const auto it = headers.find(name);
  return it == headers.end() ? std::string() : it->second;
}

std::string Request::get_param_value(const std::string& name) const {
  const auto it = params.find(name);
  return it == params.end() ? std::string() : it->second;
}

void Response::set_header(const std::string& name, const std::string& value) {
  headers.erase(name);
  headers.emplace(name, value);
}

void Response::set_content(std::string content, const std::string& contentType) {
  body = std::move(content);
  set_header("Content-Type", contentType);
}

void Response::set_redirect(const std::string& url, int redirectStatus) {
  status = redirectStatus;
  set_header("Location", url);
}

std::string loggable(std::string_view text) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c > 0x20 && c < 0x7f && c != '%') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

// ---------------------------------------------------------------------------------------------

struct Server::Impl {
  explicit Impl(Limits l) : limits(l), pool(l.workers == 0 ? 1 : l.workers) {}
  ~Impl() {
    stop();
    // Requests already handed to workers finish before anything they use goes away.
    pool.join();
  }

  void stop() {
    stopped = true;
    ioc.stop();
  }
  void accept();
  void admit(tcp::socket socket);
  // Runs a request's handler and the error handler on a worker thread.
  void dispatch(const Request& req, Response& res) const;
  void log(const Request& req, const Response& res) const {
    if (logger) logger(req, res);
  }

  Limits limits;
  net::io_context ioc{1};
  tcp::acceptor acceptor{ioc};
  net::steady_timer acceptPause{ioc};
  net::thread_pool pool;
  std::map<std::pair<std::string, std::string>, Handler> routes;
  Handler errorHandler, exceptionHandler;
  Logger logger;
  std::atomic<bool> isRunning{false}, stopped{false};
  std::list<std::weak_ptr<Connection>> connections;  // the I/O thread's only
};

namespace {

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Server::Impl& server, tcp::socket socket)
      : server_(server), socket_(std::move(socket)), timer_(server.ioc), buffer_(64 * 1024) {
    beast::error_code ec;
    const auto peer = socket_.remote_endpoint(ec);
    if (!ec) remote_ = peer.address().to_string();
  }
  ~Connection() {
    // The answer was never written (the server stopped, the connection was cut): give it back.
    if (undelivered_) undelivered_();
  }

  void start() { readRequest(); }
  // Waiting for (the rest of) a request rather than working on one.
  bool reading() const { return state_ == State::reading; }
  Clock::time_point readingSince() const { return since_; }
  void close() {
    state_ = State::closed;
    timer_.cancel();
    beast::error_code ec;
    socket_.shutdown(tcp::socket::shutdown_both, ec);
    socket_.close(ec);
  }

 private:
  enum class State { reading, handling, writing, lingering, closed };

  void armTimer(std::chrono::milliseconds d) {
    timer_.expires_after(d);
    timer_.async_wait([weak = weak_from_this()](beast::error_code ec) {
      if (ec) return;
      if (auto self = weak.lock()) self->close();
    });
  }

  void readRequest() {
    state_ = State::reading;
    since_ = Clock::now();
    parser_.emplace();
    parser_->header_limit(static_cast<std::uint32_t>(server_.limits.maxHeaderBytes));
    parser_->body_limit(server_.limits.maxBodyBytes);
    armTimer(server_.limits.requestDeadline);
    bhttp::async_read_header(socket_, buffer_, *parser_,
                             [self = shared_from_this()](beast::error_code ec, std::size_t) { self->onHead(ec); });
  }

  void onHead(beast::error_code ec) {
    if (ec) return failRead(ec);
    const auto& head = parser_->get();
    // Only "chunked" alone: any other transfer coding would leave the body's end to guesswork.
    const auto te = head.find(bhttp::field::transfer_encoding);
    if (te != head.end() && !equalsIgnoringCase(trim(std::string_view(te->value().data(), te->value().size())), "chunked"))
      return refuse(400);
    coding_ = Coding::identity;
    for (const auto& field : head) {
      if (field.name() != bhttp::field::content_encoding) continue;
      if (coding_ != Coding::identity) return refuse(415);  // several codings
      coding_ = contentCoding(std::string_view(field.value().data(), field.value().size()));
      if (coding_ == Coding::unknown) return refuse(415);
    }
    const auto expect = head.find(bhttp::field::expect);
    if (expect != head.end() && head.version() >= 11 &&
        equalsIgnoringCase(trim(std::string_view(expect->value().data(), expect->value().size())), "100-continue") &&
        !parser_->is_done()) {
      static const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
      net::async_write(socket_, net::buffer(kContinue),
                       [self = shared_from_this()](beast::error_code wec, std::size_t) {
                         if (wec) return self->close();
                         self->readBody();
                       });
      return;
    }
    readBody();
  }

  void readBody() {
    bhttp::async_read(socket_, buffer_, *parser_,
                      [self = shared_from_this()](beast::error_code ec, std::size_t) { self->onBody(ec); });
  }

  void failRead(beast::error_code ec) {
    if (ec == bhttp::error::body_limit) return refuse(413);
    if (ec == bhttp::error::header_limit || ec == bhttp::error::buffer_overflow) return refuse(431);
    if (ec.category() == bhttp::make_error_code(bhttp::error::bad_method).category() &&
        ec != bhttp::error::end_of_stream && ec != bhttp::error::partial_message)
      return refuse(400);
    close();  // the client left, or its time is up
  }

  // What is known of the request so far, for the error handler and the log.
  Request partialRequest() const {
    Request req;
    req.remote_addr = remote_;
    // The request line is kept as soon as it is read, even when a header after it was refused.
    if (parser_ && !parser_->get().target().empty()) {
      const auto& head = parser_->get();
      req.method = std::string(head.method_string());
      const std::string_view target(head.target().data(), head.target().size());
      req.path = percentDecode(target.substr(0, target.find('?')), false);
    }
    return req;
  }

  // Answers an error the server found itself, then closes: what follows in the stream cannot be
  // trusted to start a request.
  void refuse(int status) { refuse(status, partialRequest()); }
  void refuse(int status, const Request& req) {
    timer_.cancel();
    Response res;
    res.status = status;
    if (server_.errorHandler) server_.errorHandler(req, res);
    server_.log(req, res);
    keepAlive_ = false;
    version_ = 11;
    write(std::make_shared<Response>(std::move(res)), false);
  }

  void onBody(beast::error_code ec) {
    if (ec) return failRead(ec);
    timer_.cancel();
    auto message = parser_->release();
    auto req = std::make_shared<Request>();
    req->remote_addr = remote_;
    req->method = std::string(message.method_string());
    const std::string_view target(message.target().data(), message.target().size());
    if (target.empty() || target.front() != '/') return refuse(400);
    const auto question = target.find('?');
    req->path = percentDecode(target.substr(0, question), false);
    if (question != std::string_view::npos) parseForm(target.substr(question + 1), req->params);
    for (const auto& field : message)
      req->headers.emplace(std::string(field.name_string()), std::string(field.value()));
    req->body = std::move(message.body());
    switch (decodeBody(coding_, req->body, server_.limits.maxBodyBytes)) {
      case Inflated::ok:
        break;
      case Inflated::tooLarge:
        req->body.clear();
        return refuse(413, *req);
      case Inflated::corrupt:
        req->body.clear();
        return refuse(400, *req);
    }
    const std::string type = req->get_header_value("Content-Type");
    if (equalsIgnoringCase(std::string_view(type).substr(0, 33), "application/x-www-form-urlencoded"))
      parseForm(req->body, req->params);
    keepAlive_ = message.keep_alive();
    version_ = message.version();
    state_ = State::handling;
    net::post(server_.pool, [self = shared_from_this(), req] {
      auto res = std::make_shared<Response>();
      self->server_.dispatch(*req, *res);
      self->server_.log(*req, *res);
      // Kept by the connection from here: its destructor gives the answer back if it is never
      // written. The post below orders this write before the I/O thread's reads.
      self->undelivered_ = std::move(res->undelivered);
      res->undelivered = nullptr;
      const bool head = req->method == "HEAD";
      net::post(self->server_.ioc, [self, res, head] { self->write(res, head); });
    });
  }

  // Has the client shut its side of the connection? It may still read (a half close), which is
  // told apart after the write.
  bool peerHasClosed() {
    pollfd p{socket_.native_handle(), POLLRDHUP, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
  }

  void write(std::shared_ptr<Response> res, bool head) {
    if (state_ == State::closed || server_.stopped) return;  // the destructor gives it back
    state_ = State::writing;
    answer_ = std::make_shared<bhttp::response<bhttp::string_body>>();
    auto& a = *answer_;
    a.version(version_);
    a.result(static_cast<unsigned>(res->status));
    for (const auto& [name, value] : res->headers)
      if (safeHeaderValue(name) && safeHeaderValue(value)) a.insert(name, value);
    if (head) {
      a.content_length(res->body.size());
    } else {
      a.body() = std::move(res->body);
      a.prepare_payload();
    }
    a.keep_alive(keepAlive_);
    peerGone_ = peerHasClosed();
    armTimer(server_.limits.writeDeadline);
    bhttp::async_write(socket_, a, [self = shared_from_this()](beast::error_code ec, std::size_t) {
      self->onWritten(ec);
    });
  }

  void onWritten(beast::error_code ec) {
    timer_.cancel();
    answer_.reset();
    if (ec) {
      giveBack();
      return close();
    }
    if (peerGone_) return confirmDelivery(Clock::now() + std::chrono::seconds(1));
    delivered();
  }

  // The client had closed its side before the answer went out. The answer reached it if its
  // system acknowledged every byte; a client that had closed altogether resets the connection
  // instead.
  void confirmDelivery(Clock::time_point until) {
    const int fd = socket_.native_handle();
    int unacknowledged = 0;
    tcp_info info{};
    socklen_t len = sizeof info;
    int err = 0;
    socklen_t errLen = sizeof err;
    const bool reset = ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &errLen) != 0 || err != 0 ||
                       ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &len) != 0 || info.tcpi_state == TCP_CLOSE;
    if (reset || Clock::now() >= until) {
      giveBack();
      return close();
    }
    if (::ioctl(fd, SIOCOUTQ, &unacknowledged) == 0 && unacknowledged == 0) return delivered();
    timer_.expires_after(std::chrono::milliseconds(2));
    timer_.async_wait([self = shared_from_this(), until](beast::error_code wec) {
      if (wec || self->state_ == State::closed) return self->giveBack();
      self->confirmDelivery(until);
    });
  }

  void delivered() {
    undelivered_ = nullptr;
    if (keepAlive_) return readRequest();
    linger();
  }

  void giveBack() {
    if (!undelivered_) return;
    net::post(server_.pool, std::move(undelivered_));
    undelivered_ = nullptr;
  }

  // The answer is out and the connection ends: stop sending, and read and drop whatever the
  // client still sends for a while, so that it reads the answer rather than a reset.
  void linger() {
    state_ = State::lingering;
    beast::error_code ec;
    socket_.shutdown(tcp::socket::shutdown_send, ec);
    if (ec) return close();
    armTimer(server_.limits.lingerTime);
    drain();
  }

  void drain() {
    socket_.async_read_some(net::buffer(scratch_), [self = shared_from_this()](beast::error_code ec, std::size_t) {
      if (ec) return self->close();
      self->drain();
    });
  }

  Server::Impl& server_;
  tcp::socket socket_;
  net::steady_timer timer_;
  beast::flat_buffer buffer_;
  std::optional<bhttp::request_parser<bhttp::string_body>> parser_;
  std::shared_ptr<bhttp::response<bhttp::string_body>> answer_;
  std::function<void()> undelivered_;
  std::string remote_;
  State state_ = State::reading;
  Clock::time_point since_ = Clock::now();
  Coding coding_ = Coding::identity;
  bool keepAlive_ = false;
  bool peerGone_ = false;
  unsigned version_ = 11;
  char scratch_[16384];
};

}  // namespace

void Server::Impl::accept() {
  acceptor.async_accept([this](beast::error_code ec, tcp::socket socket) {
    if (!acceptor.is_open()) return;
    if (ec) {
      // Out of descriptors, most likely: try again shortly rather than spin.
      acceptPause.expires_after(std::chrono::milliseconds(50));
      acceptPause.async_wait([this](beast::error_code) { accept(); });
      return;
    }
    admit(std::move(socket));
    accept();
  });
}

void Server::Impl::admit(tcp::socket socket) {
  connections.remove_if([](const std::weak_ptr<Connection>& c) { return c.expired(); });
  if (connections.size() >= limits.maxConnections) {
    // Full: make room by closing the connection that has waited longest for its request (an
    // idle or trickling client), never one whose request is being answered.
    std::shared_ptr<Connection> oldest;
    for (const auto& weak : connections) {
      auto c = weak.lock();
      if (c && c->reading() && (!oldest || c->readingSince() < oldest->readingSince())) oldest = c;
    }
    if (!oldest) {
      beast::error_code ignored;
      socket.close(ignored);
      return;
    }
    oldest->close();
  }
  beast::error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
  auto c = std::make_shared<Connection>(*this, std::move(socket));
  connections.push_back(c);
  c->start();
}

void Server::Impl::dispatch(const Request& req, Response& res) const {
  const std::string method = req.method == "HEAD" ? "GET" : req.method;
  const auto it = routes.find({method, req.path});
  if (it == routes.end()) {
    res.status = 404;
  } else {
    try {
      it->second(req, res);
    } catch (...) {
      res = Response();
      res.status = 500;
      if (exceptionHandler) {
        try {
          exceptionHandler(req, res);
        } catch (...) {
        }
      }
    }
    if (res.status == -1) res.status = 200;
  }
  if (res.status >= 400 && errorHandler) errorHandler(req, res);
}

Server::Server(Limits limits) : impl_(std::make_unique<Impl>(limits)) {}
Server::~Server() = default;

void Server::route(const std::string& method, const std::string& path, Handler handler) {
  impl_->routes[{method, path}] = std::move(handler);
}
void Server::setErrorHandler(Handler handler) { impl_->errorHandler = std::move(handler); }
void Server::setExceptionHandler(Handler handler) { impl_->exceptionHandler = std::move(handler); }
void Server::setLogger(Logger logger) { impl_->logger = std::move(logger); }

int Server::bind(const std::string& host, int port, std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    beast::error_code ignored;
    impl_->acceptor.close(ignored);
    return -1;
  };
  beast::error_code ec;
  tcp::resolver resolver(impl_->ioc);
  const auto found = resolver.resolve(host, std::to_string(port), tcp::resolver::numeric_service, ec);
  if (ec || found.empty()) return fail("cannot resolve " + host + ": " + ec.message());
  const tcp::endpoint endpoint = found.begin()->endpoint();
  const std::string where = host + ":" + std::to_string(port);
  auto& a = impl_->acceptor;
  if (a.open(endpoint.protocol(), ec)) return fail("cannot listen on " + where + ": " + ec.message());
  // Lets a restarted service take its port back from connections closing; unlike SO_REUSEPORT
  // it never lets two servers share the port.
  a.set_option(tcp::acceptor::reuse_address(true), ec);
  if (a.bind(endpoint, ec)) {
    if (ec == net::error::address_in_use)
      return fail(where + " is already in use (is another mirlo-service running?)");
    return fail("cannot listen on " + where + ": " + ec.message());
  }
  if (a.listen(net::socket_base::max_listen_connections, ec))
    return fail("cannot listen on " + where + ": " + ec.message());
  return a.local_endpoint().port();
}

bool Server::run() {
  if (!impl_->acceptor.is_open()) return false;
  impl_->accept();
  impl_->isRunning = true;
  if (!impl_->stopped) impl_->ioc.run();
  // An answer whose bytes are all out may still have its completion waiting in the queue: run
  // what is ready, so that a correction the client received is not given back because the
  // service stopped at that moment. No new connection is taken meanwhile.
  beast::error_code ec;
  impl_->acceptor.close(ec);
  impl_->ioc.restart();
  impl_->ioc.poll();
  impl_->isRunning = false;
  return true;
}

void Server::stop() { impl_->stop(); }

bool Server::running() const { return impl_->isRunning && !impl_->stopped; }

}  // namespace mirlo::service::http
