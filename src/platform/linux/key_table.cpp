#include "platform/linux/key_table.h"

#include <X11/X.h>

#include <array>
#include <utility>

#include "platform/keyboard.h"

namespace mirlo::linuxdesk {

namespace {

constexpr unsigned kEvdevToX = 8;

// macOS virtual key code → Linux evdev code (linux/input-event-codes.h).
constexpr std::pair<std::uint16_t, unsigned> kKeys[] = {
    {0, 30},   {1, 31},   {2, 32},   {3, 33},   {4, 35},   {5, 34},   {6, 44},   {7, 45},   {8, 46},
    {9, 47},   {10, 86},  {11, 48},  {12, 16},  {13, 17},  {14, 18},  {15, 19},  {16, 21},  {17, 20},
    {18, 2},   {19, 3},   {20, 4},   {21, 5},   {22, 7},   {23, 6},   {24, 13},  {25, 10},  {26, 8},
    {27, 12},  {28, 9},   {29, 11},  {30, 27},  {31, 24},  {32, 22},  {33, 26},  {34, 23},  {35, 25},
    {36, 28},  {37, 38},  {38, 36},  {39, 40},  {40, 37},  {41, 39},  {42, 43},  {43, 51},  {44, 53},
    {45, 49},  {46, 50},  {47, 52},  {48, 15},  {49, 57},  {50, 41},  {51, 14},  {53, 1},
    {54, 97},    // right Command: right Control
    {55, 29},    // Command: left Control
    {56, 42},    // Shift
    {57, 58},    // Caps Lock
    {58, 56},    // Option: left Alt
    {59, 125},   // Control: left Super
    {60, 54},  {61, 100}, {62, 126},
    {64, 187}, {65, 83},  {67, 55},  {69, 78},  {71, 69},  {72, 115}, {73, 114}, {74, 113}, {75, 98},
    {76, 96},  {78, 74},  {79, 188}, {80, 189}, {81, 117}, {82, 82},  {83, 79},  {84, 80},  {85, 81},
    {86, 75},  {87, 76},  {88, 77},  {89, 71},  {90, 190}, {91, 72},  {92, 73},  {93, 124}, {94, 89},
    {95, 121}, {96, 63},  {97, 64},  {98, 65},  {99, 61},  {100, 66}, {101, 67}, {103, 87}, {105, 183},
    {106, 186}, {107, 184}, {109, 68}, {110, 127}, {111, 88}, {113, 185}, {114, 110}, {115, 102},
    {116, 104}, {117, 111}, {118, 62}, {119, 107}, {120, 60}, {121, 109}, {122, 59}, {123, 105},
    {124, 106}, {125, 108}, {126, 103},
    {102, 122}, {104, 123},  // the input-source keys: Hangeul and Hanja positions
};

}  // namespace

std::optional<unsigned> xKeyCodeFor(std::uint16_t macKeyCode) {
  for (const auto& [mac, evdev] : kKeys)
    if (mac == macKeyCode) return evdev + kEvdevToX;
  return std::nullopt;
}

std::optional<std::uint16_t> macKeyCodeFor(unsigned xKeyCode) {
  for (const auto& [mac, evdev] : kKeys)
    if (evdev + kEvdevToX == xKeyCode) return mac;
  return std::nullopt;
}

namespace {
constexpr std::uint64_t kCapsLock = 0x10000;
}

std::uint64_t macFlagsFromXState(unsigned state) {
  std::uint64_t flags = 0;
  if (state & ShiftMask) flags |= modifier::shift;
  if (state & ControlMask) flags |= modifier::command;
  if (state & Mod1Mask) flags |= modifier::option;
  if (state & Mod4Mask) flags |= modifier::control;
  if (state & LockMask) flags |= kCapsLock;
  return flags;
}

unsigned xStateFromMacFlags(std::uint64_t flags) {
  unsigned state = 0;
  if (flags & modifier::shift) state |= ShiftMask;
  if (flags & modifier::command) state |= ControlMask;
  if (flags & modifier::option) state |= Mod1Mask;
  if (flags & modifier::control) state |= Mod4Mask;
  return state;
}

}  // namespace mirlo::linuxdesk
