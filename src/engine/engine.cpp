#include "engine/engine.h"

#include "access/ax.h"
#include "access/selection_watcher.h"
#include "account/auth.h"
#include "app/app.h"
#include "base/text.h"
#include "ui/card/card.h"
#include "ui/onboarding/onboarding.h"

namespace mirlo {

Engine::Engine(App& app) : app_(app) {}

std::string Engine::progressLabel(const std::string& mode) {
  return mode == "fix" ? "Correction…" : "Reformulation…";
}

void Engine::run(const std::string& mode) {
  if (busy_) return;
  if (!app_.platform().accessibility.isProcessTrusted() || !app_.auth().isSignedIn()) {
    app_.onboarding().show();
    return;
  }
  busy_ = true;
  app_.watcher().forget();

  auto selection = app_.ax().selection();
  if (!selection || text::trimWhitespace(selection->text).empty()) {
    copyFlow(mode);
    return;
  }
  app_.card().showProgress(progressLabel(mode));
  process(selection->text, mode, selection->element, selection->range.location);
}

void Engine::process(const std::string& text, const std::string& mode, AXElementRef element,
                     std::int64_t location) {
  MainQueue& main = app_.platform().mainQueue;
  request(text, mode, true, [this, &main, text, element, location](CorrectionResult result) mutable {
    main.post(life_.guard([this, result = std::move(result), text, element, location] {
      finish(result, text, element, location);
    }));
  });
}

void Engine::finish(const CorrectionResult& result, const std::string& original, const AXElementRef& element,
                    std::int64_t location) {
  if (const auto* answer = std::get_if<std::string>(&result)) {
    std::optional<std::string> textAfter;
    if (element) {
      if (app_.ax().setSelectedText(element, *answer)) {
        app_.ax().setSelectedRange(element, location, text::utf16Length(*answer));
        app_.watcher().forget();
        textAfter = app_.ax().textValue(element);
      } else {
        pasteReplace(*answer);
      }
    } else {
      pasteReplace(*answer);
    }
    undoInfo_ = UndoInfo{element, location, original, *answer, app_.platform().mainQueue.now(), textAfter};
    app_.card().close();
    app_.notifications().post(Engine::corrected);
  } else if (const auto* error = std::get_if<MirloError>(&result)) {
    if (error->code == "auth") app_.onboarding().show();
    app_.card().showError(error->message, error->upsell);
  } else {
    app_.card().showError(transportMessage(std::get<TransportError>(result)), false);
  }
  busy_ = false;
}

}  // namespace mirlo
