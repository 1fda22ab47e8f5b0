// The real core on the simulated desktop, its status item exported on the session bus by the GTK
// renderer, for a test that plays the desktop's panel. Signed in as lea@example.fr; with --update
// the web site announces version 1.10. Prints "ready" once launched and "opened URL" for each page
// the core opens in the browser; ends when the core quits. With --shot DIR it instead pops the
// status menu up on the display, saves DIR/NAME.png and ends.
//   mirlo_gtk_status_app [--update] [--shot DIR NAME]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "account/auth.h"
#include "app/launch.h"
#include "gtk/gtk_world.h"
#include "platform/sim/sim_tokens.h"

using namespace mirlo;
using namespace mirlo::testing;

namespace {

struct Options {
  bool update = false;
  std::string shotDir, shotName;
};

// The menu as a panel pops it up, with the window beneath around it.
int shoot(GtkWorld& world, const Options& options) {
  GtkMenu* menu = world.ui.statusMenu();
  if (!menu) {
    std::fprintf(stderr, "no status menu\n");
    return 1;
  }
  // The menu's own popup window, shown without the pointer grab of a real popup: a grab on this
  // bare display is broken at once by the window manager and the menu would close before the shot.
  GdkWindow* root = gdk_get_default_root_window();
  const int screenWidth = gdk_window_get_width(root);
  GtkWidget* popup = gtk_widget_get_toplevel(GTK_WIDGET(menu));
  gtk_widget_show(GTK_WIDGET(menu));
  // Over the text window, so that the menu's edges show against something.
  gtk_window_move(GTK_WINDOW(popup), 480, 140);
  gtk_widget_show(popup);
  if (!pumpUntil([popup] { return gtk_widget_get_mapped(popup); }, 3)) {
    std::fprintf(stderr, "the menu did not show\n");
    return 1;
  }
  settle(0.5);
  GdkWindow* shown = gtk_widget_get_window(popup);
  int x = 0, y = 0;
  gdk_window_get_origin(shown, &x, &y);
  const int w = gdk_window_get_width(shown), h = gdk_window_get_height(shown);
  const int margin = 24;
  const int left = std::max(0, x - margin), top = std::max(0, y - margin);
  const int right = std::min(screenWidth, x + w + margin);
  const std::string path = options.shotDir + "/" + options.shotName + ".png";
  const bool shot = captureScreen(path, left, top, right - left, y + h + margin - top);
  gtk_widget_hide(popup);
  if (!shot) return 1;
  std::printf("%s  menu %dx%d\n", path.c_str(), w, h);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--update") {
      options.update = true;
    } else if (arg == "--shot" && i + 2 < argc) {
      options.shotDir = argv[++i];
      options.shotName = argv[++i];
    } else {
      std::fprintf(stderr, "usage: %s [--update] [--shot DIR NAME]\n", argv[0]);
      return 2;
    }
  }

  GtkWorld world;
  world.desk.defaults.values["onboarded"] = true;
  world.app->auth().setTokens(sim::accessTokenFor("lea@example.fr"), "refresh-1");
  if (options.update) {
    world.desk.appInfo.version = "1.9";
    world.desk.http.enqueue("/version.json", sim::SimAnswer::json(200, R"({"version":"1.10"})"));
  }
  if (!options.shotDir.empty()) world.openBackdrop("Bonjour Léa,\n\nÀ demain.\n");
  finishLaunching(*world.app, {});
  world.desk.queue.advance(0);
  if (!options.shotDir.empty()) return shoot(world, options);

  // The simulated clock follows the real one, and the pages the core opens are told.
  struct Ticker {
    GtkWorld& world;
    std::size_t told = 0;
  } ticker{world};
  g_timeout_add(
      50,
      [](gpointer data) -> gboolean {
        auto* t = static_cast<Ticker*>(data);
        t->world.desk.queue.advance(0.05);
        const auto& opened = t->world.desk.workspace.openedURLs;
        for (; t->told < opened.size(); ++t->told) std::printf("opened %s\n", opened[t->told].c_str());
        return G_SOURCE_CONTINUE;
      },
      &ticker);
  std::printf("ready\n");
  gtk_main();
  std::printf("quit\n");
  return 0;
}
