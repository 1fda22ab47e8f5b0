// The correction engine behind `fix`: Grammalecte in helper processes, loaded once at start, with
// Hunspell's suggestions alone as the fallback when Grammalecte cannot be loaded. Every correction
// has a deadline; past it the answer is that the time ran out, never a late one.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "service/worker_pool.h"

namespace mirlo::service {

struct EngineConfig {
  // Debian's python3-grammalecte is installed for Debian's interpreter, whatever else comes first
  // on the PATH.
  std::string python = "/usr/bin/python3";
  bool grammalecte = true;  // false: Hunspell's suggestions alone
  // Corrections made at the same time; each process holds its own Grammalecte (about 90 MB).
  int processes = 2;
  // Well under the 15 s after which the program gives up waiting.
  std::chrono::milliseconds budget{6000};
  std::string dictionaryAff, dictionaryDic;  // Hunspell's; empty: the system's French dictionary
  // Where the engine reports a helper process replaced; standard error by default.
  std::function<void(const std::string&)> log;
};

struct EngineAnswer {
  enum class Outcome { corrected, overBudget, failed };
  Outcome outcome = Outcome::failed;
  std::string text;  // the corrected text
};

class CorrectionEngine {
 public:
  virtual ~CorrectionEngine() = default;
  // `text` is valid UTF-8 (the JSON layer guarantees it). Safe to call from many threads.
  virtual EngineAnswer correct(std::string_view text, EngineClock::time_point deadline) = 0;
  // Waits until the engine is ready or has fallen back, at most `limit`; whether it has.
  virtual bool waitUntilSettled(std::chrono::milliseconds limit) = 0;
  // Which checker corrects, for the service's start-up message.
  virtual std::string describe() = 0;
};

// Starts loading at once and returns without waiting for it.
std::unique_ptr<CorrectionEngine> openFrenchEngine(EngineConfig config);

}  // namespace mirlo::service
