// Ports on the loopback interface, for tests that start servers as processes of their own.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace mirlo::testing {

// A port nobody listens on right now.
inline int freeLoopbackPort() {
  const int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t len = sizeof addr;
  ::getsockname(s, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(s);
  return ntohs(addr.sin_port);
}

// Whether something accepts connections on the port.
inline bool loopbackPortAnswers(int port) {
  const int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<std::uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool ok = ::connect(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  ::close(s);
  return ok;
}

}  // namespace mirlo::testing
