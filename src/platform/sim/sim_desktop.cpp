#include "platform/sim/sim_desktop.h"

#include "base/text.h"

namespace mirlo::sim {

SimDesktop::SimDesktop() {
  keyboard.onPost = [this](const PostedKey& key) { onSynthesisedKey(key); };
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

void SimDesktop::activate(std::int32_t pid) {
  workspace.activate(pid);
  refreshFocus();
}

void SimDesktop::refreshFocus() {
  SimApp* front = frontApp();
  accessibility.focused = front && front->exposesAccessibility ? front->element : nullptr;
}

void SimDesktop::select(std::int64_t location, std::int64_t length) {
  if (SimApp* front = frontApp()) front->element->selection = {location, length};
}

std::string SimDesktop::frontText() {
  SimApp* front = frontApp();
  return front ? front->element->text : std::string();
}

void SimDesktop::onSynthesisedKey(const PostedKey& key) {
  refreshFocus();
  SimApp* front = frontApp();
  if (!front || !key.down || !(key.flags & modifier::command)) return;
  // Applications read shortcuts by the letter the key types on the current layout.
  auto typed = keyboard.translate(key.keyCode).value_or("");
  auto& element = *front->element;
  if (typed == "c" && front->behaviour.honoursCopy) {
    auto selected = element.selectedText();
    if (!selected.empty()) {
      clipboard.clear();
      clipboard.putText(selected);
    }
  } else if (typed == "v" && front->behaviour.honoursPaste) {
    if (auto pasted = clipboard.readText()) {
      front->textBeforeLastEdit = element.text;
      element.replaceSelection(*pasted);
    }
  } else if (typed == "z" && front->behaviour.undoes) {
    if (front->textBeforeLastEdit) {
      element.text = *front->textBeforeLastEdit;
      element.selection = {0, 0};
      front->textBeforeLastEdit.reset();
    }
  }
}

}  // namespace mirlo::sim
