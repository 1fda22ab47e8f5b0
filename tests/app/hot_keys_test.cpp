// Command+Shift+A and Command+Shift+C from any application. A second press during a correction is
// in the hot-key-twice scenario.
#include <gtest/gtest.h>

#include "app/shell_support.h"
#include "base/json.h"

namespace mirlo::testing {
namespace {

constexpr std::uint32_t kCmdShift = 0x0300;

struct HotKeyDay : ::testing::Test {
  void start() {
    world.signIn();
    world.desk.defaults.values["onboarded"] = true;
    launch(world);
    world.desk.launchApp(500, "com.apple.TextEdit", "je suis contant");
    world.desk.select(0, 15);
    world.advance(0);
  }
  std::size_t corrections() { return world.desk.http.requestCount("/functions/v1/correct"); }
  std::string lastMode() {
    auto body = parseJson(*world.desk.http.requests().back().body);
    return (*body)["mode"].get<std::string>();
  }
  SimWorld world;
};

TEST_F(HotKeyDay, BothShortcutsRunTheEngineWithTheirModeAfterTheEvent) {
  start();
  world.desk.http.setResponder([](const HttpRequest&) { return sim::SimAnswer::json(200, R"({"result":"je suis content"})", 1); });
  auto status = world.desk.hotKeys.press(0, kCmdShift);
  ASSERT_TRUE(status);
  EXPECT_EQ(*status, 0);
  EXPECT_EQ(corrections(), 0u);  // not inside the handler
  world.advance(0);
  EXPECT_EQ(corrections(), 1u);
  EXPECT_EQ(lastMode(), "fix");
  world.advance(2);
  EXPECT_EQ(world.desk.frontText(), "je suis content");

  world.desk.select(0, 15);
  world.desk.hotKeys.press(8, kCmdShift);
  world.advance(0);
  EXPECT_EQ(corrections(), 2u);
  EXPECT_EQ(lastMode(), "rephrase");
}

TEST_F(HotKeyDay, TheShortcutsFollowTheLayoutOrFallBackToTheUsPositions) {
  world.desk.keyboard.layout = sim::Layout::frenchAzerty;  // "a" is on key 12
  start();
  ASSERT_EQ(world.desk.hotKeys.registered.size(), 2u);
  EXPECT_EQ(world.desk.hotKeys.registered[0].keyCode, 12);
  EXPECT_EQ(world.desk.hotKeys.registered[1].keyCode, 8);

  SimWorld bare;
  bare.desk.keyboard.layout = sim::Layout::none;
  launch(bare);
  ASSERT_EQ(bare.desk.hotKeys.registered.size(), 2u);
  EXPECT_EQ(bare.desk.hotKeys.registered[0].keyCode, 0);
  EXPECT_EQ(bare.desk.hotKeys.registered[1].keyCode, 8);
  EXPECT_EQ(bare.desk.hotKeys.handlersInstalled, 1);
}

TEST_F(HotKeyDay, StrangeEventsAreHandledAndDoNothing) {
  start();
  EXPECT_EQ(world.desk.hotKeys.deliver(HotKeyID{AppDelegate::kHotKeySignature, 3}), 0);
  EXPECT_EQ(world.desk.hotKeys.deliver(std::nullopt), 0);
  EXPECT_EQ(world.desk.hotKeys.deliver(HotKeyID{0, 0}), 0);
  world.advance(1);
  EXPECT_EQ(corrections(), 0u);
  // The signature is not examined: id 2 under any signature rephrases.
  world.desk.hotKeys.deliver(HotKeyID{0x41424344, 2});
  world.advance(0);
  EXPECT_EQ(corrections(), 1u);
}

TEST_F(HotKeyDay, RefusedRegistrationsLeaveTheirKeysSilent) {
  world.desk.hotKeys.refuseRegistrations = true;
  start();
  ASSERT_EQ(world.app->delegate().hotKeyRefs().size(), 2u);
  EXPECT_EQ(world.app->delegate().hotKeyRefs()[0], nullptr);
  EXPECT_EQ(world.app->delegate().hotKeyRefs()[1], nullptr);
  EXPECT_FALSE(world.desk.hotKeys.press(0, kCmdShift));
}

}  // namespace
}  // namespace mirlo::testing
