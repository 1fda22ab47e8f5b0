#include "platform/sim/sim_devices.h"

#include <array>

namespace mirlo::sim {

namespace {

// What each virtual key types without modifiers on Apple's US and French (AZERTY) layouts, as the
// layout translation shows it for display. Key 10 is the key left of 1 on ISO keyboards and key 50
// the key left of Z.
using KeyTable = std::map<std::uint16_t, std::string>;

// Keys that type the same on both layouts: Return, Tab, Space, Delete, Escape, the keypad's
// operators and digits, and the navigation keys with their control characters.
void addCommonKeys(KeyTable& keys) {
  const KeyTable common = {
      {36, "\r"},   {48, "\t"},   {49, " "},     {51, "\x08"}, {53, "\x1b"}, {67, "*"},     {69, "+"},
      {71, "\x1b"}, {75, "/"},     {76, "\x03"}, {78, "-"},     {81, "="},     {82, "0"},     {83, "1"},
      {84, "2"},     {85, "3"},     {86, "4"},     {87, "5"},     {88, "6"},     {89, "7"},     {91, "8"},
      {92, "9"},     {114, "\x05"}, {115, "\x01"}, {116, "\x0b"}, {117, "\x7f"}, {119, "\x04"},
      {121, "\x0c"}, {123, "\x1c"}, {124, "\x1d"}, {125, "\x1f"}, {126, "\x1e"}};
  keys.insert(common.begin(), common.end());
}

KeyTable makeUs() {
  KeyTable keys = {
      {0, "a"},  {1, "s"},  {2, "d"},  {3, "f"},  {4, "h"},  {5, "g"},  {6, "z"},  {7, "x"},  {8, "c"},
      {9, "v"},  {10, "§"}, {11, "b"}, {12, "q"}, {13, "w"}, {14, "e"}, {15, "r"}, {16, "y"}, {17, "t"},
      {18, "1"}, {19, "2"}, {20, "3"}, {21, "4"}, {22, "6"}, {23, "5"}, {24, "="}, {25, "9"}, {26, "7"},
      {27, "-"}, {28, "8"}, {29, "0"}, {30, "]"}, {31, "o"}, {32, "u"}, {33, "["}, {34, "i"}, {35, "p"},
      {37, "l"}, {38, "j"}, {39, "'"}, {40, "k"}, {41, ";"}, {42, "\\"}, {43, ","}, {44, "/"},
      {45, "n"}, {46, "m"}, {47, "."}, {50, "`"}, {65, "."}};
  addCommonKeys(keys);
  return keys;
}

KeyTable makeFrench() {
  // The circumflex (33) and grave (42) keys are dead keys; for display they show their accent.
  KeyTable keys = {
      {0, "q"},  {1, "s"},  {2, "d"},  {3, "f"},  {4, "h"},  {5, "g"},  {6, "w"},  {7, "x"},  {8, "c"},
      {9, "v"},  {10, "@"}, {11, "b"}, {12, "a"}, {13, "z"}, {14, "e"}, {15, "r"}, {16, "y"}, {17, "t"},
      {18, "&"}, {19, "é"}, {20, "\""}, {21, "'"}, {22, "§"}, {23, "("}, {24, "-"}, {25, "ç"}, {26, "è"},
      {27, ")"}, {28, "!"}, {29, "à"}, {30, "$"}, {31, "o"}, {32, "u"}, {33, "^"}, {34, "i"}, {35, "p"},
      {37, "l"}, {38, "j"}, {39, "ù"}, {40, "k"}, {41, "m"}, {42, "`"}, {43, ";"}, {44, "="},
      {45, "n"}, {46, ","}, {47, ":"}, {50, "<"}, {65, ","}};
  addCommonKeys(keys);
  return keys;
}

const KeyTable& keysOf(Layout layout) {
  static const KeyTable us = makeUs();
  static const KeyTable french = makeFrench();
  static const KeyTable none;
  switch (layout) {
    case Layout::us: return us;
    case Layout::frenchAzerty: return french;
    case Layout::none: return none;
  }
  return none;
}

class SimHotKeyRef final : public HotKeyRef {};

class SimHotKeyEvent final : public HotKeyEvent {
 public:
  explicit SimHotKeyEvent(std::optional<HotKeyID> id) : id_(id) {}
  std::optional<HotKeyID> readID() const override { return id_; }

 private:
  std::optional<HotKeyID> id_;
};

}  // namespace

bool SimKeyboard::postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) {
  PostedKey key{keyCode, keyDown, flags, clock_.now()};
  posted.push_back(key);
  if (onPost) onPost(key);
  return true;
}

std::uint64_t SimKeyboard::currentModifierFlags() {
  if (releaseAt_ && clock_.now() >= *releaseAt_) heldFlags_ = 0;
  return heldFlags_;
}

std::optional<std::string> SimKeyboard::translate(std::uint16_t keyCode) {
  const auto& keys = keysOf(layout);
  auto it = keys.find(keyCode);
  if (it == keys.end()) return std::nullopt;
  return it->second;
}

std::optional<std::uint16_t> SimKeyboard::codeFor(const std::string& character) {
  for (const auto& [code, typed] : keysOf(layout))
    if (typed == character) return code;
  return std::nullopt;
}

void SimEventMonitor::deliver(const InputEvent& event, bool toThisApp) {
  const auto mask = maskOf(event.type);
  const auto count = monitors.size();
  for (std::size_t i = 0; i < count; ++i) {
    const auto& monitor = monitors[i];
    if (monitor.global != toThisApp && (monitor.mask & mask)) monitor.handler(event);
  }
}

std::shared_ptr<HotKeyRef> SimHotKeys::registerHotKey(std::uint16_t keyCode, std::uint32_t modifiers, HotKeyID id) {
  if (refuseRegistrations) return nullptr;
  registered.push_back({keyCode, modifiers, id});
  return std::make_shared<SimHotKeyRef>();
}

std::optional<std::int32_t> SimHotKeys::press(std::uint16_t keyCode, std::uint32_t modifiers) {
  for (const auto& r : registered)
    if (r.keyCode == keyCode && r.modifiers == modifiers) return deliver(r.id);
  return std::nullopt;
}

std::optional<std::int32_t> SimHotKeys::deliver(std::optional<HotKeyID> id) {
  if (!handler_) return std::nullopt;
  return handler_(SimHotKeyEvent(id));
}

std::optional<RunningApp> SimWorkspace::frontmostApplication() {
  if (!frontPid) return std::nullopt;
  for (const auto& app : running)
    if (app.pid == *frontPid) return app;
  return std::nullopt;
}

void SimWorkspace::activate(std::int32_t pid) {
  frontPid = pid;
  auto app = frontmostApplication();
  main_.post([this, app] {
    for (const auto& handler : handlers_) handler(app);
  });
}

void SimWorkspace::postBareActivation() {
  main_.post([this] {
    for (const auto& handler : handlers_) handler(std::nullopt);
  });
}

std::int32_t SimSecretStore::replaceItem(const std::string& service, const std::string& bytes) {
  if (locked) return kInteractionNotAllowed;
  if (refusesWrites) return kWriteFailed;
  items[service] = bytes;
  return 0;
}

std::int32_t SimSecretStore::deleteItems(const std::string& service) {
  if (locked) return kInteractionNotAllowed;
  if (refusesWrites) return kWriteFailed;
  return items.erase(service) ? 0 : kItemNotFound;
}

std::int32_t SimSecretStore::copyItem(const std::string& service, std::string& out) {
  if (locked) return kInteractionNotAllowed;
  auto it = items.find(service);
  if (it == items.end()) return kItemNotFound;
  out = it->second;
  return 0;
}

bool SimDefaults::boolForKey(const std::string& key) {
  auto it = values.find(key);
  if (it == values.end()) return false;
  // The platform's conversion: numbers are true when non-zero; strings beginning with Y, y, T, t
  // or a non-zero digit are true.
  return std::visit(
      [](const auto& v) -> bool {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) {
          if (v.empty()) return false;
          char c = v.front();
          return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
        } else {
          return v != 0;
        }
      },
      it->second);
}

std::optional<std::string> SimDefaults::stringForKey(const std::string& key) {
  auto it = values.find(key);
  if (it == values.end()) return std::nullopt;
  if (auto* s = std::get_if<std::string>(&it->second)) return *s;
  return std::nullopt;
}

}  // namespace mirlo::sim
