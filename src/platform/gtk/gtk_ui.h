// The program's surfaces drawn with GTK 3 on an X11 desktop: the card as an override-redirect
// popup that never takes the keyboard focus, the onboarding and settings windows, and the status
// item as a StatusNotifierItem. Screen rectangles arrive bottom-left-origin on the whole desktop
// and are flipped here. Needs gtk_init before construction; everything runs on the GTK main loop.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <vector>

#include "platform/gtk/gtk_views.h"
#include "platform/ui.h"

namespace mirlo::gtk {

// A frame in the core's coordinates (upward y from the primary monitor's bottom-left) placed on
// the X screen (downward y from its top-left).
Rect onXScreen(const Rect& frame);

class GtkCardPanel final : public CardPanel {
 public:
  explicit GtkCardPanel(const CardPanelStyle& style);
  ~GtkCardPanel() override;

  Rect frame() const override { return frame_; }
  void setIgnoresMouseEvents(bool ignores) override;
  void removeAllViews() override;
  void setContentSize(Size size) override;
  void addViews(std::vector<View> views) override;
  void setAlpha(double alpha) override;
  void animateFrame(Rect frame, double duration, AnimationTiming timing, std::function<void()> completion) override;
  void animateAlpha(double alpha, double duration, AnimationTiming timing) override;
  void orderFrontRegardless() override;
  void close() override;

  // For the tests and screenshots.
  GtkWidget* window() const { return window_; }
  const Nodes& views() const { return views_; }
  bool ignoresMouseEvents() const { return ignores_; }
  double alpha() const { return alpha_; }
  bool closed() const { return window_ == nullptr; }

 private:
  struct Animation;
  static gboolean drawContent(GtkWidget* widget, cairo_t* cr, gpointer self);
  static gboolean step(gpointer self);
  void applyFrame(const Rect& frame);
  void applyShape();
  void finishFrameAnimation(bool runNow);

  CardPanelStyle style_;
  GtkWidget* window_ = nullptr;
  GtkWidget* content_ = nullptr;
  Rect frame_;
  Rect shown_;  // the frame on screen now, mid-animation
  Size contentSize_;
  bool ignores_ = false;
  bool composited_ = false;
  double alpha_ = 1;
  Nodes views_;
  std::unique_ptr<Animation> frameAnim_, alphaAnim_;
  guint timer_ = 0;
};

class GtkSurfaceWindow final : public Window {
 public:
  explicit GtkSurfaceWindow(Size contentSize);
  ~GtkSurfaceWindow() override;

  void setTitle(const std::string& title) override;
  void setBackground(const Color& color) override;
  void center() override;
  void setContent(View root) override;
  void makeKeyAndOrderFront() override;
  void close() override;
  bool isVisible() const override;
  Rect frame() const override;
  void setWillClose(std::function<void()> handler) override { willClose_ = std::move(handler); }

  GtkWidget* window() const { return window_; }
  const Nodes& views() const { return views_; }

 private:
  static gboolean onDelete(GtkWidget*, GdkEvent*, gpointer self);
  static gboolean drawBackground(GtkWidget* widget, cairo_t* cr, gpointer self);
  void announceClose();

  GtkWidget* window_ = nullptr;
  GtkWidget* content_ = nullptr;
  Size size_;
  std::optional<Color> background_;
  Nodes views_;
  std::function<void()> willClose_;
};

class GtkUI final : public UI {
 public:
  // `quit` ends the program's main loop; by default, the GTK main loop.
  explicit GtkUI(std::function<void()> quit = {});

  std::shared_ptr<StatusItem> createStatusItem() override;
  std::shared_ptr<CardPanel> createCardPanel(const CardPanelStyle& style) override;
  std::shared_ptr<Window> createWindow(Size contentSize) override;
  Size sizeToFit(const View& view) override;
  void activateIgnoringOtherApps() override;
  void terminate() override;

  // The newest card panel and windows made, for the tests and screenshots.
  std::shared_ptr<GtkCardPanel> lastPanel() const { return lastPanel_.lock(); }
  std::vector<std::shared_ptr<GtkSurfaceWindow>> windows() const;
  // The status item's current menu as GTK holds it (the host is sent its copy), for screenshots.
  GtkMenu* statusMenu() const;

 private:
  std::function<void()> quit_;
  bool toldNoHost_ = false;
  std::weak_ptr<GtkCardPanel> lastPanel_;
  std::weak_ptr<StatusItem> statusItem_;
  std::vector<std::weak_ptr<GtkSurfaceWindow>> windows_;
};

}  // namespace mirlo::gtk
