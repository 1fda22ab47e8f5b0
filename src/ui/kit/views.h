// Small builders shared by every surface: labels and other views sized to fit their text. Sizes
// come from the platform's text measurement, so that all layout arithmetic stays here.
#pragma once

#include <functional>
#include <string>

#include "platform/ui.h"

namespace mirlo::kit {

// A non-editable label in the system font, at the origin, sized to fit its text.
View label(UI& ui, const std::string& text, Font font, Color color);

// `view` with its frame's size set to what its text needs; the origin is kept.
View sizedToFit(UI& ui, View view);

// A standard rounded push button at a fixed frame.
View pushButton(const std::string& title, Rect frame, std::function<void()> action);

// A plain layer-backed view filled with one colour (dividers, backgrounds).
View box(Rect frame, Color background);

// The origin y that centres something `height` high in a container `containerHeight` high.
inline double centredY(double containerHeight, double height) { return (containerHeight - height) / 2; }

// The right edge of a view.
inline double rightEdge(const View& view) { return view.frame.x + view.frame.width; }

}  // namespace mirlo::kit
