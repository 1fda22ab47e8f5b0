// A fresh application on a fresh simulated desktop, with a signed-in user and the accessibility
// permission granted unless a test says otherwise.
#pragma once

#include <memory>
#include <string>

#include "access/selection_watcher.h"
#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "engine/engine.h"
#include "platform/sim/sim_desktop.h"
#include "platform/sim/sim_tokens.h"
#include "ui/card/card.h"

namespace mirlo::testing {

inline AppConfig testConfig() {
  return AppConfig{"https://project.supabase.test", "anon-key-for-tests", "https://mirlo.test"};
}

// An access token whose payload carries this e-mail claim.
using sim::accessTokenFor;

struct SimWorld {
  explicit SimWorld(AppConfig config = testConfig()) : app(std::make_unique<App>(desk.platform(), std::move(config))) {}

  void signIn(const std::string& email = "lea@example.fr", const std::string& refresh = "refresh-1") {
    app->auth().setTokens(accessTokenFor(email), refresh);
  }

  // Runs the main queue for `seconds` of virtual time.
  void advance(double seconds = 0) { desk.queue.advance(seconds); }

  sim::SimDesktop desk;
  std::unique_ptr<App> app;
};

}  // namespace mirlo::testing
