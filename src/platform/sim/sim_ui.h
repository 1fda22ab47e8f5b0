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

// A rendered view: its description (without children), its rendered children, and the hover
// tracking areas it holds (in its own bounds).
struct SimNode {
  View view;
  std::vector<std::shared_ptr<SimNode>> children;
  std::vector<Rect> trackingAreas;
  int trackingAreaUpdates = 0;  // times the tracking areas were rebuilt
  // Alpha animations asked of this view: target alpha and duration (the alpha is set at once).
  std::vector<std::pair<double, double>> fades;

  // Rebuilds the tracking areas as the platform does on a resize: all removed, then one over the
  // bounds when the view asks for hover tracking.
  void updateTrackingAreas();
};
using SimNodes = std::vector<std::shared_ptr<SimNode>>;

SimNodes render(std::vector<View> views);
// Depth-first search for the first node matching the predicate.
std::shared_ptr<SimNode> findNode(const SimNodes& nodes, const std::function<bool(const SimNode&)>& match);
// The first node showing exactly this text (a label's text, a button's title).
std::shared_ptr<SimNode> findText(const SimNodes& nodes, const std::string& text);
// Every node, depth first, in the order they were added.
std::vector<std::shared_ptr<SimNode>> allNodes(const SimNodes& nodes);

// Runs the node's action the way a platform does: on a copy, so that an action that tears down its
// own surface completes. False when the view has no action.
// A check box toggles its state first, as a real one does.
bool performClick(SimNode& node);
// The pointer enters or leaves the view; only a view with a tracking area hears of it.
bool pointerEnters(const SimNode& node);
bool pointerExits(const SimNode& node);

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
    contentSize = made.contentRect.size();
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

  // The user clicks the view showing `text`. False when the click did nothing: no such view, the
  // panel lets the mouse through to the application beneath, the view has no action, or the view
  // does not accept the first mouse and the click only brought the panel forward.
  bool click(const std::string& text);
  // The pointer moves onto / off the view showing `text` (nothing when the panel ignores the mouse).
  bool hover(const std::string& text);
  bool unhover(const std::string& text);
  std::shared_ptr<SimNode> find(const std::string& text) const { return findText(views, text); }

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
  bool broughtForward_ = false;  // a first click has already brought the panel forward
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

  // The user clicks the view showing `text` in the window; false when nothing acted.
  bool click(const std::string& text);
  std::shared_ptr<SimNode> find(const std::string& text) const { return findText(content, text); }
  // The user types into the text field showing this placeholder, replacing its contents; false
  // when there is no such field.
  bool type(const std::string& placeholder, const std::string& text);

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
