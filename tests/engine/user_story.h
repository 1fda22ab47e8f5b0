// Small steps shared by the stories of a user correcting text in another application.
#pragma once

#include <string>

#include "base/json.h"
#include "support/sim_app.h"

namespace mirlo::testing {

inline constexpr std::int32_t kMailPid = 501;

// The correction service will answer the next request with this text, `delay` seconds later.
inline void serviceAnswers(SimWorld& world, const std::string& corrected, double delay = 0) {
  world.desk.http.enqueue("/functions/v1/correct",
                          sim::SimAnswer::json(200, dumpJson(Json{{"result", corrected}}), delay));
}

// A signed-in user with a mail client in front holding `text`.
inline sim::SimApp& mailWith(SimWorld& world, const std::string& text) {
  world.signIn();
  auto& mail = world.desk.launchApp(kMailPid, "com.example.mail", text);
  world.advance();
  return mail;
}

// Whether the card on screen shows a view with exactly this text.
inline bool cardShows(SimWorld& world, const std::string& text) {
  auto panel = world.desk.ui.openPanel();
  if (!panel) return false;
  return sim::findNode(panel->views, [&](const sim::SimNode& node) { return node.view.text == text; }) != nullptr;
}

// The text that was sent to the correction service in the last request.
inline std::string lastSentText(SimWorld& world) {
  auto requests = world.desk.http.requests();
  if (requests.empty() || !requests.back().body) return {};
  auto body = parseJson(*requests.back().body);
  return body && body->contains("text") ? (*body)["text"].get<std::string>() : std::string();
}

}  // namespace mirlo::testing
