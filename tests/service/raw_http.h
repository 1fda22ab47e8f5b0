// A client that speaks HTTP by hand over a socket, for what a well-behaved library never sends:
// requests cut short, trickled, pipelined, malformed or oversized.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace mirlo::service::testing {

class RawConnection {
 public:
  explicit RawConnection(int port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<std::uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~RawConnection() { close(); }
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  bool connected() const { return fd_ >= 0; }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  void shutdownSending() { ::shutdown(fd_, SHUT_WR); }

  // Everything written, or false once the peer no longer takes it.
  bool send(const std::string& bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
      const ssize_t n = ::send(fd_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
      if (n <= 0) return false;
      at += static_cast<std::size_t>(n);
    }
    return true;
  }
  // Is there something to read (or has the peer closed) right now?
  bool readable(int waitMs = 0) {
    pollfd p{fd_, POLLIN, 0};
    return ::poll(&p, 1, waitMs) == 1;
  }
  // Reads until `enough` says the text so far is complete, the peer closes, or `limit` passes.
  template <class Enough>
  std::string readUntil(Enough enough, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!enough(received_)) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
      if (left.count() <= 0 || !readable(static_cast<int>(left.count()))) break;
      char buf[65536];
      const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
      if (n <= 0) {
        closedByPeer_ = true;
        break;
      }
      received_.append(buf, static_cast<std::size_t>(n));
    }
    return received_;
  }
  // The first complete answer (head and Content-Length body), taken off what was received.
  std::string readAnswer(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    readUntil([](const std::string& s) { return answerLength(s) != std::string::npos; }, limit);
    const auto n = answerLength(received_);
    std::string answer = received_.substr(0, n == std::string::npos ? received_.size() : n);
    received_.erase(0, answer.size());
    return answer;
  }
  // Waits for the peer to close the connection, throwing away what it sends.
  bool waitForClose(std::chrono::milliseconds limit) {
    readUntil([this](const std::string&) { return closedByPeer_; }, limit);
    return closedByPeer_;
  }
  bool closedByPeer() const { return closedByPeer_; }

  // Where the answer at the start of `s` ends, or npos while it is incomplete.
  static std::size_t answerLength(const std::string& s) {
    const auto headEnd = s.find("\r\n\r\n");
    if (headEnd == std::string::npos) return std::string::npos;
    std::size_t length = 0;
    const std::string head = s.substr(0, headEnd);
    for (std::size_t at = 0; (at = head.find("\r\n", at)) != std::string::npos;) {
      at += 2;
      if (strncasecmp(head.c_str() + at, "content-length:", 15) == 0) length = std::stoul(head.substr(at + 15));
    }
    return s.size() >= headEnd + 4 + length ? headEnd + 4 + length : std::string::npos;
  }

 private:
  int fd_ = -1;
  std::string received_;
  bool closedByPeer_ = false;
};

// Where a server's handlers wait until the test lets them go, counting those that arrived.
class Gate {
 public:
  ~Gate() { open(); }
  void pass() {
    std::unique_lock lock(mutex_);
    ++arrived_;
    changed_.notify_all();
    changed_.wait_for(lock, std::chrono::seconds(10), [&] { return open_; });
  }
  bool waitForArrivals(int n) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return arrived_ >= n; });
  }
  void open() {
    std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int arrived_ = 0;
  bool open_ = false;
};

// The status of an answer ("HTTP/1.1 413 …" → 413), 0 when there is none.
inline int statusOf(const std::string& answer) {
  return answer.size() > 12 && answer.rfind("HTTP/1.", 0) == 0 ? std::atoi(answer.c_str() + 9) : 0;
}
inline std::string bodyOf(const std::string& answer) {
  const auto at = answer.find("\r\n\r\n");
  return at == std::string::npos ? std::string() : answer.substr(at + 4);
}

}  // namespace mirlo::service::testing
