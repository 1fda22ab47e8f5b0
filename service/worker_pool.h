// Helper processes that answer one line of JSON for each line of JSON they are sent, on a socket
// private to each of them. A supervisor thread starts them ahead of need and replaces any that
// dies, hangs or answers nonsense, so that a fault in one costs one answer and nothing more.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/json.h"

namespace mirlo::service {

using EngineClock = std::chrono::steady_clock;

class WorkerPool {
 public:
  struct Options {
    // The program and its arguments; `program` goes to its standard input, which is then closed
    // (an interpreter reading its script from there). The channel is its descriptor 3.
    std::vector<std::string> command;
    std::string program;
    int size = 1;
    // A process that has not said it is ready by then is given up.
    std::chrono::milliseconds startLimit{60000};
    std::size_t maxAnswerBytes = 16u << 20;
    // One line for the service's log, without its end of line.
    std::function<void(const std::string&)> log;
  };

  enum class State { starting, ready, failed };

  explicit WorkerPool(Options options);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // One process, for as many requests as one piece of work needs. When a call fails, the process
  // is replaced and every later call of the lease fails too.
  class Lease {
   public:
    struct Worker;  // one process, known to the pool only
    Lease(Lease&& other) noexcept;
    Lease& operator=(Lease&&) = delete;
    ~Lease();

    // The answer, a JSON object; nothing when the process did not give one by `deadline`, died,
    // or sent something that is not one line of a JSON object.
    std::optional<Json> call(const Json& request, EngineClock::time_point deadline);
    // Why a call failed, after which the process was given up.
    enum class Failure { none, timedOut, ended, garbled };
    Failure failure() const { return failure_; }

   private:
    friend class WorkerPool;
    Lease(WorkerPool* pool, std::shared_ptr<Worker> worker) : pool_(pool), worker_(std::move(worker)) {}
    WorkerPool* pool_;
    std::shared_ptr<Worker> worker_;
    Failure failure_ = Failure::none;
  };

  // A free process, waiting for one until `deadline`; nothing when none was free in time or when
  // the processes cannot start at all (state() is then failed).
  std::optional<Lease> acquire(EngineClock::time_point deadline);

  State state() const;
  // Waits until the first process is ready or starting has failed, at most `limit`.
  State waitUntilSettled(std::chrono::milliseconds limit) const;
  // Why starting failed, as the process said it or as it ended.
  std::string failure() const;
  // What the first ready process announced ("version" of its ready message).
  std::string version() const;
  // How long the first process took to be ready.
  std::chrono::milliseconds readyAfter() const;
  int size() const { return options_.size; }

 private:
  using Worker = Lease::Worker;
  void supervise();
  void wake();
  std::shared_ptr<Worker> spawn(std::string* error);
  void release(const std::shared_ptr<Worker>& worker, bool broken);
  void startFailed(const std::string& why, const std::string& logLine);
  void log(const std::string& line) const;

  Options options_;
  int wakeFd_ = -1;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::shared_ptr<Worker>> workers_;
  State state_ = State::starting;
  bool everReady_ = false;
  bool stopping_ = false;
  int failedStarts_ = 0;
  EngineClock::time_point nextStart_{};
  std::string failure_;
  std::string version_;
  std::chrono::milliseconds readyAfter_{0};
  std::thread supervisor_;
};

}  // namespace mirlo::service
