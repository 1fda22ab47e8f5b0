// Every macOS adapter, made once for the life of the program.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace mirlo::mac {

class MacPlatform {
 public:
  MacPlatform();
  ~MacPlatform();
  MacPlatform(const MacPlatform&) = delete;
  MacPlatform& operator=(const MacPlatform&) = delete;

  Platform platform();

 private:
  std::unique_ptr<MainQueue> mainQueue_;
  std::unique_ptr<HttpClient> http_;
  std::unique_ptr<Accessibility> accessibility_;
  std::unique_ptr<Keyboard> keyboard_;
  std::unique_ptr<Clipboard> clipboard_;
  std::unique_ptr<EventMonitor> events_;
  std::unique_ptr<HotKeys> hotKeys_;
  std::unique_ptr<Workspace> workspace_;
  std::unique_ptr<Screens> screens_;
  std::unique_ptr<SecretStore> secrets_;
  std::unique_ptr<Defaults> defaults_;
  std::unique_ptr<AppInfo> appInfo_;
  std::unique_ptr<UI> ui_;
};

}  // namespace mirlo::mac
