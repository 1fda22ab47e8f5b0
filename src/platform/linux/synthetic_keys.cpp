#include "platform/linux/synthetic_keys.h"

namespace mirlo::linuxdesk {

void SyntheticKeys::forgetOld(std::int64_t now) {
  while (!sent_.empty() && now - sent_.front().at > kForgetAfterMicroseconds) sent_.pop_front();
}

void SyntheticKeys::sent(unsigned xKeyCode, bool down, std::int64_t now) {
  std::lock_guard lock(mutex_);
  forgetOld(now);
  sent_.push_back({xKeyCode, down, now});
}

bool SyntheticKeys::claim(unsigned xKeyCode, bool down, std::int64_t now) {
  std::lock_guard lock(mutex_);
  forgetOld(now);
  // Events come back in the order they were sent, but the person's own keys may come in between.
  for (auto it = sent_.begin(); it != sent_.end(); ++it) {
    if (it->code == xKeyCode && it->down == down) {
      sent_.erase(it);
      return true;
    }
  }
  return false;
}

std::size_t SyntheticKeys::pending(std::int64_t now) {
  std::lock_guard lock(mutex_);
  forgetOld(now);
  return sent_.size();
}

}  // namespace mirlo::linuxdesk
