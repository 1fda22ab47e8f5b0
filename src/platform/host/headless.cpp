#include "platform/host/headless.h"

#include "mirlo/config.h"

namespace mirlo::host {
namespace {

// A panel that keeps its frame (so that placement arithmetic stays sound) and shows nothing.
class InvisiblePanel final : public CardPanel {
 public:
  explicit InvisiblePanel(Rect frame) : frame_(frame) {}
  Rect frame() const override { return frame_; }
  void setIgnoresMouseEvents(bool) override {}
  void removeAllViews() override {}
  void setContentSize(Size size) override {
    frame_.width = size.width;
    frame_.height = size.height;
  }
  void addViews(std::vector<View>) override {}
  void setAlpha(double) override {}
  void animateFrame(Rect frame, double, AnimationTiming, std::function<void()> completion) override {
    frame_ = frame;
    if (completion) completion();
  }
  void animateAlpha(double, double, AnimationTiming) override {}
  void orderFrontRegardless() override {}
  void close() override {}

 private:
  Rect frame_;
};

class InvisibleWindow final : public Window {
 public:
  explicit InvisibleWindow(Size size) : frame_{0, 0, size.width, size.height} {}
  void setTitle(const std::string&) override {}
  void setBackground(const Color&) override {}
  void center() override {}
  void setContent(View) override {}
  void makeKeyAndOrderFront() override {}
  void close() override {
    if (willClose_) willClose_();
  }
  bool isVisible() const override { return false; }
  Rect frame() const override { return frame_; }
  void setWillClose(std::function<void()> handler) override { willClose_ = std::move(handler); }

 private:
  Rect frame_;
  std::function<void()> willClose_;
};

}  // namespace

std::shared_ptr<CardPanel> HeadlessUI::createCardPanel(const CardPanelStyle& style) {
  return std::make_shared<InvisiblePanel>(style.contentRect);
}

std::shared_ptr<Window> HeadlessUI::createWindow(Size contentSize) { return std::make_shared<InvisibleWindow>(contentSize); }

std::optional<std::string> BuildAppInfo::shortVersionString() { return std::string(config::kVersion); }

HostSystem BuildAppInfo::hostSystem() {
#if defined(__APPLE__)
  return HostSystem::macOS;
#else
  return HostSystem::linuxDesktop;
#endif
}

}  // namespace mirlo::host
