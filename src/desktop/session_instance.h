// One desktop program per session. The first start owns the program's name on the session bus;
// a later start (the browser handing back the sign-in through `mirlo mirlo://auth#…`, or a
// person starting it again) forwards its arguments to that program over the bus and ends at
// once. The arguments travel as they are: which of them mean anything is the application's
// business, not the bus's.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace mirlo::desktop {

class SessionInstance {
 public:
  // The name the program owns on the session bus, the same for every build of it.
  static constexpr const char* kApplicationId = "fr.mirlo.Mirlo";

  enum class Role {
    Primary,     // this process runs the program and hears later starts
    HandedOver,  // another process runs it and has been given the URLs; end now
    Alone,       // no session bus: run without hearing later starts
  };

  SessionInstance();
  ~SessionInstance();
  SessionInstance(const SessionInstance&) = delete;
  SessionInstance& operator=(const SessionInstance&) = delete;

  // Claims the program's name, or hands `urls` to the process that holds it (waiting for it to
  // take them, never for what it makes of them).
  Role claim(const std::vector<std::string>& urls);

  // Where the URLs of later starts go, on the main loop's thread. URLs heard before a receiver
  // is set are kept for it.
  void onURLs(std::function<void(const std::vector<std::string>&)> receiver);

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace mirlo::desktop
