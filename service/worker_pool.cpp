#include "service/worker_pool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace mirlo::service {

struct WorkerPool::Lease::Worker {
  enum class Phase { starting, idle, busy, dead };
  pid_t pid = -1;
  int fd = -1;  // our end of the channel, non-blocking
  Phase phase = Phase::starting;
  EngineClock::time_point startedAt;
  std::string pending;  // bytes received after the last complete line
};

namespace {

using Phase = WorkerPool::Lease::Worker::Phase;

// Milliseconds from now until `deadline`, rounded up, for poll(); 0 once it has passed.
int millisecondsUntil(EngineClock::time_point deadline) {
  const auto left = deadline - EngineClock::now();
  if (left <= EngineClock::duration::zero()) return 0;
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<std::int64_t>(ms, 24 * 3600 * 1000));
}

enum class Wait { ready, timedOut, failed };

Wait waitFor(int fd, short events, EngineClock::time_point deadline) {
  for (;;) {
    pollfd p{fd, events, 0};
    const int n = ::poll(&p, 1, millisecondsUntil(deadline));
    if (n > 0) return (p.revents & (events | POLLHUP)) ? Wait::ready : Wait::failed;
    if (n == 0) {
      if (EngineClock::now() >= deadline) return Wait::timedOut;
      continue;
    }
    if (errno != EINTR) return Wait::failed;
  }
}

// Moves a descriptor above the ones a child is given (0 to 3), so that copying it there is a real
// copy: a copy onto itself would keep its close-on-exec flag and the child would never see it.
int moveHigh(int fd) {
  const int high = ::fcntl(fd, F_DUPFD_CLOEXEC, 10);
  ::close(fd);
  return high;
}

void stopProcess(pid_t pid) {
  if (pid <= 0) return;
  ::kill(pid, SIGKILL);
  while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
}

// How a process that closed its channel ended; `pid` becomes -1 when it has been waited for.
std::string describeExit(pid_t& pid) {
  int status = 0;
  pid_t r;
  while ((r = ::waitpid(pid, &status, WNOHANG)) < 0 && errno == EINTR) {
  }
  if (r != pid) return "it closed its channel";
  pid = -1;
  if (WIFEXITED(status)) return "it exited with status " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return std::string("it was ended by signal ") + ::strsignal(WTERMSIG(status));
  return "it ended";
}

}  // namespace

WorkerPool::WorkerPool(Options options) : options_(std::move(options)) {
  options_.size = std::max(1, options_.size);
  wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  supervisor_ = std::thread([this] { supervise(); });
}

WorkerPool::~WorkerPool() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  wake();
  supervisor_.join();
  for (auto& w : workers_) {
    ::close(w->fd);
    stopProcess(w->pid);
  }
  if (wakeFd_ >= 0) ::close(wakeFd_);
}

void WorkerPool::log(const std::string& line) const {
  if (options_.log) options_.log(line);
}

void WorkerPool::wake() {
  const std::uint64_t one = 1;
  if (wakeFd_ >= 0 && ::write(wakeFd_, &one, sizeof one) < 0) {
    // Full only when the supervisor already has a wake-up waiting.
  }
}

WorkerPool::State WorkerPool::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

WorkerPool::State WorkerPool::waitUntilSettled(std::chrono::milliseconds limit) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [this] { return state_ != State::starting; });
  return state_;
}

std::string WorkerPool::failure() const {
  std::lock_guard lock(mutex_);
  return failure_;
}

std::chrono::milliseconds WorkerPool::readyAfter() const {
  std::lock_guard lock(mutex_);
  return readyAfter_;
}

std::string WorkerPool::version() const {
  std::lock_guard lock(mutex_);
  return version_;
}

std::shared_ptr<WorkerPool::Worker> WorkerPool::spawn(std::string* error) {
  int channel[2], input[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, channel) != 0) {
    *error = std::string("no socket pair: ") + std::strerror(errno);
    return nullptr;
  }
  // Standard input is a socket too: writing the program to a process that died at once must
  // fail with an error, not raise SIGPIPE in the service.
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0) {
    *error = std::string("no socket pair: ") + std::strerror(errno);
    ::close(channel[0]);
    ::close(channel[1]);
    return nullptr;
  }
  const int childChannel = moveHigh(channel[1]);
  const int childInput = moveHigh(input[1]);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, childInput, 0);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);  // a stray print cannot garble the channel
  posix_spawn_file_actions_adddup2(&actions, childChannel, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  sigaddset(&defaults, SIGINT);
  sigaddset(&defaults, SIGTERM);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  // Its own process group: Control+C in the service's terminal is for the service, which then
  // closes the channels; the helpers end on their own when it does.
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

  std::vector<char*> argv;
  for (auto& a : options_.command) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  const int rc = options_.command.empty() ? EINVAL
                                          : ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  ::close(childChannel);
  ::close(childInput);
  if (rc != 0) {
    *error = "cannot start " + (options_.command.empty() ? std::string("nothing") : options_.command[0]) + ": " +
             std::strerror(rc);
    ::close(channel[0]);
    ::close(input[0]);
    return nullptr;
  }
  // The program is small: the interpreter reads it all before it runs any of it.
  std::size_t sent = 0;
  while (sent < options_.program.size()) {
    const auto n = ::send(input[0], options_.program.data() + sent, options_.program.size() - sent, MSG_NOSIGNAL);
    if (n > 0) sent += static_cast<std::size_t>(n);
    else if (n < 0 && errno == EINTR) continue;
    else break;
  }
  ::close(input[0]);
  ::fcntl(channel[0], F_SETFL, ::fcntl(channel[0], F_GETFL) | O_NONBLOCK);

  auto w = std::make_shared<Worker>();
  w->pid = pid;
  w->fd = channel[0];
  w->startedAt = EngineClock::now();
  return w;
}

void WorkerPool::supervise() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    // Processes that failed are ended and replaced; waiting for them is quick after SIGKILL.
    std::vector<std::shared_ptr<Worker>> gone;
    std::erase_if(workers_, [&](const std::shared_ptr<Worker>& w) {
      if (w->phase != Phase::dead) return false;
      gone.push_back(w);
      return true;
    });
    if (!gone.empty()) {
      lock.unlock();
      for (auto& w : gone) {
        ::close(w->fd);
        stopProcess(w->pid);
      }
      lock.lock();
      continue;
    }

    // One process at a time until the first is ready: the first correction waits for the first
    // process only, and a checker that cannot load fails once.
    auto now = EngineClock::now();
    const bool wanted = state_ != State::failed && static_cast<int>(workers_.size()) < options_.size &&
                        (everReady_ || workers_.empty());
    if (wanted && now >= nextStart_) {
      lock.unlock();
      std::string error;
      auto w = spawn(&error);
      lock.lock();
      if (!w) {
        startFailed(error, error);
        continue;
      }
      if (stopping_) {
        workers_.push_back(std::move(w));  // the destructor ends it
        break;
      }
      workers_.push_back(std::move(w));
      continue;
    }

    // Listen to the processes that are starting (their first line) and to the idle ones (an idle
    // process has nothing to say: anything from it, its end included, means it is gone).
    std::vector<pollfd> fds{{wakeFd_, POLLIN, 0}};
    std::vector<std::shared_ptr<Worker>> watched;
    EngineClock::time_point until = EngineClock::time_point::max();
    for (auto& w : workers_) {
      if (w->phase == Phase::starting) until = std::min(until, w->startedAt + options_.startLimit);
      if (w->phase == Phase::starting || w->phase == Phase::idle) {
        fds.push_back({w->fd, POLLIN, 0});
        watched.push_back(w);
      }
    }
    if (wanted) until = std::min(until, nextStart_);
    const int timeout = until == EngineClock::time_point::max() ? -1 : millisecondsUntil(until);
    lock.unlock();
    const int n = ::poll(fds.data(), fds.size(), timeout);
    if (fds[0].revents & POLLIN) {
      std::uint64_t count;
      [[maybe_unused]] auto r = ::read(wakeFd_, &count, sizeof count);
    }
    lock.lock();
    if (n < 0 && errno != EINTR) break;
    now = EngineClock::now();

    for (std::size_t i = 0; i < watched.size(); ++i) {
      auto& w = watched[i];
      const short revents = fds[i + 1].revents;
      if (w->phase == Phase::idle && revents != 0) {
        w->phase = Phase::dead;
        log("a helper process ended while idle (" + describeExit(w->pid) + "); starting another");
        continue;
      }
      if (w->phase != Phase::starting) continue;
      std::string why;
      if (revents != 0) {
        char buffer[4096];
        const auto got = ::read(w->fd, buffer, sizeof buffer);
        if (got > 0) w->pending.append(buffer, static_cast<std::size_t>(got));
        else if (got == 0 || (errno != EAGAIN && errno != EINTR)) why = describeExit(w->pid);
      }
      if (why.empty()) {
        const auto newline = w->pending.find('\n');
        if (newline != std::string::npos) {
          const auto hello = parseJson(std::string_view(w->pending).substr(0, newline));
          w->pending.erase(0, newline + 1);
          if (hello && hello->is_object() && hello->value("ready", false)) {
            w->phase = Phase::idle;
            const bool first = !everReady_;
            everReady_ = true;
            failedStarts_ = 0;
            state_ = State::ready;
            if (version_.empty() && hello->contains("version") && (*hello)["version"].is_string())
              version_ = (*hello)["version"].get<std::string>();
            if (first) readyAfter_ = std::chrono::duration_cast<std::chrono::milliseconds>(now - w->startedAt);
            changed_.notify_all();
            continue;
          }
          why = hello && hello->is_object() && hello->contains("error") && (*hello)["error"].is_string()
                    ? (*hello)["error"].get<std::string>()
                    : "its first line was not a ready message";
        } else if (w->pending.size() > options_.maxAnswerBytes) {
          why = "its first line never ended";
        } else if (now >= w->startedAt + options_.startLimit) {
          why = "it was not ready within " + std::to_string(options_.startLimit.count() / 1000) + " s";
        }
      }
      if (why.empty()) continue;
      w->phase = Phase::dead;
      startFailed(why, "a helper process could not start (" + why + "); trying again");
    }
  }
}

// Before any helper was ever ready, a failed start means the checker cannot load here: the pool
// fails once, with the reason. After that it is a passing fault: the next start waits longer each
// time (2, 4, … up to 30 s) so that a helper that keeps failing does not spin. Called locked.
void WorkerPool::startFailed(const std::string& why, const std::string& logLine) {
  ++failedStarts_;
  if (!everReady_) {
    state_ = State::failed;
    failure_ = why;
    changed_.notify_all();
  } else {
    nextStart_ = EngineClock::now() + std::chrono::seconds(std::min(30, 1 << std::min(failedStarts_, 5)));
    log(logLine);
  }
}

std::optional<WorkerPool::Lease> WorkerPool::acquire(EngineClock::time_point deadline) {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (stopping_ || state_ == State::failed) return std::nullopt;
    for (auto& w : workers_) {
      if (w->phase != Phase::idle) continue;
      // It may have died since the supervisor last looked.
      pollfd p{w->fd, POLLIN, 0};
      if (::poll(&p, 1, 0) != 0) {
        w->phase = Phase::dead;
        wake();
        continue;
      }
      w->phase = Phase::busy;
      return Lease(this, w);
    }
    if (changed_.wait_until(lock, deadline) == std::cv_status::timeout && EngineClock::now() >= deadline)
      return std::nullopt;
  }
}

void WorkerPool::release(const std::shared_ptr<Worker>& worker, bool broken) {
  {
    std::lock_guard lock(mutex_);
    if (broken) {
      worker->phase = Phase::dead;
      // At once: a process stuck in a loop must not keep a core busy until it is reaped.
      if (worker->pid > 0) ::kill(worker->pid, SIGKILL);
    } else if (worker->phase == Phase::busy) {
      worker->phase = Phase::idle;
    }
  }
  changed_.notify_all();
  wake();
}

WorkerPool::Lease::Lease(Lease&& other) noexcept
    : pool_(other.pool_), worker_(std::move(other.worker_)), failure_(other.failure_) {}

WorkerPool::Lease::~Lease() {
  if (worker_) pool_->release(worker_, false);
}

std::optional<Json> WorkerPool::Lease::call(const Json& request, EngineClock::time_point deadline) {
  if (failure_ != Failure::none || !worker_) return std::nullopt;
  auto fail = [&](Failure failure, const std::string& why) -> std::optional<Json> {
    failure_ = failure;
    pool_->log("a helper process " + why + "; starting another");
    pool_->release(worker_, true);
    worker_.reset();
    return std::nullopt;
  };
  Worker& w = *worker_;
  const std::string line = dumpJson(request) + "\n";
  std::size_t sent = 0;
  while (sent < line.size()) {
    const auto n = ::send(w.fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      const auto waited = waitFor(w.fd, POLLOUT, deadline);
      if (waited == Wait::timedOut) return fail(Failure::timedOut, "took longer than its time budget");
      if (waited == Wait::failed) return fail(Failure::ended, "closed its channel");
      continue;
    }
    return fail(Failure::ended, "closed its channel");
  }
  for (;;) {
    const auto newline = w.pending.find('\n');
    if (newline != std::string::npos) {
      auto answer = parseJson(std::string_view(w.pending).substr(0, newline));
      w.pending.erase(0, newline + 1);
      if (!answer || !answer->is_object()) return fail(Failure::garbled, "answered something that is not a JSON object");
      return answer;
    }
    if (w.pending.size() > pool_->options_.maxAnswerBytes) return fail(Failure::garbled, "sent an answer too long to read");
    const auto waited = waitFor(w.fd, POLLIN, deadline);
    if (waited == Wait::timedOut) return fail(Failure::timedOut, "took longer than its time budget");
    char buffer[16384];
    const auto got = ::read(w.fd, buffer, sizeof buffer);
    if (got > 0) {
      w.pending.append(buffer, static_cast<std::size_t>(got));
      continue;
    }
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    return fail(Failure::ended, "ended in the middle of a request");
  }
}

}  // namespace mirlo::service
