#include "platform/mac/mac_app_info.h"

#include "platform/mac/cf.h"

namespace mirlo::mac {

namespace {

class MacAppInfo final : public AppInfo {
 public:
  std::optional<std::string> shortVersionString() override {
    CFBundleRef bundle = CFBundleGetMainBundle();  // borrowed
    if (!bundle) return std::nullopt;
    // Borrowed from the bundle's information dictionary; of any type the file says.
    CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleShortVersionString"));
    if (!value || CFGetTypeID(value) != CFStringGetTypeID()) return std::nullopt;
    return toUTF8(static_cast<CFStringRef>(value));
  }

  HostSystem hostSystem() override { return HostSystem::macOS; }
};

}  // namespace

std::unique_ptr<AppInfo> makeAppInfo() { return std::make_unique<MacAppInfo>(); }

}  // namespace mirlo::mac
