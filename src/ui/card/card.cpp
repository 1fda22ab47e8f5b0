// The card: placement next to the selection (or under the pointer), one panel reused so that a
// change of content moves and resizes instead of blinking, self-closing unless the pointer rests on
// it, and the six contents it can show.
#include "ui/card/card.h"

#include <cstdlib>

#include "access/selection_watcher.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "ui/kit/flat_button.h"
#include "ui/kit/palette.h"
#include "ui/kit/views.h"
#include "ui/onboarding/onboarding.h"

namespace mirlo {

namespace {

constexpr double kReuseAnimation = 0.14;
constexpr double kFadeIn = 0.12;
constexpr double kPointerMargin = 6;
constexpr double kRecheckAfter = 1.2;

// Every present and close moves the counter on; wrapping around would let a stale timer act on a
// newer card, so running out is fatal.
std::int64_t nextGeneration(std::int64_t generation) {
  std::int64_t next = 0;
  if (__builtin_add_overflow(generation, std::int64_t{1}, &next)) std::abort();
  return next;
}

// Whether a screen's frame holds any part of the anchor. A degenerate anchor (a caret, zero wide
// or high) still belongs to the screen it lies on.
bool overlaps(const Rect& screen, const Rect& a) {
  auto axis = [](double aMin, double aMax, double sMin, double sMax) {
    if (aMin == aMax) return aMin >= sMin && aMin < sMax;
    return aMin < sMax && sMin < aMax;
  };
  if (screen.width == 0 || screen.height == 0) return false;
  return axis(a.minX(), a.maxX(), screen.minX(), screen.maxX()) &&
         axis(a.minY(), a.maxY(), screen.minY(), screen.maxY());
}

std::shared_ptr<CardPanel> makeCardPanel(UI& ui, Size size, Point at, bool clickable) {
  CardPanelStyle style;
  style.contentRect = {at.x, at.y, size.width, size.height};
  style.nonActivating = true;
  style.ignoresMouseEvents = !clickable;
  style.level = 25;
  style.opaque = false;
  style.hasShadow = true;
  style.hidesOnDeactivate = false;
  style.background = DA::card;
  style.cornerRadius = 11;
  style.borderWidth = 0.5;
  style.borderColor = DA::border;
  return ui.createCardPanel(style);
}

constexpr Font kText{13, FontWeight::medium, false};
constexpr Font kMark{13, FontWeight::bold, false};

// Beyond this width a card's text goes on to further lines: a long message from the service (or a
// word with no space in it) would otherwise make a card wider than the screen.
constexpr double kMaxTextWidth = 420;

// A card's message: one line when it is short enough, else wrapped to the widest line allowed.
View cardText(UI& ui, const std::string& text, Font font, Color color) {
  View view = kit::label(ui, text, font, color);
  if (view.frame.width <= kMaxTextWidth) return view;
  view.wraps = true;
  view.frame.width = kMaxTextWidth;
  view.frame.height = ui.sizeToFit(view).height;
  return view;
}

// The card's buttons: unfilled flat buttons, so 12.5 pt in their tint.
FlatButton cardButton(UI& ui, const std::string& title, bool bold, Color tint, std::function<void()> onClick) {
  FlatButton button(ui, title, tint, bold, false);
  button.setOnClick(std::move(onClick));
  return button;
}

View placed(View view, double x, double y) {
  view.frame.x = x;
  view.frame.y = y;
  return view;
}

// Places a view at x, centred vertically in a card `height` high.
void placeCentred(View& view, double x, double height) {
  view.frame.x = x;
  view.frame.y = kit::centredY(height, view.frame.height);
}

}  // namespace

Card::Card(App& app) : app_(app) {
  app_.platform().screens.addChangeHandler(life_.guard([this] { screensChanged(); }));
}

// ---- Contents ----

void Card::showButtons(std::optional<Rect> anchor) {
  anchor_ = anchor;
  UI& ui = app_.platform().ui;
  auto fix = cardButton(ui, "Corriger", true, DA::green, life_.guard([this] { app_.delegate().fixSelection(); }));
  auto rephrase =
      cardButton(ui, "Reformuler", true, DA::ink, life_.guard([this] { app_.delegate().rephraseSelection(); }));
  const View& one = fix.view();
  const View& two = rephrase.view();
  const double h = std::max(one.frame.height, two.frame.height);
  View divider = kit::box({one.frame.width + 12, 9, 1, h - 6}, DA::border);
  const double twoX = kit::rightEdge(divider) + 6;
  const Size size{6 + one.frame.width + 6 + 1 + 6 + two.frame.width + 6, h + 12};
  std::vector<View> views;
  views.push_back(placed(one, 6, 6));
  views.push_back(std::move(divider));
  views.push_back(placed(two, twoX, 6));
  present(std::move(views), size, true, 3.0, State::buttons);
}

void Card::showConnect(std::optional<Rect> anchor) {
  anchor_ = anchor;
  UI& ui = app_.platform().ui;
  auto closeCard = life_.guard([this] { close(); });
  App& app = app_;
  auto connect = cardButton(ui, "Se connecter à Mirlo", true, DA::green, [closeCard, &app]() mutable {
    closeCard();
    app.onboarding().show();
  });
  const View& button = connect.view();
  const Size size{button.frame.width + 12, button.frame.height + 12};
  present({placed(button, 6, 6)}, size, true, 3.0, State::buttons);
}

void Card::showProgress(const std::string& text) {
  UI& ui = app_.platform().ui;
  View label = cardText(ui, text, kText, DA::ink2);
  View spinner;
  spinner.kind = ViewKind::spinner;
  spinner.frame = {0, 0, 16, 16};
  const double height = std::max(label.frame.height, 16.0) + 18;
  const double width = label.frame.width + 38 + 14;
  std::vector<View> views;
  views.push_back(placed(std::move(spinner), 14, kit::centredY(height, 16)));
  const double labelY = kit::centredY(height, label.frame.height);
  views.push_back(placed(std::move(label), 38, labelY));
  present(std::move(views), {width, height}, false, std::nullopt, State::progress);
}

void Card::showNotice(const std::string& text) {
  anchor_.reset();
  UI& ui = app_.platform().ui;
  View mark = kit::label(ui, "✓", kMark, DA::green);
  View body = cardText(ui, text, kText, DA::ink);
  const double height = body.frame.height + 18;
  const double width = mark.frame.width + 14 + 8 + body.frame.width + 14;
  placeCentred(mark, 14, height);
  placeCentred(body, kit::rightEdge(mark) + 8, height);
  present({std::move(mark), std::move(body)}, {width, height}, false, 3.5, State::success);
}

void Card::showSuccess(const std::string& text, std::function<void()> undo) {
  UI& ui = app_.platform().ui;
  View mark = kit::label(ui, "✓", kMark, DA::green);
  View body = cardText(ui, text, kText, DA::ink);
  // The card closes before the undo runs, so the undo's own feedback starts from a closed card.
  auto closeCard = life_.guard([this] { close(); });
  auto cancel = cardButton(ui, "Annuler", false, DA::muted, [closeCard, undo = std::move(undo)]() mutable {
    closeCard();
    if (undo) undo();
  });
  View button = cancel.view();
  const double height = std::max(body.frame.height, button.frame.height) + 14;
  const double width = 13 + mark.frame.width + 7 + body.frame.width + 7 + button.frame.width + 8;
  placeCentred(mark, 13, height);
  placeCentred(body, kit::rightEdge(mark) + 7, height);
  placeCentred(button, kit::rightEdge(body) + 7, height);
  present({std::move(mark), std::move(body), std::move(button)}, {width, height}, true, 4.0, State::success);
}

void Card::showError(const std::string& message, bool upsell) {
  UI& ui = app_.platform().ui;
  View mark = upsell ? kit::label(ui, "3/3", Font{12, FontWeight::bold, false}, DA::ink)
                     : kit::label(ui, "!", kMark, DA::red);
  View body = cardText(ui, message, kText, DA::ink);
  std::optional<View> button;
  if (upsell) {
    auto closeCard = life_.guard([this] { close(); });
    std::string site = app_.config().siteUrl;
    while (!site.empty() && site.back() == '/') site.pop_back();
    Workspace& workspace = app_.platform().workspace;
    auto pro = cardButton(ui, "Passer en Pro", true, DA::green,
                          [closeCard, &workspace, page = site + "/#acces"]() mutable {
                            closeCard();
                            workspace.openURL(page);
                          });
    button = pro.view();
  }
  const double buttonHeight = button ? button->frame.height : 0;
  const double height = std::max(body.frame.height, buttonHeight) + 14;
  const double width = button ? 13 + mark.frame.width + 7 + body.frame.width + 7 + button->frame.width + 8
                              : 13 + mark.frame.width + 7 + body.frame.width + 13;
  placeCentred(mark, 13, height);
  placeCentred(body, kit::rightEdge(mark) + 7, height);
  std::vector<View> views;
  const double buttonX = kit::rightEdge(body) + 7;
  views.push_back(std::move(mark));
  views.push_back(std::move(body));
  if (button) views.push_back(placed(std::move(*button), buttonX, kit::centredY(height, buttonHeight)));
  present(std::move(views), {width, height}, upsell, upsell ? 8.0 : 3.0, State::error);
}

// ---- The panel ----

Point Card::origin(Size size) {
  Screens& screens = app_.platform().screens;
  const double w = size.width, h = size.height;
  if (!anchor_) {
    // Centred on the pointer, its top edge 16 points below it; deliberately not kept on screen.
    const Point m = screens.mouseLocation();
    return {m.x - 0.5 * w, m.y - h - 16};
  }
  const Rect& a = *anchor_;
  // Hanging 8 points below the selection's end, its left edge 30 % of its width to the left.
  double x = a.maxX() - 0.3 * w;
  double y = a.minY() - h - 8;

  std::optional<Screen> chosen;
  for (const auto& screen : screens.screens()) {
    if (overlaps(screen.frame, a)) {
      chosen = screen;
      break;
    }
  }
  if (!chosen) chosen = screens.mainScreen();
  if (!chosen) return {x, y};

  const Rect& v = chosen->visibleFrame;
  // The right bound last: it wins when the card is wider than the screen.
  x = std::max(x, v.minX() + 8);
  x = std::min(x, v.maxX() - w - 8);
  // Reaching into the bottom margin: above the selection instead.
  if (y < v.minY() + 8) y = a.maxY() + 8;
  // No lower bound after this: a flipped card that does not fit above covers the selection.
  y = std::min(y, v.maxY() - h - 8);
  return {x, y};
}

void Card::present(std::vector<View> views, Size size, bool clickable, std::optional<double> autoClose,
                   State state) {
  generation_ = nextGeneration(generation_);
  const std::int64_t gen = generation_;
  state_ = state;
  const Point at = origin(size);

  if (panel_) {
    // Reused: the old views go at once, the panel glides to its new frame, and the new views
    // arrive when it gets there, unless a newer present or a close came in between.
    panel_->setIgnoresMouseEvents(!clickable);
    panel_->removeAllViews();
    panel_->animateFrame({at.x, at.y, size.width, size.height}, kReuseAnimation, AnimationTiming::easeOut,
                         life_.guard([this, gen, size, views = std::move(views)]() mutable {
                           if (generation_ != gen || !panel_) return;
                           panel_->setContentSize(size);
                           panel_->addViews(std::move(views));
                         }));
    panel_->orderFrontRegardless();
  } else {
    panel_ = makeCardPanel(app_.platform().ui, size, at, clickable);
    panel_->addViews(std::move(views));
    panel_->setAlpha(0);
    panel_->orderFrontRegardless();
    panel_->animateAlpha(1.0, kFadeIn, AnimationTiming::defaultTiming);
    panel_->orderFrontRegardless();
  }
  if (autoClose) scheduleClose(gen, *autoClose);
}

void Card::scheduleClose(std::int64_t gen, double after) {
  app_.platform().mainQueue.postAfter(after, life_.guard([this, gen] {
    if (generation_ != gen || !panel_) return;
    // Never close under the pointer: look again a little later.
    const Point mouse = app_.platform().screens.mouseLocation();
    if (panel_->frame().outset(kPointerMargin).contains(mouse)) {
      scheduleClose(gen, kRecheckAfter);
    } else {
      close();
    }
  }));
}

void Card::close() {
  generation_ = nextGeneration(generation_);
  state_ = State::idle;
  if (panel_) {
    panel_->close();
    panel_.reset();
  }
  anchor_.reset();
  // The same selection may offer the card again.
  app_.watcher().forget();
}

// A display went away (or moved) under the card. A card that still shows on some screen stays where
// it is. One left on no screen at all closes rather than moving: it belongs next to a selection
// whose window the desktop has just put somewhere else, so a card moved anywhere would point at
// nothing; every card is short-lived, and a correction in progress goes on and shows its result
// under the pointer, which is always on a screen that exists.
void Card::screensChanged() {
  if (!panel_) return;
  const Rect frame = panel_->frame();
  for (const auto& screen : app_.platform().screens.screens())
    if (frame.intersects(screen.frame)) return;
  close();
}

bool Card::isButtonsOpen() const { return state_ == State::buttons && panel_ != nullptr; }

void Card::dismissButtonsOnly() {
  if (state_ == State::buttons) close();
}

void Card::dismissByEscape() {
  // Escape never stops a correction in progress.
  if (state_ != State::idle && state_ != State::progress) close();
}

}  // namespace mirlo
