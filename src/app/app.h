// The application object: owns one instance of each subsystem and reaches the platform. The
// subsystems find each other through it. A test builds a fresh one on the simulated desktop and
// throws it away.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "base/notifications.h"
#include "platform/platform.h"

namespace mirlo {

class AppDelegate;
class Auth;
class AX;
class Card;
class Engine;
class Keychain;
class KeyMap;
class Onboarding;
class Prefs;
class SelectionWatcher;
class SettingsWindow;

// The service addresses and key, fixed per build (see config.h); tests pass their own.
struct AppConfig {
  std::string supabaseUrl;
  std::string anonKey;
  std::string siteUrl;

  static AppConfig fromBuild();
};

class App {
 public:
  App(Platform platform, AppConfig config);
  ~App();
  App(const App&) = delete;
  App& operator=(const App&) = delete;

  Platform& platform() { return platform_; }
  const AppConfig& config() const { return config_; }
  NotificationCenter& notifications() { return notifications_; }

  Prefs& prefs() { return *prefs_; }
  Keychain& keychain() { return *keychain_; }
  AX& ax() { return *ax_; }
  KeyMap& keyMap() { return *keyMap_; }
  Engine& engine() { return *engine_; }
  Card& card() { return *card_; }
  SelectionWatcher& watcher() { return *watcher_; }
  Onboarding& onboarding() { return *onboarding_; }
  SettingsWindow& settings() { return *settings_; }
  AppDelegate& delegate() { return *delegate_; }

  // The session, created and loaded from the keychain on first use.
  Auth& auth();

  // The application delegate once launch has completed; nothing before.
  AppDelegate* launchedDelegate();

 private:
  Platform platform_;
  AppConfig config_;
  NotificationCenter notifications_;
  std::unique_ptr<Prefs> prefs_;
  std::unique_ptr<Keychain> keychain_;
  std::once_flag authOnce_;
  std::unique_ptr<Auth> auth_;
  std::unique_ptr<AX> ax_;
  std::unique_ptr<KeyMap> keyMap_;
  std::unique_ptr<Card> card_;
  std::unique_ptr<SelectionWatcher> watcher_;
  std::unique_ptr<Onboarding> onboarding_;
  std::unique_ptr<SettingsWindow> settings_;
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<AppDelegate> delegate_;
};

}  // namespace mirlo
