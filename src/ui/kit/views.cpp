#include "ui/kit/views.h"

namespace mirlo::kit {

View sizedToFit(UI& ui, View view) {
  const Size fit = ui.sizeToFit(view);
  view.frame.width = fit.width;
  view.frame.height = fit.height;
  return view;
}

View label(UI& ui, const std::string& text, Font font, Color color) {
  View view;
  view.kind = ViewKind::label;
  view.text = text;
  view.font = font;
  view.textColor = color;
  return sizedToFit(ui, std::move(view));
}

View pushButton(const std::string& title, Rect frame, std::function<void()> action) {
  View view;
  view.kind = ViewKind::pushButton;
  view.text = title;
  view.frame = frame;
  view.action = std::move(action);
  return view;
}

View box(Rect frame, Color background) {
  View view;
  view.kind = ViewKind::box;
  view.frame = frame;
  view.wantsLayer = true;
  view.background = background;
  return view;
}

}  // namespace mirlo::kit
