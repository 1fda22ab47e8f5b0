#include "app/app_delegate.h"

#include <stdexcept>

#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "engine/engine.h"
#include "ui/onboarding/onboarding.h"
#include "ui/settings/settings_window.h"

namespace mirlo {

AppDelegate::AppDelegate(App& app) : app_(app) {}

void AppDelegate::fixSelection() { app_.engine().run("fix"); }

void AppDelegate::rephraseSelection() { app_.engine().run("rephrase"); }
}  // namespace mirlo
