// The desktop program on a Linux X11 desktop: GLib's main loop, AT-SPI, XTest, XInput 2, key
// grabs, the CLIPBOARD selection, EWMH, GDK, the GTK surfaces, libcurl and the host's stores.
#include <glib-unix.h>
#include <gtk/gtk.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>

#include "app/app_delegate.h"
#include "app/launch.h"
#include "desktop/desktop.h"
#include "desktop/linux_devices.h"
#include "desktop/session_instance.h"
#include "mirlo/config.h"
#include "platform/curl/curl_http_client.h"
#include "platform/gtk/gtk_ui.h"
#include "platform/host/file_defaults.h"
#include "platform/host/headless.h"
#include "platform/host/session_store.h"
#include "platform/keyboard.h"
#include "ui/kit/system_words.h"

namespace mirlo::desktop {
namespace {

void sayNoDesktop(const std::string& why) {
  std::fprintf(stderr,
               "mirlo %s : impossible de lancer le programme de bureau : %s.\n"
               "Il lui faut une session graphique X11 (variable DISPLAY). Les commandes de terminal "
               "fonctionnent sans elle : mirlo --help\n",
               config::kVersion, why.c_str());
}

// The desktop's devices, the GTK surfaces, the network and the host's stores.
struct LinuxPlatform {
  std::unique_ptr<LinuxDevices> devices = LinuxDevices::open();
  CurlHttpClient http;
  std::unique_ptr<SecretStore> secrets = host::openSessionStore();
  host::FileDefaults defaults{host::FileDefaults::standardPath()};
  host::BuildAppInfo appInfo;
  gtk::GtkUI ui{[this] { devices->quit(); }};

  Platform platform() {
    LinuxDevices& d = *devices;
    return Platform{d.mainQueue(), http,     d.accessibility(), d.keyboard(), d.clipboard(),
                    d.events(),    d.hotKeys(), d.workspace(),  d.screens(),  *secrets,
                    defaults,      appInfo,  ui};
  }
};

// A hot key another program holds is not the end: the card and the status menu still start
// corrections. The person is told once which one is missing.
void sayTakenHotKeys(const AppDelegate& delegate) {
  const auto& refs = delegate.hotKeyRefs();
  const char* keys[] = {"A", "C"};
  for (std::size_t i = 0; i < refs.size() && i < std::size(keys); ++i) {
    if (refs[i]) continue;
    const std::string name = words::shortcut(HostSystem::linuxDesktop, modifier::command | modifier::shift, keys[i]);
    std::fprintf(stderr, "mirlo : le raccourci %s est déjà pris par un autre programme ; la carte et le menu restent disponibles\n",
                 name.c_str());
  }
}

gboolean endOnSignal(gpointer devices) {
  static_cast<LinuxDevices*>(devices)->quit();
  return G_SOURCE_REMOVE;
}

}  // namespace

int run(const AppConfig& config, const std::vector<std::string>& openingURLs) {
  // A program already runs in this session: it takes the URLs (the browser's sign-in, say) and
  // this start ends, before touching the display.
  SessionInstance instance;
  if (instance.claim(openingURLs) == SessionInstance::Role::HandedOver) return kEnded;

  // The adapters speak X11; under a Wayland session GTK must go through XWayland as well.
  gdk_set_allowed_backends("x11");
  // Everything is drawn with Cairo. Without this GDK loads the OpenGL driver at start to choose its
  // visuals: with Mesa's software renderer that alone is 60 MB of the program's memory.
  g_setenv("GDK_GL", "disable", FALSE);
  const char* display = std::getenv("DISPLAY");
  if (!display || !*display) {
    sayNoDesktop("aucun écran X11 n'est indiqué");
    return kNoDesktop;
  }
  if (!gtk_init_check(nullptr, nullptr)) {
    sayNoDesktop(std::string("l'écran X11 « ") + display + " » ne répond pas");
    return kNoDesktop;
  }

  std::unique_ptr<LinuxPlatform> desk;
  try {
    desk = std::make_unique<LinuxPlatform>();
  } catch (const NoDisplay& error) {
    sayNoDesktop(error.what());
    return kNoDesktop;
  }
  // Ask every toolkit on the desktop to build its accessibility tree.
  if (!desk->devices->armAccessibility())
    std::fputs("mirlo : le bus d'accessibilité ne répond pas ; les textes passeront par le presse-papiers\n", stderr);

  // Ended by the session or by Control+C in the terminal that started it: leave the loop, so that
  // the application and its adapters are taken down in order.
  g_unix_signal_add(SIGTERM, endOnSignal, desk->devices.get());
  g_unix_signal_add(SIGINT, endOnSignal, desk->devices.get());
  g_unix_signal_add(SIGHUP, endOnSignal, desk->devices.get());

  return runApplication(desk->platform(), config, [&](App& app) {
    // Later starts' URLs arrive on the main loop, once launch is done.
    instance.onURLs([&app](const std::vector<std::string>& urls) {
      for (const auto& url : urls) app.delegate().handleURLEvent(url);
    });
    finishLaunching(app, openingURLs);
    sayTakenHotKeys(app.delegate());
    desk->devices->run();
    instance.onURLs({});
    return kEnded;
  });
}

}  // namespace mirlo::desktop
