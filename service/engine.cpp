#include "service/engine.h"

#include <cstdio>
#include <mutex>

#include "service/grammalecte.h"
#include "service/grammalecte_worker_program.h"
#include "service/speller.h"

namespace mirlo::service {

namespace {

class FrenchEngine : public CorrectionEngine {
 public:
  explicit FrenchEngine(EngineConfig config) : config_(std::move(config)) {
    if (!config_.log)
      config_.log = [](const std::string& line) { std::fprintf(stderr, "mirlo-service: %s\n", line.c_str()); };
    if (!config_.grammalecte) return;
    WorkerPool::Options options;
    // "-I": none of the user's Python settings or packages; the program comes on standard input.
    options.command = {config_.python, "-I", "-", "mirlo-grammalecte"};
    options.program = std::string(kGrammalecteWorkerProgram);
    options.size = config_.processes;
    options.log = [log = config_.log](const std::string& line) { log("Grammalecte: " + line); };
    pool_ = std::make_unique<WorkerPool>(std::move(options));
  }

  EngineAnswer correct(std::string_view text, EngineClock::time_point deadline) override {
    // A process that died is tried again once on another: it may have been killed while idle, just
    // before it was handed out. A text that kills the checker twice gets a clear failure.
    for (int attempt = 0; pool_ && attempt < 2; ++attempt) {
      auto lease = pool_->acquire(deadline);
      if (!lease) {
        if (pool_->state() == WorkerPool::State::failed) break;
        return {EngineAnswer::Outcome::overBudget, {}};
      }
      // The last part of the budget is kept for finishing: no new comparisons after this.
      const auto now = EngineClock::now();
      const auto refineUntil = now + (deadline - now) * 6 / 10;
      GrammalecteSession session(*lease, deadline);
      if (auto corrected = correctFrench(text, session, refineUntil))
        return {EngineAnswer::Outcome::corrected, std::move(*corrected)};
      if (lease->failure() == WorkerPool::Lease::Failure::timedOut) return {EngineAnswer::Outcome::overBudget, {}};
      if (lease->failure() != WorkerPool::Lease::Failure::ended || attempt == 1) return {EngineAnswer::Outcome::failed, {}};
    }
    Speller* speller = fallback();
    if (!speller) return {EngineAnswer::Outcome::failed, {}};
    auto corrected = speller->correct(text, deadline);
    if (!corrected) return {EngineAnswer::Outcome::overBudget, {}};
    return {EngineAnswer::Outcome::corrected, std::move(*corrected)};
  }

  bool waitUntilSettled(std::chrono::milliseconds limit) override {
    return !pool_ || pool_->waitUntilSettled(limit) != WorkerPool::State::starting;
  }

  std::string describe() override {
    if (pool_) {
      switch (pool_->state()) {
        case WorkerPool::State::ready:
          return "corrections by Grammalecte " + pool_->version() + " (" + std::to_string(pool_->size()) +
                 " processes, ready in " + std::to_string(pool_->readyAfter().count()) + " ms)";
        case WorkerPool::State::starting:
          return "Grammalecte is still loading";
        case WorkerPool::State::failed:
          break;
      }
    }
    const std::string why = pool_ ? "Grammalecte could not be loaded (" + pool_->failure() +
                                        "; Debian: apt-get install python3-grammalecte); "
                                  : "";
    return why + (fallback() ? "corrections by Hunspell's French dictionary alone, spelling only"
                             : "no French dictionary either (Debian: apt-get install hunspell-fr): fix is unavailable");
  }

 private:
  Speller* fallback() {
    std::call_once(fallbackOpened_, [this] {
      speller_ = config_.dictionaryAff.empty() ? Speller::openDefaultFrench()
                                                : Speller::open(config_.dictionaryAff, config_.dictionaryDic);
    });
    return speller_.get();
  }

  EngineConfig config_;
  std::unique_ptr<WorkerPool> pool_;
  std::once_flag fallbackOpened_;
  std::unique_ptr<Speller> speller_;
};

}  // namespace

std::unique_ptr<CorrectionEngine> openFrenchEngine(EngineConfig config) {
  return std::make_unique<FrenchEngine>(std::move(config));
}

}  // namespace mirlo::service
