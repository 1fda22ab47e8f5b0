#include "platform/mac/mac_platform.h"

#include "platform/curl/curl_http_client.h"
#include "platform/mac/mac_accessibility.h"
#include "platform/mac/mac_app_info.h"
#include "platform/mac/mac_clipboard.h"
#include "platform/mac/mac_defaults.h"
#include "platform/mac/mac_event_monitor.h"
#include "platform/mac/mac_hot_keys.h"
#include "platform/mac/mac_keyboard.h"
#include "platform/mac/mac_main_queue.h"
#include "platform/mac/mac_screens.h"
#include "platform/mac/mac_secret_store.h"
#include "platform/mac/mac_ui.h"
#include "platform/mac/mac_workspace.h"

namespace mirlo::mac {

MacPlatform::MacPlatform()
    : mainQueue_(makeMainQueue()),
      http_(std::make_unique<CurlHttpClient>()),
      accessibility_(makeAccessibility()),
      keyboard_(makeKeyboard()),
      clipboard_(makeClipboard()),
      events_(makeEventMonitor()),
      hotKeys_(makeHotKeys()),
      workspace_(makeWorkspace()),
      screens_(makeScreens()),
      secrets_(makeSecretStore()),
      defaults_(makeDefaults()),
      appInfo_(makeAppInfo()),
      ui_(makeUI(*mainQueue_)) {}

MacPlatform::~MacPlatform() = default;

Platform MacPlatform::platform() {
  return Platform{*mainQueue_, *http_,     *accessibility_, *keyboard_, *clipboard_, *events_, *hotKeys_,
                  *workspace_, *screens_,  *secrets_,       *defaults_, *appInfo_,   *ui_};
}

}  // namespace mirlo::mac
