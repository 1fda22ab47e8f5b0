// The simulated applications behave like the real ones the stories rely on.
#include <gtest/gtest.h>

#include "platform/sim/sim_desktop.h"

namespace mirlo::sim {
namespace {

TEST(SimApplications, OwnUndoTakesBackPastesAndAccessibilityWritesInTurn) {
  SimDesktop desk;
  auto& app = desk.launchApp(1, "com.example.editor", "un deux trois");
  desk.select("deux");
  ASSERT_EQ(desk.accessibility.setAttributeValue(app.element, "AXSelectedText", std::string("2")),
            AXError::success);
  desk.select("trois");
  desk.clipboard.putText("3");
  desk.pressCommand("v");
  EXPECT_EQ(desk.frontText(), "un 2 3");

  desk.pressCommand("z");
  EXPECT_EQ(desk.frontText(), "un 2 trois");
  EXPECT_EQ(app.element->selectedText(), "trois");
  desk.pressCommand("z");
  EXPECT_EQ(desk.frontText(), "un deux trois");
  desk.pressCommand("z");
  EXPECT_EQ(desk.frontText(), "un deux trois");
}

TEST(SimApplications, ShortcutsFollowTheLayoutAndNeedCommandAlone) {
  SimDesktop desk;
  desk.launchApp(1, "com.example.editor", "bonjour");
  desk.select("bonjour");
  desk.keyboard.layout = Layout::frenchAzerty;
  desk.pressKey(8, modifier::command | modifier::shift);  // not a copy
  EXPECT_FALSE(desk.clipboard.text);
  desk.pressKey(8, modifier::command);
  EXPECT_EQ(desk.clipboard.text, "bonjour");
  // On AZERTY the key at the US "z" position types "w": no undo there.
  desk.clipboard.putText("salut");
  desk.pressCommand("v");
  desk.pressKey(6, modifier::command);
  EXPECT_EQ(desk.frontText(), "salut");
  desk.pressKey(13, modifier::command);
  EXPECT_EQ(desk.frontText(), "bonjour");
}

TEST(SimApplications, AnApplicationThatIgnoresCopyAndPasteLeavesEverythingAlone) {
  SimDesktop desk;
  auto& app = desk.launchApp(1, "com.example.terminal", "ls -la");
  app.behaviour = {false, false, false};
  desk.select("ls");
  desk.clipboard.putImage();
  desk.keyboard.postKeyEvent(8, true, modifier::command);
  desk.keyboard.postKeyEvent(9, true, modifier::command);
  EXPECT_TRUE(desk.clipboard.holdsImage);
  EXPECT_EQ(desk.frontText(), "ls -la");
  EXPECT_EQ(desk.copiesSeen + desk.pastesSeen, 0);
}

TEST(SimApplications, FocusFollowsTheFrontApplication) {
  SimDesktop desk;
  auto& mail = desk.launchApp(1, "com.example.mail", "a");
  auto& chat = desk.launchApp(2, "com.example.chat", "b");
  EXPECT_EQ(desk.accessibility.focusedElement(), chat.element);
  chat.exposesAccessibility = false;
  EXPECT_EQ(desk.accessibility.focusedElement(), nullptr);
  desk.activate(1);
  EXPECT_EQ(desk.accessibility.focusedElement(), mail.element);
}

}  // namespace
}  // namespace mirlo::sim
