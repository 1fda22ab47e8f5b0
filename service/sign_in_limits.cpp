#include "service/sign_in_limits.h"

namespace mirlo::service {

int FailedSignIns::recent(std::unordered_map<std::string, Times>& map, const std::string& key, std::int64_t now) {
  const auto it = map.find(key);
  if (it == map.end()) return 0;
  auto& times = it->second;
  while (!times.empty() && times.front() <= now - limits_.windowSeconds) times.pop_front();
  const int n = static_cast<int>(times.size());
  if (n == 0) map.erase(it);
  return n;
}

void FailedSignIns::forgetOld(std::unordered_map<std::string, Times>& map, std::int64_t now) {
  // Keeps the tables from growing with every address or e-mail ever tried.
  if (map.size() < 4096) return;
  for (auto it = map.begin(); it != map.end();)
    it = it->second.empty() || it->second.back() <= now - limits_.windowSeconds ? map.erase(it) : std::next(it);
}

bool FailedSignIns::allowed(const std::string& account, const std::string& address, std::int64_t now) {
  std::lock_guard lock(mutex_);
  return recent(accounts_, account, now) < limits_.failuresPerAccount &&
         recent(addresses_, address, now) < limits_.failuresPerAddress;
}

void FailedSignIns::failed(const std::string& account, const std::string& address, std::int64_t now) {
  std::lock_guard lock(mutex_);
  forgetOld(accounts_, now);
  forgetOld(addresses_, now);
  for (auto* times : {&accounts_[account], &addresses_[address]}) {
    times->push_back(now);
    // Never more than the limit's worth: older entries no longer change the verdict.
    while (static_cast<int>(times->size()) > limits_.failuresPerAddress + limits_.failuresPerAccount)
      times->pop_front();
  }
}

void FailedSignIns::succeeded(const std::string& account) {
  std::lock_guard lock(mutex_);
  accounts_.erase(account);
}

std::optional<HashGate::Slot> HashGate::enter() {
  std::unique_lock lock(mutex_);
  if (running_ >= limits_.concurrentHashes) {
    if (waiting_ >= limits_.waitingHashes) return std::nullopt;
    ++waiting_;
    freed_.wait(lock, [&] { return running_ < limits_.concurrentHashes; });
    --waiting_;
  }
  ++running_;
  return Slot(this);
}

HashGate::Slot::~Slot() {
  if (!gate_) return;
  {
    std::lock_guard lock(gate_->mutex_);
    --gate_->running_;
  }
  gate_->freed_.notify_one();
}

}  // namespace mirlo::service
