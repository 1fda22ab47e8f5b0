// The user's few persistent settings, in the defaults store, and the build's fixed service
// configuration.
#pragma once

#include <string>

#include "app/app.h"
#include "platform/defaults.h"

namespace mirlo {

class Prefs {
 public:
  Prefs(Defaults& defaults, const AppConfig& config);

  // On unless the user switched it off (the key never written reads as on).
  bool popupEnabled();
  void setPopupEnabled(bool enabled);

  bool onboarded();
  void setOnboarded(bool done);

  // Created on the first read, never changed afterwards: an upper-case UUID.
  std::string deviceId();

  const std::string& supabaseUrl() const { return supabaseUrl_; }
  const std::string& anonKey() const { return anonKey_; }
  const std::string& endpoint() const { return endpoint_; }
  const std::string& siteUrl() const { return siteUrl_; }

 private:
  Defaults& defaults_;
  std::string supabaseUrl_;
  std::string anonKey_;
  std::string endpoint_;
  std::string siteUrl_;
};

}  // namespace mirlo
