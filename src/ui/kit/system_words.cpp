#include "ui/kit/system_words.h"

#include "platform/keyboard.h"

namespace mirlo::words {

namespace {

struct KeyName {
  std::uint64_t flag;
  const char* mac;
  const char* pc;
};

// In the order a shortcut names them. A PC keyboard has Control where a Mac has Command, Alt for
// Option and the logo key (Super) for Control; "Maj" is the Shift key's name on French keyboards.
constexpr KeyName kModifiers[] = {
    {modifier::command, "⌘", "Ctrl"},
    {modifier::control, "⌃", "Super"},
    {modifier::option, "⌥", "Alt"},
    {modifier::shift, "⇧", "Maj"},
};

}  // namespace

std::vector<std::string> keyCaps(HostSystem system, std::uint64_t modifiers, const std::string& key) {
  std::vector<std::string> caps;
  for (const KeyName& name : kModifiers)
    if (modifiers & name.flag) caps.emplace_back(system == HostSystem::macOS ? name.mac : name.pc);
  caps.push_back(key);
  return caps;
}

std::string shortcut(HostSystem system, std::uint64_t modifiers, const std::string& key) {
  // Mac symbols run together ("⌘⇧A"); PC key names need a separator ("Ctrl+Maj+A").
  const std::string separator = system == HostSystem::macOS ? "" : "+";
  std::string text;
  for (const std::string& cap : keyCaps(system, modifiers, key)) {
    if (!text.empty()) text += separator;
    text += cap;
  }
  return text;
}

std::string accountPromise(HostSystem system) {
  const char* where = system == HostSystem::macOS ? "tous tes Mac" : "tous tes ordinateurs";
  return std::string("Ton compte porte ton plan et te suit sur ") + where +
         ".\nGratuit : 3 corrections par jour, sans carte bancaire.";
}

std::string permissionReason(HostSystem system) {
  const char* why = system == HostSystem::macOS ? "Permission macOS indispensable pour corriger le texte là où il est."
                                                : "Accessibilité requise pour corriger le texte là où il est.";
  return std::string(why) + "\nTes textes ne sont jamais stockés.";
}

std::string whereMirloLives(HostSystem system) {
  // Linux desktops put status icons in different corners; only the icon itself can be promised.
  if (system == HostSystem::macOS) return "Mirlo vit dans ta barre de menus (le M en haut à droite).";
  return "Mirlo vit dans la zone de notification de ton bureau (le M).";
}

}  // namespace mirlo::words
