// Tells whether another client holds Control+Shift+A on the root window: exit status 0 when it
// does (the key grab fails with BadAccess), 1 when it is free, 2 without a display. The end-to-end
// test waits on it to know that the program has finished starting.
#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace {
bool refused = false;
int onError(Display*, XErrorEvent* event) {
  if (event->error_code == BadAccess) refused = true;
  return 0;
}
}  // namespace

int main() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 2;
  XSetErrorHandler(onError);
  const Window root = DefaultRootWindow(display);
  const KeyCode key = XKeysymToKeycode(display, XK_a);
  XGrabKey(display, key, ControlMask | ShiftMask, root, False, GrabModeAsync, GrabModeAsync);
  XSync(display, False);
  if (!refused) XUngrabKey(display, key, ControlMask | ShiftMask, root);
  XCloseDisplay(display);
  return refused ? 0 : 1;
}
