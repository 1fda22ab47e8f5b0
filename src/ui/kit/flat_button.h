// The flat text button of every surface: no bezel, a tint for its title, an ink background when
// filled, a light hover background when not, and a closure for its action.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/ui.h"

namespace mirlo {

class FlatButton {
 public:
  // Tracking-area options: entered/exited, active always (hover works in a panel of an inactive
  // application).
  static constexpr std::uint32_t kTrackingOptions = 0x01 | 0x80;

  // A ready, sized button. Filled: 14 pt title on an ink background, white tint, corner radius
  // 10, grown by 36 × 16 after sizing to fit. Unfilled: 12.5 pt title in `color`, no background,
  // corner radius 7, grown by 18 × 10. `bold` picks semibold over medium.
  FlatButton(UI& ui, const std::string& title, Color color, bool bold, bool filled);

  // What a click does; none (the initial value) makes a click do nothing. Settable at any time,
  // also after the button is shown.
  void setOnClick(std::function<void()> onClick) { *onClick_ = std::move(onClick); }

  // The description to show; the frame's origin is (0, 0) until the caller places it.
  View& view() { return view_; }
  const View& view() const { return view_; }
  // The live handle once the platform has rendered the view.
  std::shared_ptr<LiveView> live() const { return view_.slot ? view_.slot->live : nullptr; }

  // The hover rules, on the rendered button. Entering recognises a filled button by its ink
  // background, leaving by its white tint: both leave a filled button unchanged.
  static void mouseEntered(LiveView& button);
  static void mouseExited(LiveView& button);

 private:
  View view_;
  std::shared_ptr<std::function<void()>> onClick_;
};

}  // namespace mirlo
