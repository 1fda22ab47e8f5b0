#include "platform/linux/x_keyboard.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <gdk/gdk.h>

#include <vector>

#include "platform/linux/key_table.h"

namespace mirlo::linuxdesk {

namespace {

// The keys that produce each modifier the core can ask for, left side first.
struct ModifierKey {
  unsigned mask;
  std::uint16_t macKey;
  std::uint16_t rightKey;
};
constexpr ModifierKey kModifierKeys[] = {
    {ShiftMask, 56, 60}, {ControlMask, 55, 54}, {Mod1Mask, 58, 61}, {Mod4Mask, 59, 62}};

unsigned heldModifiers(Display* display) {
  XkbStateRec state{};
  if (XkbGetState(display, XkbUseCoreKbd, &state) != Success) return 0;
  return state.mods;
}

std::vector<unsigned> pressedKeysFor(Display* display, unsigned mask) {
  char keys[32] = {};
  XQueryKeymap(display, keys);
  std::vector<unsigned> pressed;
  XModifierKeymap* map = XGetModifierMapping(display);
  if (!map) return pressed;
  for (int index = 0; index < 8; ++index) {
    if (!(mask & (1u << index))) continue;
    for (int k = 0; k < map->max_keypermod; ++k) {
      unsigned code = map->modifiermap[index * map->max_keypermod + k];
      if (code && (keys[code / 8] & (1 << (code % 8)))) pressed.push_back(code);
    }
  }
  XFreeModifiermap(map);
  return pressed;
}

}  // namespace

XKeyboard::XKeyboard() : XKeyboard(nullptr) {}

XKeyboard::XKeyboard(std::shared_ptr<SyntheticKeys> ownKeys) : ownKeys_(std::move(ownKeys)) {
  int event = 0, error = 0, major = 0, minor = 0;
  if (!XTestQueryExtension(x_.display(), &event, &error, &major, &minor))
    throw NoDisplayError("the X server has no XTest extension");
}

bool XKeyboard::postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) {
  auto code = xKeyCodeFor(keyCode);
  if (!code) return false;
  Display* display = x_.display();
  const unsigned wanted = xStateFromMacFlags(flags);
  const unsigned held = heldModifiers(display) & (ShiftMask | ControlMask | Mod1Mask | Mod4Mask);

  // The event carries exactly the requested modifiers: press the missing ones, lift the extra
  // ones around it, then put the keyboard back as it was.
  std::vector<unsigned> pressed, lifted;
  for (const auto& modifierKey : kModifierKeys) {
    // A modifier key posted by itself is its own modifier: nothing to hold around it.
    if (xKeyCodeFor(modifierKey.macKey) == code || xKeyCodeFor(modifierKey.rightKey) == code) continue;
    if ((wanted & modifierKey.mask) && !(held & modifierKey.mask)) {
      if (auto modifierCode = xKeyCodeFor(modifierKey.macKey)) pressed.push_back(*modifierCode);
    } else if (!(wanted & modifierKey.mask) && (held & modifierKey.mask)) {
      for (unsigned held_code : pressedKeysFor(display, modifierKey.mask)) lifted.push_back(held_code);
    }
  }
  for (unsigned c : lifted) send(c, false);
  for (unsigned c : pressed) send(c, true);
  send(*code, keyDown);
  for (auto it = pressed.rbegin(); it != pressed.rend(); ++it) send(*it, false);
  for (unsigned c : lifted) send(c, true);
  XSync(display, False);
  return true;
}

void XKeyboard::send(unsigned code, bool down) {
  if (ownKeys_) ownKeys_->sent(code, down, g_get_monotonic_time());
  XTestFakeKeyEvent(x_.display(), code, down ? True : False, CurrentTime);
}

std::uint64_t XKeyboard::currentModifierFlags() { return macFlagsFromXState(heldModifiers(x_.display())); }

bool XKeyboard::hasLayoutData() {
  XkbDescPtr keyboard = XkbGetMap(x_.display(), XkbKeySymsMask, XkbUseCoreKbd);
  if (!keyboard) return false;
  XkbFreeKeyboard(keyboard, 0, True);
  return true;
}

std::optional<std::string> XKeyboard::translate(std::uint16_t keyCode) {
  auto code = xKeyCodeFor(keyCode);
  if (!code) return std::nullopt;
  XkbStateRec state{};
  if (XkbGetState(x_.display(), XkbUseCoreKbd, &state) != Success) return std::nullopt;
  KeySym keysym = XkbKeycodeToKeysym(x_.display(), static_cast<KeyCode>(*code), state.group, 0);
  if (keysym == NoSymbol) return std::nullopt;
  guint32 character = gdk_keyval_to_unicode(static_cast<guint>(keysym));
  if (character == 0) return std::nullopt;
  char utf8[8] = {};
  int length = g_unichar_to_utf8(character, utf8);
  return std::string(utf8, static_cast<std::size_t>(length));
}

}  // namespace mirlo::linuxdesk
