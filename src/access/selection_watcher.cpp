#include "access/selection_watcher.h"

#include <algorithm>

#include "access/ax.h"
#include "account/auth.h"
#include "account/prefs.h"
#include "app/app.h"
#include "base/text.h"
#include "engine/engine.h"
#include "engine/key_map.h"
#include "platform/keyboard.h"
#include "ui/card/card.h"

namespace mirlo {

namespace {

// US-layout positions, used when the layout gives no key for the letter.
constexpr std::uint16_t kFallbackCodeA = 0;
constexpr std::uint16_t kFallbackCodeZ = 6;

constexpr double kCheckDelay = 0.05;      // lets the application finish updating its selection
constexpr double kFirstRetryDelay = 0.2;  // then 0.4 s: checks at about 0.05, 0.25 and 0.65 s
constexpr double kLastRetryDelay = 0.4;
constexpr double kHoldDuration = 1.0;     // Command+A held this long offers the card
constexpr int kRetries = 2;
constexpr std::size_t kMinimumCharacters = 2;

bool held(const InputEvent& event, std::uint64_t flag) { return (event.modifierFlags & flag) != 0; }

}  // namespace

SelectionWatcher::SelectionWatcher(App& app) : app_(app) {}

void SelectionWatcher::start() {
  KeyMap& keys = app_.keyMap();
  codeA_ = keys.keyCode("a").value_or(kFallbackCodeA);
  codeZ_ = keys.keyCode("z").value_or(kFallbackCodeZ);

  EventMonitor& events = app_.platform().events;
  auto soon = [this](const InputEvent&) { checkSoon(); };
  auto down = [this](const InputEvent& event) { keyDown(event); };
  auto up = [this](const InputEvent& event) { keyUp(event); };
  events.addGlobalMonitor(eventmask::leftMouseUp, life_.guard(soon));
  events.addLocalMonitor(eventmask::leftMouseUp, life_.guard(soon));
  events.addGlobalMonitor(eventmask::keyDown, life_.guard(down));
  events.addGlobalMonitor(eventmask::keyUp, life_.guard(up));
  events.addLocalMonitor(eventmask::keyDown, life_.guard(down));
  events.addLocalMonitor(eventmask::keyUp, life_.guard(up));
  // Only clicks and scrolling in other applications dismiss the offer; a click on the card
  // itself must reach its buttons.
  events.addGlobalMonitor(eventmask::leftMouseDown | eventmask::scrollWheel, life_.guard([this](const InputEvent&) {
    Card& card = app_.card();
    if (card.state() == Card::State::buttons) card.close();
  }));
}

void SelectionWatcher::keyDown(const InputEvent& event) {
  if (event.keyCode == keycode::escape) {
    // A running correction is not cancelled by Escape.
    Card& card = app_.card();
    const auto state = card.state();
    if (state == Card::State::buttons || state == Card::State::success || state == Card::State::error) card.close();
    return;
  }
  if (event.keyCode == codeZ_ && held(event, modifier::command) && !held(event, modifier::shift) && !event.isARepeat) {
    app_.engine().handleUndoKey();
    return;
  }
  if (event.keyCode == codeA_ && held(event, modifier::command) && !held(event, modifier::shift) &&
      !held(event, modifier::option) && !held(event, modifier::control) && !event.isARepeat) {
    // Auto-repeats are ignored, so holding the keys does not push the offer back.
    if (holdTimer_) holdTimer_->invalidate();
    holdTimer_ = app_.platform().mainQueue.scheduleTimer(kHoldDuration, false, life_.guard([this] { checkSoon(); }));
  }
}

void SelectionWatcher::keyUp(const InputEvent& event) {
  if (event.keyCode == codeA_) {
    if (holdTimer_) holdTimer_->invalidate();
    holdTimer_.reset();
  }
  // Shift and the arrows (or any key with Shift) may have changed the selection.
  if (held(event, modifier::shift)) checkSoon();
}

void SelectionWatcher::checkSoon() {
  app_.platform().mainQueue.postAfter(kCheckDelay, life_.guard([this] { check(kRetries); }));
}

void SelectionWatcher::check(int retriesLeft) {
  // Both are cheap and come before any request to another application.
  if (!app_.prefs().popupEnabled()) return;
  if (!app_.platform().accessibility.isProcessTrusted()) return;

  AX& ax = app_.ax();
  Card& card = app_.card();
  auto selection = ax.selection();
  if (!selection) {
    if (retriesLeft > 0) {
      // Some applications only build their accessibility tree when asked; ask each one once.
      auto front = app_.platform().workspace.frontmostApplication();
      if (front && axBoostedPids_.insert(front->pid).second) ax.enableInFrontmostApp();
      const double delay = retriesLeft == kRetries ? kFirstRetryDelay : kLastRetryDelay;
      app_.platform().mainQueue.postAfter(delay, life_.guard([this, retriesLeft] { check(retriesLeft - 1); }));
      return;
    }
    lastShown_.clear();
    if (card.state() == Card::State::buttons) card.close();
    return;
  }

  // A single letter, or a run of blanks, is not worth a correction.
  if (text::graphemeCount(text::trimWhitespace(selection->text)) < kMinimumCharacters) {
    lastShown_.clear();
    if (card.state() == Card::State::buttons) card.close();
    return;
  }
  // The card already offers this very selection: leave it where it is.
  if (card.state() == Card::State::buttons && card.hasPanel() && selection->text == lastShown_) return;
  lastShown_ = selection->text;

  // The card goes next to the selection's last character; when that cannot be measured, next to
  // the whole range. The range comes from another application: an absurd one measures nothing.
  const AXRange range = selection->range;
  std::optional<Rect> anchor;
  std::int64_t last = 0;
  if (range.length >= 2 && !__builtin_add_overflow(range.location, range.length - 1, &last))
    anchor = ax.boundsFor(selection->element, last, 1);
  if (!anchor) anchor = ax.boundsFor(selection->element, range.location, std::max<std::int64_t>(range.length, 1));

  if (app_.auth().isSignedIn()) card.showButtons(anchor);
  else card.showConnect(anchor);
}

}  // namespace mirlo
