// A process-local broadcast, the core's notification centre: observers registered for a name are
// called synchronously, in registration order, on the thread that posts (always the main queue in
// this program). Observers are never removed, as in the program's design; a test throws the whole
// application away instead.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace mirlo {

class NotificationCenter {
 public:
  using Observer = std::function<void()>;

  void observe(std::string name, Observer observer) {
    observers_.push_back({std::move(name), std::move(observer)});
  }

  void post(const std::string& name) {
    posted_.push_back(name);
    // Observers may register more observers while we iterate: walk by index over a fixed count.
    const auto count = observers_.size();
    for (std::size_t i = 0; i < count; ++i)
      if (observers_[i].first == name) observers_[i].second();
  }

  // Every name posted so far, in order (what tests and the scenario runner show).
  const std::vector<std::string>& posted() const { return posted_; }

 private:
  std::vector<std::pair<std::string, Observer>> observers_;
  std::vector<std::string> posted_;
};

}  // namespace mirlo
