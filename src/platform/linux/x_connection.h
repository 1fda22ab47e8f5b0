// One Xlib connection of its own per adapter, with its events dispatched on the GLib main loop.
// Xlib's default error handler ends the process; the handler installed here reports instead, and
// lets an adapter collect the errors its own requests caused.
#pragma once

#include <X11/Xlib.h>
#include <glib.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace mirlo::linuxdesk {

class NoDisplayError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class XConnection {
 public:
  using EventHandler = std::function<void(XEvent&)>;

  // Opens the display named by DISPLAY; throws NoDisplayError when there is none.
  XConnection();
  ~XConnection();
  XConnection(const XConnection&) = delete;
  XConnection& operator=(const XConnection&) = delete;

  Display* display() const { return display_; }
  Window root() const { return DefaultRootWindow(display_); }
  Atom atom(const char* name) const { return XInternAtom(display_, name, False); }

  // Delivers every event of this connection on the default main context from now on.
  void watch(EventHandler handler);

  // Runs `requests`, waits for the server to handle them, and returns the first X error they
  // caused (Success when none).
  int trapErrors(const std::function<void()>& requests);

 private:
  static gboolean prepare(GSource* source, gint* timeout);
  static gboolean check(GSource* source);
  static gboolean dispatch(GSource* source, GSourceFunc, gpointer);

  Display* display_ = nullptr;
  GSource* source_ = nullptr;
  EventHandler handler_;
};

// Reads a window property of 32-bit items; empty when absent.
std::vector<unsigned long> windowProperty32(Display* display, Window window, Atom property, Atom type);
std::string windowPropertyString(Display* display, Window window, Atom property);

}  // namespace mirlo::linuxdesk
