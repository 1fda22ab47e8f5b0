// A fresh application on the simulated desktop (one 1440 × 900 screen, visible frame 1440 × 875,
// pointer at 720, 450), with shortcuts to the card and what its panel shows. Text measures 0.55 em
// per character and 1.25 em per line, so "Corriger" at 12.5 pt is 55 × 16 and its button 73 × 26.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/sim_app.h"
#include "ui/card/card.h"

namespace mirlo::testing {

struct CardTest : ::testing::Test {
  SimWorld world;

  Card& card() { return world.app->card(); }
  sim::SimDesktop& desk() { return world.desk; }
  // The panel on screen; fails the test when there is none.
  sim::SimCardPanel& panel() {
    auto open = world.desk.ui.openPanel();
    if (!open) throw std::runtime_error("no card on screen");
    return *open;
  }
  bool onScreen() { return world.desk.ui.openPanel() != nullptr; }
  // The texts shown, in the order the views were added.
  std::vector<std::string> texts() {
    std::vector<std::string> out;
    for (const auto& node : sim::allNodes(panel().views))
      if (!node->view.text.empty()) out.push_back(node->view.text);
    return out;
  }
  const View& view(const std::string& text) {
    auto node = panel().find(text);
    if (!node) throw std::runtime_error("nothing shows " + text);
    return node->view;
  }
  // Lets a reused panel finish gliding, so that its new views are in.
  void settle() { world.advance(0.15); }
};

}  // namespace mirlo::testing
