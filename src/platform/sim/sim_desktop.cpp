#include "platform/sim/sim_desktop.h"

#include "base/text.h"

namespace mirlo::sim {

namespace {
constexpr std::uint64_t kModifierMask =
    modifier::shift | modifier::control | modifier::option | modifier::command;
}  // namespace

SimDesktop::SimDesktop() {
  keyboard.onPost = [this](const PostedKey& key) { onSynthesisedKey(key); };
  accessibility.focusSource = [this]() -> std::shared_ptr<SimElement> {
    SimApp* front = frontApp();
    return front && front->exposesAccessibility ? front->element : nullptr;
  };
}

Platform SimDesktop::platform() {
  return Platform{queue, http, accessibility, keyboard, clipboard, events, hotKeys,
                  workspace, screens, secrets, defaults, appInfo, ui};
}

SimApp& SimDesktop::launchApp(std::int32_t pid, std::string bundleId, std::string text) {
  SimApp app;
  app.info = RunningApp{pid, std::move(bundleId)};
  app.element = std::make_shared<SimElement>();
  app.element->pid = pid;
  app.element->text = std::move(text);
  apps_[pid] = std::move(app);
  workspace.running.push_back(apps_[pid].info);
  activate(pid);
  return apps_[pid];
}

SimApp* SimDesktop::app(std::int32_t pid) {
  auto it = apps_.find(pid);
  return it == apps_.end() ? nullptr : &it->second;
}

SimApp* SimDesktop::frontApp() { return workspace.frontPid ? app(*workspace.frontPid) : nullptr; }

SimElement* SimDesktop::frontElement() {
  SimApp* front = frontApp();
  return front ? front->element.get() : nullptr;
}

void SimDesktop::activate(std::int32_t pid) { workspace.activate(pid); }

void SimDesktop::select(std::int64_t location, std::int64_t length) {
  if (SimElement* element = frontElement()) element->selection = {location, length};
}

bool SimDesktop::select(const std::string& needle) {
  SimElement* element = frontElement();
  return element && element->selectText(needle);
}

std::string SimDesktop::frontText() {
  SimElement* element = frontElement();
  return element ? element->text : std::string();
}

void SimDesktop::pressKey(std::uint16_t keyCode, std::uint64_t flags) {
  events.deliver(InputEvent{InputEventType::keyDown, keyCode, flags, false}, false);
  handleShortcut(keyCode, flags);
  events.deliver(InputEvent{InputEventType::keyUp, keyCode, flags, false}, false);
}

void SimDesktop::pressCommand(const std::string& letter) {
  if (auto code = keyboard.codeFor(letter)) pressKey(*code, modifier::command);
}

void SimDesktop::onSynthesisedKey(const PostedKey& key) {
  if (!key.down) return;
  // A synthesised key reaches the application merged with the modifiers the user still holds.
  const auto flags = key.flags | keyboard.currentModifierFlags();
  SimApp* front = frontApp();
  if (!front || (flags & kModifierMask) != modifier::command) return;
  const auto typed = keyboard.translate(key.keyCode).value_or("");
  if (typed == "c" && front->behaviour.honoursCopy) ++copiesSeen;
  if (typed == "v" && front->behaviour.honoursPaste) ++pastesSeen;
  if (typed == "z" && front->behaviour.undoes) ++undosSeen;
  handleShortcut(key.keyCode, flags);
}

void SimDesktop::handleShortcut(std::uint16_t keyCode, std::uint64_t flags) {
  SimApp* front = frontApp();
  if (!front || (flags & kModifierMask) != modifier::command) return;
  // Applications read shortcuts by the letter the key types on the current layout.
  const auto typed = keyboard.translate(keyCode).value_or("");
  auto& element = *front->element;
  if (typed == "c" && front->behaviour.honoursCopy) {
    auto selected = element.selectedText();
    if (!selected.empty()) {
      clipboard.clear();
      clipboard.putText(selected);
    }
  } else if (typed == "v" && front->behaviour.honoursPaste) {
    if (auto pasted = clipboard.readText()) element.replaceSelection(*pasted);
  } else if (typed == "z" && front->behaviour.undoes) {
    element.undo();
  }
}

}  // namespace mirlo::sim
