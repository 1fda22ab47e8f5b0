// The demonstration as it plays: the sentence selected, the card pressed, the four mistakes
// corrected one by one and settled, over and over; confetti and "Suivant" once; "Passer" and
// closing the window ending it; the recap of gestures and shortcuts.
#include "onboarding_fixture.h"

#include "account/prefs.h"
#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

const std::string kOriginal =
    "Suite a notre échange, je vous envoie le devis des que possible. N'hesitez pas a revenir vers moi.";
const std::string kCorrected =
    "Suite à notre échange, je vous envoie le devis dès que possible. N'hésitez pas à revenir vers moi.";

struct Demo : OnboardingTest {
  void SetUp() override {
    launchAs(true, true);
    ASSERT_EQ(step(), "Étape 3 sur 3");
  }
  // How many mistakes still carry the red dotted underline.
  int underlined() {
    int n = 0;
    for (const auto& run : sentence().runs)
      if (run.dottedUnderline == std::optional<Color>(DA::red)) ++n;
    return n;
  }
  bool selected() {
    for (const auto& run : sentence().runs)
      if (run.background != std::optional<Color>(DA::green.withAlpha(0.14))) return false;
    return true;
  }
  // The texts shown in green semibold: the corrections that just happened.
  std::vector<std::string> highlighted() {
    std::vector<std::string> out;
    for (const auto& run : sentence().runs)
      if (run.color == DA::green && run.font == Font{13.5, FontWeight::semibold}) out.push_back(run.text);
    return out;
  }
  bool cardShown() { return !miniCard().view.hidden; }
  // Moves the clock to `t` seconds after launch, where the first cycle started, exactly.
  void until(double t) { world.advance(t - desk().queue.now()); }
  std::optional<Color> pressed() { return view("Corriger").background; }
};

TEST_F(Demo, OneCycleSelectsPressesCorrectsAndSettlesOnTheClock) {
  EXPECT_EQ(plain(sentence()), kOriginal);
  EXPECT_EQ(underlined(), 4);
  EXPECT_FALSE(selected());
  EXPECT_FALSE(cardShown());

  until(0.89);
  EXPECT_FALSE(selected());
  until(0.9);
  EXPECT_TRUE(selected());
  EXPECT_EQ(plain(sentence()), kOriginal);
  until(1.5);
  EXPECT_TRUE(cardShown());
  EXPECT_FALSE(pressed());
  until(2.4);
  EXPECT_EQ(pressed(), DA::green.withAlpha(0.15));
  until(2.9);  // the card goes, the first mistake is corrected
  EXPECT_FALSE(cardShown());
  EXPECT_FALSE(pressed());
  EXPECT_EQ(plain(sentence()),
            "Suite à notre échange, je vous envoie le devis des que possible. N'hesitez pas a revenir vers moi.");
  EXPECT_EQ(highlighted(), (std::vector<std::string>{"Suite à"}));
  EXPECT_EQ(underlined(), 3);
  until(3.2);
  EXPECT_EQ(highlighted(), (std::vector<std::string>{"Suite à", "dès"}));
  until(3.8);
  EXPECT_EQ(plain(sentence()), kCorrected);
  EXPECT_EQ(highlighted(), (std::vector<std::string>{"Suite à", "dès", "N'hésitez", "à"}));
  EXPECT_EQ(underlined(), 0);
  EXPECT_TRUE(selected());
  until(4.5);  // settled, no longer selected, all in the same ink
  EXPECT_EQ(plain(sentence()), kCorrected);
  EXPECT_FALSE(selected());
  EXPECT_TRUE(highlighted().empty());
  for (const auto& run : sentence().runs) {
    EXPECT_EQ(run.color, DA::ink2);
    EXPECT_EQ(run.font, (Font{13.5}));
  }
  EXPECT_EQ(sentence().lineSpacing, 3);

  until(6.9);  // the next cycle starts over
  EXPECT_EQ(plain(sentence()), kOriginal);
  EXPECT_EQ(underlined(), 4);
  EXPECT_FALSE(selected());
  until(6.9 + 0.9);  // 0.9 s into the second cycle
  EXPECT_TRUE(selected());
}

TEST_F(Demo, TheFirstCycleEndsOnConfettiAndSuivantOnlyOnceHoweverLongItRuns) {
  until(4.89);
  EXPECT_FALSE(world.app->prefs().onboarded());
  EXPECT_TRUE(shows("Passer"));
  until(4.9);
  EXPECT_TRUE(world.app->prefs().onboarded());
  EXPECT_FALSE(shows("Passer"));
  ASSERT_TRUE(shows("Suivant"));

  EXPECT_EQ(node("Suivant").fades.size(), 1u);  // faded in from nothing
  auto emitters = nodesOfKind(ViewKind::emitter);
  ASSERT_EQ(emitters.size(), 1u);
  EXPECT_EQ(emitters[0]->view.emitter.colors.size(), 4u);
  // A burst of a second and a half, then no new confetti.
  until(6.39);
  EXPECT_EQ(emitters[0]->view.emitter.birthRate, 1);
  until(6.4);
  EXPECT_EQ(emitters[0]->view.emitter.birthRate, 0);

  // Two more cycles: the sentence goes on correcting itself, nothing more appears.
  world.advance(2 * 6.9);
  EXPECT_EQ(count("Suivant"), 1u);
  EXPECT_EQ(nodesOfKind(ViewKind::emitter).size(), 1u);
  EXPECT_EQ(plain(sentence()), kCorrected);
}

TEST_F(Demo, PasserDuringTheFirstCycleGoesStraightToTheRecapAndTheCycleStops) {
  world.advance(2.5);
  ASSERT_TRUE(click("Passer"));
  EXPECT_TRUE(shows("🎉 C'est parti !"));
  EXPECT_TRUE(world.app->prefs().onboarded());
  const auto recap = texts();
  world.advance(3 * 6.9);
  EXPECT_EQ(texts(), recap);
  EXPECT_TRUE(nodesOfKind(ViewKind::emitter).empty());
  EXPECT_FALSE(shows("Suivant"));
  // The menu was rebuilt for the finished onboarding, and "Terminer" closes the window.
  EXPECT_EQ(lines().front(), "lea@example.fr [off]");
  ASSERT_TRUE(click("Terminer"));
  EXPECT_FALSE(onScreen());
}

TEST_F(Demo, ClosingTheWindowDuringACycleStopsIt) {
  world.advance(1.0);
  ASSERT_TRUE(selected());
  window().close();
  world.advance(3 * 6.9);
  // The hidden page stays as it was when closed: nothing corrected, no confetti, not done.
  EXPECT_TRUE(selected());
  EXPECT_EQ(plain(sentence()), kOriginal);
  EXPECT_TRUE(nodesOfKind(ViewKind::emitter).empty());
  EXPECT_FALSE(world.app->prefs().onboarded());

  // Reopened: a new demonstration from the start, with its own confetti at 4.9 s.
  onboarding().show();
  world.advance(0);
  EXPECT_FALSE(selected());
  world.advance(4.9);
  EXPECT_EQ(nodesOfKind(ViewKind::emitter).size(), 1u);
  EXPECT_TRUE(world.app->prefs().onboarded());
}

TEST_F(Demo, ANewDemonstrationSilencesTheOlderOne) {
  world.advance(2.0);
  onboarding().show();  // rebuilt while the first cycle is under way
  world.advance(0);
  // At 4.9 s of the old cycle (2.9 s of the new one) nothing is revealed; at 4.9 s of the new one,
  // exactly one set of confetti and one "Suivant".
  world.advance(2.9);
  EXPECT_FALSE(shows("Suivant"));
  world.advance(2.0);
  EXPECT_EQ(count("Suivant"), 1u);
  EXPECT_EQ(nodesOfKind(ViewKind::emitter).size(), 1u);
}

TEST_F(Demo, TheStepShowsAMailMiniatureAndACardMiniature) {
  EXPECT_EQ(texts(), (std::vector<std::string>{"mirlo", "Étape 3 sur 3", "Regarde comme c'est simple",
                                               "Sélectionne, clique, c'est corrigé. Voilà toute l'app :",
                                               "Mail · Nouveau message", "Passer"}));
  // The card miniature, hidden until the demonstration calls it, offers the two actions.
  EXPECT_TRUE(miniCard().view.hidden);
  EXPECT_NE(sim::findText(miniCard().children, "Corriger"), nullptr);
  EXPECT_NE(sim::findText(miniCard().children, "Reformuler"), nullptr);
}

// The recap's lines as read: each key cap's name (a cap is a box around its name), then the text;
// every description starts at the same place, in one column.
std::vector<std::string> recapTexts(const sim::SimNodes& content) {
  auto panel = sim::findNode(content, [](const sim::SimNode& n) { return n.view.frame == Rect{70, 108, 380, 158}; });
  if (!panel) throw std::runtime_error("no recap panel");
  std::vector<std::string> shown;
  for (const auto& child : panel->children)
    shown.push_back(child->view.text.empty() && child->children.size() == 1 ? child->children[0]->view.text
                                                                            : child->view.text);
  for (std::size_t i : {1u, 4u, 8u, 12u, 15u}) EXPECT_EQ(panel->children.at(i)->view.frame.x, 128) << shown.at(i);
  return shown;
}

TEST_F(Demo, TheRecapListsTheGesturesWithTheirTextsInOneColumn) {
  world.advance(4.9);
  ASSERT_TRUE(click("Suivant"));
  EXPECT_EQ(step(), "");
  EXPECT_TRUE(shows("Mirlo vit dans ta barre de menus (le M en haut à droite)."));
  EXPECT_EQ(recapTexts(window().content),
            (std::vector<std::string>{"Souris", "sélectionne → la carte apparaît",
                                      "⌘", "A", "maintenu 1 s → la carte apparaît",
                                      "⌘", "⇧", "A", "corriger la sélection",
                                      "⌘", "⇧", "C", "reformuler la sélection",
                                      "⌘", "Z", "revenir au texte d'origine"}));
  EXPECT_TRUE(shows("Terminer"));
}

// On a PC keyboard Control does what Command does on a Mac: the recap names the keys a person
// there presses.
TEST_F(Demo, OnALinuxDesktopTheRecapNamesThePCKeys) {
  desk().appInfo.system = HostSystem::linuxDesktop;
  world.advance(2.5);
  ASSERT_TRUE(click("Passer"));
  EXPECT_TRUE(shows("Mirlo vit dans la zone de notification de ton bureau (le M)."));
  EXPECT_EQ(recapTexts(window().content),
            (std::vector<std::string>{"Souris", "sélectionne → la carte apparaît",
                                      "Ctrl", "A", "maintenu 1 s → la carte apparaît",
                                      "Ctrl", "Maj", "A", "corriger la sélection",
                                      "Ctrl", "Maj", "C", "reformuler la sélection",
                                      "Ctrl", "Z", "revenir au texte d'origine"}));
}

}  // namespace
}  // namespace mirlo::testing
