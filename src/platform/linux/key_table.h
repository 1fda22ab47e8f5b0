// Physical key positions: the macOS virtual key codes the core speaks, and the X key codes of the
// same keys on a PC keyboard (evdev code + 8). Roles follow the platform: the key that holds
// Control on Linux is the one the core calls Command, Alt is Option and Super is Control.
#pragma once

#include <cstdint>
#include <optional>

namespace mirlo::linuxdesk {

// Nothing for the macOS keys a PC keyboard lacks (fn, the input-source keys).
std::optional<unsigned> xKeyCodeFor(std::uint16_t macKeyCode);
std::optional<std::uint16_t> macKeyCodeFor(unsigned xKeyCode);

// X modifier masks (Shift, Control, Mod1…) to the core's modifier flags, and back.
std::uint64_t macFlagsFromXState(unsigned state);
unsigned xStateFromMacFlags(std::uint64_t flags);

}  // namespace mirlo::linuxdesk
