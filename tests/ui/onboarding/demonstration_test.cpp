// The demonstration as it plays: the sentence selected, the card pressed, the four mistakes
// corrected one by one and settled, over and over; confetti and "Suivant" once; "Passer" and
// closing the window ending it; the recap of gestures and shortcuts.
#include "onboarding_fixture.h"

#include <numbers>

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

  auto& next = node("Suivant");
  // "Suivant": 7 characters at 14 pt, grown by 36 × 16; faded in from nothing.
  EXPECT_EQ(next.view.frame, (Rect{(520 - 90.0) / 2, 54, 90, 34}));
  EXPECT_EQ(next.view.background, DA::ink);
  ASSERT_EQ(next.fades.size(), 1u);
  EXPECT_EQ(next.fades[0], (std::pair<double, double>{1, 0.35}));

  auto emitters = nodesOfKind(ViewKind::emitter);
  ASSERT_EQ(emitters.size(), 1u);
  const EmitterStyle& confetti = emitters[0]->view.emitter;
  EXPECT_EQ(confetti.position, (Point{260, 480}));
  EXPECT_EQ(confetti.size, (Size{520, 1}));
  EXPECT_EQ(confetti.birthRate, 1);
  EXPECT_EQ(confetti.colors, (std::vector<Color>{DA::green, DA::red, DA::ink, Color::rgb(0.98, 0.75, 0.14)}));
  EXPECT_EQ(confetti.cellSize, (Size{10, 14}));
  EXPECT_EQ(confetti.cellCornerRadius, 2);
  EXPECT_EQ(confetti.cellBirthRate, 8);
  EXPECT_EQ(confetti.lifetime, 5);
  EXPECT_EQ(confetti.velocity, 160);
  EXPECT_EQ(confetti.velocityRange, 60);
  EXPECT_EQ(confetti.emissionLongitude, std::numbers::pi);
  EXPECT_EQ(confetti.emissionRange, 0.6);
  EXPECT_EQ(confetti.spin, 4);
  EXPECT_EQ(confetti.spinRange, 6);
  EXPECT_EQ(confetti.scale, 0.5);
  EXPECT_EQ(confetti.scaleRange, 0.25);
  EXPECT_EQ(confetti.yAcceleration, 60);
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
  EXPECT_EQ(onboarding().animGen(), 2);
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
  auto mail = sim::findNode(window().content, [](const sim::SimNode& n) { return n.view.frame == Rect{60, 150, 400, 132}; });
  ASSERT_TRUE(mail);
  EXPECT_EQ(mail->view.background, Color::white(1));
  EXPECT_EQ(mail->view.cornerRadius, 12);
  EXPECT_EQ(mail->view.borderColor, DA::border);
  EXPECT_EQ(mail->view.shadow, (Shadow{Color::rgb(0, 0, 0), 0.1, 14, {0, -6}}));
  ASSERT_EQ(mail->children.size(), 5u);
  EXPECT_EQ(mail->children[0]->view.frame, (Rect{12, 112, 10, 10}));
  EXPECT_EQ(mail->children[0]->view.background, Color::rgb(1, 0.37, 0.34));
  EXPECT_EQ(mail->children[1]->view.background, Color::rgb(1, 0.74, 0.18));
  EXPECT_EQ(mail->children[2]->view.frame, (Rect{44, 112, 10, 10}));
  EXPECT_EQ(mail->children[2]->view.background, Color::rgb(0.16, 0.78, 0.25));
  EXPECT_EQ(mail->children[3]->view.frame.origin(), (Point{64, 110}));
  EXPECT_EQ(mail->children[3]->view.font, (Font{10.5, FontWeight::medium}));
  const View& text = mail->children[4]->view;
  EXPECT_EQ(text.kind, ViewKind::richText);
  EXPECT_EQ(text.frame, (Rect{6, 8, 388, 96}));
  EXPECT_EQ(text.textInset, (Size{10, 8}));
  EXPECT_FALSE(text.background);

  const View& card = miniCard().view;
  EXPECT_EQ(card.background, DA::card);
  EXPECT_EQ(card.cornerRadius, 9);
  EXPECT_EQ(card.borderWidth, 0.5);
  EXPECT_EQ(card.shadow->opacity, 0.18);
  EXPECT_EQ(card.shadow->radius, 10);
  const View& fix = view("Corriger");
  EXPECT_EQ(fix.frame.origin(), (Point{14, 9}));
  EXPECT_EQ(fix.font, (Font{12, FontWeight::semibold}));
  EXPECT_EQ(fix.textColor, DA::green);
  EXPECT_EQ(view("Reformuler").frame.origin(), (Point{94, 9}));
  EXPECT_EQ(view("Reformuler").textColor, DA::ink);

  // "Passer": an unfilled muted button, 6 characters at 12.5 pt grown by 18 × 10.
  const View& skip = view("Passer");
  EXPECT_EQ(skip.frame, (Rect{(520 - 60.0) / 2, 60, 60, 26}));
  EXPECT_EQ(skip.textColor, DA::muted);
  EXPECT_FALSE(skip.background);
}

TEST_F(Demo, TheRecapListsTheGesturesWithTheirTextsInOneColumn) {
  world.advance(4.9);
  ASSERT_TRUE(click("Suivant"));
  EXPECT_EQ(step(), "");
  EXPECT_TRUE(shows("Mirlo vit dans ta barre de menus (le M en haut à droite)."));
  auto panel = sim::findNode(window().content, [](const sim::SimNode& n) { return n.view.frame == Rect{70, 108, 380, 158}; });
  ASSERT_TRUE(panel);
  EXPECT_EQ(panel->view.cornerRadius, 14);
  EXPECT_EQ(panel->view.borderWidth, 1);
  std::vector<std::string> shown;
  for (const auto& child : panel->children) shown.push_back(child->view.text);
  EXPECT_EQ(shown, (std::vector<std::string>{"Souris", "sélectionne → la carte apparaît",
                                             "⌘", "A", "maintenu 1 s → la carte apparaît",
                                             "⌘", "⇧", "A", "corriger la sélection",
                                             "⌘", "⇧", "C", "reformuler la sélection",
                                             "⌘", "Z", "revenir au texte d'origine"}));
  // "Souris" in 11.5 pt is 38 wide, so its cap is 52; one-character caps are 21, 5 apart.
  const auto& souris = panel->children[0]->view;
  EXPECT_EQ(souris.frame, (Rect{16, 126, 52, 22}));
  EXPECT_EQ(souris.font, (Font{11.5, FontWeight::bold, true}));
  EXPECT_EQ(souris.background, DA::hover);
  EXPECT_EQ(souris.cornerRadius, 5);
  EXPECT_EQ(souris.borderColor, DA::border);
  EXPECT_EQ(souris.alignment, TextAlignment::center);
  EXPECT_EQ(panel->children[5]->view.frame, (Rect{16, 70, 21, 22}));
  EXPECT_EQ(panel->children[6]->view.frame, (Rect{42, 70, 21, 22}));
  EXPECT_EQ(panel->children[7]->view.frame, (Rect{68, 70, 21, 22}));
  for (std::size_t i : {1u, 4u, 8u, 12u, 15u}) {
    EXPECT_EQ(panel->children[i]->view.frame.x, 128) << panel->children[i]->view.text;
    EXPECT_EQ(panel->children[i]->view.textColor, DA::ink2);
  }
  EXPECT_EQ(panel->children[8]->view.frame.y, 73);
  const View& done = view("Terminer");
  EXPECT_EQ(done.frame, (Rect{(520 - 98.0) / 2, 52, 98, 34}));
}

}  // namespace
}  // namespace mirlo::testing
