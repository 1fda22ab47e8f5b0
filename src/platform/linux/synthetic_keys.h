// The key events this program synthesised itself, so that the event monitor never takes them for
// the person's. The keyboard notes each event before sending it; the monitor claims a matching
// event when the server reports it back and does not deliver it. An event the server never
// reports is forgotten after a short while, so it cannot swallow a later key of the person's.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

namespace mirlo::linuxdesk {

class SyntheticKeys {
 public:
  // How long a sent event waits to be claimed. The server reports XTest events within
  // milliseconds; a second covers a loaded machine.
  static constexpr std::int64_t kForgetAfterMicroseconds = 1'000'000;

  // `now` in microseconds of the monotonic clock (g_get_monotonic_time).
  void sent(unsigned xKeyCode, bool down, std::int64_t now);
  // True, once, for an event that matches one sent and not yet claimed.
  bool claim(unsigned xKeyCode, bool down, std::int64_t now);
  std::size_t pending(std::int64_t now);

 private:
  struct Sent {
    unsigned code;
    bool down;
    std::int64_t at;
  };
  void forgetOld(std::int64_t now);

  std::mutex mutex_;
  std::deque<Sent> sent_;
};

}  // namespace mirlo::linuxdesk
