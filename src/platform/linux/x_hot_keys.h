// System-wide hot keys as key grabs on the root window: one grab per Caps Lock and Num Lock state,
// so the key works whatever the locks. A key another client holds fails to register.
//
// A hot key is reported when its key is let go, not when it goes down. While the key is down the
// grab holds the whole keyboard: the application in front has lost the focus to us (GTK and Qt
// tell their accessibility trees so) and a synthesised copy would come back to us instead of
// reaching it. Releasing the key ends the grab and gives everything back first.
#pragma once

#include <map>
#include <memory>
#include <optional>

#include "platform/hot_keys.h"
#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

class XHotKeys final : public HotKeys {
 public:
  XHotKeys();  // throws NoDisplayError
  ~XHotKeys() override;
  void installHandler(Handler handler) override;
  std::shared_ptr<HotKeyRef> registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers, HotKeyID id) override;

  struct Grab {
    unsigned keyCode;
    unsigned modifiers;
    HotKeyID id;
  };

 private:
  friend class XHotKeyRef;
  void handle(XEvent& event);
  void ungrab(unsigned keyCode, unsigned modifiers);

  XConnection x_;
  Handler handler_;
  std::map<int, Grab> grabs_;
  int next_ = 0;
  std::optional<Grab> pressed_;  // the hot key whose key is down
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace mirlo::linuxdesk
