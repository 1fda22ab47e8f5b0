// French correction with Grammalecte: what to change in a text, given what the checker reports.
// The checker finds errors and proposes words; this decides which proposal makes each sentence
// read right, fixes spelling before grammar so that agreement sees the corrected words, and
// changes nothing else: a correct text, the person's apostrophes and spacing, line breaks,
// addresses, numbers and code-like words all come back byte for byte.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/worker_pool.h"

namespace mirlo::service {

// What the checker says about one text. Offsets are bytes of that text.
struct CheckReport {
  struct Issue {
    std::size_t start = 0, end = 0;
    bool spelling = false;                 // an unknown word; else a grammar error
    std::vector<std::string> suggestions;  // grammar errors only, best first
  };
  std::vector<std::pair<std::size_t, std::size_t>> sentences;
  std::vector<Issue> issues;
};

// Known words close to an unknown one: `near` are Grammalecte's look-alikes (accents, sounds,
// doubled letters, apostrophes), `edits` one slip of the finger away, `far` its slower wider
// search, given only when the others found nothing.
struct WordSuggestions {
  std::vector<std::string> near, edits, far;
  bool valid = false;  // the word is known after all (as the checker spells it)
};

class FrenchChecker {
 public:
  virtual ~FrenchChecker() = default;
  // One report per text, or nothing for a text it could not check; nothing at all when the
  // checker itself failed (then so does the correction).
  virtual std::optional<std::vector<std::optional<CheckReport>>> check(const std::vector<std::string>& texts) = 0;
  virtual std::optional<std::vector<WordSuggestions>> suggest(const std::vector<std::string>& words) = 0;
};

// The corrected text, or nothing when the checker failed. Once `refineUntil` has passed, no new
// suggestions are looked for or compared: what has been fixed by then is the answer.
std::optional<std::string> correctFrench(std::string_view text, FrenchChecker& checker,
                                         EngineClock::time_point refineUntil);

// The checker as one process of the pool running grammalecte_worker.py. Each call must end by
// `deadline`; a failed call spends the lease.
class GrammalecteSession : public FrenchChecker {
 public:
  GrammalecteSession(WorkerPool::Lease& lease, EngineClock::time_point deadline) : lease_(lease), deadline_(deadline) {}
  std::optional<std::vector<std::optional<CheckReport>>> check(const std::vector<std::string>& texts) override;
  std::optional<std::vector<WordSuggestions>> suggest(const std::vector<std::string>& words) override;

 private:
  WorkerPool::Lease& lease_;
  EngineClock::time_point deadline_;
};

}  // namespace mirlo::service
