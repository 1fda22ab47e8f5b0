// The clipboard path, for applications that expose no selection through accessibility: a
// synthesised copy to read the selection and a synthesised paste to write the correction, with
// the user's clipboard text put back afterwards.
#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <string_view>

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

// Terminal emulators read Command's key (Control on Linux) with C as an interrupt for the program
// running in them: a person would lose work. They copy and paste with their own shortcuts. The
// identifiers are the window classes a Linux desktop reports for them (compared in lower case);
// no macOS bundle identifier matches, since Terminal and iTerm copy with Command+C.
struct TerminalShortcut {
  std::string_view identifier;
  std::optional<std::uint64_t> flags;  // nothing: the terminal has no copy/paste key that is safe
};
constexpr TerminalShortcut kTerminals[] = {
    {"gnome-terminal", modifier::command | modifier::shift},
    {"gnome-terminal-server", modifier::command | modifier::shift},
    {"kgx", modifier::command | modifier::shift},
    {"xfce4-terminal", modifier::command | modifier::shift},
    {"konsole", modifier::command | modifier::shift},
    {"kitty", modifier::command | modifier::shift},
    {"alacritty", modifier::command | modifier::shift},
    {"tilix", modifier::command | modifier::shift},
    {"terminator", modifier::command | modifier::shift},
    {"mate-terminal", modifier::command | modifier::shift},
    {"lxterminal", modifier::command | modifier::shift},
    {"qterminal", modifier::command | modifier::shift},
    {"terminology", modifier::command | modifier::shift},
    {"foot", modifier::command | modifier::shift},
    {"org.wezfurlong.wezterm", modifier::command | modifier::shift},
    {"st-256color", modifier::command | modifier::shift},
    {"guake", modifier::command | modifier::shift},
    {"tilda", modifier::command | modifier::shift},
    {"sakura", modifier::command | modifier::shift},
    // rxvt-unicode copies and pastes with Control+Alt (Command+Option here).
    {"urxvt", modifier::command | modifier::option},
    {"rxvt", modifier::command | modifier::option},
    // xterm binds no clipboard key, and reads Control+Shift+C as Control+C: nothing is sent.
    {"xterm", std::nullopt},
    {"uxterm", std::nullopt},
};

std::string lowercase(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// The modifiers of the copy and paste shortcuts in the application in front; nothing when
// synthesising them there is unsafe.
std::optional<std::uint64_t> clipboardShortcutFlags(App& app) {
  auto front = app.platform().workspace.frontmostApplication();
  if (!front || !front->bundleIdentifier) return modifier::command;
  const std::string identifier = lowercase(*front->bundleIdentifier);
  for (const auto& terminal : kTerminals)
    if (identifier == terminal.identifier) return terminal.flags;
  return modifier::command;
}
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
  if (auto flags = clipboardShortcutFlags(app_)) postKey(keycode::c, *flags);

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
  if (auto flags = clipboardShortcutFlags(app_)) postKey(keycode::v, *flags);

  app_.platform().mainQueue.postAfter(kPasteDelay, life_.guard([this, saved] {
    auto& board = app_.platform().clipboard;
    board.clear();
    if (saved) board.putText(*saved);
  }));
}

}  // namespace mirlo
