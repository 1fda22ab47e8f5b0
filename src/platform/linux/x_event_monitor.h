// The user's mouse and keys as XInput 2 raw events on the root window: seen whatever window has
// the focus, and nothing is grabbed. Events while one of this program's own windows is active go
// to the local monitors, the others to the global ones.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <vector>

#include "platform/event_monitor.h"
#include "platform/linux/synthetic_keys.h"
#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

class XEventMonitor final : public EventMonitor {
 public:
  XEventMonitor();  // throws NoDisplayError; needs XInput 2
  // Key events noted in `ownKeys` (this program's keyboard sent them) reach no monitor.
  explicit XEventMonitor(std::shared_ptr<SyntheticKeys> ownKeys);
  void addGlobalMonitor(std::uint64_t mask, Handler handler) override;
  void addLocalMonitor(std::uint64_t mask, Handler handler) override;

  // The code delivered for a key without a macOS equivalent.
  static constexpr std::uint16_t kUnknownKey = 0xFFFF;

 private:
  struct Monitor {
    std::uint64_t mask;
    Handler handler;
  };
  void handle(XEvent& event);
  void deliver(const InputEvent& event);
  bool ownWindowActive();

  XConnection x_;
  int opcode_ = 0;
  std::set<unsigned> keysDown_;
  std::map<unsigned, unsigned> modifierOf_;  // key code → the modifier masks it sets
  std::vector<Monitor> global_, local_;
  std::shared_ptr<SyntheticKeys> ownKeys_;
};

}  // namespace mirlo::linuxdesk
