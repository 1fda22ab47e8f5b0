// Which key types a character on the user's keyboard: the hot keys and the watcher ask it.
#include <gtest/gtest.h>

#include "engine/key_map.h"
#include "support/sim_app.h"

namespace mirlo::testing {
namespace {

TEST(KeyMap, FollowsTheUsAndFrenchLayouts) {
  SimWorld world;
  auto& keys = world.app->keyMap();
  world.desk.keyboard.layout = sim::Layout::us;
  EXPECT_EQ(keys.keyCode("a"), 0);
  EXPECT_EQ(keys.keyCode("z"), 6);
  EXPECT_EQ(keys.keyCode("c"), 8);
  EXPECT_EQ(keys.keyCode("q"), 12);

  world.desk.keyboard.layout = sim::Layout::frenchAzerty;
  EXPECT_EQ(keys.keyCode("a"), 12);
  EXPECT_EQ(keys.keyCode("z"), 13);
  EXPECT_EQ(keys.keyCode("q"), 0);
  EXPECT_EQ(keys.keyCode("w"), 6);
  EXPECT_EQ(keys.keyCode("m"), 41);
  EXPECT_EQ(keys.keyCode("é"), 19);
  // A digit needs Shift on the main row: only the keypad types it.
  EXPECT_EQ(keys.keyCode("1"), 83);
}

TEST(KeyMap, FindsNothingForShiftedOrUnknownCharactersOrWithoutLayout) {
  SimWorld world;
  auto& keys = world.app->keyMap();
  EXPECT_EQ(keys.keyCode("A"), std::nullopt);
  EXPECT_EQ(keys.keyCode("€"), std::nullopt);
  EXPECT_EQ(keys.keyCode(""), std::nullopt);
  world.desk.keyboard.layout = sim::Layout::frenchAzerty;
  EXPECT_EQ(keys.keyCode("A"), std::nullopt);
  world.desk.keyboard.layout = sim::Layout::none;
  EXPECT_EQ(keys.keyCode("a"), std::nullopt);
}

}  // namespace
}  // namespace mirlo::testing
