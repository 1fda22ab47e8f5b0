// Everything the core needs from the operating system, in one place. An application is built on
// one platform; the platform outlives it.
#pragma once

#include "platform/accessibility.h"
#include "platform/app_info.h"
#include "platform/clipboard.h"
#include "platform/defaults.h"
#include "platform/event_monitor.h"
#include "platform/hot_keys.h"
#include "platform/http.h"
#include "platform/keyboard.h"
#include "platform/main_queue.h"
#include "platform/screens.h"
#include "platform/secret_store.h"
#include "platform/ui.h"
#include "platform/workspace.h"

namespace mirlo {

struct Platform {
  MainQueue& mainQueue;
  HttpClient& http;
  Accessibility& accessibility;
  Keyboard& keyboard;
  Clipboard& clipboard;
  EventMonitor& events;
  HotKeys& hotKeys;
  Workspace& workspace;
  Screens& screens;
  SecretStore& secrets;
  Defaults& defaults;
  AppInfo& appInfo;
  UI& ui;
};

}  // namespace mirlo
