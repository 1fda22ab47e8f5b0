// The settings window opened from the menu: the account as it is at opening, signing in and out,
// the card preference agreeing with the menu, the shortcuts and the dashboard link.
#include <gtest/gtest.h>

#include "account/auth.h"
#include "account/prefs.h"
#include "app/shell_support.h"
#include "ui/settings/settings_window.h"

namespace mirlo::testing {
namespace {

constexpr const char* kTitle = "Réglages Mirlo";
constexpr const char* kPopup = "Carte sur ⌘A maintenu (1 seconde)";

struct Settings : ::testing::Test {
  SimWorld world;

  void launchAs(bool signedIn) {
    if (signedIn) world.signIn("lea@example.fr");
    world.desk.defaults.values["onboarded"] = true;
    launch(world);
  }
  void open() {
    const MenuItem* item = menuItem(*world.desk.ui.statusItem, "Réglages…");
    ASSERT_NE(item, nullptr);
    item->action();
    world.advance(0);
  }
  sim::SimWindow& window() {
    for (const auto& w : world.desk.ui.windows)
      if (w->title == kTitle) return *w;
    throw std::runtime_error("no settings window");
  }
  bool onScreen() { return world.desk.ui.window(kTitle) != nullptr; }
  const View& view(const std::string& text) {
    auto node = window().find(text);
    if (!node) throw std::runtime_error("nothing shows " + text);
    return node->view;
  }
  std::string accountLine() {
    auto node = sim::findNode(window().content, [](const sim::SimNode& n) { return n.view.frame == Rect{24, 186, 280, 18}; });
    return node ? node->view.text : "(none)";
  }
  bool click(const std::string& text) {
    const bool acted = window().click(text);
    world.advance(0);
    return acted;
  }
  const MenuItem* popupItem() { return menuItem(*world.desk.ui.statusItem, "Popup à la sélection"); }
};

TEST_F(Settings, SignedOutItShowsNoAccountAndOffersTheBrowserSignIn) {
  launchAs(false);
  open();
  ASSERT_TRUE(onScreen());
  EXPECT_EQ(window().frame().size(), (Size{420, 250}));
  EXPECT_EQ(accountLine(), "Non connecté");

  ASSERT_TRUE(click("Se connecter"));
  ASSERT_FALSE(world.desk.workspace.openedURLs.empty());
  EXPECT_EQ(world.desk.workspace.openedURLs.back(), world.app->auth().signInURL());
  EXPECT_TRUE(onScreen());
  EXPECT_EQ(accountLine(), "Non connecté");
}

TEST_F(Settings, SignedInItShowsTheAddressPlanPreferenceAndShortcuts) {
  launchAs(true);
  world.app->auth().setPlan("lifetime");
  world.app->auth().setQuotaUsed(2);
  open();
  EXPECT_EQ(accountLine(), "lea@example.fr · Lifetime");  // no quota here

  std::vector<std::string> texts;
  for (const auto& node : sim::allNodes(window().content))
    if (!node->view.text.empty()) texts.push_back(node->view.text);
  EXPECT_EQ(texts, (std::vector<std::string>{
                       "COMPTE", "lea@example.fr · Lifetime", "Se déconnecter", kPopup,
                       "Raccourcis :\n⌘⇧A corriger la sélection\n⌘⇧C reformuler la sélection\n⌘Z annuler le "
                       "dernier remplacement",
                       "Ouvrir mon dashboard"}));
  EXPECT_TRUE(view(kPopup).checked);
  ASSERT_TRUE(click("Ouvrir mon dashboard"));
  EXPECT_EQ(world.desk.workspace.openedURLs.back(), "https://mirlo.test/compte.html");
}

TEST_F(Settings, OnALinuxDesktopTheShortcutsNameThePCKeys) {
  world.desk.appInfo.system = HostSystem::linuxDesktop;
  launchAs(true);
  open();
  const View& popup = view("Carte sur Ctrl+A maintenu (1 seconde)");
  EXPECT_EQ(popup.kind, ViewKind::checkBox);
  EXPECT_TRUE(popup.checked);
  EXPECT_NE(window().find("Raccourcis :\nCtrl+Maj+A corriger la sélection\nCtrl+Maj+C reformuler la sélection\n"
                          "Ctrl+Z annuler le dernier remplacement"),
            nullptr);
  // The box still switches the card off, under its Linux name.
  ASSERT_TRUE(click("Carte sur Ctrl+A maintenu (1 seconde)"));
  EXPECT_FALSE(world.app->prefs().popupEnabled());
}

TEST_F(Settings, OpeningTwiceKeepsOneWindowWhereTheUserPutItWithFreshContent) {
  launchAs(false);
  open();
  auto& first = window();
  EXPECT_EQ(first.centerCount, 1);
  first.moveTo({40, 500});
  first.close();

  // Signed in in the browser meanwhile: the window does not follow, the next opening does.
  world.app->delegate().handleURLEvent(signInCallback("lea@example.fr"));
  world.advance(0);
  EXPECT_EQ(accountLine(), "Non connecté");
  open();
  std::size_t made = 0;
  for (const auto& w : world.desk.ui.windows) made += w->title == kTitle;
  EXPECT_EQ(made, 1u);
  EXPECT_EQ(&window(), &first);
  EXPECT_EQ(first.centerCount, 1);
  EXPECT_EQ(first.frame().origin(), (Point{40, 500}));
  EXPECT_TRUE(onScreen());
  EXPECT_EQ(first.title, kTitle);
  EXPECT_EQ(accountLine(), "lea@example.fr · Gratuit");
  EXPECT_NE(first.find("Se déconnecter"), nullptr);
  EXPECT_EQ(first.find("Se connecter"), nullptr);
}

TEST_F(Settings, SigningOutClosesTheWindowAndBringsUpTheSignIn) {
  launchAs(true);
  open();
  ASSERT_TRUE(click("Se déconnecter"));
  EXPECT_FALSE(onScreen());
  EXPECT_FALSE(world.app->auth().isSignedIn());
  EXPECT_EQ(world.app->auth().email(), "");
  EXPECT_TRUE(world.desk.secrets.items.empty());
  auto welcome = world.desk.ui.window("Bienvenue dans Mirlo");
  ASSERT_NE(welcome, nullptr);
  EXPECT_NE(welcome->find("Étape 1 sur 3"), nullptr);
  EXPECT_EQ(menuLines(*world.desk.ui.statusItem).front(), "Se connecter…");
}

TEST_F(Settings, TheCheckBoxAndTheMenuAgree) {
  launchAs(true);
  open();
  ASSERT_TRUE(popupItem()->checked);
  ASSERT_TRUE(click(kPopup));
  EXPECT_FALSE(view(kPopup).checked);
  EXPECT_FALSE(world.app->prefs().popupEnabled());
  EXPECT_FALSE(popupItem()->checked);

  ASSERT_TRUE(click(kPopup));
  EXPECT_TRUE(world.app->prefs().popupEnabled());
  EXPECT_TRUE(popupItem()->checked);

  // Switched off from the menu, the next opening shows the box unticked.
  popupItem()->action();
  open();
  EXPECT_FALSE(view(kPopup).checked);
}

}  // namespace
}  // namespace mirlo::testing
