// The user's settings and the secret store as the rest of the program sees them.
#include <gtest/gtest.h>

#include <regex>

#include "account/keychain.h"
#include "support/sim_app.h"

namespace mirlo {
namespace {

using testing::SimWorld;

TEST(Prefs, ValuesOfTheWrongTypeAreConvertedNotTreatedAsAbsent) {
  SimWorld w;
  // A present value counts as whatever the boolean conversion gives, not as the default.
  w.desk.defaults.values["popupEnabled"] = std::string("no");
  EXPECT_FALSE(w.app->prefs().popupEnabled());
  w.desk.defaults.values["popupEnabled"] = std::int64_t{0};
  EXPECT_FALSE(w.app->prefs().popupEnabled());
  w.desk.defaults.values["onboarded"] = std::string("YES");
  EXPECT_TRUE(w.app->prefs().onboarded());
  // A device identifier stored as a number is not a string: a new one replaces it.
  w.desk.defaults.values["deviceId"] = std::int64_t{42};
  std::string id = w.app->prefs().deviceId();
  EXPECT_EQ(id.size(), 36u);
  EXPECT_EQ(w.desk.defaults.values.at("deviceId"), sim::SimDefaults::Value(id));
}

TEST(Prefs, DeviceIdIsCreatedOnFirstReadAsAnUpperCaseUuidAndNeverChanges) {
  SimWorld w;
  EXPECT_FALSE(w.desk.defaults.hasObject("deviceId"));
  const std::string first = w.app->prefs().deviceId();
  EXPECT_TRUE(std::regex_match(first, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
      << first;
  EXPECT_EQ(w.app->prefs().deviceId(), first);
  // Another launch on the same defaults finds the same identifier.
  App again(w.desk.platform(), testing::testConfig());
  EXPECT_EQ(again.prefs().deviceId(), first);
  // A second install gets another one.
  SimWorld other;
  EXPECT_NE(other.app->prefs().deviceId(), first);
}

TEST(Keychain, UnreadableItemsLoadAsNothingAndRefusedSavesKeepTheOldItem) {
  SimWorld w;
  w.desk.secrets.items["svc"] = std::string("\xff\xfe tokens", 9);  // not UTF-8
  EXPECT_EQ(w.app->keychain().load("svc"), "");
  w.desk.secrets.items["svc"] = "fine";
  w.desk.secrets.locked = true;
  EXPECT_EQ(w.app->keychain().load("svc"), "");
  EXPECT_FALSE(w.app->keychain().save("svc", "new"));
  w.desk.secrets.locked = false;
  EXPECT_EQ(w.app->keychain().load("svc"), "fine");
  // A full disk: the save says so, and what was stored is still there.
  w.desk.secrets.refusesWrites = true;
  EXPECT_FALSE(w.app->keychain().save("svc", "new"));
  EXPECT_FALSE(w.app->keychain().save("svc", ""));
  EXPECT_EQ(w.app->keychain().load("svc"), "fine");
}

}  // namespace
}  // namespace mirlo
