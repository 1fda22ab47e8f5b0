// The real core on the simulated desktop, drawing its surfaces with the GTK renderer on a real X
// display: the card and windows are what a person would see, while selection, keys and time stay
// simulated. A plain window with a text stands for the application the user works in.
#pragma once

#include <gtk/gtk.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "app/app.h"
#include "platform/gtk/gtk_ui.h"
#include "platform/sim/sim_desktop.h"
#include "ui/card/card.h"

namespace mirlo::testing {

inline Platform withUI(Platform p, UI& ui) {
  return Platform{p.mainQueue, p.http,     p.accessibility, p.keyboard, p.clipboard, p.events, p.hotKeys,
                  p.workspace, p.screens,  p.secrets,       p.defaults, p.appInfo,   ui};
}

// Runs the GTK main loop until `done` holds or `seconds` have passed; true when it held.
inline bool pumpUntil(const std::function<bool()>& done, double seconds) {
  const gint64 end = g_get_monotonic_time() + static_cast<gint64>(seconds * 1e6);
  while (g_get_monotonic_time() < end) {
    while (gtk_events_pending()) gtk_main_iteration_do(FALSE);
    if (done && done()) return true;
    g_main_context_iteration(nullptr, FALSE);
    g_usleep(2000);
  }
  return done && done();
}

// Saves the screen's rectangle at (x, y), w × h (X coordinates, from the top left) as the PNG
// `path`, with ImageMagick; false, said on stderr, when it could not.
inline bool captureScreen(const std::string& path, int x, int y, int w, int h) {
  const std::string command = "import -window root -crop " + std::to_string(w) + "x" + std::to_string(h) + "+" +
                              std::to_string(x) + "+" + std::to_string(y) + " +repage " + path;
  if (std::system(command.c_str()) == 0) return true;
  std::fprintf(stderr, "screenshot failed: %s\n", path.c_str());
  return false;
}

// Lets the display settle: animations run out, pending draws reach the server.
inline void settle(double seconds = 0.35) {
  pumpUntil({}, seconds);
  gdk_display_sync(gdk_display_get_default());
}

struct GtkWorld {
  explicit GtkWorld(double width = 1280, double height = 800) {
    desk.screens.list = {{{0, 0, width, height}, {0, 0, width, height}}};
    desk.screens.mouse = {width / 2, height / 2};
    // The GTK renderer draws the Linux program: its texts name a PC keyboard.
    desk.appInfo.system = HostSystem::linuxDesktop;
    app = std::make_unique<App>(withUI(desk.platform(), ui), AppConfig::fromBuild());
  }
  ~GtkWorld() {
    if (backdrop) gtk_widget_destroy(backdrop);
  }

  // A focused window with an editable text, the application the card must not take focus from.
  GtkWidget* openBackdrop(const char* text) {
    backdrop = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(backdrop), "Notes");
    gtk_window_set_default_size(GTK_WINDOW(backdrop), 760, 420);
    gtk_window_move(GTK_WINDOW(backdrop), 120, 90);
    GtkWidget* view = gtk_text_view_new();
    gtk_text_view_set_left_margin(GTK_TEXT_VIEW(view), 16);
    gtk_text_view_set_top_margin(GTK_TEXT_VIEW(view), 16);
    gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(view)), text, -1);
    gtk_container_add(GTK_CONTAINER(backdrop), view);
    gtk_widget_show_all(backdrop);
    gtk_window_present(GTK_WINDOW(backdrop));
    pumpUntil([this] { return gtk_window_is_active(GTK_WINDOW(backdrop)); }, 3);
    return view;
  }

  std::shared_ptr<gtk::GtkCardPanel> panel() const { return ui.lastPanel(); }

  sim::SimDesktop desk;
  gtk::GtkUI ui;
  std::unique_ptr<App> app;
  GtkWidget* backdrop = nullptr;
};

}  // namespace mirlo::testing
