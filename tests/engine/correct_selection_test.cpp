// A user selects text in another application and asks for a correction: the text is read, sent,
// and the answer written back in place, through accessibility or through the clipboard.
#include <gtest/gtest.h>

#include "engine/user_story.h"

namespace mirlo::testing {
namespace {

using sim::PostedKey;

TEST(CorrectThroughAccessibility, CountsEmojiAsTwoUnitsWhenSelectingTheAnswer) {
  SimWorld world;
  mailWith(world, "😀 salut tu va bien ? 😀");
  world.desk.select("salut tu va bien ?");
  EXPECT_EQ(world.desk.frontElement()->selection, (AXRange{3, 18}));
  serviceAnswers(world, "Salut 👋, tu vas bien ?");

  world.app->engine().run("rephrase");
  EXPECT_TRUE(cardShows(world, "Reformulation…"));
  world.advance(0.1);

  EXPECT_EQ(world.desk.frontText(), "😀 Salut 👋, tu vas bien ? 😀");
  // 22 characters, 23 UTF-16 units: the waving hand counts two.
  EXPECT_EQ(world.desk.frontElement()->selection, (AXRange{3, 23}));
  EXPECT_EQ(world.desk.frontElement()->selectedText(), "Salut 👋, tu vas bien ?");
}

TEST(CorrectThroughAccessibility, SendsTheSelectionWithItsSurroundingWhiteSpace) {
  SimWorld world;
  mailWith(world, "a  le chat \n b");
  world.desk.select("  le chat \n");
  serviceAnswers(world, " Le chat.\n");
  world.app->engine().run("fix");
  world.advance(0.1);
  EXPECT_EQ(lastSentText(world), "  le chat \n");
  EXPECT_EQ(world.desk.frontText(), "a Le chat.\n b");
}

// An element whose selected text cannot be written falls back to a synthesised paste (an element
// that says so beforehand, and the keys, are in the paste-fallback scenario).
class RefusedWrite : public ::testing::Test {
 protected:
  void correct() {
    serviceAnswers(world, "Il fait beau.");
    world.desk.clipboard.putText("la liste de courses");
    world.app->engine().run("fix");
    world.advance(0.1);
  }
  void expectPastedAndClipboardRestored() {
    EXPECT_EQ(world.desk.pastesSeen, 1);
    EXPECT_EQ(world.desk.frontText(), "Il fait beau. Oui.");
    world.advance(0.5);
    EXPECT_EQ(world.desk.clipboard.text, "la liste de courses");
    EXPECT_FALSE(world.app->engine().busy());
    ASSERT_TRUE(world.app->engine().undoInfo());
    EXPECT_EQ(world.app->engine().undoInfo()->corrected, "Il fait beau.");
  }

  SimWorld world;
  sim::SimApp& app = [this]() -> sim::SimApp& {
    auto& mail = mailWith(world, "Il fé beau. Oui.");
    world.desk.select("Il fé beau.");
    return mail;
  }();
};

TEST_F(RefusedWrite, SettableButTheWriteFails) {
  app.element->acceptsSelectedText = false;
  correct();
  EXPECT_EQ(world.desk.accessibility.callCount("set AXSelectedText"), 1u);
  expectPastedAndClipboardRestored();
}

TEST_F(RefusedWrite, ElementVanishesBetweenReadingAndWriting) {
  world.desk.accessibility.beforeCall = [this](const std::string& call) {
    if (call == "settable AXSelectedText") app.element->alive = false;
  };
  correct();
  expectPastedAndClipboardRestored();
}

// An application that exposes no selection: the text is copied with Command+C and the answer
// pasted with Command+V, and the user's clipboard is given back.
class NoAccessibility : public ::testing::Test {
 protected:
  NoAccessibility() : app(mailWith(world, "Je suis aller au marché.")) {
    app.exposesAccessibility = false;
    world.desk.select("Je suis aller");
  }

  SimWorld world;
  sim::SimApp& app;
};

// The keys, the wait for the hot key's modifiers, the request and the undo record of this path are
// in the clipboard-path scenario; here when the clipboard is emptied, handed back and handed back
// again.
TEST_F(NoAccessibility, CopiesPastesAndGivesTheClipboardBack) {
  world.desk.clipboard.putText("numéro de commande 4411");
  serviceAnswers(world, "Je suis allé", 0.3);

  world.app->engine().run("fix");
  EXPECT_EQ(world.desk.clipboard.text, "Je suis aller");  // the copy went out at once
  world.advance(0.2);
  EXPECT_EQ(world.desk.clipboard.text, "numéro de commande 4411");  // back while the service works
  world.advance(0.3);

  EXPECT_EQ(world.desk.frontText(), "Je suis allé au marché.");
  ASSERT_EQ(world.desk.keyboard.posted.size(), 4u);
  EXPECT_EQ(world.desk.keyboard.posted[2].keyCode, 9);
  EXPECT_EQ(world.desk.clipboard.text, "Je suis allé");
  EXPECT_FALSE(world.app->engine().busy());

  world.advance(0.49);
  EXPECT_EQ(world.desk.clipboard.text, "Je suis allé");
  world.advance(0.01);
  EXPECT_EQ(world.desk.clipboard.text, "numéro de commande 4411");
}

TEST_F(NoAccessibility, PostsTheShortcutAnywayWhenModifiersAreHeldTooLong) {
  world.desk.keyboard.hold(modifier::shift);
  world.app->engine().run("fix");
  ASSERT_EQ(world.desk.keyboard.posted.size(), 2u);
  EXPECT_NEAR(world.desk.keyboard.posted[0].at, 1.5, 0.031);
  EXPECT_NEAR(world.desk.queue.blockedSeconds(), 1.5, 0.031);
  // Held Shift made it Command+Shift+C: nothing was copied.
  EXPECT_EQ(world.desk.copiesSeen, 0);
  world.advance(0.2);
  EXPECT_EQ(world.app->card().state(), Card::State::error);
  EXPECT_TRUE(cardShows(world, "Sélectionne d'abord un texte"));
}

TEST_F(NoAccessibility, AnImageOnTheClipboardIsLost) {
  world.desk.clipboard.putImage();
  serviceAnswers(world, "Je suis allé");
  world.app->engine().run("fix");
  world.advance(0.3);
  EXPECT_EQ(world.desk.frontText(), "Je suis allé au marché.");
  world.advance(0.5);
  EXPECT_TRUE(world.desk.clipboard.empty());
}

TEST_F(NoAccessibility, UsesKeysEightAndNineOnAFrenchKeyboardToo) {
  world.desk.keyboard.layout = sim::Layout::frenchAzerty;
  serviceAnswers(world, "Je suis allé");
  world.app->engine().run("fix");
  world.advance(0.3);
  ASSERT_EQ(world.desk.keyboard.posted.size(), 4u);
  EXPECT_EQ(world.desk.keyboard.posted[0].keyCode, 8);
  EXPECT_EQ(world.desk.keyboard.posted[2].keyCode, 9);
  EXPECT_EQ(world.desk.frontText(), "Je suis allé au marché.");
}

// Nothing to correct: the copy is tried whenever accessibility gives no text, and the card says so
// without a request, with the user's clipboard left as it was.
TEST(NothingSelected, EveryWayOfHavingNoTextGetsTheHint) {
  struct Case {
    const char* name;
    const char* text;
    std::int64_t location, length;
    bool accessible;
  } cases[] = {
      {"an application ignoring accessibility and the copy", "Un texte", 0, 8, false},
      {"only white space", "mot  \n  mot", 3, 5, true},
      {"a caret", "bonjour", 3, 0, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SimWorld world;
    auto& app = mailWith(world, c.text);
    app.exposesAccessibility = c.accessible;
    app.behaviour.honoursCopy = c.accessible;
    world.desk.select(c.location, c.length);
    world.desk.clipboard.putText("avant");
    world.app->engine().run("fix");
    EXPECT_EQ(world.desk.keyboard.posted.size(), 2u) << "the copy shortcut";
    world.advance(0.2);
    EXPECT_FALSE(world.app->engine().busy());
    EXPECT_EQ(world.app->card().state(), Card::State::error);
    EXPECT_TRUE(cardShows(world, "Sélectionne d'abord un texte"));
    EXPECT_EQ(world.desk.http.requestCount(), 0u);
    EXPECT_EQ(world.desk.clipboard.text, "avant");
    EXPECT_EQ(world.desk.frontText(), c.text);
  }
}

}  // namespace
}  // namespace mirlo::testing
