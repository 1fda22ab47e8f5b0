#include "platform/linux/x_workspace.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <gio/gio.h>

#include <algorithm>
#include <cctype>
#include <set>

namespace mirlo::linuxdesk {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// Window classes (lower case) of the Linux builds of the applications asked to expose their
// accessibility tree, with the identifiers the core lists them under.
struct Known {
  const char* windowClass;
  const char* identifier;
};
constexpr Known kKnown[] = {
    {"google-chrome", "com.google.Chrome"},
    {"google-chrome-unstable", "com.google.Chrome.canary"},
    {"chromium", "com.google.Chrome"},
    {"chromium-browser", "com.google.Chrome"},
    {"microsoft-edge", "com.microsoft.edgemac"},
    {"microsoft-edge-beta", "com.microsoft.edgemac"},
    {"brave-browser", "com.brave.Browser"},
    {"vivaldi-stable", "com.vivaldi.Vivaldi"},
    {"firefox", "org.mozilla.firefox"},
    {"firefox-esr", "org.mozilla.firefox"},
    {"navigator", "org.mozilla.firefox"},
    {"slack", "com.tinyspeck.slackmacgap"},
    {"discord", "com.hnc.Discord"},
    {"notion", "notion.id"},
    {"notion-app", "notion.id"},
    {"whatsapp", "net.whatsapp.WhatsApp"},
    {"whatsapp-for-linux", "net.whatsapp.WhatsApp"},
    {"code", "com.microsoft.VSCode"},
    {"figma-linux", "com.figma.Desktop"},
};

}  // namespace

std::optional<std::string> applicationIdentifier(const std::string& instance, const std::string& windowClass) {
  for (const std::string& name : {lower(windowClass), lower(instance)})
    for (const auto& known : kKnown)
      if (name == known.windowClass) return std::string(known.identifier);
  if (!windowClass.empty()) return windowClass;
  if (!instance.empty()) return instance;
  return std::nullopt;
}

XWorkspace::XWorkspace() {
  XSelectInput(x_.display(), x_.root(), PropertyChangeMask);
  XFlush(x_.display());
  x_.watch([this](XEvent& event) { handle(event); });
}

std::optional<RunningApp> XWorkspace::appOfWindow(Window window) {
  if (window == None) return std::nullopt;
  std::vector<unsigned long> pid;
  XClassHint hint{};
  Status gotClass = 0;
  int error = x_.trapErrors([&] {
    pid = windowProperty32(x_.display(), window, x_.atom("_NET_WM_PID"), XA_CARDINAL);
    gotClass = XGetClassHint(x_.display(), window, &hint);
  });
  std::string instance, windowClass;
  if (gotClass) {
    if (hint.res_name) instance = hint.res_name;
    if (hint.res_class) windowClass = hint.res_class;
    XFree(hint.res_name);
    XFree(hint.res_class);
  }
  if (error != Success || pid.empty()) return std::nullopt;
  return RunningApp{static_cast<std::int32_t>(pid[0]), applicationIdentifier(instance, windowClass)};
}

std::optional<RunningApp> XWorkspace::frontmostApplication() {
  auto active = windowProperty32(x_.display(), x_.root(), x_.atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
  if (active.empty()) return std::nullopt;
  return appOfWindow(active[0]);
}

std::vector<RunningApp> XWorkspace::runningApplications() {
  std::vector<RunningApp> apps;
  std::set<std::int32_t> seen;
  for (unsigned long window : windowProperty32(x_.display(), x_.root(), x_.atom("_NET_CLIENT_LIST"), XA_WINDOW)) {
    auto app = appOfWindow(window);
    if (app && seen.insert(app->pid).second) apps.push_back(*app);
  }
  return apps;
}

void XWorkspace::observeActivations(ActivationHandler handler) {
  handler_ = std::move(handler);
  auto front = frontmostApplication();
  lastActive_ = front ? std::optional(front->pid) : std::nullopt;
}

void XWorkspace::handle(XEvent& event) {
  if (event.type != PropertyNotify || event.xproperty.atom != x_.atom("_NET_ACTIVE_WINDOW")) return;
  if (!handler_) return;
  auto front = frontmostApplication();
  std::optional<std::int32_t> pid = front ? std::optional(front->pid) : std::nullopt;
  // Focus moving between windows of one application is no activation.
  if (pid == lastActive_) return;
  lastActive_ = pid;
  if (front) handler_(front);
}

bool XWorkspace::openURL(const std::string& url) {
  GError* error = nullptr;
  gboolean launched = g_app_info_launch_default_for_uri(url.c_str(), nullptr, &error);
  if (error) g_error_free(error);
  return launched;
}

}  // namespace mirlo::linuxdesk
