// The program's surfaces as they would be on screen, kept as inspectable trees: the status item
// and its menu, card panels and windows. Tests click buttons by title and read what is shown.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/main_queue.h"
#include "platform/ui.h"

namespace mirlo::sim {

// A rendered view: its description (without children) and its rendered children.
struct SimNode {
  View view;
  std::vector<std::shared_ptr<SimNode>> children;
};
using SimNodes = std::vector<std::shared_ptr<SimNode>>;

SimNodes render(std::vector<View> views);
// Depth-first search for the first node matching the predicate.
std::shared_ptr<SimNode> findNode(const SimNodes& nodes, const std::function<bool(const SimNode&)>& match);

class SimStatusItem final : public StatusItem {
 public:
  std::string title;
  Font font;
  std::vector<MenuItem> menu;
  int menuBuilds = 0;

  void setTitle(const std::string& t, const Font& f) override {
    title = t;
    font = f;
  }
  void setMenu(std::vector<MenuItem> items) override {
    menu = std::move(items);
    ++menuBuilds;
  }
};

struct SimAnimation {
  enum class Kind { frame, alpha } kind;
  Rect frame;
  double alpha = 0;
  double duration = 0;
  AnimationTiming timing = AnimationTiming::defaultTiming;
};

class SimCardPanel final : public CardPanel {
 public:
  SimCardPanel(MainQueue& main, const CardPanelStyle& made) : style(made), main_(main), frame_(made.contentRect) {
    ignoresMouseEvents = made.ignoresMouseEvents;
  }

  CardPanelStyle style;
  bool ignoresMouseEvents = false;
  double alpha = 1;
  Size contentSize;
  SimNodes views;
  int orderFrontCount = 0;
  bool closed = false;
  std::vector<SimAnimation> animations;

  Rect frame() const override { return frame_; }
  void setIgnoresMouseEvents(bool ignores) override { ignoresMouseEvents = ignores; }
  void removeAllViews() override { views.clear(); }
  void setContentSize(Size size) override { contentSize = size; }
  void addViews(std::vector<View> added) override;
  void setAlpha(double a) override { alpha = a; }
  void animateFrame(Rect frame, double duration, AnimationTiming timing, std::function<void()> completion) override;
  void animateAlpha(double a, double duration, AnimationTiming timing) override;
  void orderFrontRegardless() override { ++orderFrontCount; }
  void close() override { closed = true; }

 private:
  MainQueue& main_;
  Rect frame_;
};

class SimWindow final : public Window {
 public:
  explicit SimWindow(Size size) : frame_{0, 0, size.width, size.height} {}

  std::string title;
  std::optional<Color> background;
  SimNodes content;
  bool visible = false;
  bool key = false;
  int centerCount = 0;
  int frontCount = 0;

  void setTitle(const std::string& t) override { title = t; }
  void setBackground(const Color& color) override { background = color; }
  void center() override;
  void setContent(View root) override;
  void makeKeyAndOrderFront() override;
  void close() override;
  bool isVisible() const override { return visible; }
  Rect frame() const override { return frame_; }
  void setWillClose(std::function<void()> handler) override { willClose_ = std::move(handler); }

  // The user moves the window.
  void moveTo(Point origin) {
    frame_.x = origin.x;
    frame_.y = origin.y;
  }

 private:
  Rect frame_;
  std::function<void()> willClose_;
};

class SimUI final : public UI {
 public:
  explicit SimUI(MainQueue& main) : main_(main) {}

  bool statusBarRefuses = false;
  std::shared_ptr<SimStatusItem> statusItem;
  std::vector<std::shared_ptr<SimCardPanel>> panels;  // every panel made, the newest last
  std::vector<std::shared_ptr<SimWindow>> windows;    // every window made
  int activations = 0;
  bool terminated = false;

  std::shared_ptr<StatusItem> createStatusItem() override;
  std::shared_ptr<CardPanel> createCardPanel(const CardPanelStyle& style) override;
  std::shared_ptr<Window> createWindow(Size contentSize) override;
  Size sizeToFit(const View& view) override;
  void activateIgnoringOtherApps() override { ++activations; }
  void terminate() override { terminated = true; }

  // The panel on screen, if any.
  std::shared_ptr<SimCardPanel> openPanel() const;
  // The visible window with this title, if any.
  std::shared_ptr<SimWindow> window(const std::string& title) const;

 private:
  MainQueue& main_;
};

}  // namespace mirlo::sim
