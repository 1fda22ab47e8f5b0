#include "account/prefs.h"

#include "base/uuid.h"

namespace mirlo {

namespace {
constexpr const char* kPopupEnabled = "popupEnabled";
constexpr const char* kOnboarded = "onboarded";
constexpr const char* kDeviceId = "deviceId";
}  // namespace

Prefs::Prefs(Defaults& defaults, const AppConfig& config)
    : defaults_(defaults),
      supabaseUrl_(config.supabaseUrl),
      anonKey_(config.anonKey),
      endpoint_(config.supabaseUrl + "/functions/v1/correct"),
      siteUrl_(config.siteUrl) {}

bool Prefs::popupEnabled() { return defaults_.hasObject(kPopupEnabled) ? defaults_.boolForKey(kPopupEnabled) : true; }

void Prefs::setPopupEnabled(bool enabled) { defaults_.setBool(kPopupEnabled, enabled); }

bool Prefs::onboarded() { return defaults_.boolForKey(kOnboarded); }

void Prefs::setOnboarded(bool done) { defaults_.setBool(kOnboarded, done); }

std::string Prefs::deviceId() {
  if (auto stored = defaults_.stringForKey(kDeviceId)) return *stored;
  std::string id = makeUuidString();
  defaults_.setString(kDeviceId, id);
  return id;
}

}  // namespace mirlo
