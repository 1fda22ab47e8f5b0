// The palette shared by every surface the program draws itself. The same in light and dark
// appearance.
#pragma once

#include "platform/ui.h"

namespace mirlo::DA {

inline constexpr Color ink = Color::rgb(0.09, 0.086, 0.078);
inline constexpr Color ink2 = Color::rgb(0.29, 0.282, 0.267);
inline constexpr Color muted = Color::rgb(0.541, 0.529, 0.498);
inline constexpr Color green = Color::rgb(0.094, 0.627, 0.345);
inline constexpr Color red = Color::rgb(0.898, 0.282, 0.302);
inline constexpr Color card = Color::white(1.0, 0.98);
inline constexpr Color cream = Color::rgb(0.98, 0.976, 0.965);
inline constexpr Color hover = Color::rgb(0.949, 0.941, 0.918);
inline constexpr Color border = Color::white(0.0, 0.13);

}  // namespace mirlo::DA
