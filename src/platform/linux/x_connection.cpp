#include "platform/linux/x_connection.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <vector>

namespace mirlo::linuxdesk {

namespace {

std::mutex gErrorsMutex;
std::map<Display*, int> gTrapped;  // displays collecting errors, with the first one seen

int reportError(Display* display, XErrorEvent* error) {
  std::lock_guard lock(gErrorsMutex);
  if (auto it = gTrapped.find(display); it != gTrapped.end()) {
    if (it->second == Success) it->second = error->error_code;
    return 0;
  }
  char text[256] = {};
  XGetErrorText(display, error->error_code, text, sizeof text);
  std::fprintf(stderr, "mirlo: X error %s (request %d.%d)\n", text, error->request_code, error->minor_code);
  return 0;
}

std::once_flag gInstall;

struct XSource {
  GSource base;
  XConnection* connection;
  GPollFD poll;
};

}  // namespace

XConnection::XConnection() {
  std::call_once(gInstall, [] {
    XInitThreads();
    XSetErrorHandler(reportError);
  });
  display_ = XOpenDisplay(nullptr);
  if (!display_) {
    const char* name = std::getenv("DISPLAY");
    throw NoDisplayError(std::string("cannot open the X display ") + (name && *name ? name : "(DISPLAY is not set)"));
  }
}

XConnection::~XConnection() {
  if (source_) {
    g_source_destroy(source_);
    g_source_unref(source_);
  }
  XCloseDisplay(display_);
}

gboolean XConnection::prepare(GSource* source, gint* timeout) {
  *timeout = -1;
  return XPending(reinterpret_cast<XSource*>(source)->connection->display_) > 0;
}

gboolean XConnection::check(GSource* source) {
  auto* x = reinterpret_cast<XSource*>(source);
  return (x->poll.revents & G_IO_IN) || XPending(x->connection->display_) > 0;
}

gboolean XConnection::dispatch(GSource* source, GSourceFunc, gpointer) {
  auto* connection = reinterpret_cast<XSource*>(source)->connection;
  while (XPending(connection->display_) > 0) {
    XEvent event;
    XNextEvent(connection->display_, &event);
    if (connection->handler_) connection->handler_(event);
  }
  return G_SOURCE_CONTINUE;
}

void XConnection::watch(EventHandler handler) {
  handler_ = std::move(handler);
  if (source_) return;
  static GSourceFuncs funcs = {prepare, check, dispatch, nullptr, nullptr, nullptr};
  source_ = g_source_new(&funcs, sizeof(XSource));
  auto* x = reinterpret_cast<XSource*>(source_);
  x->connection = this;
  x->poll.fd = ConnectionNumber(display_);
  x->poll.events = G_IO_IN;
  g_source_add_poll(source_, &x->poll);
  g_source_attach(source_, g_main_context_default());
}

int XConnection::trapErrors(const std::function<void()>& requests) {
  {
    std::lock_guard lock(gErrorsMutex);
    gTrapped[display_] = Success;
  }
  requests();
  XSync(display_, False);
  std::lock_guard lock(gErrorsMutex);
  int error = gTrapped[display_];
  gTrapped.erase(display_);
  return error;
}

std::vector<unsigned long> windowProperty32(Display* display, Window window, Atom property, Atom type) {
  Atom actualType = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  std::vector<unsigned long> items;
  if (XGetWindowProperty(display, window, property, 0, 1 << 16, False, type, &actualType, &format, &count, &after,
                         &data) == Success &&
      data && format == 32) {
    auto* values = reinterpret_cast<unsigned long*>(data);  // Xlib widens 32-bit items to long
    items.assign(values, values + count);
  }
  if (data) XFree(data);
  return items;
}

std::string windowPropertyString(Display* display, Window window, Atom property) {
  Atom actualType = None;
  int format = 0;
  unsigned long count = 0, after = 0;
  unsigned char* data = nullptr;
  std::string text;
  if (XGetWindowProperty(display, window, property, 0, 1 << 16, False, AnyPropertyType, &actualType, &format, &count,
                         &after, &data) == Success &&
      data && format == 8)
    text.assign(reinterpret_cast<char*>(data), count);
  if (data) XFree(data);
  return text;
}

}  // namespace mirlo::linuxdesk
