// The session: what survives a restart, what the menu shows, and when the change is announced.
#include <gtest/gtest.h>

#include <algorithm>

#include "account/keychain.h"
#include "base/json.h"
#include "support/sim_app.h"

namespace mirlo {
namespace {

using testing::accessTokenFor;
using testing::SimWorld;

constexpr const char* kService = "io.mirlo.app.session";

long changes(SimWorld& w) {
  const auto& posted = w.app->notifications().posted();
  return std::count(posted.begin(), posted.end(), std::string(Auth::changed));
}

// A new application on the same desktop, as after quitting and starting again.
std::unique_ptr<App> restart(SimWorld& w) {
  w.app.reset();
  return std::make_unique<App>(w.desk.platform(), testing::testConfig());
}

TEST(AuthSession, TokensSurviveARestartWithoutAnnouncement) {
  SimWorld w;
  w.signIn("Lea@Example.FR", "refresh-1");
  auto stored = parseJson(w.desk.secrets.items.at(kService));
  ASSERT_TRUE(stored);
  EXPECT_EQ(*stored, (Json{{"access", accessTokenFor("Lea@Example.FR")}, {"refresh", "refresh-1"}}));

  w.app = restart(w);
  Auth& auth = w.app->auth();
  EXPECT_TRUE(auth.isSignedIn());
  EXPECT_EQ(auth.email(), "lea@example.fr");
  EXPECT_EQ(auth.refreshToken(), "refresh-1");
  EXPECT_EQ(changes(w), 0);
  // Plan and quota are not kept across launches.
  EXPECT_EQ(auth.planLabel(), "Gratuit");
  EXPECT_EQ(auth.quotaUsed(), -1);
}

TEST(AuthSession, CorruptOrForeignItemsLoadAsSignedOutAndAreLeftAlone) {
  const std::string cases[] = {
      "",
      "not json",
      "[\"access\",\"refresh\"]",
      "\"a string\"",
      R"({"access":"a","refresh":42})",
      R"({"access":"a","refresh":"r","expires":3600})",
      R"({"access":"a"})",
      R"({"access":"a","refresh":""})",
      std::string("{\"access\":\"a\",\"refresh\":\"\xff\"}"),
  };
  for (const auto& item : cases) {
    SimWorld w;
    w.desk.secrets.items[kService] = item;
    EXPECT_FALSE(w.app->auth().isSignedIn()) << item;
    EXPECT_EQ(w.desk.secrets.items.at(kService), item) << "loading must not destroy what is there";
  }
}

TEST(AuthSession, ARefreshTokenAloneSignsInEvenWithoutAReadableAccessToken) {
  for (const std::string item : {R"({"refresh":"r-9","access":"","note":"kept"})", R"({"access":"opaque-token","refresh":"r"})"}) {
    SimWorld w;
    w.desk.secrets.items[kService] = item;
    EXPECT_TRUE(w.app->auth().isSignedIn()) << item;
    EXPECT_EQ(w.app->auth().email(), "") << item;
  }
}

// The plan labels are read where the user sees them: the menu and the settings window.
TEST(AuthSession, SignOutForgetsEverythingButTheLastAllowance) {
  SimWorld w;
  w.signIn();
  Auth& auth = w.app->auth();
  auth.setPlan("pro_annuel");
  auth.setQuotaUsed(12);
  auth.setQuotaLimit(100);
  auth.signOut();
  EXPECT_FALSE(auth.isSignedIn());
  EXPECT_EQ(auth.accessToken(), "");
  EXPECT_EQ(auth.email(), "");
  EXPECT_EQ(auth.planLabel(), "Gratuit");
  EXPECT_EQ(auth.quotaUsed(), -1);
  EXPECT_EQ(auth.quotaLimit(), 100);
  EXPECT_EQ(w.desk.secrets.items.count(kService), 0u);
  EXPECT_EQ(changes(w), 1);

  w.app = restart(w);
  EXPECT_FALSE(w.app->auth().isSignedIn());
}

TEST(AuthSession, ObserversSeeTheNewStateWhenTheChangeIsAnnounced) {
  SimWorld w;
  w.signIn();
  bool signedInWhenToldOfChange = true;
  w.app->notifications().observe(Auth::changed, [&] { signedInWhenToldOfChange = w.app->auth().isSignedIn(); });
  w.app->auth().signOut();
  EXPECT_FALSE(signedInWhenToldOfChange);
}

}  // namespace
}  // namespace mirlo
