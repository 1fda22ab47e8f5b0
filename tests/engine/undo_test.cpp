// The user presses Command+Z after a correction: within a minute the original comes back
// (unless the application's own undo already did it), it is selected, and the card offers its
// buttons again. Past the minute it is the application's own undo again: that is in the
// undo-within-and-after-a-minute scenario.
#include <gtest/gtest.h>

#include "engine/user_story.h"

namespace mirlo::testing {
namespace {

class UndoAfterCorrection : public ::testing::Test {
 protected:
  UndoAfterCorrection() : app(mailWith(world, "Salut 😀 ça va ? À bientôt")) {}

  void correct(const std::string& selected, const std::string& answer) {
    world.desk.select(selected);
    serviceAnswers(world, answer);
    world.app->engine().run("fix");
    world.advance(0.1);
    ASSERT_TRUE(world.app->engine().undoInfo());
  }
  // The user's Command+Z reaches the application and the engine.
  void pressUndo() {
    world.desk.pressCommand("z");
    world.app->engine().handleUndoKey();
  }

  SimWorld world;
  sim::SimApp& app;
};

TEST_F(UndoAfterCorrection, At59SecondsWritesTheOriginalBackAndOffersTheButtons) {
  app.behaviour.undoes = false;  // an application without an undo of its own
  correct("😀 ça va ?", "😀 Ça va ?");
  world.advance(58.9);
  pressUndo();
  EXPECT_FALSE(world.app->engine().undoInfo());
  world.advance(0.24);
  EXPECT_EQ(world.desk.frontText(), "Salut 😀 Ça va ? À bientôt");  // not before 0.25 s
  world.advance(0.01);

  EXPECT_EQ(world.desk.frontText(), "Salut 😀 ça va ? À bientôt");
  // The original is selected, the emoji counting two units.
  EXPECT_EQ(world.desk.frontElement()->selection, (AXRange{6, 10}));
  EXPECT_EQ(world.app->card().state(), Card::State::buttons);
  // Anchored at the last selected character: unit 15 at 8 points per unit from x = 100, on a
  // 900-point screen with the element's line at y = 200 (top-left) and 18 high.
  ASSERT_TRUE(world.app->card().anchor());
  EXPECT_EQ(*world.app->card().anchor(), (Rect{220, 682, 8, 18}));
}

// The application's own undo taking back the write, the original then selected and the buttons
// offered, is the undo-within-and-after-a-minute scenario; a second Command+Z is the application's.
TEST_F(UndoAfterCorrection, AfterTheApplicationsOwnUndoASecondCommandZIsLeftToIt) {
  correct("ça va ?", "ça va bien ?");
  pressUndo();
  world.advance(0.25);
  pressUndo();
  world.advance(1);
  EXPECT_EQ(world.desk.accessibility.callCount("set AXSelectedText"), 1u);  // the correction's only
}

TEST_F(UndoAfterCorrection, AnUndoThatTookBackOnlyTheInsertionGetsTheOriginalBack) {
  app.element->undoesInTwoSteps = true;
  correct("😀 ça va ?", "😀 Ça va ?");
  pressUndo();
  // The application's own undo removed the correction and left a hole where the original was.
  EXPECT_EQ(world.desk.frontText(), "Salut  À bientôt");
  world.advance(0.25);
  EXPECT_EQ(world.desk.frontText(), "Salut 😀 ça va ? À bientôt");
  EXPECT_EQ(world.desk.frontElement()->selectedText(), "😀 ça va ?");
  EXPECT_EQ(world.app->card().state(), Card::State::buttons);
}

TEST_F(UndoAfterCorrection, TextEditedAwayIsNotWritten) {
  app.behaviour.undoes = false;
  correct("ça va ?", "ça va bien ?");
  app.element->setText("Tout autre chose maintenant");
  pressUndo();
  world.advance(0.25);
  EXPECT_EQ(world.desk.frontText(), "Tout autre chose maintenant");
  EXPECT_EQ(world.desk.accessibility.callCount("set AXSelectedText"), 1u);
}

TEST_F(UndoAfterCorrection, ACorrectionThatOnlyAppendedAFullStopStays) {
  app.behaviour.undoes = false;
  correct("À bientôt", "À bientôt.");
  pressUndo();
  world.advance(0.25);
  EXPECT_EQ(world.desk.frontText(), "Salut 😀 ça va ? À bientôt.");
  EXPECT_EQ(world.desk.frontElement()->selectedText(), "À bientôt");
  EXPECT_EQ(world.app->card().state(), Card::State::buttons);
}

TEST_F(UndoAfterCorrection, TheRestoreUsesTheRecordAsItWasWhenTheKeyWasPressed) {
  app.behaviour.undoes = false;
  correct("ça va ?", "ça va bien ?");
  pressUndo();
  // A new correction lands before the restore runs.
  correct("À bientôt", "À très bientôt");
  world.advance(0.25);
  EXPECT_EQ(world.desk.frontText(), "Salut 😀 ça va ? À très bientôt");
  EXPECT_EQ(world.app->engine().undoInfo()->original, "À bientôt");
}

TEST(UndoAfterClipboardCorrection, LeavesTheTextToTheApplicationAndOffersTheButtons) {
  SimWorld world;
  auto& app = mailWith(world, "Il est partit hier.");
  app.exposesAccessibility = false;
  world.desk.select("Il est partit");
  serviceAnswers(world, "Il est parti");
  world.app->engine().run("fix");
  world.advance(1);
  EXPECT_EQ(world.desk.frontText(), "Il est parti hier.");

  // The application's undo of the paste brings the original back and selects it; the engine
  // cannot see it, so no buttons while the application stays closed to accessibility.
  world.desk.pressCommand("z");
  world.app->engine().handleUndoKey();
  world.advance(0.25);
  EXPECT_EQ(world.desk.frontText(), "Il est partit hier.");
  EXPECT_NE(world.app->card().state(), Card::State::buttons);

  // The same story in an application that does show its selection: the buttons come back.
  SimWorld open;
  auto& notes = mailWith(open, "Il est partit hier.");
  notes.element->selectedTextSettable = false;
  open.desk.select("Il est partit");
  serviceAnswers(open, "Il est parti");
  open.app->engine().run("fix");
  open.advance(1);
  ASSERT_EQ(open.desk.frontText(), "Il est parti hier.");
  open.desk.pressCommand("z");
  open.app->engine().handleUndoKey();
  open.advance(0.25);
  EXPECT_EQ(open.desk.frontText(), "Il est partit hier.");
  EXPECT_EQ(open.desk.frontElement()->selectedText(), "Il est partit");
  EXPECT_EQ(open.app->card().state(), Card::State::buttons);
}

TEST(UndoWithoutCorrection, DoesNothing) {
  SimWorld world;
  mailWith(world, "rien");
  world.app->engine().handleUndoKey();
  world.advance(1);
  EXPECT_EQ(world.app->card().state(), Card::State::idle);
  EXPECT_TRUE(world.desk.accessibility.calls.empty());
}

}  // namespace
}  // namespace mirlo::testing
