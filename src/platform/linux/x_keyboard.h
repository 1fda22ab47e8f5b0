// Keys through XTest, the modifier state and the layout through XKB.
#pragma once

#include <memory>

#include "platform/keyboard.h"
#include "platform/linux/synthetic_keys.h"
#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

class XKeyboard final : public Keyboard {
 public:
  XKeyboard();  // throws NoDisplayError; needs the XTest extension
  // Notes every event it sends in `ownKeys`, for the event monitor to recognise.
  explicit XKeyboard(std::shared_ptr<SyntheticKeys> ownKeys);
  bool postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) override;
  std::uint64_t currentModifierFlags() override;
  bool hasLayoutData() override;
  std::optional<std::string> translate(std::uint16_t keyCode) override;

 private:
  void send(unsigned code, bool down);

  XConnection x_;
  std::shared_ptr<SyntheticKeys> ownKeys_;
};

}  // namespace mirlo::linuxdesk
