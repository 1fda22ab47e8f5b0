// The last step: a miniature mail whose sentence is selected, corrected through a miniature card and
// settled, over and over; the first time round ends on confetti and a forward button to the recap.
#include <algorithm>
#include <numbers>

#include <cmath>

#include "account/prefs.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "platform/keyboard.h"
#include "ui/kit/flat_button.h"
#include "ui/kit/palette.h"
#include "ui/kit/system_words.h"
#include "ui/kit/views.h"
#include "ui/onboarding/onboarding.h"
#include "ui/onboarding/pages.h"

namespace mirlo {

using onboarding::placedAt;
using onboarding::centred;

namespace {

constexpr Color kWhite = Color::white(1.0);
constexpr Font kSentence{13.5};
constexpr Font kJustCorrected{13.5, FontWeight::semibold};

// The timeline of one cycle, in seconds from its start.
constexpr double kSelect = 0.9;
constexpr double kCardAppears = 1.5;
constexpr double kPress = 2.4;
constexpr double kFirstCorrection = 2.9;
constexpr double kBetweenCorrections = 0.3;
constexpr double kSettle = 4.5;
constexpr double kReveal = 4.9;
constexpr double kNextCycle = 6.9;
constexpr int kMistakes = 4;

constexpr double kFadeIn = 0.35;
constexpr double kConfettiBurst = 1.5;

View dot(double x, Color color) {
  View view = kit::box({x, 112, 10, 10}, color);
  view.cornerRadius = 5;
  return view;
}

// A key cap: its name centred in a rounded box 22 points high.
View keyCap(UI& ui, const std::string& key, double x, double y) {
  View name;
  name.kind = ViewKind::label;
  name.text = key;
  name.font = Font{11.5, FontWeight::bold, true};
  name.textColor = DA::ink;
  name.alignment = TextAlignment::center;
  name = kit::sizedToFit(ui, std::move(name));
  constexpr double kHeight = 22;
  View cap = kit::box({x, y, name.frame.width + 14, kHeight}, DA::hover);
  cap.cornerRadius = 5;
  cap.borderWidth = 1;
  cap.borderColor = DA::border;
  name.frame.x = 7;
  name.frame.y = std::round((kHeight - name.frame.height) / 2);
  cap.children.push_back(std::move(name));
  return cap;
}

struct RecapRow {
  double y;
  std::vector<std::string> keys;
  std::string text;
};

// The recap's lines: each one's key caps from the left, then its text. The texts line up in a
// column at 128, moved right as far as the widest row of caps needs (key names are longer on a PC
// keyboard than the Mac's symbols).
void recapRows(UI& ui, View& panel, const std::vector<RecapRow>& rows) {
  double column = 128;
  std::vector<std::vector<View>> caps;
  for (const RecapRow& row : rows) {
    double x = 16;
    caps.emplace_back();
    for (const auto& key : row.keys) {
      caps.back().push_back(keyCap(ui, key, x, row.y));
      x = kit::rightEdge(caps.back().back()) + 5;
      column = std::max(column, x + 1);
    }
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    for (View& cap : caps[i]) panel.children.push_back(std::move(cap));
    panel.children.push_back(placedAt(kit::label(ui, rows[i].text, Font{12.5}, DA::ink2), column, rows[i].y + 3));
  }
}

}  // namespace

const std::vector<Onboarding::DemoToken>& Onboarding::demoTokens() {
  static const std::vector<DemoToken> tokens{
      {"Suite a", "Suite à"},
      {" notre échange, je vous envoie le devis ", std::nullopt},
      {"des", "dès"},
      {" que possible. ", std::nullopt},
      {"N'hesitez", "N'hésitez"},
      {" pas ", std::nullopt},
      {"a", "à"},
      {" revenir vers moi.", std::nullopt},
  };
  return tokens;
}

RichText Onboarding::demoAttributed(int fixed, bool selected, bool settled) {
  RichText text;
  text.lineSpacing = 3;
  int mistake = 0;
  for (const auto& token : demoTokens()) {
    TextRun run{token.text, kSentence, DA::ink2, std::nullopt, std::nullopt};
    if (token.correction) {
      if (mistake < fixed) {
        run.text = *token.correction;
        // What just changed stands out until the corrections settle.
        if (!settled) {
          run.color = DA::green;
          run.font = kJustCorrected;
        }
      } else {
        run.dottedUnderline = DA::red;
      }
      ++mistake;
    }
    if (selected) run.background = DA::green.withAlpha(0.14);
    text.runs.push_back(std::move(run));
  }
  return text;
}

View Onboarding::stepTryIt() {
  UI& ui = app_.platform().ui;
  View step = container();
  header(step, "Étape 3 sur 3", "Regarde comme c'est simple", "Sélectionne, clique, c'est corrigé. Voilà toute l'app :");

  View mail = kit::box({60, 150, 400, 132}, kWhite);
  mail.cornerRadius = 12;
  mail.borderWidth = 1;
  mail.borderColor = DA::border;
  mail.shadow = Shadow{Color::rgb(0, 0, 0), 0.1, 14, {0, -6}};
  mail.children.push_back(dot(12, Color::rgb(1, 0.37, 0.34)));
  mail.children.push_back(dot(28, Color::rgb(1, 0.74, 0.18)));
  mail.children.push_back(dot(44, Color::rgb(0.16, 0.78, 0.25)));
  mail.children.push_back(
      placedAt(kit::label(ui, "Mail · Nouveau message", Font{10.5, FontWeight::medium}, DA::muted), 64, 110));
  View sentence;
  sentence.kind = ViewKind::richText;
  sentence.frame = {6, 8, 388, 96};
  sentence.textInset = {10, 8};
  sentence.richText = demoAttributed(0, false, false);
  animText_ = std::make_shared<ViewSlot>();
  sentence.slot = animText_;
  mail.children.push_back(std::move(sentence));
  step.children.push_back(std::move(mail));

  View popup = kit::box({174, 122, 172, 34}, DA::card);
  popup.cornerRadius = 9;
  popup.borderWidth = 0.5;
  popup.borderColor = DA::border;
  // The layer's usual shadow offset, three points down.
  popup.shadow = Shadow{Color::rgb(0, 0, 0), 0.18, 10, {0, -3}};
  popup.hidden = true;
  animPopup_ = std::make_shared<ViewSlot>();
  popup.slot = animPopup_;
  View fix = placedAt(kit::label(ui, "Corriger", Font{12, FontWeight::semibold}, DA::green), 14, 9);
  fix.wantsLayer = true;  // so that the press can tint it
  animCorriger_ = std::make_shared<ViewSlot>();
  fix.slot = animCorriger_;
  popup.children.push_back(std::move(fix));
  popup.children.push_back(kit::box({84, 8, 1, 18}, DA::border));
  popup.children.push_back(placedAt(kit::label(ui, "Reformuler", Font{12, FontWeight::semibold}, DA::ink), 94, 9));
  step.children.push_back(std::move(popup));

  FlatButton skip(ui, "Passer", DA::muted, false, false);
  skip.setOnClick(life_.guard([this] { showRecap(); }));
  skipButton_ = skip.view().slot;
  step.children.push_back(centred(skip.view(), 60));
  return step;
}

bool Onboarding::alive(std::int64_t gen) const {
  return gen == animGen_ && window_ && window_->isVisible() && animView_ && content_ == animView_;
}

void Onboarding::runDemoCycle(std::int64_t gen, bool first) {
  // The first cycle starts before the window is on screen.
  if (!alive(gen) && !first) return;
  auto setText = [this](int fixed, bool selected, bool settled) {
    if (auto text = live(animText_)) text->setRichText(demoAttributed(fixed, selected, settled));
  };
  auto showCard = [this](bool shown) {
    if (auto popup = live(animPopup_)) popup->setHidden(!shown);
  };
  auto press = [this](bool pressed) {
    if (auto fix = live(animCorriger_))
      fix->setBackground(pressed ? std::optional<Color>(DA::green.withAlpha(0.15)) : std::nullopt);
  };
  MainQueue& queue = app_.platform().mainQueue;
  auto at = [this, gen, &queue](double t, std::function<void()> action) {
    queue.postAfter(t, life_.guard([this, gen, action = std::move(action)] {
      if (alive(gen)) action();
    }));
  };

  setText(0, false, false);
  showCard(false);
  press(false);

  at(kSelect, [setText] { setText(0, true, false); });
  at(kCardAppears, [showCard] { showCard(true); });
  at(kPress, [press] { press(true); });
  at(kFirstCorrection, [showCard, press] {
    showCard(false);
    press(false);
  });
  for (int i = 1; i <= kMistakes; ++i)
    at(kFirstCorrection + kBetweenCorrections * (i - 1), [setText, i] { setText(i, true, false); });
  at(kSettle, [setText] { setText(kMistakes, false, true); });
  if (first) at(kReveal, [this] { revealNext(); });
  at(kNextCycle, [this, gen] { runDemoCycle(gen, false); });
}

void Onboarding::revealNext() {
  auto view = live(animView_);
  if (nextShown_ || !view) return;
  nextShown_ = true;
  // From here on the onboarding counts as done.
  app_.prefs().setOnboarded(true);
  addConfetti(*view);
  if (auto skip = live(skipButton_)) skip->setHidden(true);

  FlatButton next(app_.platform().ui, "Suivant", kWhite, true, true);
  next.setOnClick(life_.guard([this] { showRecap(); }));
  View button = centred(next.view(), 54);
  button.alpha = 0;
  auto slot = button.slot;
  view->addSubview(std::move(button));
  if (slot && slot->live) slot->live->animateAlpha(1, kFadeIn);
}

void Onboarding::addConfetti(LiveView& view) {
  View confetti;
  confetti.kind = ViewKind::emitter;
  confetti.frame = {0, 0, kSize.width, kSize.height};
  EmitterStyle& e = confetti.emitter;
  e.position = {260, 480};  // the middle of the top edge, just above it
  e.size = {520, 1};
  e.birthRate = 1;
  e.colors = {DA::green, DA::red, DA::ink, Color::rgb(0.98, 0.75, 0.14)};
  e.cellSize = {10, 14};
  e.cellCornerRadius = 2;
  e.cellBirthRate = 8;
  e.lifetime = 5;
  e.velocity = 160;
  e.velocityRange = 60;
  e.emissionLongitude = std::numbers::pi;
  e.emissionRange = 0.6;
  e.spin = 4;
  e.spinRange = 6;
  e.scale = 0.5;
  e.scaleRange = 0.25;
  e.yAcceleration = 60;
  auto slot = std::make_shared<ViewSlot>();
  confetti.slot = slot;
  view.addSubview(std::move(confetti));
  // A short burst: no new confetti after it, the ones in flight finish their fall.
  std::weak_ptr<ViewSlot> weak = slot;
  app_.platform().mainQueue.postAfter(kConfettiBurst, [weak] {
    if (auto emitter = weak.lock(); emitter && emitter->live) emitter->live->setEmitterBirthRate(0);
  });
}

void Onboarding::showRecap() {
  app_.prefs().setOnboarded(true);
  animGen_ = onboarding::nextGeneration(animGen_);
  if (!window_ || !window_->isVisible()) return;
  UI& ui = app_.platform().ui;
  View recap = container();
  const HostSystem system = app_.platform().appInfo.hostSystem();
  header(recap, "", "🎉 C'est parti !", words::whereMirloLives(system));

  View panel = kit::box({70, 108, 380, 158}, kWhite);
  panel.cornerRadius = 14;
  panel.borderWidth = 1;
  panel.borderColor = DA::border;
  constexpr std::uint64_t command = modifier::command, commandShift = modifier::command | modifier::shift;
  recapRows(ui, panel,
            {{126, {"Souris"}, "sélectionne → la carte apparaît"},
             {98, words::keyCaps(system, command, "A"), "maintenu 1 s → la carte apparaît"},
             {70, words::keyCaps(system, commandShift, "A"), "corriger la sélection"},
             {42, words::keyCaps(system, commandShift, "C"), "reformuler la sélection"},
             {14, words::keyCaps(system, command, "Z"), "revenir au texte d'origine"}});
  recap.children.push_back(std::move(panel));

  FlatButton done(ui, "Terminer", kWhite, true, true);
  done.setOnClick(life_.guard([this] {
    if (window_) window_->close();
  }));
  recap.children.push_back(centred(done.view(), 52));

  setContent(std::move(recap));
  if (auto* delegate = app_.launchedDelegate()) delegate->rebuildMenu();
}

}  // namespace mirlo
