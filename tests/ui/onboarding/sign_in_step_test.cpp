// The sign-in page: what is refused before anything is sent, what is sent, the progress text and
// the account service's answers on the status line, and answers that come back too late.
#include "onboarding_fixture.h"

#include "account/auth.h"
#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

struct SignIn : OnboardingTest {
  void SetUp() override {
    launchAs(false, true);
    ASSERT_EQ(step(), "Étape 1 sur 3");
  }
  void enter(const std::string& email, const std::string& password) {
    ASSERT_TRUE(window().type("ton@exemple.fr", email));
    ASSERT_TRUE(window().type("mot de passe", password));
  }
  std::string status() { return statusNode().view.text; }
  sim::SimNode& statusNode() {
    auto found = sim::findNode(window().content, [](const sim::SimNode& n) {
      return n.view.kind == ViewKind::label && n.view.frame == Rect{40, 50, 440, 18};
    });
    if (!found) throw std::runtime_error("no status line");
    return *found;
  }
  std::string field(const std::string& placeholder) {
    auto found = sim::findNode(window().content,
                               [&](const sim::SimNode& n) { return n.view.placeholder == placeholder; });
    return found ? found->view.text : "(none)";
  }
  std::size_t sent() { return desk().http.requestCount("/auth/v1/"); }
};

TEST_F(SignIn, ThePageOffersGoogleThenAnEmailAndPassword) {
  EXPECT_EQ(texts(), (std::vector<std::string>{
                         "mirlo", "Étape 1 sur 3", "Connecte-toi pour commencer",
                         "Ton compte porte ton plan et te suit sur tous tes Mac.\nGratuit : 3 corrections par jour, "
                         "sans carte bancaire.",
                         "Continuer avec Google", "— ou par email —", "Se connecter", "Créer un compte"}));
  EXPECT_EQ(field("mot de passe"), "");
  EXPECT_EQ(view("Se connecter").keyEquivalent, "\r");  // Return signs in
  EXPECT_EQ(view("Créer un compte").keyEquivalent, "");
  EXPECT_EQ(status(), "");
}

TEST_F(SignIn, GoogleOpensTheBrowserWhateverTheFieldsHold) {
  enter("pas une adresse", "1");
  ASSERT_TRUE(click("Continuer avec Google"));
  ASSERT_EQ(desk().workspace.openedURLs.size(), 1u);
  EXPECT_EQ(desk().workspace.openedURLs[0], world.app->auth().signInURL());
  EXPECT_EQ(status(), "");
  EXPECT_EQ(sent(), 0u);
}

TEST_F(SignIn, AnAddressNeedsAnAtSignAndAFullStopAnywhere) {
  for (const std::string bad : {"lea.example.fr", "lea@examplefr", "", "   ", "lea@\n"}) {
    enter(bad, "motdepasse");
    click("Se connecter");
    EXPECT_EQ(status(), "Entre un email valide") << bad;
  }
  // Both characters anywhere, in any order, are enough.
  answerError(kPasswordGrant, "invalid_credentials");
  enter(".lea@", "motdepasse");
  click("Se connecter");
  EXPECT_EQ(status(), "Email ou mot de passe incorrect");
  EXPECT_EQ(sent(), 1u);
}

TEST_F(SignIn, APasswordNeedsEightCharactersCountedAsTheUserSeesThem) {
  enter("lea@example.fr", "1234567");
  click("Créer un compte");
  EXPECT_EQ(status(), "Mot de passe : 8 caractères minimum");
  enter("lea@example.fr", "ééééééé");  // seven letters, fourteen bytes
  click("Se connecter");
  EXPECT_EQ(status(), "Mot de passe : 8 caractères minimum");
  EXPECT_EQ(sent(), 0u);
  // The address is checked first.
  enter("lea", "1");
  click("Se connecter");
  EXPECT_EQ(status(), "Entre un email valide");

  answerError(kPasswordGrant, "invalid_credentials", 1);
  enter("lea@example.fr", "éééééééé");
  click("Se connecter");
  EXPECT_EQ(status(), "Connexion…");
  EXPECT_EQ(lastBody(kPasswordGrant)["password"], "éééééééé");
}

TEST_F(SignIn, TheAddressIsSentTrimmedOfSpacesAndTabsAndInLowerCaseThePasswordAsTyped) {
  answerError(kPasswordGrant, "invalid_credentials");
  enter(" \t Léa.Martin@Example.FR\t ", "  secret 12");
  click("Se connecter");
  Json body = lastBody(kPasswordGrant);
  EXPECT_EQ(body["email"], "léa.martin@example.fr");
  EXPECT_EQ(body["password"], "  secret 12");

  // Line breaks are not trimmed away.
  answerError(kPasswordGrant, "invalid_credentials");
  enter("lea@example.fr\n", "motdepasse");
  click("Se connecter");
  EXPECT_EQ(lastBody(kPasswordGrant)["email"], "lea@example.fr\n");
}

TEST_F(SignIn, AWrongPasswordThenTheRightOneMovesOnToThePermission) {
  world.desk.accessibility.trusted = false;
  answerError(kPasswordGrant, "invalid_credentials", 0.5);
  enter("lea@example.fr", "mauvais-mot");
  click("Se connecter");
  EXPECT_EQ(status(), "Connexion…");
  world.advance(0.5);
  EXPECT_EQ(status(), "Email ou mot de passe incorrect");
  // The fields keep what was typed.
  EXPECT_EQ(field("ton@exemple.fr"), "lea@example.fr");
  EXPECT_EQ(field("mot de passe"), "mauvais-mot");
  EXPECT_EQ(step(), "Étape 1 sur 3");

  answerSignIn("lea@example.fr", 0.5);
  enter("lea@example.fr", "bon-mot-de-passe");
  click("Se connecter");
  EXPECT_EQ(status(), "Connexion…");
  world.advance(0.5);
  EXPECT_EQ(step(), "Étape 2 sur 3");
  EXPECT_EQ(world.app->auth().email(), "lea@example.fr");
}

TEST_F(SignIn, CreatingAnAccountShowsItsOwnProgressAndTheServiceAnswers) {
  desk().http.enqueue("/auth/v1/signup", sim::SimAnswer::json(422, dumpJson(Json{{"error_code", "user_already_exists"}}), 1));
  enter("lea@example.fr", "motdepasse");
  click("Créer un compte");
  EXPECT_EQ(status(), "Création du compte…");
  world.advance(1);
  EXPECT_EQ(status(), "Ce compte existe déjà : utilise Se connecter");

  desk().http.enqueue("/auth/v1/signup", sim::SimAnswer::failure(TransportFailure::refused, sim::SimHttp::kCannotConnect));
  click("Créer un compte");
  EXPECT_EQ(status(), "Connexion impossible, vérifie ton réseau");

  desk().http.enqueue("/auth/v1/signup", sim::SimAnswer::json(400, dumpJson(Json{{"msg", "Adresse refusée"}})));
  click("Créer un compte");
  EXPECT_EQ(status(), "Adresse refusée");
  EXPECT_EQ(lastBody("/auth/v1/signup")["email"], "lea@example.fr");
}

TEST_F(SignIn, AnAnswerArrivingAfterThePageWasLeftChangesNothingOnScreen) {
  world.desk.accessibility.trusted = false;
  answerError(kPasswordGrant, "invalid_credentials", 2);
  enter("lea@example.fr", "motdepasse");
  click("Se connecter");
  // Meanwhile the browser sign-in completes: the window moves on to the permission step.
  world.app->delegate().handleURLEvent(signInCallback("lea@example.fr"));
  world.advance(0);
  ASSERT_EQ(step(), "Étape 2 sur 3");
  const auto before = texts();
  world.advance(2);
  EXPECT_EQ(texts(), before);

  // The same after the window was closed.
  world.app->auth().signOut();
  answerError(kPasswordGrant, "invalid_credentials", 2);
  enter("lea@example.fr", "motdepasse");
  click("Se connecter");
  window().close();
  world.advance(2);
  EXPECT_FALSE(onScreen());
  EXPECT_EQ(status(), "Email ou mot de passe incorrect");  // the hidden page's own line, nothing else
}

}  // namespace
}  // namespace mirlo::testing
