// What stops password guessing and the memory that password hashing costs: failed sign-ins are
// counted per account and per address over a sliding window, and only a few Argon2id hashes
// (64 MiB each at the interactive cost) are computed at once.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace mirlo::service {

struct SignInLimits {
  int failuresPerAccount = 10;  // within the window, then that account's sign-ins wait
  int failuresPerAddress = 50;  // within the window, then every sign-in from that address waits
  std::int64_t windowSeconds = 15 * 60;
  int concurrentHashes = 2;
  int waitingHashes = 4;  // beyond these, a sign-in is refused at once rather than queued
};

class FailedSignIns {
 public:
  explicit FailedSignIns(const SignInLimits& limits) : limits_(limits) {}
  // May this account be tried from this address now?
  bool allowed(const std::string& account, const std::string& address, std::int64_t now);
  void failed(const std::string& account, const std::string& address, std::int64_t now);
  // A right password clears the account's failures (not the address's).
  void succeeded(const std::string& account);

 private:
  using Times = std::deque<std::int64_t>;
  int recent(std::unordered_map<std::string, Times>& map, const std::string& key, std::int64_t now);
  void forgetOld(std::unordered_map<std::string, Times>& map, std::int64_t now);

  SignInLimits limits_;
  std::mutex mutex_;
  std::unordered_map<std::string, Times> accounts_, addresses_;
};

// A counting gate in front of password hashing.
class HashGate {
 public:
  explicit HashGate(const SignInLimits& limits) : running_(0), limits_(limits) {}

  class Slot {
   public:
    explicit Slot(HashGate* gate) : gate_(gate) {}
    Slot(Slot&& other) noexcept : gate_(other.gate_) { other.gate_ = nullptr; }
    Slot& operator=(Slot&&) = delete;
    ~Slot();

   private:
    HashGate* gate_;
  };
  // A slot once one is free, or nothing at once when too many hashes already wait.
  std::optional<Slot> enter();

 private:
  std::mutex mutex_;
  std::condition_variable freed_;
  int running_;
  int waiting_ = 0;
  SignInLimits limits_;
};

}  // namespace mirlo::service
