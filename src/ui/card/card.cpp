// A first card: the states, the generation counter and one panel showing the text. Placement,
// animations and the designed contents come with the visual kit.
#include "ui/card/card.h"

#include <stdexcept>

#include "access/selection_watcher.h"
#include "app/app.h"

namespace mirlo {

namespace {
View textLabel(const std::string& text) {
  View label;
  label.kind = ViewKind::label;
  label.text = text;
  label.frame = {12, 8, 0, 0};
  return label;
}
}  // namespace

Card::Card(App& app) : app_(app) {}

void Card::showButtons(std::optional<Rect> anchor) {
  anchor_ = anchor;
  present({textLabel("Corriger"), textLabel("Reformuler")}, {180, 40}, true, 3.0, State::buttons);
}

void Card::showConnect(std::optional<Rect> anchor) {
  anchor_ = anchor;
  present({textLabel("Se connecter à Mirlo")}, {180, 40}, true, 3.0, State::buttons);
}

void Card::showProgress(const std::string& text) {
  present({textLabel(text)}, {180, 40}, false, std::nullopt, State::progress);
}

void Card::showNotice(const std::string& text) {
  anchor_.reset();
  present({textLabel(text)}, {180, 40}, false, 3.5, State::success);
}

void Card::showSuccess(const std::string& text, std::function<void()> /*undo*/) {
  present({textLabel(text)}, {180, 40}, true, 4.0, State::success);
}

void Card::showError(const std::string& message, bool upsell) {
  present({textLabel(message)}, {180, 40}, upsell, upsell ? 8.0 : 3.0, State::error);
}

void Card::present(std::vector<View> views, Size size, bool clickable, std::optional<double> autoClose,
                   State state) {
  if (__builtin_add_overflow(generation_, 1, &generation_)) throw std::overflow_error("card generation");
  const auto gen = generation_;
  state_ = state;
  if (!panel_) {
    CardPanelStyle style;
    style.contentRect = {0, 0, size.width, size.height};
    style.ignoresMouseEvents = !clickable;
    panel_ = app_.platform().ui.createCardPanel(style);
  }
  panel_->setIgnoresMouseEvents(!clickable);
  panel_->removeAllViews();
  panel_->setContentSize(size);
  panel_->addViews(std::move(views));
  panel_->orderFrontRegardless();
  if (autoClose) scheduleClose(gen, *autoClose);
}

void Card::scheduleClose(std::int64_t gen, double after) {
  app_.platform().mainQueue.postAfter(after, life_.guard([this, gen] {
    if (generation_ != gen || !panel_) return;
    close();
  }));
}

void Card::close() {
  if (__builtin_add_overflow(generation_, 1, &generation_)) throw std::overflow_error("card generation");
  state_ = State::idle;
  if (panel_) {
    panel_->close();
    panel_.reset();
  }
  anchor_.reset();
  app_.watcher().forget();
}

bool Card::isButtonsOpen() const { return state_ == State::buttons && panel_ != nullptr; }

void Card::dismissButtonsOnly() {
  if (state_ == State::buttons) close();
}

void Card::dismissByEscape() {
  if (state_ != State::idle && state_ != State::progress) close();
}

}  // namespace mirlo
