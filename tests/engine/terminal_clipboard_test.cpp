// A person corrects text in a terminal emulator, which exposes nothing through accessibility. The
// terminal reads Control+C (the core's Command+C) as an interrupt for the program running in it,
// so the copy and the paste go out as the terminal's own shortcuts, and never as that key.
#include <gtest/gtest.h>

#include "engine/user_story.h"

namespace mirlo::testing {
namespace {

constexpr std::int32_t kTerminalPid = 777;
constexpr auto kControlShift = modifier::command | modifier::shift;  // Control+Shift on Linux
constexpr auto kControlAlt = modifier::command | modifier::option;

// A terminal on the simulated desktop, as the Linux workspace names it: its own copy and paste
// shortcuts act on its selection; Command+C alone interrupts the program running in it.
struct TerminalStory {
  SimWorld world;
  int interrupts = 0;

  TerminalStory(const std::string& identifier, std::uint64_t terminalKeys) {
    world.signIn();
    auto& terminal = world.desk.launchApp(kTerminalPid, identifier, "$ nano lettre.txt\nJe suis aller au marché.");
    terminal.exposesAccessibility = false;
    terminal.behaviour.honoursCopy = terminal.behaviour.honoursPaste = false;
    world.advance();
    world.desk.select("Je suis aller");
    world.desk.clipboard.putText("ssh lea@serveur");
    world.desk.keyboard.onPost = [this, terminalKeys](const sim::PostedKey& key) {
      if (!key.down) return;
      const auto flags = key.flags | world.desk.keyboard.currentModifierFlags();
      auto& element = *world.desk.frontApp()->element;
      if (flags == modifier::command && key.keyCode == keycode::c) ++interrupts;
      if (flags != terminalKeys) return;
      if (key.keyCode == keycode::c) {
        world.desk.clipboard.clear();
        world.desk.clipboard.putText(element.selectedText());
      } else if (key.keyCode == keycode::v) {
        if (auto text = world.desk.clipboard.readText()) element.replaceSelection(*text);
      }
    };
  }

  // Asks for a correction and lets everything run out, the clipboard's return included.
  void fix() {
    serviceAnswers(world, "Je suis allé");
    world.app->engine().run("fix");
    world.advance(0.2);
    world.advance(0.1);
    world.advance(0.5);
  }
};

TEST(TerminalClipboard, EachApplicationIsSentItsOwnCopyAndPasteAndATerminalNeverAnInterrupt) {
  for (const char* identifier : {"Gnome-terminal", "xfce4-terminal", "konsole", "kitty", "Alacritty", "Tilix",
                                 "Terminator", "Mate-terminal"}) {
    SCOPED_TRACE(identifier);
    TerminalStory story(identifier, kControlShift);
    story.fix();
    EXPECT_EQ(lastSentText(story.world), "Je suis aller");
    EXPECT_EQ(story.world.desk.frontText(), "$ nano lettre.txt\nJe suis allé au marché.");
    const auto& keys = story.world.desk.keyboard.posted;
    ASSERT_EQ(keys.size(), 4u);
    EXPECT_EQ(keys[0].keyCode, keycode::c);
    EXPECT_EQ(keys[0].flags, kControlShift);
    EXPECT_EQ(keys[2].keyCode, keycode::v);
    EXPECT_EQ(keys[2].flags, kControlShift);
    EXPECT_EQ(story.interrupts, 0);
    EXPECT_EQ(story.world.desk.clipboard.text, "ssh lea@serveur") << "the person's clipboard is given back";
  }
  // A text editor, and a macOS terminal, whose copy is Command+C, keep the usual shortcut.
  for (const char* identifier : {"Mousepad", "com.apple.Terminal", "com.googlecode.iterm2"}) {
    SCOPED_TRACE(identifier);
    TerminalStory story(identifier, modifier::command);
    story.fix();
    EXPECT_EQ(story.world.desk.frontText(), "$ nano lettre.txt\nJe suis allé au marché.");
    ASSERT_EQ(story.world.desk.keyboard.posted.size(), 4u);
    EXPECT_EQ(story.world.desk.keyboard.posted[0].flags, modifier::command);
  }
}

TEST(TerminalClipboard, RxvtUsesControlAltAndXtermIsNeverSentAKey) {
  TerminalStory urxvt("URxvt", kControlAlt);
  urxvt.fix();
  EXPECT_EQ(urxvt.world.desk.frontText(), "$ nano lettre.txt\nJe suis allé au marché.");
  EXPECT_EQ(urxvt.interrupts, 0);

  // xterm has no clipboard key, and Control+Shift+C would reach the program as Control+C: nothing
  // is synthesised, the person is told to select, and their clipboard stays theirs.
  TerminalStory xterm("XTerm", kControlShift);
  xterm.fix();
  EXPECT_TRUE(xterm.world.desk.keyboard.posted.empty());
  EXPECT_EQ(xterm.interrupts, 0);
  EXPECT_EQ(xterm.world.app->card().state(), Card::State::error);
  EXPECT_TRUE(cardShows(xterm.world, "Sélectionne d'abord un texte"));
  EXPECT_EQ(xterm.world.desk.frontText(), "$ nano lettre.txt\nJe suis aller au marché.");
  EXPECT_EQ(xterm.world.desk.clipboard.text, "ssh lea@serveur");
}

}  // namespace
}  // namespace mirlo::testing
