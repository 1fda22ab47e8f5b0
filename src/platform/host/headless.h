// The parts of a desktop that a terminal does not have. A program run from a terminal (the
// command line) still builds the whole application, so these stand in for them and honestly
// report that nothing is there: no trusted accessibility and no focused element, no keys posted,
// an empty clipboard, no screens, no status item, no registered hot keys, no running
// applications. Panels and windows can be asked for but draw nowhere and are never visible.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/accessibility.h"
#include "platform/app_info.h"
#include "platform/clipboard.h"
#include "platform/event_monitor.h"
#include "platform/hot_keys.h"
#include "platform/keyboard.h"
#include "platform/screens.h"
#include "platform/ui.h"
#include "platform/workspace.h"

namespace mirlo::host {

class HeadlessAccessibility final : public Accessibility {
 public:
  bool isProcessTrusted() override { return false; }
  bool isProcessTrustedWithOptions(bool) override { return false; }  // nobody to prompt
  AXElementRef createSystemWide() override { return nullptr; }
  AXElementRef createApplication(std::int32_t) override { return nullptr; }
  AXError copyAttributeValue(const AXElementRef&, const std::string&, AXValue&) override { return AXError::apiDisabled; }
  AXError copyParameterizedAttributeValue(const AXElementRef&, const std::string&, const AXValue&, AXValue&) override {
    return AXError::apiDisabled;
  }
  AXError isAttributeSettable(const AXElementRef&, const std::string&, bool& settable) override {
    settable = false;
    return AXError::apiDisabled;
  }
  AXError setAttributeValue(const AXElementRef&, const std::string&, const AXValue&) override {
    return AXError::apiDisabled;
  }
};

class HeadlessKeyboard final : public Keyboard {
 public:
  bool postKeyEvent(std::uint16_t, bool, std::uint64_t) override { return false; }
  std::uint64_t currentModifierFlags() override { return 0; }
  bool hasLayoutData() override { return false; }
  std::optional<std::string> translate(std::uint16_t) override { return std::nullopt; }
};

class HeadlessClipboard final : public Clipboard {
 public:
  std::optional<std::string> readText() override { return std::nullopt; }
  void clear() override {}
  void putText(const std::string&) override {}
};

// Monitors are accepted and never called: no events reach a terminal program.
class HeadlessEventMonitor final : public EventMonitor {
 public:
  void addGlobalMonitor(std::uint64_t, Handler) override {}
  void addLocalMonitor(std::uint64_t, Handler) override {}
};

class HeadlessHotKeys final : public HotKeys {
 public:
  void installHandler(Handler) override {}
  std::shared_ptr<HotKeyRef> registerHotKey(std::uint16_t, std::uint32_t, HotKeyID) override { return nullptr; }
};

class HeadlessWorkspace final : public Workspace {
 public:
  std::optional<RunningApp> frontmostApplication() override { return std::nullopt; }
  std::vector<RunningApp> runningApplications() override { return {}; }
  void observeActivations(ActivationHandler) override {}
  bool openURL(const std::string&) override { return false; }
};

class HeadlessScreens final : public Screens {
 public:
  std::vector<Screen> screens() override { return {}; }
  std::optional<Screen> mainScreen() override { return std::nullopt; }
  Point mouseLocation() override { return {}; }
  void addChangeHandler(std::function<void()>) override {}  // no displays to change
};

class HeadlessUI final : public UI {
 public:
  std::shared_ptr<StatusItem> createStatusItem() override { return nullptr; }
  std::shared_ptr<CardPanel> createCardPanel(const CardPanelStyle& style) override;
  std::shared_ptr<Window> createWindow(Size contentSize) override;
  Size sizeToFit(const View&) override { return {}; }
  void activateIgnoringOtherApps() override {}
  void terminate() override {}
};

// The version this program was built as, on the system it was built for.
class BuildAppInfo final : public AppInfo {
 public:
  std::optional<std::string> shortVersionString() override;
  HostSystem hostSystem() override;
};

}  // namespace mirlo::host
