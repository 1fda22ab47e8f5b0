#include "app/app.h"

#include "access/ax.h"
#include "access/selection_watcher.h"
#include "account/auth.h"
#include "account/keychain.h"
#include "account/prefs.h"
#include "app/app_delegate.h"
#include "engine/engine.h"
#include "engine/key_map.h"
#include "mirlo/config.h"
#include "ui/card/card.h"
#include "ui/onboarding/onboarding.h"
#include "ui/settings/settings_window.h"

namespace mirlo {

AppConfig AppConfig::fromBuild() { return {config::kSupabaseUrl, config::kAnonKey, config::kSiteUrl}; }

App::App(Platform platform, AppConfig config) : platform_(platform), config_(std::move(config)) {
  prefs_ = std::make_unique<Prefs>(platform_.defaults, config_);
  keychain_ = std::make_unique<Keychain>(platform_.secrets);
  ax_ = std::make_unique<AX>(platform_);
  keyMap_ = std::make_unique<KeyMap>(platform_.keyboard);
  card_ = std::make_unique<Card>(*this);
  watcher_ = std::make_unique<SelectionWatcher>(*this);
  onboarding_ = std::make_unique<Onboarding>(*this);
  settings_ = std::make_unique<SettingsWindow>(*this);
  engine_ = std::make_unique<Engine>(*this);
  delegate_ = std::make_unique<AppDelegate>(*this);
}

App::~App() = default;

Auth& App::auth() {
  std::call_once(authOnce_, [this] { auth_ = std::make_unique<Auth>(*this); });
  return *auth_;
}

AppDelegate* App::launchedDelegate() { return delegate_->hasLaunched() ? delegate_.get() : nullptr; }

}  // namespace mirlo
