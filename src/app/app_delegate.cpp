#include "app/app_delegate.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include "access/ax.h"
#include "access/selection_watcher.h"
#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "base/url.h"
#include "engine/engine.h"
#include "engine/key_map.h"
#include "ui/card/card.h"
#include "ui/onboarding/onboarding.h"

namespace mirlo {

namespace {

// Browsers and Electron-style applications keep their accessibility tree switched off until a
// client asks for it, which leaves their selections unreadable.
constexpr std::array<std::string_view, 13> kAccessibilityHungryBundles = {
    "com.google.Chrome",
    "com.google.Chrome.canary",
    "com.microsoft.edgemac",
    "com.brave.Browser",
    "company.thebrowser.Browser",
    "com.vivaldi.Vivaldi",
    "org.mozilla.firefox",
    "com.tinyspeck.slackmacgap",
    "com.hnc.Discord",
    "notion.id",
    "net.whatsapp.WhatsApp",
    "com.microsoft.VSCode",
    "com.figma.Desktop",
};

// The hot keys follow the letters on the user's layout; these are the US positions.
constexpr std::uint16_t kFallbackCodeA = 0;
constexpr std::uint16_t kFallbackCodeC = 8;

std::string trimSlashes(std::string_view s) {
  while (!s.empty() && s.front() == '/') s.remove_prefix(1);
  while (!s.empty() && s.back() == '/') s.remove_suffix(1);
  return std::string(s);
}

}  // namespace

bool isAccessibilityHungry(const std::string& bundleIdentifier) {
  for (auto listed : kAccessibilityHungryBundles)
    if (listed == bundleIdentifier) return true;
  return false;
}

AppDelegate::AppDelegate(App& app) : app_(app) {}

void AppDelegate::applicationWillFinishLaunching() {
  urlHandlerInstalled_ = true;
  // The system keeps the event that opened the program until a handler exists; a platform that
  // hears of such a URL earlier hands it over the same way, and it is delivered now.
  auto held = std::move(urlsBeforeHandler_);
  urlsBeforeHandler_.clear();
  for (const auto& url : held) performURLAction(url);
}

void AppDelegate::applicationDidFinishLaunching() {
  launched_ = true;

  statusItem_ = app_.platform().ui.createStatusItem();
  if (!statusItem_) throw std::runtime_error("the status bar gave no item");
  statusItem_->setTitle("M", Font{15, FontWeight::bold});

  rebuildMenu();
  registerHotkeys();
  app_.watcher().start();
  armBrowserAX();

  checkForUpdates();
  updateTimer_ = app_.platform().mainQueue.scheduleTimer(kUpdateCheckInterval, true,
                                                         life_.guard([this] { checkForUpdates(); }));

  app_.notifications().observe(Auth::changed, life_.guard([this] { rebuildMenu(); }));

  // Any one of the three missing brings the window back at every launch.
  const bool ready = app_.auth().isSignedIn() && app_.platform().accessibility.isProcessTrusted() &&
                     app_.prefs().onboarded();
  if (!ready) app_.onboarding().show();
}

// --- URLs.

void AppDelegate::handleURLEvent(const std::optional<std::string>& url) {
  if (!url) return;
  if (!urlHandlerInstalled_) {
    urlsBeforeHandler_.push_back(*url);
    return;
  }
  performURLAction(*url);
}

void AppDelegate::performURLAction(const std::string& address) {
  auto parsed = url::parse(address);
  if (!parsed || parsed->scheme != "mirlo") return;
  // `mirlo://auth`, `mirlo:auth` and `mirlo:/auth/` all name the same action.
  std::optional<std::string> action;
  if (parsed->host && !parsed->host->empty()) action = url::percentDecode(*parsed->host);
  else if (auto path = url::percentDecode(parsed->path)) action = trimSlashes(*path);
  if (!action) return;

  if (*action == "auth") {
    Auth& auth = app_.auth();
    if (!auth.handleCallback(address)) return;
    app_.card().showNotice("Connecté : " + auth.email());
    // While launch is still under way the menu does not exist yet; launch builds it from the
    // session just stored.
    if (statusItem_) rebuildMenu();
  } else if (*action == "activate") {
    app_.onboarding().show();
  }
}

// --- The two global actions.

void AppDelegate::fixSelection() { app_.engine().run("fix"); }

void AppDelegate::rephraseSelection() { app_.engine().run("rephrase"); }

// --- Hot keys.

void AppDelegate::registerHotkeys() {
  MainQueue& main = app_.platform().mainQueue;
  auto dispatch = life_.guard([this](std::uint32_t id) { dispatchHotKey(id); });
  // The engine starts only once the hot key event has been fully handled; the event always
  // counts as handled, whatever it carried.
  app_.platform().hotKeys.installHandler([&main, dispatch](const HotKeyEvent& event) -> std::int32_t {
    const HotKeyID id = event.readID().value_or(HotKeyID{});
    main.post([dispatch, id = id.id]() mutable { dispatch(id); });
    return 0;
  });

  KeyMap& keys = app_.keyMap();
  const std::uint16_t codeA = keys.keyCode("a").value_or(kFallbackCodeA);
  const std::uint16_t codeC = keys.keyCode("c").value_or(kFallbackCodeC);
  HotKeys& hotKeys = app_.platform().hotKeys;
  std::vector<std::shared_ptr<HotKeyRef>> refs;
  refs.push_back(hotKeys.registerHotKey(codeA, kHotKeyModifiers, {kHotKeySignature, kFixHotKeyId}));
  refs.push_back(hotKeys.registerHotKey(codeC, kHotKeyModifiers, {kHotKeySignature, kRephraseHotKeyId}));
  hotKeyRefs_ = std::move(refs);
}

void AppDelegate::dispatchHotKey(std::uint32_t id) {
  if (id == kFixHotKeyId) fixSelection();
  else if (id == kRephraseHotKeyId) rephraseSelection();
}

// --- Browsers' accessibility.

void AppDelegate::armBrowserAX() {
  Workspace& workspace = app_.platform().workspace;
  workspace.observeActivations(life_.guard([this](const std::optional<RunningApp>& activated) {
    if (activated) armApplication(*activated);
  }));
  for (const auto& running : workspace.runningApplications()) armApplication(running);
}

void AppDelegate::armApplication(const RunningApp& application) {
  // Without the permission nothing can be set; the next activation tries again.
  if (!app_.platform().accessibility.isProcessTrusted()) return;
  if (!application.bundleIdentifier || !isAccessibilityHungry(*application.bundleIdentifier)) return;
  // Remembered before anything is set, so that a refusal is not retried.
  if (!armedPids_.insert(application.pid).second) return;
  app_.ax().enableApplication(application.pid);
}

}  // namespace mirlo
