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

// How another application reacts to the keys Mirlo synthesises.
struct SimAppBehaviour {
  bool honoursCopy = true;   // Command+C puts its selection on the clipboard
  bool honoursPaste = true;  // Command+V replaces its selection by the clipboard text
  bool undoes = true;        // Command+Z takes back its last edit
};

struct SimApp {
  RunningApp info;
  std::shared_ptr<SimElement> element;  // its focused text element
  SimAppBehaviour behaviour;
  bool exposesAccessibility = true;     // false: no focused element is reported for it
  std::optional<std::string> textBeforeLastEdit;
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
  // Brings an application to the front; its element becomes the focused one.
  void activate(std::int32_t pid);
  // Selects a UTF-16 range of the front application's text.
  void select(std::int64_t location, std::int64_t length);
  // The front application's whole text.
  std::string frontText();

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
  void refreshFocus();
  void onSynthesisedKey(const PostedKey& key);

  std::map<std::int32_t, SimApp> apps_;
};

}  // namespace mirlo::sim
