// Looking for a newer version on the product web site; the status menu offers it for download.
#include <variant>

#include "app/app.h"
#include "app/app_delegate.h"
#include "base/json.h"
#include "base/url.h"
#include "base/version.h"

namespace mirlo {

namespace {

// A manifest is a few dozen bytes; anything much larger is not one.
constexpr std::size_t kMaxManifestBytes = 64 * 1024;

// The manifest's "version" text, when the body is a JSON object that has one.
std::optional<std::string> manifestVersion(const std::string& body) {
  if (body.empty() || body.size() > kMaxManifestBytes) return std::nullopt;
  auto manifest = parseJson(body);
  if (!manifest || !manifest->is_object()) return std::nullopt;
  auto it = manifest->find("version");
  if (it == manifest->end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

}  // namespace

void AppDelegate::checkForUpdates() {
  HttpRequest request;
  request.method = "GET";
  request.url = app_.config().siteUrl + "/version.json";
  if (!url::parse(request.url)) return;
  request.timeoutSeconds = kUpdateCheckTimeout;
  request.cachePolicy = CachePolicy::reloadIgnoringLocalCacheData;

  // The completion runs on the network thread: it only reads, through the platform (which
  // outlives the application), and hands the result to the main queue, where the delegate may
  // already be gone.
  AppInfo& appInfo = app_.platform().appInfo;
  MainQueue& main = app_.platform().mainQueue;
  auto offer = life_.guard([this](const std::string& version) {
    updateVersion_ = version;
    rebuildMenu();
  });
  app_.platform().http.send(std::move(request), [&appInfo, &main, offer](HttpResult result) {
    const auto* response = std::get_if<HttpResponse>(&result);
    if (!response) return;
    auto remote = manifestVersion(response->body);
    if (!remote) return;
    const std::string running = appInfo.shortVersionString().value_or("0");
    if (compareVersions(*remote, running) <= 0) return;
    main.post([offer, version = *remote]() mutable { offer(version); });
  });
}

void AppDelegate::downloadUpdate() { app_.platform().workspace.openURL(app_.config().siteUrl + "/Mirlo.dmg"); }

}  // namespace mirlo
