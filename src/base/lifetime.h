// Delayed work that must not outlive its owner. The platform's objects hold their owners weakly;
// here an owner keeps a `Lifetime`, and `guard` wraps a callback so that it does nothing once the
// owner is gone. Not thread-safe by itself: guarded callbacks run on the main queue, where their
// owners are also destroyed.
#pragma once

#include <memory>
#include <utility>

namespace mirlo {

class Lifetime {
 public:
  Lifetime() : token_(std::make_shared<char>(0)) {}
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;

  template <typename F>
  auto guard(F f) const {
    return [weak = std::weak_ptr<char>(token_), f = std::move(f)](auto&&... args) mutable {
      if (weak.expired()) return;
      f(std::forward<decltype(args)>(args)...);
    };
  }

 private:
  std::shared_ptr<char> token_;
};

}  // namespace mirlo
