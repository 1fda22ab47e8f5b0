// Keys through XTest, the modifier state and the layout through XKB.
#pragma once

#include "platform/keyboard.h"
#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

class XKeyboard final : public Keyboard {
 public:
  XKeyboard();  // throws NoDisplayError; needs the XTest extension
  bool postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) override;
  std::uint64_t currentModifierFlags() override;
  bool hasLayoutData() override;
  std::optional<std::string> translate(std::uint16_t keyCode) override;

 private:
  XConnection x_;
};

}  // namespace mirlo::linuxdesk
