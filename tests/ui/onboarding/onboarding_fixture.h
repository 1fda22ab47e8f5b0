// A first launch on the simulated desktop, and what the welcome window shows. Text measures 0.55 em
// per character and 1.25 em per line, so "mirlo" at 30 pt is 83 × 38.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "app/shell_support.h"
#include "base/json.h"
#include "ui/onboarding/onboarding.h"

namespace mirlo::testing {

inline constexpr const char* kWelcome = "Bienvenue dans Mirlo";
inline constexpr const char* kPasswordGrant = "grant_type=password";

struct OnboardingTest : ::testing::Test {
  SimWorld world;

  // Launches the program as a user in this situation would; the welcome window opens by itself
  // unless everything is done.
  void launchAs(bool signedIn, bool trusted, bool onboarded = false) {
    if (signedIn) world.signIn("lea@example.fr");
    world.desk.accessibility.trusted = trusted;
    world.desk.defaults.values["onboarded"] = onboarded;
    launch(world);
  }

  Onboarding& onboarding() { return world.app->onboarding(); }
  std::vector<std::string> lines() { return menuLines(*desk().ui.statusItem); }
  sim::SimDesktop& desk() { return world.desk; }

  // The welcome window, shown or not; fails the test when it was never made.
  sim::SimWindow& window() {
    for (const auto& w : desk().ui.windows)
      if (w->title == kWelcome) return *w;
    throw std::runtime_error("the welcome window was never made");
  }
  bool onScreen() { return desk().ui.window(kWelcome) != nullptr; }

  // The visible texts in the order they were added (hidden views and their children left out).
  std::vector<std::string> texts() {
    std::vector<std::string> out;
    collect(window().content, out);
    return out;
  }
  static void collect(const sim::SimNodes& nodes, std::vector<std::string>& out) {
    for (const auto& node : nodes) {
      if (node->view.hidden) continue;
      if (!node->view.text.empty()) out.push_back(node->view.text);
      collect(node->children, out);
    }
  }
  bool shows(const std::string& text) {
    for (const auto& t : texts())
      if (t == text) return true;
    return false;
  }
  // The step label on screen ("Étape 2 sur 3"), or nothing on a page without one.
  std::string step() {
    for (const auto& t : texts())
      if (t.rfind("Étape ", 0) == 0) return t;
    return {};
  }

  sim::SimNode& node(const std::string& text) {
    auto found = window().find(text);
    if (!found) throw std::runtime_error("nothing shows " + text);
    return *found;
  }
  const View& view(const std::string& text) { return node(text).view; }
  bool click(const std::string& text) {
    const bool acted = window().click(text);
    world.advance(0);
    return acted;
  }

  // Every node of a kind, depth first.
  std::vector<std::shared_ptr<sim::SimNode>> nodesOfKind(ViewKind kind) {
    std::vector<std::shared_ptr<sim::SimNode>> out;
    for (const auto& n : sim::allNodes(window().content))
      if (n->view.kind == kind) out.push_back(n);
    return out;
  }
  std::size_t count(const std::string& text) {
    std::size_t n = 0;
    for (const auto& node : sim::allNodes(window().content))
      if (node->view.text == text) ++n;
    return n;
  }

  // The demonstration's sentence as shown now.
  const RichText& sentence() {
    auto texts = nodesOfKind(ViewKind::richText);
    if (texts.size() != 1) throw std::runtime_error("no single demonstration text");
    return texts.front()->view.richText;
  }
  static std::string plain(const RichText& text) {
    std::string out;
    for (const auto& run : text.runs) out += run.text;
    return out;
  }
  sim::SimNode& miniCard() {
    auto found = sim::findNode(window().content, [](const sim::SimNode& n) {
      return n.view.kind == ViewKind::box && n.view.frame == Rect{174, 122, 172, 34};
    });
    if (!found) throw std::runtime_error("no card miniature");
    return *found;
  }

  // A password answer from the account service.
  void answerSignIn(const std::string& email, double delay = 0) {
    desk().http.enqueue(kPasswordGrant,
                        sim::SimAnswer::json(200,
                                             dumpJson(Json{{"access_token", accessTokenFor(email)},
                                                           {"refresh_token", "refresh-from-password"},
                                                           {"expires_in", 3600}}),
                                             delay));
  }
  void answerError(const std::string& fragment, const std::string& code, double delay = 0) {
    desk().http.enqueue(fragment, sim::SimAnswer::json(400, dumpJson(Json{{"error_code", code}}), delay));
  }
  // The body of the last request sent to an address containing `fragment`.
  Json lastBody(const std::string& fragment) {
    auto requests = desk().http.requests();
    for (auto it = requests.rbegin(); it != requests.rend(); ++it)
      if (it->url.find(fragment) != std::string::npos && it->body) return *parseJson(*it->body);
    throw std::runtime_error("no request to " + fragment);
  }
};

}  // namespace mirlo::testing
