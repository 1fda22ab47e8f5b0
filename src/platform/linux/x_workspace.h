// Other applications as the window manager shows them (EWMH): the active window's process, the
// managed windows' processes, activations, and the desktop's default handler for addresses.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/x_connection.h"
#include "platform/workspace.h"

namespace mirlo::linuxdesk {

// The identifier the core knows an application by, from its window class (WM_CLASS instance and
// class) or desktop-file id: the macOS identifier for the applications that exist on both
// systems, else the class as the window gives it.
std::optional<std::string> applicationIdentifier(const std::string& instance, const std::string& windowClass);

class XWorkspace final : public Workspace {
 public:
  XWorkspace();  // throws NoDisplayError
  std::optional<RunningApp> frontmostApplication() override;
  std::vector<RunningApp> runningApplications() override;
  void observeActivations(ActivationHandler handler) override;
  bool openURL(const std::string& url) override;

 private:
  std::optional<RunningApp> appOfWindow(Window window);
  void handle(XEvent& event);

  XConnection x_;
  ActivationHandler handler_;
  std::optional<std::int32_t> lastActive_;
};

}  // namespace mirlo::linuxdesk
