// Reading and writing another application's text through accessibility, against the odd answers
// real applications give: nothing fails loudly, everything falls back quietly. A selection read in
// UTF-16 units is in correct_selection_test.cpp and the correct-through-accessibility scenario.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "access/ax.h"
#include "support/sim_app.h"

namespace mirlo::testing {
namespace {

class AXReading : public ::testing::Test {
 protected:
  AXReading() {
    auto& app = world.desk.launchApp(42, "com.example.notes", "Un 😀 texte");
    element = app.element;
    world.advance();
  }
  AX& ax() { return world.app->ax(); }

  SimWorld world;
  std::shared_ptr<sim::SimElement> element;
};

TEST_F(AXReading, NoSelectionForACaretAMissingElementOrTheWrongType) {
  world.desk.select(2, 0);
  EXPECT_FALSE(ax().selection());

  world.desk.select(0, 2);
  element->overrides[ax::kSelectedText] = AXRange{0, 2};
  EXPECT_FALSE(ax().selection());
  element->overrides.clear();

  world.desk.accessibility.focusedOverride = AXValue(std::string("not an element"));
  EXPECT_FALSE(ax().focusedElement());
  EXPECT_FALSE(ax().selection());
  world.desk.accessibility.focusedOverride.reset();

  world.desk.app(42)->exposesAccessibility = false;
  EXPECT_FALSE(ax().selection());
  world.desk.app(42)->exposesAccessibility = true;

  world.desk.accessibility.trusted = false;
  EXPECT_FALSE(ax().selection());
}

TEST_F(AXReading, UnreadableRangeFallsBackToTheWholeTextLength) {
  world.desk.select("😀 texte");
  element->exposesSelectedRange = false;
  EXPECT_EQ(ax().selection()->range, (AXRange{0, 8}));
  element->exposesSelectedRange = true;
  element->overrides[ax::kSelectedTextRange] = AXValue(Rect{1, 2, 3, 4});
  EXPECT_EQ(ax().selection()->range, (AXRange{0, 8}));
}

TEST_F(AXReading, ElementThatVanishesAfterTheFocusIsRead) {
  world.desk.select(0, 2);
  world.desk.accessibility.beforeCall = [this](const std::string& call) {
    if (call == "copy AXSelectedText") element->alive = false;
  };
  EXPECT_FALSE(ax().selection());
  EXPECT_FALSE(ax().textValue(element));
  EXPECT_FALSE(ax().setSelectedText(element, "x"));
  EXPECT_FALSE(ax().setSelectedRange(element, 0, 1));
  EXPECT_FALSE(ax().boundsFor(element, 0, 1));
  EXPECT_EQ(element->text, "Un 😀 texte");
}

TEST_F(AXReading, TextValue) {
  EXPECT_EQ(ax().textValue(element), "Un 😀 texte");
  element->setText("");
  EXPECT_EQ(ax().textValue(element), "");
  element->overrides[ax::kValue] = AXValue(true);
  EXPECT_FALSE(ax().textValue(element));
  EXPECT_FALSE(ax().textValue(nullptr));
}

// A text that is not settable is not even tried: see RefusedWrite in correct_selection_test.cpp.
TEST_F(AXReading, WritingTheTextAndTheRange) {
  world.desk.select(0, 2);
  EXPECT_TRUE(ax().setSelectedText(element, "Deux"));
  EXPECT_EQ(element->text, "Deux 😀 texte");

  EXPECT_TRUE(ax().setSelectedRange(element, 5, 2));
  EXPECT_EQ(element->selectedText(), "😀");
  // A range past the end, or splitting the emoji, is refused by the application.
  EXPECT_FALSE(ax().setSelectedRange(element, 5, 100));
  EXPECT_FALSE(ax().setSelectedRange(element, 6, 1));
  EXPECT_FALSE(ax().setSelectedRange(element, -1, 1));
}

TEST_F(AXReading, BoundsAreTurnedToBottomLeftScreenCoordinates) {
  element->bounds = [](AXRange) { return Rect{100, 200, 50, 20}; };
  EXPECT_EQ(ax().boundsFor(element, 0, 1), (Rect{100, 680, 50, 20}));
  // Against the first screen, even when another one is the main screen.
  world.desk.screens.list = {{{0, 0, 1000, 1200}, {0, 0, 1000, 1175}}, {{1000, 0, 800, 600}, {}}};
  world.desk.screens.mainIndex = 1;
  EXPECT_EQ(ax().boundsFor(element, 0, 1), (Rect{100, 980, 50, 20}));
  world.desk.screens.list.clear();
  EXPECT_EQ(ax().boundsFor(element, 0, 1), (Rect{100, -220, 50, 20}));
}

TEST_F(AXReading, BoundsThatCannotPlaceTheCardAreRefused) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::nan("");
  auto answer = [this](Rect r) {
    element->bounds = [r](AXRange) { return r; };
    return ax().boundsFor(element, 0, 1);
  };
  EXPECT_FALSE(answer({0, 0, inf, 10}));
  EXPECT_FALSE(answer({0, 0, 10, nan}));
  EXPECT_FALSE(answer({inf, 0, 10, 10}));
  EXPECT_FALSE(answer({0, 0, 0, 0}));
  EXPECT_FALSE(answer({0, 0, -3, 0}));
  EXPECT_TRUE(answer({0, 0, 0, 18}));  // a caret
  EXPECT_TRUE(answer({0, 0, 8, 0}));
  element->bounds = nullptr;
  element->overrides[ax::kBoundsForRange] = AXValue(AXRange{1, 1});
  EXPECT_FALSE(ax().boundsFor(element, 0, 1));
}

TEST_F(AXReading, SelectionRectMeasuresTheLastCharacterThenTheWholeRange) {
  std::vector<AXRange> asked;
  element->bounds = [&asked](AXRange r) -> std::optional<Rect> {
    asked.push_back(r);
    if (r.length == 1 && r.location == 9) return std::nullopt;  // this character has no bounds
    return Rect{10, 20, 8, 18};
  };
  EXPECT_TRUE(ax().selectionRect(element, {2, 4}));
  EXPECT_EQ(asked, (std::vector<AXRange>{{5, 1}}));

  asked.clear();
  EXPECT_TRUE(ax().selectionRect(element, {2, 8}));
  EXPECT_EQ(asked, (std::vector<AXRange>{{9, 1}, {2, 8}}));

  asked.clear();
  ax().selectionRect(element, {3, 1});
  ax().selectionRect(element, {4, 0});
  ax().selectionRect(element, {4, -7});
  EXPECT_EQ(asked, (std::vector<AXRange>{{3, 1}, {4, 1}, {4, 1}}));
}

TEST_F(AXReading, HugeAndNegativeRangesNeverStopTheProgram) {
  const auto big = std::numeric_limits<std::int64_t>::max();
  const auto small = std::numeric_limits<std::int64_t>::min();
  EXPECT_FALSE(ax().selectionRect(element, {big, big}));
  EXPECT_FALSE(ax().selectionRect(element, {big, 2}));
  EXPECT_FALSE(ax().selectionRect(element, {small, 5}));
  EXPECT_FALSE(ax().selectionRect(element, {-4, big}));
  EXPECT_FALSE(ax().boundsFor(element, small, small));
  EXPECT_FALSE(ax().setSelectedRange(element, big, big));
  // A range that starts in the text and runs past its end is measured up to the end.
  EXPECT_TRUE(ax().selectionRect(element, {3, big}));
}

TEST(AXArming, AsksTheFrontmostApplicationEachTime) {
  SimWorld world;
  world.app->ax().enableInFrontmostApp();  // nothing in front: nothing happens
  EXPECT_TRUE(world.desk.accessibility.applications.empty());

  world.desk.launchApp(77, "com.example.browser");
  world.app->ax().enableInFrontmostApp();
  world.app->ax().enableInFrontmostApp();
  auto app = world.desk.accessibility.applications.at(77);
  EXPECT_EQ(app->written.at(ax::kEnhancedUserInterface), AXValue(true));
  EXPECT_EQ(app->written.at(ax::kManualAccessibility), AXValue(true));
  EXPECT_EQ(world.desk.accessibility.callCount("set AXEnhancedUserInterface"), 2u);
  EXPECT_EQ(world.desk.accessibility.callCount("set AXManualAccessibility"), 2u);

  // The second attribute is set even when the first one is refused.
  world.desk.accessibility.beforeCall = [&](const std::string& call) {
    app->alive = call != "set AXEnhancedUserInterface";
  };
  app->written.clear();
  world.app->ax().enableInFrontmostApp();
  EXPECT_EQ(app->written.count(ax::kEnhancedUserInterface), 0u);
  EXPECT_EQ(app->written.count(ax::kManualAccessibility), 1u);
}

}  // namespace
}  // namespace mirlo::testing
