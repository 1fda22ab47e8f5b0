// A whole simulated desktop: the clock, the network, other applications with their focused text,
// the keyboard, the clipboard and the program's own surfaces. Tests build one, build the
// application on `platform()`, and drive both.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/platform.h"
#include "platform/sim/sim_accessibility.h"
#include "platform/sim/sim_devices.h"
#include "platform/sim/sim_http.h"
#include "platform/sim/sim_main_queue.h"
#include "platform/sim/sim_ui.h"

namespace mirlo::sim {

// How another application reacts to shortcuts, synthesised or typed by the user. It reads a
// shortcut by the letter its key types on the current layout, with Command alone held.
struct SimAppBehaviour {
  bool honoursCopy = true;   // Command+C puts its selection (when not empty) on the clipboard
  bool honoursPaste = true;  // Command+V replaces its selection by the clipboard text
  bool undoes = true;        // Command+Z takes back its last edit, whoever made it
};

struct SimApp {
  RunningApp info;
  std::shared_ptr<SimElement> element;  // its focused text element
  SimAppBehaviour behaviour;
  bool exposesAccessibility = true;     // false: no focused element is reported while it is in front
};

class SimDesktop {
 public:
  SimDesktop();
  SimDesktop(const SimDesktop&) = delete;
  SimDesktop& operator=(const SimDesktop&) = delete;

  Platform platform();

  // Adds a running application with one text element, and brings it to the front.
  SimApp& launchApp(std::int32_t pid, std::string bundleId, std::string text = {});
  SimApp* app(std::int32_t pid);
  SimApp* frontApp();
  // The front application's element (nothing when no application is in front).
  SimElement* frontElement();
  // Brings an application to the front; its element becomes the focused one.
  void activate(std::int32_t pid);
  // Selects a UTF-16 range, or the first occurrence of a text, in the front application.
  void select(std::int64_t location, std::int64_t length);
  bool select(const std::string& needle);
  // The front application's whole text.
  std::string frontText();

  // The user presses a key with modifiers (down and up): the event monitors see it, then the
  // front application handles it as a shortcut.
  void pressKey(std::uint16_t keyCode, std::uint64_t flags);
  // The user presses Command with the key that types `letter` on the current layout.
  void pressCommand(const std::string& letter);

  // Every key Mirlo synthesised so far that the front application took as this shortcut.
  int copiesSeen = 0;
  int pastesSeen = 0;
  int undosSeen = 0;

  SimMainQueue queue;
  SimHttp http{queue};
  SimAccessibility accessibility;
  SimKeyboard keyboard{queue};
  SimClipboard clipboard;
  SimEventMonitor events;
  SimHotKeys hotKeys;
  SimWorkspace workspace{queue};
  SimScreens screens;
  SimSecretStore secrets;
  SimDefaults defaults;
  SimAppInfo appInfo;
  SimUI ui{queue};

 private:
  void onSynthesisedKey(const PostedKey& key);
  void handleShortcut(std::uint16_t keyCode, std::uint64_t flags);

  std::map<std::int32_t, SimApp> apps_;
};

}  // namespace mirlo::sim
