// Takes screenshots of the onboarding window at each of its steps and of the settings window,
// signed out and in, drawn by the GTK renderer on the X display in $DISPLAY. The core's own timers
// run on the simulated clock, moved forward to each moment worth a picture; the renderer's
// animations (fades, confetti) run in real time. Usage: mirlo_gtk_window_shots OUTPUT_DIR
#include <cstdio>
#include <string>

#include "account/auth.h"
#include "gtk/gtk_world.h"
#include "ui/onboarding/onboarding.h"
#include "ui/settings/settings_window.h"

using namespace mirlo;
using namespace mirlo::testing;

namespace {

// A session as the browser hands it back: a token whose payload carries the e-mail.
constexpr const char* kSignInURL =
    "mirlo://auth#access_token="
    "eyJhbGciOiJIUzI1NiIsInR5cCI6IkpXVCJ9."
    "eyJlbWFpbCI6ImxlYUBleGVtcGxlLmZyIiwic3ViIjoiMSJ9."  // {"email":"lea@exemple.fr","sub":"1"}
    "c2lnbmF0dXJl&refresh_token=r";

void shoot(const std::string& dir, const std::string& name, Window* window, double settleSeconds = 0.5) {
  settle(settleSeconds);
  if (!window) {
    std::fprintf(stderr, "no window for %s\n", name.c_str());
    return;
  }
  // The window with its title bar (drawn by the window manager above the content) and a margin.
  const Rect f = window->frame();
  const int margin = 12, titleBar = 30;
  const int x = static_cast<int>(f.x) - margin, w = static_cast<int>(f.width) + 2 * margin;
  const int top = static_cast<int>(gtk::onXScreen(f).y) - margin - titleBar;
  const int h = static_cast<int>(f.height) + 2 * margin + titleBar;
  const std::string path = dir + "/" + name + ".png";
  if (captureScreen(path, x, top, w, h))
    std::printf("%s  window %gx%g at %g,%g\n", path.c_str(), f.width, f.height, f.x, f.y);
}

}  // namespace

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  GtkWorld world;
  auto& queue = world.desk.queue;
  App& app = *world.app;
  Onboarding& onboarding = app.onboarding();

  // Step 1: signed out, and the permission not given either.
  world.desk.accessibility.trusted = false;
  onboarding.show();
  queue.advance(0.1);
  shoot(dir, "onboarding-1-sign-in", onboarding.window());

  // Step 2: signed in through the browser, the permission still missing.
  if (!app.auth().handleCallback(kSignInURL)) std::fprintf(stderr, "the sign-in address was refused\n");
  onboarding.refresh();
  queue.advance(0.1);
  shoot(dir, "onboarding-2-permission", onboarding.window());

  // Step 3: the permission given; the demonstration runs its first cycle.
  world.desk.accessibility.trusted = true;
  onboarding.refresh();
  queue.advance(0.05);
  shoot(dir, "onboarding-3-demonstration-start", onboarding.window());
  queue.advance(1.6);  // the sentence selected, the card over it
  shoot(dir, "onboarding-3-demonstration-card", onboarding.window());
  queue.advance(1.6);  // the corrections arriving one by one
  shoot(dir, "onboarding-3-demonstration-correcting", onboarding.window());
  queue.advance(1.8);  // settled, the confetti falling and "Suivant" fading in
  shoot(dir, "onboarding-3-demonstration-confetti", onboarding.window(), 0.8);
  // The burst ends on the core's clock; the confetti in flight then finish their fall in real time.
  queue.advance(1.5);
  shoot(dir, "onboarding-3-demonstration-done", onboarding.window(), 5.5);

  onboarding.showRecap();
  queue.advance(0.1);
  shoot(dir, "onboarding-4-recap", onboarding.window());
  if (Window* window = onboarding.window()) window->close();
  queue.advance(0.1);

  // The settings window, signed in, then signed out.
  app.settings().show();
  queue.advance(0.1);
  shoot(dir, "settings-signed-in", app.settings().window());
  app.auth().signOut();
  app.settings().show();
  queue.advance(0.1);
  shoot(dir, "settings-signed-out", app.settings().window());
  settle();
  return 0;
}
