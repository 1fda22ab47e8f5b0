// The simulated keyboard, clipboard, input monitors, hot keys, workspace, screens and stores.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/app_info.h"
#include "platform/clipboard.h"
#include "platform/defaults.h"
#include "platform/event_monitor.h"
#include "platform/hot_keys.h"
#include "platform/keyboard.h"
#include "platform/main_queue.h"
#include "platform/screens.h"
#include "platform/secret_store.h"
#include "platform/workspace.h"

namespace mirlo::sim {

enum class Layout { us, frenchAzerty, none };

struct PostedKey {
  std::uint16_t keyCode = 0;
  bool down = true;
  std::uint64_t flags = 0;
  double at = 0;
};

class SimKeyboard final : public Keyboard {
 public:
  explicit SimKeyboard(MainQueue& clock) : clock_(clock) {}

  Layout layout = Layout::us;
  std::vector<PostedKey> posted;
  // Called for each synthesised key; the desktop routes it to the front application.
  std::function<void(const PostedKey&)> onPost;

  // The user holds these modifiers until the given virtual time (for ever when absent).
  void hold(std::uint64_t flags, std::optional<double> until = std::nullopt) {
    heldFlags_ = flags;
    releaseAt_ = until;
  }
  void releaseAll() { heldFlags_ = 0; }

  bool postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) override;
  std::uint64_t currentModifierFlags() override;
  bool hasLayoutData() override { return layout != Layout::none; }
  std::optional<std::string> translate(std::uint16_t keyCode) override;

  // The key code that types `character` on the current layout, for scripts; nothing if none.
  std::optional<std::uint16_t> codeFor(const std::string& character);

 private:
  MainQueue& clock_;
  std::uint64_t heldFlags_ = 0;
  std::optional<double> releaseAt_;
};

class SimClipboard final : public Clipboard {
 public:
  std::optional<std::string> text;
  bool holdsImage = false;  // content that is not text: lost when the clipboard is cleared

  std::optional<std::string> readText() override { return text; }
  void clear() override {
    text.reset();
    holdsImage = false;
    ++clears;
  }
  void putText(const std::string& value) override { text = value; }

  // The user copies an image: the clipboard holds it alone.
  void putImage() {
    text.reset();
    holdsImage = true;
  }
  bool empty() const { return !text && !holdsImage; }

  int clears = 0;
};

class SimEventMonitor final : public EventMonitor {
 public:
  struct Monitor {
    bool global;
    std::uint64_t mask;
    Handler handler;
  };
  std::vector<Monitor> monitors;

  void addGlobalMonitor(std::uint64_t mask, Handler handler) override { monitors.push_back({true, mask, std::move(handler)}); }
  void addLocalMonitor(std::uint64_t mask, Handler handler) override { monitors.push_back({false, mask, std::move(handler)}); }

  // Delivers a user event to the monitors that see it: global ones for events sent to other
  // applications, local ones for events sent to this program.
  void deliver(const InputEvent& event, bool toThisApp);
};

class SimHotKeys final : public HotKeys {
 public:
  struct Registration {
    std::uint16_t keyCode;
    std::uint32_t modifiers;
    HotKeyID id;
  };
  std::vector<Registration> registered;
  bool refuseRegistrations = false;  // as when another program holds the keys
  int handlersInstalled = 0;

  void installHandler(Handler handler) override {
    ++handlersInstalled;
    handler_ = std::move(handler);
  }
  std::shared_ptr<HotKeyRef> registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers, HotKeyID id) override;

  // The user presses a key combination: the registered hot key's event reaches the handler.
  // Nothing happens (nullopt) when no registration matches.
  std::optional<std::int32_t> press(std::uint16_t keyCode, std::uint32_t modifiers);
  // An event carrying this identifier, or one whose identifier cannot be read.
  std::optional<std::int32_t> deliver(std::optional<HotKeyID> id);

 private:
  Handler handler_;
};

class SimWorkspace final : public Workspace {
 public:
  explicit SimWorkspace(MainQueue& main) : main_(main) {}

  std::vector<RunningApp> running;
  std::optional<std::int32_t> frontPid;
  std::vector<std::string> openedURLs;

  std::optional<RunningApp> frontmostApplication() override;
  std::vector<RunningApp> runningApplications() override { return running; }
  void observeActivations(ActivationHandler handler) override { handlers_.push_back(std::move(handler)); }
  bool openURL(const std::string& url) override {
    openedURLs.push_back(url);
    return true;
  }

  // Brings an application to the front; observers hear of it through the main queue.
  void activate(std::int32_t pid);
  // An activation notification without the application in it.
  void postBareActivation();

 private:
  MainQueue& main_;
  std::vector<ActivationHandler> handlers_;
};

class SimScreens final : public Screens {
 public:
  std::vector<Screen> list{{{0, 0, 1440, 900}, {0, 0, 1440, 875}}};
  std::optional<std::size_t> mainIndex = 0;
  Point mouse{720, 450};

  std::vector<Screen> screens() override { return list; }
  std::optional<Screen> mainScreen() override {
    if (!mainIndex || *mainIndex >= list.size()) return std::nullopt;
    return list[*mainIndex];
  }
  Point mouseLocation() override { return mouse; }
  void addChangeHandler(std::function<void()> handler) override { changeHandlers_.push_back(std::move(handler)); }

  // Displays plugged in or out: the new list, then the change is told.
  void replace(std::vector<Screen> screens) {
    list = std::move(screens);
    auto handlers = changeHandlers_;
    for (auto& handler : handlers) handler();
  }

 private:
  std::vector<std::function<void()>> changeHandlers_;
};

class SimSecretStore final : public SecretStore {
 public:
  static constexpr std::int32_t kInteractionNotAllowed = -25308;
  static constexpr std::int32_t kWriteFailed = -36;  // the platform's input/output error

  std::map<std::string, std::string> items;
  bool locked = false;         // a locked store refuses every call
  bool refusesWrites = false;  // as on a full disk: reading works, changing fails

  std::int32_t replaceItem(const std::string& service, const std::string& bytes) override;
  std::int32_t deleteItems(const std::string& service) override;
  std::int32_t copyItem(const std::string& service, std::string& out) override;
};

class SimDefaults final : public Defaults {
 public:
  using Value = std::variant<bool, std::int64_t, double, std::string>;
  std::map<std::string, Value> values;

  bool hasObject(const std::string& key) override { return values.count(key) != 0; }
  bool boolForKey(const std::string& key) override;
  void setBool(const std::string& key, bool value) override { values[key] = value; }
  std::optional<std::string> stringForKey(const std::string& key) override;
  void setString(const std::string& key, const std::string& value) override { values[key] = value; }
};

class SimAppInfo final : public AppInfo {
 public:
  std::optional<std::string> version = std::string("1.0");
  HostSystem system = HostSystem::macOS;  // the simulated desktop behaves as a Mac unless told
  std::optional<std::string> shortVersionString() override { return version; }
  HostSystem hostSystem() override { return system; }
};

}  // namespace mirlo::sim
