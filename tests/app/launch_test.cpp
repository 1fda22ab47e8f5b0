// Starting the program: what appears, in which order, and which window greets the user.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "app/shell_support.h"

namespace mirlo::testing {
namespace {

// Platform pieces that note, in one journal, each call the launch sequence makes through them,
// then hand it to the simulated desktop.
struct Journal {
  std::vector<std::string> lines;
  void note(std::string line) { lines.push_back(std::move(line)); }
};

std::string hex(std::uint64_t v) {
  std::ostringstream out;
  out << "0x" << std::hex << v;
  return out.str();
}

class RecordingStatusItem final : public StatusItem {
 public:
  RecordingStatusItem(Journal& j, std::shared_ptr<StatusItem> inner) : j_(j), inner_(std::move(inner)) {}
  void setTitle(const std::string& title, const Font& font) override {
    j_.note("title " + title);
    inner_->setTitle(title, font);
  }
  void setMenu(std::vector<MenuItem> items) override {
    j_.note("menu");
    inner_->setMenu(std::move(items));
  }

 private:
  Journal& j_;
  std::shared_ptr<StatusItem> inner_;
};

class RecordingUI final : public UI {
 public:
  RecordingUI(Journal& j, UI& inner) : j_(j), inner_(inner) {}
  std::shared_ptr<StatusItem> createStatusItem() override {
    j_.note("status item");
    auto item = inner_.createStatusItem();
    return item ? std::make_shared<RecordingStatusItem>(j_, item) : nullptr;
  }
  std::shared_ptr<CardPanel> createCardPanel(const CardPanelStyle& s) override { return inner_.createCardPanel(s); }
  std::shared_ptr<Window> createWindow(Size size) override {
    j_.note("window");
    return inner_.createWindow(size);
  }
  Size sizeToFit(const View& view) override { return inner_.sizeToFit(view); }
  void activateIgnoringOtherApps() override { inner_.activateIgnoringOtherApps(); }
  void terminate() override { inner_.terminate(); }

 private:
  Journal& j_;
  UI& inner_;
};

class RecordingHotKeys final : public HotKeys {
 public:
  RecordingHotKeys(Journal& j, HotKeys& inner) : j_(j), inner_(inner) {}
  void installHandler(Handler handler) override {
    j_.note("hot key handler");
    inner_.installHandler(std::move(handler));
  }
  std::shared_ptr<HotKeyRef> registerHotKey(std::uint16_t code, std::uint32_t mods, HotKeyID id) override {
    j_.note("hot key " + std::to_string(code) + " " + hex(mods) + " " + hex(id.signature) + " " + std::to_string(id.id));
    return inner_.registerHotKey(code, mods, id);
  }

 private:
  Journal& j_;
  HotKeys& inner_;
};

class RecordingEvents final : public EventMonitor {
 public:
  RecordingEvents(Journal& j, EventMonitor& inner) : j_(j), inner_(inner) {}
  void addGlobalMonitor(std::uint64_t mask, Handler h) override {
    j_.note("global monitor " + hex(mask));
    inner_.addGlobalMonitor(mask, std::move(h));
  }
  void addLocalMonitor(std::uint64_t mask, Handler h) override {
    j_.note("local monitor " + hex(mask));
    inner_.addLocalMonitor(mask, std::move(h));
  }

 private:
  Journal& j_;
  EventMonitor& inner_;
};

class RecordingWorkspace final : public Workspace {
 public:
  RecordingWorkspace(Journal& j, Workspace& inner) : j_(j), inner_(inner) {}
  std::optional<RunningApp> frontmostApplication() override { return inner_.frontmostApplication(); }
  std::vector<RunningApp> runningApplications() override {
    j_.note("running applications");
    return inner_.runningApplications();
  }
  void observeActivations(ActivationHandler h) override {
    j_.note("observe activations");
    inner_.observeActivations(std::move(h));
  }
  bool openURL(const std::string& url) override { return inner_.openURL(url); }

 private:
  Journal& j_;
  Workspace& inner_;
};

class RecordingHttp final : public HttpClient {
 public:
  RecordingHttp(Journal& j, HttpClient& inner) : j_(j), inner_(inner) {}
  void send(HttpRequest request, std::function<void(HttpResult)> done) override {
    j_.note(request.method + " " + request.url);
    inner_.send(std::move(request), std::move(done));
  }

 private:
  Journal& j_;
  HttpClient& inner_;
};

class RecordingQueue final : public MainQueue {
 public:
  RecordingQueue(Journal& j, MainQueue& inner) : j_(j), inner_(inner) {}
  void post(Task t) override { inner_.post(std::move(t)); }
  void postAfter(double s, Task t) override { inner_.postAfter(s, std::move(t)); }
  std::shared_ptr<Timer> scheduleTimer(double interval, bool repeats, Task action) override {
    std::ostringstream line;
    line << "timer " << interval << (repeats ? " repeating" : " once");
    j_.note(line.str());
    return inner_.scheduleTimer(interval, repeats, std::move(action));
  }
  double now() const override { return inner_.now(); }
  void block(double s) override { inner_.block(s); }

 private:
  Journal& j_;
  MainQueue& inner_;
};

class RecordingAccess final : public Accessibility {
 public:
  RecordingAccess(Journal& j, Accessibility& inner) : j_(j), inner_(inner) {}
  bool isProcessTrusted() override {
    j_.note("trusted?");
    return inner_.isProcessTrusted();
  }
  bool isProcessTrustedWithOptions(bool p) override { return inner_.isProcessTrustedWithOptions(p); }
  AXElementRef createSystemWide() override { return inner_.createSystemWide(); }
  AXElementRef createApplication(std::int32_t pid) override { return inner_.createApplication(pid); }
  AXError copyAttributeValue(const AXElementRef& e, const std::string& a, AXValue& out) override {
    return inner_.copyAttributeValue(e, a, out);
  }
  AXError copyParameterizedAttributeValue(const AXElementRef& e, const std::string& a, const AXValue& p,
                                          AXValue& out) override {
    return inner_.copyParameterizedAttributeValue(e, a, p, out);
  }
  AXError isAttributeSettable(const AXElementRef& e, const std::string& a, bool& s) override {
    return inner_.isAttributeSettable(e, a, s);
  }
  AXError setAttributeValue(const AXElementRef& e, const std::string& a, const AXValue& v) override {
    j_.note("set " + a);
    return inner_.setAttributeValue(e, a, v);
  }

 private:
  Journal& j_;
  Accessibility& inner_;
};

class RecordingDefaults final : public Defaults {
 public:
  RecordingDefaults(Journal& j, Defaults& inner) : j_(j), inner_(inner) {}
  bool hasObject(const std::string& k) override { return inner_.hasObject(k); }
  bool boolForKey(const std::string& k) override {
    if (k == "onboarded") j_.note("onboarded?");
    return inner_.boolForKey(k);
  }
  void setBool(const std::string& k, bool v) override { inner_.setBool(k, v); }
  std::optional<std::string> stringForKey(const std::string& k) override { return inner_.stringForKey(k); }
  void setString(const std::string& k, const std::string& v) override { inner_.setString(k, v); }

 private:
  Journal& j_;
  Defaults& inner_;
};

// A simulated desktop seen through the recorders, with an application built on it.
struct RecordedWorld {
  RecordedWorld() {
    Platform p = desk.platform();
    app = std::make_unique<App>(Platform{queue, http, access, p.keyboard, p.clipboard, events, hotKeys, workspace,
                                         p.screens, p.secrets, defaults, p.appInfo, ui},
                                testConfig());
  }
  // Launches and returns what happened from the end of the first half on.
  std::vector<std::string> launch() {
    app->delegate().applicationWillFinishLaunching();
    journal.lines.clear();
    app->delegate().applicationDidFinishLaunching();
    auto lines = journal.lines;
    desk.queue.advance(0);
    return lines;
  }

  sim::SimDesktop desk;
  Journal journal;
  RecordingQueue queue{journal, desk.queue};
  RecordingHttp http{journal, desk.http};
  RecordingAccess access{journal, desk.accessibility};
  RecordingEvents events{journal, desk.events};
  RecordingHotKeys hotKeys{journal, desk.hotKeys};
  RecordingWorkspace workspace{journal, desk.workspace};
  RecordingDefaults defaults{journal, desk.defaults};
  RecordingUI ui{journal, desk.ui};
  std::unique_ptr<App> app;
};

TEST(Launch, StartsEverySubsystemInItsOrderAndGreetsANewUser) {
  RecordedWorld world;
  world.desk.launchApp(301, "com.google.Chrome", "Bonjour");
  world.desk.launchApp(302, "com.apple.TextEdit", "Salut");
  world.desk.queue.advance(0);  // activations from before launch are not heard

  const std::vector<std::string> expected = {
      "status item",
      "title M",
      "menu",
      "title M",
      "hot key handler",
      "hot key 0 0x300 0x4d524c21 1",
      "hot key 8 0x300 0x4d524c21 2",
      "global monitor 0x4",
      "local monitor 0x4",
      "global monitor 0x400",
      "global monitor 0x800",
      "local monitor 0x400",
      "local monitor 0x800",
      "global monitor 0x400002",
      "observe activations",
      "running applications",
      "trusted?",  // Chrome: listed, armed
      "set AXEnhancedUserInterface",
      "set AXManualAccessibility",
      "trusted?",  // TextEdit: not listed
      "GET https://mirlo.test/version.json",
      "timer 21600 repeating",
      // Nobody is signed in: neither the permission nor the flag is even looked at.
  };
  EXPECT_EQ(world.launch(), expected);
  EXPECT_EQ(world.desk.ui.statusItem->font, (Font{15, FontWeight::bold}));
  auto window = world.desk.ui.window("Bienvenue dans Mirlo");
  ASSERT_NE(window, nullptr);
  EXPECT_TRUE(window->key);
  EXPECT_EQ(world.app->delegate().armedPids(), (std::set<std::int32_t>{301}));
  EXPECT_EQ(world.app->delegate().hotKeyRefs().size(), 2u);
}

TEST(Launch, OnboardingComesBackWhileAnyOfTheThreeConditionsIsMissing) {
  {
    RecordedWorld world;  // signed in, no permission: the onboarded flag is not read
    world.app->auth().setTokens(accessTokenFor("lea@example.fr"), "r");
    world.desk.accessibility.trusted = false;
    world.desk.defaults.values["onboarded"] = true;
    auto lines = world.launch();
    EXPECT_EQ(lines.back(), "trusted?");
    EXPECT_NE(world.desk.ui.window("Bienvenue dans Mirlo"), nullptr);
  }
  {
    RecordedWorld world;  // signed in and trusted, never finished onboarding
    world.app->auth().setTokens(accessTokenFor("lea@example.fr"), "r");
    auto lines = world.launch();
    std::vector<std::string> tail(lines.end() - 2, lines.end());
    EXPECT_EQ(tail, (std::vector<std::string>{"trusted?", "onboarded?"}));
    EXPECT_NE(world.desk.ui.window("Bienvenue dans Mirlo"), nullptr);
  }
  {
    RecordedWorld world;  // everything in place: no window at all
    world.app->auth().setTokens(accessTokenFor("lea@example.fr"), "r");
    world.desk.defaults.values["onboarded"] = true;
    auto lines = world.launch();
    EXPECT_EQ(lines.back(), "onboarded?");
    EXPECT_TRUE(world.desk.ui.windows.empty());
  }
}

TEST(Launch, AStatusBarThatGivesNoItemStopsTheProgram) {
  SimWorld world;
  world.desk.ui.statusBarRefuses = true;
  EXPECT_ANY_THROW(launch(world));
}

TEST(Launch, ASignInLinkThatOpenedTheProgramIsNotLost) {
  SimWorld world;
  world.desk.defaults.values["onboarded"] = true;
  // The browser's return opens the program: the link arrives before launch has completed.
  launch(world, {signInCallback("camille@example.fr")});

  EXPECT_TRUE(world.app->auth().isSignedIn());
  EXPECT_EQ(world.app->auth().email(), "camille@example.fr");
  auto lines = menuLines(*world.desk.ui.statusItem);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], "camille@example.fr [off]");
  auto panel = world.desk.ui.openPanel();
  ASSERT_NE(panel, nullptr);
  EXPECT_NE(sim::findNode(panel->views, [](const sim::SimNode& n) { return n.view.text == "Connecté : camille@example.fr"; }),
            nullptr);
  // Signed in, trusted and onboarded now: no welcome window.
  EXPECT_TRUE(world.desk.ui.windows.empty());
}

TEST(Launch, ALinkHeardBeforeTheHandlerExistsIsDeliveredWhenItIsInstalled) {
  SimWorld world;
  world.app->delegate().handleURLEvent(signInCallback("noe@example.fr"));
  EXPECT_FALSE(world.app->auth().isSignedIn());
  world.app->delegate().applicationWillFinishLaunching();
  EXPECT_TRUE(world.app->auth().isSignedIn());
}

// --- Links while the program runs.

struct RunningWorld : ::testing::Test {
  void SetUp() override {
    world.desk.defaults.values["onboarded"] = true;
    launch(world);
  }
  void open(const std::optional<std::string>& url) {
    world.app->delegate().handleURLEvent(url);
    world.advance(0);
  }
  // How many times a window was brought to the front.
  int windowFrontings() {
    int n = 0;
    for (const auto& w : world.desk.ui.windows) n += w->frontCount;
    return n;
  }
  SimWorld world;
};

TEST_F(RunningWorld, SignInLinkShowsTheAddressAndRebuildsTheMenu) {
  ASSERT_EQ(menuLines(*world.desk.ui.statusItem)[0], "Se connecter…");
  open(signInCallback("lea@example.fr"));
  EXPECT_EQ(menuLines(*world.desk.ui.statusItem)[0], "lea@example.fr [off]");
  EXPECT_EQ(menuLines(*world.desk.ui.statusItem)[1], "Gratuit · 3 corrections par jour [off]");
  auto panel = world.desk.ui.openPanel();
  ASSERT_NE(panel, nullptr);
  EXPECT_NE(sim::findNode(panel->views, [](const sim::SimNode& n) { return n.view.text == "Connecté : lea@example.fr"; }),
            nullptr);
  // The notice closes by itself.
  world.advance(10);
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
}

TEST_F(RunningWorld, ARefusedSignInLinkSaysNothing) {
  const int builds = world.desk.ui.statusItem->menuBuilds;
  open("mirlo://auth#error=access_denied");
  open("mirlo://auth");
  EXPECT_FALSE(world.app->auth().isSignedIn());
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
  EXPECT_EQ(world.desk.ui.statusItem->menuBuilds, builds);
}

TEST_F(RunningWorld, EveryWayOfWritingTheActivationLinkOpensOnboarding) {
  for (const std::string url : {"mirlo://activate", "mirlo:activate", "mirlo:/activate/", "mirlo:///activate",
                                "mirlo://activate/anything?x=1", "mirlo://%61ctivate"}) {
    SimWorld fresh;
    fresh.signIn();
    fresh.desk.defaults.values["onboarded"] = true;
    launch(fresh);
    ASSERT_EQ(fresh.desk.ui.window("Bienvenue dans Mirlo"), nullptr);
    fresh.app->delegate().handleURLEvent(url);
    fresh.advance(0);
    EXPECT_NE(fresh.desk.ui.window("Bienvenue dans Mirlo"), nullptr) << url;
  }
}

TEST_F(RunningWorld, ForeignMalformedAndUnknownLinksAreDroppedQuietly) {
  world.signIn();
  const std::string tokens = signInCallback("intrus@example.fr").substr(std::string("mirlo://auth").size());
  const std::vector<std::optional<std::string>> urls = {
      std::nullopt,
      "",
      "activate",
      "Mirlo://activate",
      "MIRLO://auth" + tokens,
      "https://mirlo.test/activate",
      "mirlo://",
      "mirlo:",
      "mirlo://settings",
      "mirlo://ACTIVATE",
      "mirlo://auth x",
      "mirlo://%zz",
      "mirlo://" + std::string(100000, 'a'),
      "mirlo://auth#" + std::string(100000, '%'),
      "mirlo\n://activate",
      "\xff\xfe",
  };
  const int builds = world.desk.ui.statusItem->menuBuilds;
  const int frontings = windowFrontings();
  for (const auto& url : urls) {
    open(url);
    EXPECT_EQ(windowFrontings(), frontings) << url.value_or("(none)");
  }
  EXPECT_EQ(world.app->auth().email(), "lea@example.fr");
  EXPECT_EQ(world.desk.ui.openPanel(), nullptr);
  EXPECT_EQ(world.desk.ui.statusItem->menuBuilds, builds);
}

TEST_F(RunningWorld, SigningOutElsewhereRebuildsTheMenu) {
  world.signIn("lea@example.fr");
  open(signInCallback("lea@example.fr"));
  ASSERT_EQ(menuLines(*world.desk.ui.statusItem)[0], "lea@example.fr [off]");
  world.app->auth().signOut();
  EXPECT_EQ(menuLines(*world.desk.ui.statusItem)[0], "Se connecter…");
}

}  // namespace
}  // namespace mirlo::testing
