// The clipboard path, for applications that expose no selection through accessibility: a
// synthesised copy to read the selection and a synthesised paste to write the correction, with
// the user's clipboard text put back afterwards.
#include "app/app.h"
#include "base/text.h"
#include "engine/engine.h"
#include "platform/keyboard.h"
#include "ui/card/card.h"

namespace mirlo {

namespace {
constexpr double kModifierWait = 1.5;
constexpr double kModifierPoll = 0.03;
constexpr double kCopyDelay = 0.2;   // time for the application to complete the copy
constexpr double kPasteDelay = 0.5;  // time for the application to complete the paste
constexpr std::uint64_t kHeldModifiers =
    modifier::shift | modifier::control | modifier::option | modifier::command;
}  // namespace

void Engine::postKey(std::uint16_t keyCode, std::uint64_t flags) {
  auto& keyboard = app_.platform().keyboard;
  keyboard.postKeyEvent(keyCode, true, flags);
  keyboard.postKeyEvent(keyCode, false, flags);
}

void Engine::waitModifiersReleased(double timeout) {
  auto& main = app_.platform().mainQueue;
  const double deadline = main.now() + timeout;
  // A held Shift (from the hot key) would turn the synthesised shortcut into another one.
  while (main.now() < deadline && (app_.platform().keyboard.currentModifierFlags() & kHeldModifiers) != 0)
    main.block(kModifierPoll);
}

void Engine::copyFlow(const std::string& mode) {
  auto& clipboard = app_.platform().clipboard;
  std::optional<std::string> saved = clipboard.readText();
  clipboard.clear();
  waitModifiersReleased(kModifierWait);
  postKey(keycode::c, modifier::command);

  app_.platform().mainQueue.postAfter(kCopyDelay, life_.guard([this, mode, saved] {
    auto& board = app_.platform().clipboard;
    std::string copied = board.readText().value_or("");
    board.clear();
    if (saved) board.putText(*saved);
    if (text::trimWhitespace(copied).empty()) {
      busy_ = false;
      app_.card().showError("Sélectionne d'abord un texte", false);
      return;
    }
    app_.card().showProgress(progressLabel(mode));
    process(copied, mode, nullptr, 0);
  }));
}

void Engine::pasteReplace(const std::string& text) {
  auto& clipboard = app_.platform().clipboard;
  std::optional<std::string> saved = clipboard.readText();
  clipboard.clear();
  clipboard.putText(text);
  waitModifiersReleased(kModifierWait);
  postKey(keycode::v, modifier::command);

  app_.platform().mainQueue.postAfter(kPasteDelay, life_.guard([this, saved] {
    auto& board = app_.platform().clipboard;
    board.clear();
    if (saved) board.putText(*saved);
  }));
}

}  // namespace mirlo
