#include "platform/gtk/gtk_ui.h"

#include "platform/linux/gdk_screens.h"

#include <algorithm>
#include <cmath>

namespace mirlo::gtk {

namespace {

// The timing curves of the animations, as cubic Béziers from (0, 0) to (1, 1).
double bezier(double a, double b, double t) { return 3 * a * t * (1 - t) * (1 - t) + 3 * b * t * t * (1 - t) + t * t * t; }

double eased(AnimationTiming timing, double progress) {
  const double x1 = timing == AnimationTiming::easeOut ? 0.0 : 0.25, y1 = timing == AnimationTiming::easeOut ? 0.0 : 0.1;
  const double x2 = timing == AnimationTiming::easeOut ? 0.58 : 0.25, y2 = 1.0;
  double lo = 0, hi = 1, t = progress;
  for (int i = 0; i < 40; ++i) {  // x(t) is monotonic: bisect for the t that gives this progress
    t = (lo + hi) / 2;
    (bezier(x1, x2, t) < progress ? lo : hi) = t;
  }
  return bezier(y1, y2, t);
}

// The rows of a rounded rectangle as a region, to shape a window on a desktop without a
// compositor (no transparent pixels there).
cairo_region_t* roundedRegion(int w, int h, double r) {
  cairo_region_t* region = cairo_region_create();
  for (int y = 0; y < h; ++y) {
    double inset = 0;
    const double fromEdge = std::min(y + 0.5, h - y - 0.5);
    if (fromEdge < r) inset = r - std::sqrt(std::max(0.0, r * r - (r - fromEdge) * (r - fromEdge)));
    const int dx = static_cast<int>(std::floor(inset));
    cairo_rectangle_int_t row{dx, y, std::max(0, w - 2 * dx), 1};
    cairo_region_union_rectangle(region, &row);
  }
  return region;
}

const char* kCss =
    // Controls drawn at the core's sizes: the theme's minimum heights would overflow the frames.
    "button.mirlo { min-height: 0; min-width: 0; padding: 2px 10px; }"
    "entry.mirlo { min-height: 0; padding: 2px 6px; }"
    "checkbutton.mirlo { padding: 0; }";

void installCss() {
  static bool done = false;  // one provider per process, on the default screen
  if (done) return;
  done = true;
  GtkCssProvider* provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, kCss, -1, nullptr);
  gtk_style_context_add_provider_for_screen(gdk_screen_get_default(), GTK_STYLE_PROVIDER(provider),
                                            GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_unref(provider);
}

void runLater(std::function<void()> task) {
  if (!task) return;
  auto* heap = new std::function<void()>(std::move(task));
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      heap, [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

}  // namespace

Rect onXScreen(const Rect& frame) { return linuxdesk::flipToTopLeft(frame, linuxdesk::primaryMonitorGeometry()); }

// --- card panel --------------------------------------------------------------------------------

struct GtkCardPanel::Animation {
  Rect from, to;
  double fromAlpha = 0, toAlpha = 0;
  double duration = 0;
  AnimationTiming timing = AnimationTiming::defaultTiming;
  gint64 start = 0;
  std::function<void()> completion;
};

GtkCardPanel::GtkCardPanel(const CardPanelStyle& style)
    : style_(style), frame_(style.contentRect), shown_(style.contentRect), contentSize_(style.contentRect.size()),
      ignores_(style.ignoresMouseEvents) {
  installCss();
  // An override-redirect window: the window manager neither decorates nor focuses it, so the
  // application beneath keeps the keyboard and its selection; raised, it stays above.
  window_ = gtk_window_new(GTK_WINDOW_POPUP);
  gtk_window_set_type_hint(GTK_WINDOW(window_), GDK_WINDOW_TYPE_HINT_TOOLTIP);
  gtk_window_set_accept_focus(GTK_WINDOW(window_), FALSE);
  gtk_window_set_focus_on_map(GTK_WINDOW(window_), FALSE);
  gtk_window_set_resizable(GTK_WINDOW(window_), FALSE);
  GdkScreen* screen = gtk_widget_get_screen(window_);
  if (GdkVisual* rgba = gdk_screen_get_rgba_visual(screen); rgba && gdk_screen_is_composited(screen)) {
    gtk_widget_set_visual(window_, rgba);
    composited_ = true;
  }
  gtk_widget_set_app_paintable(window_, TRUE);
  content_ = gtk_fixed_new();
  g_signal_connect(content_, "draw", G_CALLBACK(drawContent), this);
  gtk_container_add(GTK_CONTAINER(window_), content_);
  gtk_widget_show(content_);
  g_signal_connect_after(window_, "map", G_CALLBACK(+[](GtkWidget*, gpointer self) {
                           static_cast<GtkCardPanel*>(self)->applyShape();
                         }),
                         this);
  applyFrame(frame_);
}

GtkCardPanel::~GtkCardPanel() { close(); }

gboolean GtkCardPanel::drawContent(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* self = static_cast<GtkCardPanel*>(data);
  const CardPanelStyle& s = self->style_;
  const double w = gtk_widget_get_allocated_width(widget), h = gtk_widget_get_allocated_height(widget);
  cairo_save(cr);
  if (self->composited_) {
    // A clear window: only the rounded content shows.
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_set_source_rgba(cr, 0, 0, 0, 0);
    cairo_paint(cr);
    cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  } else {
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
  }
  roundedRect(cr, 0, 0, w, h, s.cornerRadius);
  setSource(cr, s.background);
  cairo_fill(cr);
  if (s.borderWidth > 0) {
    const double inset = s.borderWidth / 2;
    roundedRect(cr, inset, inset, w - s.borderWidth, h - s.borderWidth, std::max(0.0, s.cornerRadius - inset));
    setSource(cr, s.borderColor);
    cairo_set_line_width(cr, s.borderWidth);
    cairo_stroke(cr);
  }
  cairo_restore(cr);
  paintShadows(cr, self->views_);
  return FALSE;
}

void GtkCardPanel::applyFrame(const Rect& frame) {
  if (!window_) return;
  shown_ = frame;
  const int w = std::max(1, static_cast<int>(std::lround(frame.width)));
  const int h = std::max(1, static_cast<int>(std::lround(frame.height)));
  gtk_widget_set_size_request(content_, w, h);
  gtk_window_resize(GTK_WINDOW(window_), w, h);
  const Rect placed = onXScreen(frame);
  gtk_window_move(GTK_WINDOW(window_), static_cast<int>(std::lround(placed.x)),
                  static_cast<int>(std::lround(placed.y)));
  applyShape();
}

void GtkCardPanel::applyShape() {
  if (!window_) return;
  const int w = std::max(1, static_cast<int>(std::lround(shown_.width)));
  const int h = std::max(1, static_cast<int>(std::lround(shown_.height)));
  if (!composited_) {
    cairo_region_t* shape = roundedRegion(w, h, style_.cornerRadius);
    gtk_widget_shape_combine_region(window_, shape);
    cairo_region_destroy(shape);
  }
  // Not clickable: an empty input shape lets every click through to the window beneath. Set on
  // the X window itself as well, once it exists.
  cairo_region_t* none = ignores_ ? cairo_region_create() : nullptr;
  gtk_widget_input_shape_combine_region(window_, none);
  if (GdkWindow* gdkWindow = gtk_widget_get_window(window_)) gdk_window_input_shape_combine_region(gdkWindow, none, 0, 0);
  if (none) cairo_region_destroy(none);
}

void GtkCardPanel::setIgnoresMouseEvents(bool ignores) {
  ignores_ = ignores;
  applyShape();
}

void GtkCardPanel::removeAllViews() {
  views_.clear();
  if (content_) gtk_widget_queue_draw(content_);
}

void GtkCardPanel::setContentSize(Size size) { contentSize_ = size; }

void GtkCardPanel::addViews(std::vector<View> views) {
  if (!window_) return;
  for (auto& node : render(std::move(views), content_, contentSize_.height)) views_.push_back(std::move(node));
  gtk_widget_queue_draw(content_);
}

void GtkCardPanel::setAlpha(double alpha) {
  alpha_ = alpha;
  if (window_) gtk_widget_set_opacity(window_, alpha);
}

void GtkCardPanel::finishFrameAnimation(bool runNow) {
  if (!frameAnim_) return;
  auto completion = std::move(frameAnim_->completion);
  frameAnim_.reset();
  if (runNow && completion) completion();
  else runLater(std::move(completion));
}

void GtkCardPanel::animateFrame(Rect frame, double duration, AnimationTiming timing, std::function<void()> completion) {
  // A newer move supersedes the running one; the older completion still runs, on the main loop.
  finishFrameAnimation(false);
  frame_ = frame;
  frameAnim_ = std::make_unique<Animation>();
  frameAnim_->from = shown_;
  frameAnim_->to = frame;
  frameAnim_->duration = duration;
  frameAnim_->timing = timing;
  frameAnim_->start = g_get_monotonic_time();
  frameAnim_->completion = std::move(completion);
  if (!timer_) timer_ = g_timeout_add(8, step, this);
}

void GtkCardPanel::animateAlpha(double alpha, double duration, AnimationTiming timing) {
  alphaAnim_ = std::make_unique<Animation>();
  alphaAnim_->fromAlpha = alpha_;
  alphaAnim_->toAlpha = alpha;
  alphaAnim_->duration = duration;
  alphaAnim_->timing = timing;
  alphaAnim_->start = g_get_monotonic_time();
  if (!timer_) timer_ = g_timeout_add(8, step, this);
}

gboolean GtkCardPanel::step(gpointer data) {
  auto* self = static_cast<GtkCardPanel*>(data);
  const gint64 now = g_get_monotonic_time();
  auto progress = [now](const Animation& a) {
    return a.duration <= 0 ? 1.0 : std::clamp((now - a.start) / 1e6 / a.duration, 0.0, 1.0);
  };
  if (self->alphaAnim_) {
    const Animation& a = *self->alphaAnim_;
    const double p = progress(a);
    self->setAlpha(a.fromAlpha + (a.toAlpha - a.fromAlpha) * eased(a.timing, p));
    if (p >= 1) self->alphaAnim_.reset();
  }
  bool frameDone = false;
  if (self->frameAnim_) {
    const Animation& a = *self->frameAnim_;
    const double p = progress(a), e = eased(a.timing, p);
    auto mix = [e](double from, double to) { return from + (to - from) * e; };
    self->applyFrame({mix(a.from.x, a.to.x), mix(a.from.y, a.to.y), mix(a.from.width, a.to.width),
                      mix(a.from.height, a.to.height)});
    frameDone = p >= 1;
  }
  const bool more = self->alphaAnim_ || (self->frameAnim_ && !frameDone);
  if (!more) self->timer_ = 0;
  // Last: the completion may add views, start another animation or close the panel.
  if (frameDone) self->finishFrameAnimation(true);
  if (!more) return self->timer_ ? G_SOURCE_REMOVE : G_SOURCE_REMOVE;
  return G_SOURCE_CONTINUE;
}

void GtkCardPanel::orderFrontRegardless() {
  if (!window_) return;
  gtk_widget_show(window_);
  if (GdkWindow* w = gtk_widget_get_window(window_)) gdk_window_raise(w);
}

void GtkCardPanel::close() {
  if (!window_) return;
  if (timer_) g_source_remove(timer_);
  timer_ = 0;
  finishFrameAnimation(false);
  alphaAnim_.reset();
  views_.clear();
  g_signal_handlers_disconnect_by_data(window_, this);
  g_signal_handlers_disconnect_by_data(content_, this);
  gtk_widget_destroy(window_);
  window_ = content_ = nullptr;
}

// --- windows -----------------------------------------------------------------------------------

GtkSurfaceWindow::GtkSurfaceWindow(Size contentSize) : size_(contentSize) {
  installCss();
  window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  g_object_ref_sink(window_);
  gtk_window_set_resizable(GTK_WINDOW(window_), FALSE);
  content_ = gtk_fixed_new();
  gtk_widget_set_size_request(content_, static_cast<int>(contentSize.width), static_cast<int>(contentSize.height));
  g_signal_connect(content_, "draw", G_CALLBACK(drawBackground), this);
  gtk_container_add(GTK_CONTAINER(window_), content_);
  gtk_widget_show(content_);
  g_signal_connect(window_, "delete-event", G_CALLBACK(onDelete), this);
}

GtkSurfaceWindow::~GtkSurfaceWindow() {
  views_.clear();
  g_signal_handlers_disconnect_by_data(window_, this);
  g_signal_handlers_disconnect_by_data(content_, this);
  gtk_widget_destroy(window_);
  g_object_unref(window_);
}

gboolean GtkSurfaceWindow::onDelete(GtkWidget*, GdkEvent*, gpointer data) {
  // The user closes the window: it is hidden, never destroyed, so that it can be shown again.
  static_cast<GtkSurfaceWindow*>(data)->close();
  return TRUE;
}

gboolean GtkSurfaceWindow::drawBackground(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* self = static_cast<GtkSurfaceWindow*>(data);
  if (self->background_) {
    setSource(cr, *self->background_);
    cairo_rectangle(cr, 0, 0, gtk_widget_get_allocated_width(widget), gtk_widget_get_allocated_height(widget));
    cairo_fill(cr);
  }
  paintShadows(cr, self->views_);
  return FALSE;
}

void GtkSurfaceWindow::setTitle(const std::string& title) { gtk_window_set_title(GTK_WINDOW(window_), title.c_str()); }

void GtkSurfaceWindow::setBackground(const Color& color) {
  background_ = color;
  gtk_widget_queue_draw(content_);
}

void GtkSurfaceWindow::center() {
  // On the monitor under the pointer, a little above the middle of its work area.
  GdkDisplay* display = gdk_display_get_default();
  GdkMonitor* monitor = nullptr;
  if (GdkSeat* seat = gdk_display_get_default_seat(display)) {
    int px = 0, py = 0;
    gdk_device_get_position(gdk_seat_get_pointer(seat), nullptr, &px, &py);
    monitor = gdk_display_get_monitor_at_point(display, px, py);
  }
  if (!monitor) monitor = gdk_display_get_primary_monitor(display);
  if (!monitor) monitor = gdk_display_get_monitor(display, 0);
  if (!monitor) return;
  GdkRectangle area;
  gdk_monitor_get_workarea(monitor, &area);
  const double free = area.height - size_.height;
  const int x = area.x + static_cast<int>(std::floor((area.width - size_.width) / 2));
  const int y = area.y + static_cast<int>(std::floor(free / 2 - free / 6));
  gtk_window_move(GTK_WINDOW(window_), x, std::max(area.y, y));
}

void GtkSurfaceWindow::setContent(View root) {
  views_.clear();
  std::vector<View> one;
  one.push_back(std::move(root));
  views_ = render(std::move(one), content_, size_.height);
  // Return presses the default button, from any field of the window.
  auto byDefault = findNode(views_, [](const Node& n) {
    return n.view.kind == ViewKind::pushButton && n.view.keyEquivalent == "\r" && !n.view.hidden;
  });
  gtk_window_set_default(GTK_WINDOW(window_), byDefault ? byDefault->content : nullptr);
  gtk_widget_queue_draw(content_);
}

void GtkSurfaceWindow::makeKeyAndOrderFront() {
  gtk_widget_show(window_);
  gtk_window_present(GTK_WINDOW(window_));
}

void GtkSurfaceWindow::close() {
  if (!gtk_widget_get_visible(window_)) return;
  if (willClose_) {
    auto handler = willClose_;
    handler();
  }
  gtk_widget_hide(window_);
}

bool GtkSurfaceWindow::isVisible() const { return gtk_widget_get_visible(window_); }

Rect GtkSurfaceWindow::frame() const {
  int x = 0, y = 0;
  if (GdkWindow* w = gtk_widget_get_window(content_); w && gtk_widget_get_realized(content_)) gdk_window_get_origin(w, &x, &y);
  else gtk_window_get_position(GTK_WINDOW(window_), &x, &y);
  return linuxdesk::flipToBottomLeft({double(x), double(y), size_.width, size_.height},
                                     linuxdesk::primaryMonitorGeometry());
}

// --- the UI ------------------------------------------------------------------------------------

GtkUI::GtkUI(std::function<void()> quit) : quit_(std::move(quit)) { installCss(); }

std::shared_ptr<CardPanel> GtkUI::createCardPanel(const CardPanelStyle& style) {
  auto panel = std::make_shared<GtkCardPanel>(style);
  lastPanel_ = panel;
  return panel;
}

std::shared_ptr<Window> GtkUI::createWindow(Size contentSize) {
  auto window = std::make_shared<GtkSurfaceWindow>(contentSize);
  std::erase_if(windows_, [](const auto& w) { return w.expired(); });
  windows_.push_back(window);
  return window;
}

std::vector<std::shared_ptr<GtkSurfaceWindow>> GtkUI::windows() const {
  std::vector<std::shared_ptr<GtkSurfaceWindow>> out;
  for (const auto& w : windows_)
    if (auto s = w.lock()) out.push_back(s);
  return out;
}

Size GtkUI::sizeToFit(const View& view) {
  switch (view.kind) {
    case ViewKind::label: {
      const double wrap = view.wraps && view.frame.width > 0 ? view.frame.width - 2 * kLabelPadding : 0;
      const Size text = measureText(view.text, view.font, wrap);
      return {text.width + 2 * kLabelPadding, text.height};
    }
    case ViewKind::flatButton: return measureText(view.text, view.font);
    case ViewKind::pushButton:
    case ViewKind::checkBox:
    case ViewKind::textField:
    case ViewKind::secureField: {
      // Controls: what GTK itself asks for, with our styles.
      View copy = view;
      copy.children.clear();
      copy.slot.reset();
      copy.action = nullptr;
      GtkWidget* scratch = gtk_fixed_new();
      g_object_ref_sink(scratch);
      Size size;
      {
        auto nodes = render({copy}, scratch, 0);
        GtkRequisition natural;
        gtk_widget_set_size_request(nodes.front()->content, -1, -1);
        gtk_widget_get_preferred_size(nodes.front()->content, nullptr, &natural);
        size = {double(natural.width), double(natural.height)};
      }
      gtk_widget_destroy(scratch);
      g_object_unref(scratch);
      return size;
    }
    default: return view.frame.size();
  }
}

void GtkUI::activateIgnoringOtherApps() {
  for (const auto& window : windows())
    if (window->isVisible()) gtk_window_present(GTK_WINDOW(window->window()));
}

void GtkUI::terminate() {
  if (quit_) quit_();
  else if (gtk_main_level() > 0) gtk_main_quit();
}

}  // namespace mirlo::gtk
