// Other running applications, and the browser.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace mirlo {

struct RunningApp {
  std::int32_t pid = 0;
  std::optional<std::string> bundleIdentifier;
};

class Workspace {
 public:
  // The activated application; nothing when the notification did not carry one.
  using ActivationHandler = std::function<void(const std::optional<RunningApp>&)>;
  virtual ~Workspace() = default;
  virtual std::optional<RunningApp> frontmostApplication() = 0;
  virtual std::vector<RunningApp> runningApplications() = 0;
  // Delivered on the main queue.
  virtual void observeActivations(ActivationHandler handler) = 0;
  // Opens the address with its default handler (the browser for web addresses).
  virtual bool openURL(const std::string& url) = 0;
};

}  // namespace mirlo
