// Command+Z after a correction. The application in front receives the same keys (they are
// watched, not captured), so the engine waits a moment, looks at what the application's own undo
// did, and writes the original back only where the corrected text is still in place, or where
// that undo left the place of the original empty.
#include "access/ax.h"
#include "app/app.h"
#include "base/text.h"
#include "engine/engine.h"
#include "ui/card/card.h"

namespace mirlo {

namespace {
constexpr double kUndoWindow = 60;   // seconds during which a replacement can be undone
constexpr double kUndoDelay = 0.25;  // time for the application's own undo to act first

// `text` with `removed` taken out at the UTF-16 `location`; nothing when it is not there.
std::optional<std::string> without(const std::string& text, std::int64_t location, const std::string& removed) {
  auto at = text::utf8OffsetOfUtf16(text, location);
  if (!at || text.compare(*at, removed.size(), removed) != 0) return std::nullopt;
  return std::string(text).erase(*at, removed.size());
}
}  // namespace

void Engine::handleUndoKey() {
  if (!undoInfo_) return;
  if (app_.platform().mainQueue.now() - undoInfo_->at >= kUndoWindow) return;
  UndoInfo info = *undoInfo_;
  undoInfo_.reset();
  app_.platform().mainQueue.postAfter(kUndoDelay, life_.guard([this, info] { restore(info); }));
}

void Engine::restore(const UndoInfo& info) {
  AX& ax = app_.ax();
  if (info.element) {
    auto current = ax.textValue(info.element);
    if (current && current->find(info.corrected) != std::string::npos &&
        current->find(info.original) == std::string::npos) {
      ax.setSelectedRange(info.element, info.location, text::utf16Length(info.corrected));
      ax.setSelectedText(info.element, info.original);
    } else if (current && info.textAfter && current == without(*info.textAfter, info.location, info.corrected)) {
      // The application's undo took back the insertion of the correction but not the deletion
      // of the original before it (GTK records a replacement as two edits): the person would be
      // left with neither text.
      ax.setSelectedRange(info.element, info.location, 0);
      ax.setSelectedText(info.element, info.original);
    }
    ax.setSelectedRange(info.element, info.location, text::utf16Length(info.original));
  }
  auto selection = ax.selection();
  if (!selection || text::trimWhitespace(selection->text).empty()) return;
  // Offer the buttons again on what is selected now, so the user can try the other mode.
  auto anchor = ax.selectionRect(selection->element, selection->range);
  app_.card().showButtons(anchor);
}

}  // namespace mirlo
