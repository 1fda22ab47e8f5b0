// Tells whether another client holds Control+Shift+A on the root window: exit status 0 when it
// does (the key grab fails with BadAccess), 1 when it is free, 2 without a display. The end-to-end
// test waits on it to know that the program has finished starting.
// With --hold it plays the other program instead: it takes the key, says "held" and keeps it
// until it is ended.
#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {
bool refused = false;
int onError(Display*, XErrorEvent* event) {
  if (event->error_code == BadAccess) refused = true;
  return 0;
}
}  // namespace

int main(int argc, char** argv) {
  const bool hold = argc == 2 && std::strcmp(argv[1], "--hold") == 0;
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 2;
  XSetErrorHandler(onError);
  const Window root = DefaultRootWindow(display);
  const KeyCode key = XKeysymToKeycode(display, XK_a);
  XGrabKey(display, key, ControlMask | ShiftMask, root, False, GrabModeAsync, GrabModeAsync);
  XSync(display, False);
  if (hold && !refused) {
    std::puts("held");
    std::fflush(stdout);
    pause();
  }
  if (!refused) XUngrabKey(display, key, ControlMask | ShiftMask, root);
  XCloseDisplay(display);
  return refused ? 0 : 1;
}
