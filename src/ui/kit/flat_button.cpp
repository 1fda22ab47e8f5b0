#include "ui/kit/flat_button.h"

#include "ui/kit/palette.h"
#include "ui/kit/views.h"

namespace mirlo {

namespace {
constexpr Color kWhite = Color::white(1.0);
}  // namespace

FlatButton::FlatButton(UI& ui, const std::string& title, Color color, bool bold, bool filled)
    : onClick_(std::make_shared<std::function<void()>>()) {
  View& v = view_;
  v.kind = ViewKind::flatButton;
  v.frame = {};
  v.text = title;
  v.wantsLayer = true;
  v.cornerRadius = filled ? 10 : 7;
  v.font = Font{filled ? 14.0 : 12.5, bold ? FontWeight::semibold : FontWeight::medium, false};
  if (filled) {
    v.background = DA::ink;
    v.textColor = kWhite;
  } else {
    v.textColor = color;
    v.background.reset();
  }
  // The click: the closure is shared with `setOnClick`, and called on a copy so that it stays
  // alive while it runs even if it replaces itself or tears the surface down.
  v.action = [onClick = onClick_] {
    if (!*onClick) return;
    auto keep = *onClick;
    keep();
  };
  v.acceptsFirstMouse = true;
  v.trackingAreaOptions = kTrackingOptions;
  v.slot = std::make_shared<ViewSlot>();
  std::weak_ptr<ViewSlot> slot = v.slot;
  v.onMouseEntered = [slot] {
    if (auto s = slot.lock(); s && s->live) mouseEntered(*s->live);
  };
  v.onMouseExited = [slot] {
    if (auto s = slot.lock(); s && s->live) mouseExited(*s->live);
  };

  v = kit::sizedToFit(ui, std::move(v));
  v.frame.width += filled ? 36 : 18;
  v.frame.height += filled ? 16 : 10;
}

void FlatButton::mouseEntered(LiveView& button) {
  if (button.background() == std::optional<Color>(DA::ink)) return;
  button.setBackground(DA::hover);
}

void FlatButton::mouseExited(LiveView& button) {
  if (button.textColor() == std::optional<Color>(kWhite)) return;
  button.setBackground(std::nullopt);
}

}  // namespace mirlo
