#include "account/auth.h"

#include "account/keychain.h"
#include "app/app.h"
#include "base/json.h"

namespace mirlo {

bool usableToken(std::string_view token) {
  constexpr std::size_t kLongestToken = 8192;  // what proxies commonly accept for one header line
  if (token.size() > kLongestToken) return false;
  for (unsigned char c : token)
    if (c <= 0x20 || c >= 0x7F) return false;
  return true;
}

Auth::Auth(App& app) : app_(app) { load(); }

std::string Auth::accessToken() const {
  std::lock_guard lock(mutex_);
  return accessToken_;
}
std::string Auth::refreshToken() const {
  std::lock_guard lock(mutex_);
  return refreshToken_;
}
std::string Auth::email() const {
  std::lock_guard lock(mutex_);
  return email_;
}
std::string Auth::plan() const {
  std::lock_guard lock(mutex_);
  return plan_;
}
std::int64_t Auth::quotaUsed() const {
  std::lock_guard lock(mutex_);
  return quotaUsed_;
}
std::int64_t Auth::quotaLimit() const {
  std::lock_guard lock(mutex_);
  return quotaLimit_;
}
void Auth::setPlan(const std::string& plan) {
  std::lock_guard lock(mutex_);
  plan_ = plan;
}
void Auth::setQuotaUsed(std::int64_t used) {
  std::lock_guard lock(mutex_);
  quotaUsed_ = used;
}
void Auth::setQuotaLimit(std::int64_t limit) {
  std::lock_guard lock(mutex_);
  quotaLimit_ = limit;
}

bool Auth::isSignedIn() const {
  std::lock_guard lock(mutex_);
  return !refreshToken_.empty();
}

std::string Auth::planLabel() const {
  const std::string current = plan();
  if (current == "pro_mensuel") return "Pro · Mensuel";
  if (current == "pro_annuel") return "Pro · Annuel";
  if (current == "lifetime") return "Lifetime";
  return "Gratuit";
}

void Auth::signOut() {
  {
    std::lock_guard lock(mutex_);
    accessToken_.clear();
    refreshToken_.clear();
    email_.clear();
    plan_.clear();
    quotaUsed_ = -1;
  }
  {
    std::lock_guard saving(persistMutex_);
    saved_ = app_.keychain().save(service_, "");
  }
  app_.notifications().post(changed);
}

void Auth::setTokens(const std::string& access, const std::string& refresh) {
  storeTokensAndPersist(access, refresh);
}

void Auth::load() {
  auto parsed = parseJson(app_.keychain().load(service_));
  if (!parsed || !parsed->is_object()) return;
  for (const auto& [key, value] : parsed->items())
    if (!value.is_string()) return;
  const std::string access = parsed->value("access", std::string());
  const std::string refresh = parsed->value("refresh", std::string());
  // Kept by an earlier version that stored whatever came: unusable tokens read as signed out.
  if (!usableToken(access) || !usableToken(refresh)) return;
  {
    std::lock_guard lock(mutex_);
    accessToken_ = access;
    refreshToken_ = refresh;
  }
  decodeEmail();
}

bool Auth::persist() {
  std::lock_guard saving(persistMutex_);
  Json object = Json::object();
  {
    std::lock_guard lock(mutex_);
    object["access"] = accessToken_;
    object["refresh"] = refreshToken_;
  }
  saved_ = app_.keychain().save(service_, dumpJson(object));
  return saved_;
}

bool Auth::storeTokensAndPersist(const std::string& access, const std::string& refresh) {
  {
    std::lock_guard lock(mutex_);
    accessToken_ = access;
    refreshToken_ = refresh;
  }
  decodeEmail();
  return persist();
}

}  // namespace mirlo
