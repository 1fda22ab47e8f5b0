// The card: a small floating panel next to the user's selection that offers the two buttons and
// then shows progress, success or the error, without taking the keyboard focus.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"
#include "base/lifetime.h"
#include "platform/ui.h"

namespace mirlo {

class App;

class Card {
 public:
  enum class State { idle, buttons, progress, success, error };

  explicit Card(App& app);

  State state() const { return state_; }
  std::int64_t generation() const { return generation_; }
  const std::optional<Rect>& anchor() const { return anchor_; }
  bool hasPanel() const { return panel_ != nullptr; }

  // The offer next to a fresh selection, and its signed-out variant.
  void showButtons(std::optional<Rect> anchor);
  void showConnect(std::optional<Rect> anchor);
  void showProgress(const std::string& text);
  void showNotice(const std::string& text);
  void showSuccess(const std::string& text, std::function<void()> undo);
  void showError(const std::string& message, bool upsell);

  void close();
  bool isButtonsOpen() const;
  void dismissButtonsOnly();
  void dismissByEscape();

 private:
  void present(std::vector<View> views, Size size, bool clickable, std::optional<double> autoClose, State state);
  void scheduleClose(std::int64_t gen, double after);
  // Where a card of this size goes: next to the anchor, kept on its screen, or under the pointer.
  Point origin(Size size);
  void screensChanged();

  App& app_;
  std::shared_ptr<CardPanel> panel_;
  std::optional<Rect> anchor_;
  std::int64_t generation_ = 0;
  State state_ = State::idle;
  Lifetime life_;
};

}  // namespace mirlo
