#include "platform/sim/sim_ui.h"

#include <cmath>

#include "base/text.h"

namespace mirlo::sim {

namespace {

class SimLiveView final : public LiveView {
 public:
  explicit SimLiveView(std::weak_ptr<SimNode> node) : node_(std::move(node)) {}

  std::string text() const override {
    auto node = node_.lock();
    return node ? node->view.text : std::string();
  }
  bool isChecked() const override {
    auto node = node_.lock();
    return node && node->view.checked;
  }
  void setText(const std::string& value) override {
    if (auto node = node_.lock()) node->view.text = value;
  }
  void setRichText(const RichText& value) override {
    if (auto node = node_.lock()) node->view.richText = value;
  }
  void setHidden(bool hidden) override {
    if (auto node = node_.lock()) node->view.hidden = hidden;
  }
  void setBackground(const std::optional<Color>& color) override {
    if (auto node = node_.lock()) node->view.background = color;
  }
  std::optional<Color> background() const override {
    auto node = node_.lock();
    return node ? node->view.background : std::nullopt;
  }
  std::optional<Color> textColor() const override {
    auto node = node_.lock();
    return node ? node->view.textColor : std::nullopt;
  }
  void setTextColor(const std::optional<Color>& color) override {
    if (auto node = node_.lock()) node->view.textColor = color;
  }
  Rect frame() const override {
    auto node = node_.lock();
    return node ? node->view.frame : Rect{};
  }
  void setFrame(const Rect& frame) override {
    auto node = node_.lock();
    if (!node) return;
    const bool resized = node->view.frame.size() != frame.size();
    node->view.frame = frame;
    if (resized) node->updateTrackingAreas();
  }
  void addSubview(View view) override {
    auto node = node_.lock();
    if (!node) return;
    std::vector<View> one;
    one.push_back(std::move(view));
    for (auto& child : render(std::move(one))) node->children.push_back(std::move(child));
  }
  void animateAlpha(double alpha, double duration) override {
    auto node = node_.lock();
    if (!node) return;
    node->fades.push_back({alpha, duration});
    node->view.alpha = alpha;
  }
  void setEmitterBirthRate(double rate) override {
    if (auto node = node_.lock()) node->view.emitter.birthRate = rate;
  }

 private:
  std::weak_ptr<SimNode> node_;
};

}  // namespace

void SimNode::updateTrackingAreas() {
  ++trackingAreaUpdates;
  trackingAreas.clear();
  if (view.trackingAreaOptions != 0) trackingAreas.push_back({0, 0, view.frame.width, view.frame.height});
}

SimNodes render(std::vector<View> views) {
  SimNodes nodes;
  for (auto& view : views) {
    auto node = std::make_shared<SimNode>();
    auto children = std::move(view.children);
    view.children.clear();
    node->view = std::move(view);
    node->children = render(std::move(children));
    node->updateTrackingAreas();
    if (node->view.slot) node->view.slot->live = std::make_shared<SimLiveView>(node);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

std::shared_ptr<SimNode> findNode(const SimNodes& nodes, const std::function<bool(const SimNode&)>& match) {
  for (const auto& node : nodes) {
    if (match(*node)) return node;
    if (auto found = findNode(node->children, match)) return found;
  }
  return nullptr;
}

std::shared_ptr<SimNode> findText(const SimNodes& nodes, const std::string& text) {
  return findNode(nodes, [&text](const SimNode& node) { return node.view.text == text; });
}

std::vector<std::shared_ptr<SimNode>> allNodes(const SimNodes& nodes) {
  std::vector<std::shared_ptr<SimNode>> out;
  for (const auto& node : nodes) {
    out.push_back(node);
    auto below = allNodes(node->children);
    out.insert(out.end(), below.begin(), below.end());
  }
  return out;
}

bool performClick(SimNode& node) {
  if (node.view.hidden || !node.view.action) return false;
  // A check box changes its state before it tells its action, which reads the new state.
  if (node.view.kind == ViewKind::checkBox) node.view.checked = !node.view.checked;
  auto action = node.view.action;
  action();
  return true;
}

bool pointerEnters(const SimNode& node) {
  if (node.trackingAreas.empty() || !node.view.onMouseEntered) return false;
  auto handler = node.view.onMouseEntered;
  handler();
  return true;
}

bool pointerExits(const SimNode& node) {
  if (node.trackingAreas.empty() || !node.view.onMouseExited) return false;
  auto handler = node.view.onMouseExited;
  handler();
  return true;
}

bool SimCardPanel::click(const std::string& text) {
  if (closed || ignoresMouseEvents) return false;
  auto node = find(text);
  if (!node) return false;
  // The application stays inactive (the panel never activates it): a view that does not accept
  // the first mouse spends the first click on bringing the panel forward.
  if (!node->view.acceptsFirstMouse && !broughtForward_) {
    broughtForward_ = true;
    return false;
  }
  broughtForward_ = true;
  return performClick(*node);
}

bool SimCardPanel::hover(const std::string& text) {
  if (closed || ignoresMouseEvents) return false;
  auto node = find(text);
  return node && pointerEnters(*node);
}

bool SimCardPanel::unhover(const std::string& text) {
  if (closed || ignoresMouseEvents) return false;
  auto node = find(text);
  return node && pointerExits(*node);
}

bool SimWindow::click(const std::string& text) {
  if (!visible) return false;
  auto node = find(text);
  return node && performClick(*node);
}

void SimCardPanel::addViews(std::vector<View> added) {
  for (auto& node : render(std::move(added))) views.push_back(std::move(node));
}

void SimCardPanel::animateFrame(Rect frame, double duration, AnimationTiming timing, std::function<void()> completion) {
  animations.push_back({SimAnimation::Kind::frame, frame, 0, duration, timing});
  frame_ = frame;
  if (completion) main_.postAfter(duration, std::move(completion));
}

void SimCardPanel::animateAlpha(double a, double duration, AnimationTiming timing) {
  animations.push_back({SimAnimation::Kind::alpha, frame_, a, duration, timing});
  alpha = a;
}

void SimWindow::center() {
  ++centerCount;
  // Centred on a 1440 × 900 screen, a little above the middle as the platform does.
  frame_.x = std::floor((1440 - frame_.width) / 2);
  frame_.y = std::floor((900 - frame_.height) / 2 + (900 - frame_.height) / 6);
}

void SimWindow::setContent(View root) {
  std::vector<View> one;
  one.push_back(std::move(root));
  content = render(std::move(one));
}

void SimWindow::makeKeyAndOrderFront() {
  visible = true;
  key = true;
  ++frontCount;
}

void SimWindow::close() {
  if (!visible) return;
  if (willClose_) willClose_();
  visible = false;
  key = false;
}

bool SimWindow::type(const std::string& placeholder, const std::string& text) {
  if (!visible) return false;
  auto node = findNode(content, [&placeholder](const SimNode& n) {
    return (n.view.kind == ViewKind::textField || n.view.kind == ViewKind::secureField) &&
           n.view.placeholder == placeholder;
  });
  if (!node) return false;
  node->view.text = text;
  return true;
}

std::shared_ptr<StatusItem> SimUI::createStatusItem() {
  if (statusBarRefuses) return nullptr;
  statusItem = std::make_shared<SimStatusItem>();
  return statusItem;
}

std::shared_ptr<CardPanel> SimUI::createCardPanel(const CardPanelStyle& style) {
  auto panel = std::make_shared<SimCardPanel>(main_, style);
  panels.push_back(panel);
  return panel;
}

std::shared_ptr<Window> SimUI::createWindow(Size contentSize) {
  auto window = std::make_shared<SimWindow>(contentSize);
  windows.push_back(window);
  return window;
}

Size SimUI::sizeToFit(const View& view) {
  // A fixed, predictable metric: each user-perceived character is 0.55 em wide, a line 1.25 em
  // high. Real platforms measure with their fonts.
  // A wrapping label with a width breaks its lines there, anywhere in a word.
  const double em = view.font.size;
  const double perLine = view.wraps && view.frame.width > 0 ? std::floor(view.frame.width * 100 / (em * 55)) : 0;
  const std::size_t most = perLine >= 1 ? static_cast<std::size_t>(perLine) : 0;
  std::size_t longest = 0, lines = 0;
  std::size_t start = 0;
  const std::string& s = view.text;
  while (true) {
    auto end = s.find('\n', start);
    const std::size_t count = text::graphemeCount(std::string_view(s).substr(start, end - start));
    if (most && count > most) {
      longest = std::max(longest, most);
      lines += (count + most - 1) / most;
    } else {
      longest = std::max(longest, count);
      ++lines;
    }
    if (end == std::string::npos) break;
    start = end + 1;
  }
  // Scaled in whole hundredths so that exact sizes (8 characters at 12.5 pt: 55) stay exact
  // instead of rounding up from 55.00000000000001.
  return {std::ceil(static_cast<double>(longest) * em * 55 / 100),
          std::ceil(static_cast<double>(lines) * em * 125 / 100)};
}

std::shared_ptr<SimCardPanel> SimUI::openPanel() const {
  for (auto it = panels.rbegin(); it != panels.rend(); ++it)
    if (!(*it)->closed) return *it;
  return nullptr;
}

std::shared_ptr<SimWindow> SimUI::window(const std::string& title) const {
  for (const auto& w : windows)
    if (w->visible && w->title == title) return w;
  return nullptr;
}

}  // namespace mirlo::sim
