#include "platform/gtk/gtk_views.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace mirlo::gtk {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Inter first when it is installed: its widths are close to those of the Mac system font the
// layouts were drawn for, and it has the medium and semibold weights the desktop font often lacks.
// Fontconfig skips a family that is missing, so the desktop's own font follows as the fallback.
std::string systemFamily() {
  gchar* name = nullptr;
  if (auto* settings = gtk_settings_get_default()) g_object_get(settings, "gtk-font-name", &name, nullptr);
  std::string family = "Sans";
  if (name) {
    PangoFontDescription* desc = pango_font_description_from_string(name);
    if (const char* f = pango_font_description_get_family(desc)) family = f;
    pango_font_description_free(desc);
    g_free(name);
  }
  return "Inter," + family;
}

PangoWeight pangoWeight(FontWeight weight) {
  switch (weight) {
    case FontWeight::regular: return PANGO_WEIGHT_NORMAL;
    case FontWeight::medium: return PANGO_WEIGHT_MEDIUM;
    case FontWeight::semibold: return PANGO_WEIGHT_SEMIBOLD;
    case FontWeight::bold: return PANGO_WEIGHT_BOLD;
    case FontWeight::heavy: return PANGO_WEIGHT_HEAVY;
  }
  return PANGO_WEIGHT_NORMAL;
}

PangoAlignment pangoAlignment(TextAlignment alignment) {
  switch (alignment) {
    case TextAlignment::center: return PANGO_ALIGN_CENTER;
    case TextAlignment::right: return PANGO_ALIGN_RIGHT;
    default: return PANGO_ALIGN_LEFT;
  }
}

Color inkOr(const std::optional<Color>& color) { return color.value_or(Color::rgb(0.09, 0.086, 0.078)); }

void applyFont(PangoLayout* layout, const Font& font) {
  PangoFontDescription* desc = fontDescription(font);
  pango_layout_set_font_description(layout, desc);
  pango_font_description_free(desc);
}

// A GTK label carrying the view's font, for controls that show a title.
GtkWidget* titleLabel(const View& view) {
  GtkWidget* label = gtk_label_new(view.text.c_str());
  PangoAttrList* attrs = pango_attr_list_new();
  pango_attr_list_insert(attrs, pango_attr_font_desc_new(fontDescription(view.font)));
  gtk_label_set_attributes(GTK_LABEL(label), attrs);
  pango_attr_list_unref(attrs);
  gtk_widget_show(label);
  return label;
}

// --- drawing -----------------------------------------------------------------------------------

gboolean drawHost(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* node = static_cast<Node*>(data);
  const View& v = node->view;
  const double w = gtk_widget_get_allocated_width(widget), h = gtk_widget_get_allocated_height(widget);
  const double r = std::min(v.cornerRadius, std::min(w, h) / 2);
  if (v.background) {
    roundedRect(cr, 0, 0, w, h, r);
    setSource(cr, *v.background);
    cairo_fill(cr);
  }
  if (v.borderWidth > 0 && v.borderColor) {
    const double inset = v.borderWidth / 2;
    roundedRect(cr, inset, inset, w - v.borderWidth, h - v.borderWidth, std::max(0.0, r - inset));
    setSource(cr, *v.borderColor);
    cairo_set_line_width(cr, v.borderWidth);
    cairo_stroke(cr);
  }
  paintShadows(cr, node->children);
  return FALSE;
}

gboolean drawLabel(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* node = static_cast<Node*>(data);
  PangoLayout* layout = layoutFor(*node, widget);
  int lw = 0, lh = 0;
  pango_layout_get_pixel_size(layout, &lw, &lh);
  const double w = gtk_widget_get_allocated_width(widget), h = gtk_widget_get_allocated_height(widget);
  double x = kLabelPadding, y = 0;
  if (node->view.kind == ViewKind::flatButton) {
    // A button centres its title in its frame.
    x = std::round((w - lw) / 2);
    y = std::round((h - lh) / 2);
  } else if (!node->view.wraps) {
    if (node->view.alignment == TextAlignment::center) x = std::round((w - lw) / 2);
    if (node->view.alignment == TextAlignment::right) x = w - lw - kLabelPadding;
  }
  setSource(cr, inkOr(node->view.textColor));
  cairo_move_to(cr, x, y);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
  return FALSE;
}

gboolean drawRichText(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* node = static_cast<Node*>(data);
  const View& v = node->view;
  PangoLayout* layout = gtk_widget_create_pango_layout(widget, nullptr);
  std::string all;
  PangoAttrList* attrs = pango_attr_list_new();
  struct Span { int start, end; const TextRun* run; };
  std::vector<Span> spans;
  for (const auto& run : v.richText.runs) {
    const int start = static_cast<int>(all.size());
    all += run.text;
    const int end = static_cast<int>(all.size());
    spans.push_back({start, end, &run});
    PangoAttribute* font = pango_attr_font_desc_new(fontDescription(run.font));
    font->start_index = static_cast<guint>(start);
    font->end_index = static_cast<guint>(end);
    pango_attr_list_insert(attrs, font);
  }
  pango_layout_set_text(layout, all.c_str(), static_cast<int>(all.size()));
  pango_layout_set_attributes(layout, attrs);
  pango_attr_list_unref(attrs);
  const double w = gtk_widget_get_allocated_width(widget);
  const double ox = v.textInset.width, oy = v.textInset.height;
  pango_layout_set_width(layout, static_cast<int>(std::max(1.0, w - 2 * ox) * PANGO_SCALE));
  pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
  pango_layout_set_spacing(layout, static_cast<int>(v.richText.lineSpacing * PANGO_SCALE));

  // Backgrounds under the text, dotted underlines over it, both over each line's extent of a run.
  auto forEachRange = [&](const Span& span, auto&& fn) {
    PangoLayoutIter* iter = pango_layout_get_iter(layout);
    do {
      PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iter);
      int* ranges = nullptr;
      int count = 0;
      pango_layout_line_get_x_ranges(line, span.start, span.end, &ranges, &count);
      PangoRectangle logical;
      pango_layout_iter_get_line_extents(iter, nullptr, &logical);
      const int baseline = pango_layout_iter_get_baseline(iter);
      for (int i = 0; i < count; ++i)
        fn(ox + ranges[2 * i] / double(PANGO_SCALE), ox + ranges[2 * i + 1] / double(PANGO_SCALE),
           oy + logical.y / double(PANGO_SCALE), logical.height / double(PANGO_SCALE), oy + baseline / double(PANGO_SCALE));
      g_free(ranges);
    } while (pango_layout_iter_next_line(iter));
    pango_layout_iter_free(iter);
  };
  for (const auto& span : spans) {
    if (!span.run->background) continue;
    forEachRange(span, [&](double x0, double x1, double top, double height, double) {
      cairo_rectangle(cr, x0, top, x1 - x0, height);
      setSource(cr, *span.run->background);
      cairo_fill(cr);
    });
  }
  // Each run in its own colour: draw the whole layout once per colour, clipped to the run.
  for (const auto& span : spans) {
    cairo_save(cr);
    bool any = false;
    forEachRange(span, [&](double x0, double x1, double top, double height, double) {
      cairo_rectangle(cr, x0, top, x1 - x0, height);
      any = true;
    });
    if (any) {
      cairo_clip(cr);
      setSource(cr, span.run->color);
      cairo_move_to(cr, ox, oy);
      pango_cairo_show_layout(cr, layout);
    }
    cairo_restore(cr);
  }
  for (const auto& span : spans) {
    if (!span.run->dottedUnderline) continue;
    forEachRange(span, [&](double x0, double x1, double, double, double baseline) {
      const double y = std::round(baseline + 2.5) + 0.5;
      cairo_save(cr);
      setSource(cr, *span.run->dottedUnderline);
      cairo_set_line_width(cr, 1.6);
      cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
      const double dashes[] = {0.01, 3.2};
      cairo_set_dash(cr, dashes, 2, 0);
      cairo_move_to(cr, x0 + 1, y);
      cairo_line_to(cr, x1 - 1, y);
      cairo_stroke(cr);
      cairo_restore(cr);
    });
  }
  g_object_unref(layout);
  return FALSE;
}

gboolean drawShape(GtkWidget* widget, cairo_t* cr, gpointer data) {
  auto* node = static_cast<Node*>(data);
  const ShapeStyle& s = node->view.shape;
  const double h = gtk_widget_get_allocated_height(widget);
  double cx = 0, cy = 0;  // the current point, flipped
  for (const auto& step : s.path) {
    const double x = step.to.x, y = h - step.to.y;
    switch (step.op) {
      case PathStep::Op::moveTo: cairo_move_to(cr, x, y); break;
      case PathStep::Op::lineTo: cairo_line_to(cr, x, y); break;
      case PathStep::Op::quadCurveTo: {
        // A quadratic curve as the cubic with control points 2/3 of the way to its control.
        const double qx = step.control.x, qy = h - step.control.y;
        cairo_curve_to(cr, cx + 2.0 / 3 * (qx - cx), cy + 2.0 / 3 * (qy - cy), x + 2.0 / 3 * (qx - x),
                       y + 2.0 / 3 * (qy - y), x, y);
        break;
      }
    }
    cx = x;
    cy = y;
  }
  if (s.fill) {
    setSource(cr, *s.fill);
    s.stroke ? cairo_fill_preserve(cr) : cairo_fill(cr);
  }
  if (s.stroke) {
    setSource(cr, *s.stroke);
    cairo_set_line_width(cr, s.lineWidth);
    cairo_set_line_cap(cr, s.roundCaps ? CAIRO_LINE_CAP_ROUND : CAIRO_LINE_CAP_BUTT);
    cairo_set_line_join(cr, s.roundCaps ? CAIRO_LINE_JOIN_ROUND : CAIRO_LINE_JOIN_MITER);
    cairo_stroke(cr);
  }
  cairo_new_path(cr);
  return FALSE;
}

gboolean drawEmitter(GtkWidget*, cairo_t* cr, gpointer data) {
  auto* node = static_cast<Node*>(data);
  for (const auto& p : node->particles) {
    cairo_save(cr);
    cairo_translate(cr, p.x, p.y);
    cairo_rotate(cr, p.angle);
    const double fade = p.age > p.lifetime * 0.7 ? std::max(0.0, (p.lifetime - p.age) / (p.lifetime * 0.3)) : 1.0;
    setSource(cr, p.color.withAlpha(p.color.alpha * fade));
    cairo_rectangle(cr, -p.w / 2, -p.h / 2, p.w, p.h);
    cairo_fill(cr);
    cairo_restore(cr);
  }
  return FALSE;
}

// Confetti: cells born along the emitter's line at the emitter's rate times each cell's (one cell
// per colour), thrown within the emission range around straight down, spinning and falling for
// their lifetime. Production stops when the core sets the birth rate to 0 (or after the
// emitter's duration, when it gives one), and the timer when the last cell is gone.
gboolean tickEmitter(gpointer data) {
  auto* node = static_cast<Node*>(data);
  const EmitterStyle& e = node->view.emitter;
  const gint64 now = g_get_monotonic_time();
  const double dt = std::min(0.1, (now - node->lastTick) / 1e6);
  const double elapsed = (now - node->started) / 1e6;
  node->lastTick = now;
  static thread_local std::mt19937 random{12345};
  std::uniform_real_distribution<double> unit(0, 1);
  const double h = node->view.frame.height;
  const bool producing = e.birthRate > 0 && (e.duration <= 0 || elapsed < e.duration) && !e.colors.empty();
  if (producing) {
    const double perCell = e.cellBirthRate > 0 ? e.birthRate * e.cellBirthRate : e.birthRate;
    node->spawnCarry += perCell * static_cast<double>(e.colors.size()) * dt;
    while (node->spawnCarry >= 1) {
      node->spawnCarry -= 1;
      Particle p{};
      p.x = e.position.x - e.size.width / 2 + unit(random) * e.size.width;
      p.y = h - e.position.y;
      const double angle = kPi / 2 + (unit(random) - 0.5) * e.emissionRange;
      const double speed = e.velocity + (unit(random) - 0.5) * 2 * e.velocityRange;
      p.vx = std::cos(angle) * speed;
      p.vy = std::sin(angle) * speed;
      p.angle = unit(random) * 2 * kPi;
      p.spin = e.spin + (unit(random) - 0.5) * 2 * e.spinRange;
      p.lifetime = e.lifetime;
      const double scale = std::max(0.1, e.scale + (unit(random) - 0.5) * 2 * e.scaleRange);
      p.w = e.cellSize.width > 0 ? e.cellSize.width * scale : std::max(4.0, 8 * e.scale);
      p.h = e.cellSize.height > 0 ? e.cellSize.height * scale : std::max(2.0, 4 * e.scale);
      p.color = e.colors[static_cast<std::size_t>(unit(random) * e.colors.size()) % e.colors.size()];
      node->particles.push_back(p);
    }
  }
  const double gravity = e.yAcceleration > 0 ? e.yAcceleration : 60;  // the paper falls and spreads
  for (auto& p : node->particles) {
    p.age += dt;
    p.vy += gravity * dt;
    p.x += p.vx * dt;
    p.y += p.vy * dt;
    p.angle += p.spin * dt;
  }
  std::erase_if(node->particles, [](const Particle& p) { return p.age >= p.lifetime; });
  gtk_widget_queue_draw(node->content);
  if (!producing && node->particles.empty()) {
    node->tick = 0;
    return G_SOURCE_REMOVE;
  }
  return G_SOURCE_CONTINUE;
}

// A fade of a host widget's opacity, stepped on a frame timer.
struct Fade {
  std::weak_ptr<Node> node;
  double from, to, duration;
  gint64 started;
};

gboolean tickFade(gpointer data) {
  auto* fade = static_cast<Fade*>(data);
  auto node = fade->node.lock();
  if (!node) return G_SOURCE_REMOVE;
  const double t = fade->duration > 0 ? std::min(1.0, (g_get_monotonic_time() - fade->started) / 1e6 / fade->duration) : 1;
  gtk_widget_set_opacity(node->host, fade->from + (fade->to - fade->from) * t);
  if (t >= 1) {
    node->view.alpha = fade->to;
    return G_SOURCE_REMOVE;
  }
  return G_SOURCE_CONTINUE;
}

// --- events ------------------------------------------------------------------------------------

void runCopy(Node* node, const std::function<void()>& handler) {
  if (!handler) return;
  auto keep = node->shared_from_this();  // the handler may tear the surface down
  auto call = handler;
  call();
}

gboolean onEnter(GtkWidget*, GdkEventCrossing* event, gpointer data) {
  auto* node = static_cast<Node*>(data);
  if (event->detail != GDK_NOTIFY_INFERIOR) runCopy(node, node->view.onMouseEntered);
  return FALSE;
}

gboolean onLeave(GtkWidget*, GdkEventCrossing* event, gpointer data) {
  auto* node = static_cast<Node*>(data);
  if (event->detail != GDK_NOTIFY_INFERIOR) runCopy(node, node->view.onMouseExited);
  return FALSE;
}

gboolean onPress(GtkWidget*, GdkEventButton* event, gpointer) { return event->button == 1; }

gboolean onRelease(GtkWidget* widget, GdkEventButton* event, gpointer data) {
  auto* node = static_cast<Node*>(data);
  if (event->button != 1) return FALSE;
  const int w = gtk_widget_get_allocated_width(widget), h = gtk_widget_get_allocated_height(widget);
  if (event->x < 0 || event->y < 0 || event->x >= w || event->y >= h) return TRUE;  // let go outside
  if (!node->view.hidden) runCopy(node, node->view.action);
  return TRUE;
}

void onClicked(GtkWidget*, gpointer data) {
  auto* node = static_cast<Node*>(data);
  runCopy(node, node->view.action);
}

void onToggled(GtkToggleButton* button, gpointer data) {
  auto* node = static_cast<Node*>(data);
  node->view.checked = gtk_toggle_button_get_active(button);
  runCopy(node, node->view.action);
}

GtkWidget* drawingArea(Node* node, GCallback draw, bool pointer) {
  GtkWidget* area = gtk_drawing_area_new();
  g_signal_connect(area, "draw", draw, node);
  if (pointer) {
    gtk_widget_add_events(area, GDK_ENTER_NOTIFY_MASK | GDK_LEAVE_NOTIFY_MASK | GDK_BUTTON_PRESS_MASK |
                                    GDK_BUTTON_RELEASE_MASK);
    g_signal_connect(area, "enter-notify-event", G_CALLBACK(onEnter), node);
    g_signal_connect(area, "leave-notify-event", G_CALLBACK(onLeave), node);
    g_signal_connect(area, "button-press-event", G_CALLBACK(onPress), node);
    g_signal_connect(area, "button-release-event", G_CALLBACK(onRelease), node);
  }
  return area;
}

GtkWidget* makeContent(Node* node) {
  View& v = node->view;
  switch (v.kind) {
    case ViewKind::box: return nullptr;
    case ViewKind::label: return drawingArea(node, G_CALLBACK(drawLabel), v.trackingAreaOptions != 0);
    case ViewKind::flatButton: return drawingArea(node, G_CALLBACK(drawLabel), true);
    case ViewKind::richText: return drawingArea(node, G_CALLBACK(drawRichText), false);
    case ViewKind::shape: return drawingArea(node, G_CALLBACK(drawShape), false);
    case ViewKind::emitter: {
      GtkWidget* area = drawingArea(node, G_CALLBACK(drawEmitter), false);
      node->started = node->lastTick = g_get_monotonic_time();
      node->tick = g_timeout_add(16, tickEmitter, node);
      return area;
    }
    case ViewKind::pushButton: {
      GtkWidget* button = gtk_button_new();
      gtk_container_add(GTK_CONTAINER(button), titleLabel(v));
      gtk_style_context_add_class(gtk_widget_get_style_context(button), "mirlo");
      if (v.keyEquivalent == "\r") gtk_widget_set_can_default(button, TRUE);
      g_signal_connect(button, "clicked", G_CALLBACK(onClicked), node);
      return button;
    }
    case ViewKind::textField:
    case ViewKind::secureField: {
      GtkWidget* entry = gtk_entry_new();
      gtk_style_context_add_class(gtk_widget_get_style_context(entry), "mirlo");
      gtk_entry_set_text(GTK_ENTRY(entry), v.text.c_str());
      gtk_entry_set_placeholder_text(GTK_ENTRY(entry), v.placeholder.c_str());
      gtk_entry_set_visibility(GTK_ENTRY(entry), v.kind == ViewKind::textField);
      gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
      gtk_entry_set_width_chars(GTK_ENTRY(entry), 1);
      PangoAttrList* attrs = pango_attr_list_new();
      pango_attr_list_insert(attrs, pango_attr_font_desc_new(fontDescription(v.font)));
      gtk_entry_set_attributes(GTK_ENTRY(entry), attrs);
      pango_attr_list_unref(attrs);
      return entry;
    }
    case ViewKind::checkBox: {
      GtkWidget* check = gtk_check_button_new();
      gtk_container_add(GTK_CONTAINER(check), titleLabel(v));
      gtk_style_context_add_class(gtk_widget_get_style_context(check), "mirlo");
      gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(check), v.checked);
      g_signal_connect(check, "toggled", G_CALLBACK(onToggled), node);
      return check;
    }
    case ViewKind::spinner: {
      GtkWidget* spinner = gtk_spinner_new();
      gtk_spinner_start(GTK_SPINNER(spinner));
      return spinner;
    }
  }
  return nullptr;
}

class GtkLiveView final : public LiveView {
 public:
  explicit GtkLiveView(std::weak_ptr<Node> node) : node_(std::move(node)) {}

  std::string text() const override {
    auto n = node_.lock();
    if (!n) return {};
    if (n->content && GTK_IS_ENTRY(n->content)) return gtk_entry_get_text(GTK_ENTRY(n->content));
    return n->view.text;
  }
  bool isChecked() const override {
    auto n = node_.lock();
    if (n && n->content && GTK_IS_TOGGLE_BUTTON(n->content)) return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(n->content));
    return n && n->view.checked;
  }
  void setText(const std::string& value) override {
    auto n = node_.lock();
    if (!n) return;
    n->view.text = value;
    if (n->content && GTK_IS_ENTRY(n->content)) gtk_entry_set_text(GTK_ENTRY(n->content), value.c_str());
    if (n->content && GTK_IS_BIN(n->content))
      if (GtkWidget* child = gtk_bin_get_child(GTK_BIN(n->content)); child && GTK_IS_LABEL(child))
        gtk_label_set_text(GTK_LABEL(child), value.c_str());
    n->redraw();
  }
  void setRichText(const RichText& value) override {
    if (auto n = node_.lock()) {
      n->view.richText = value;
      n->redraw();
    }
  }
  void setHidden(bool hidden) override {
    if (auto n = node_.lock()) {
      n->view.hidden = hidden;
      gtk_widget_set_visible(n->host, !hidden);
    }
  }
  void setBackground(const std::optional<Color>& color) override {
    if (auto n = node_.lock()) {
      n->view.background = color;
      n->redraw();
    }
  }
  std::optional<Color> background() const override {
    auto n = node_.lock();
    return n ? n->view.background : std::nullopt;
  }
  std::optional<Color> textColor() const override {
    auto n = node_.lock();
    return n ? n->view.textColor : std::nullopt;
  }
  void setTextColor(const std::optional<Color>& color) override {
    if (auto n = node_.lock()) {
      n->view.textColor = color;
      n->redraw();
    }
  }
  Rect frame() const override {
    auto n = node_.lock();
    return n ? n->view.frame : Rect{};
  }
  // The pointer tracking of a drawing area follows its window, so a resize needs nothing more.
  void setFrame(const Rect& frame) override {
    auto n = node_.lock();
    if (!n) return;
    const bool taller = frame.height != n->view.frame.height;
    n->view.frame = frame;
    n->place();
    if (taller) n->relayoutChildren();
    if (n->container) gtk_widget_queue_draw(n->container);  // its shadow moves with it
  }
  void addSubview(View view) override {
    auto n = node_.lock();
    if (!n) return;
    std::vector<View> one;
    one.push_back(std::move(view));
    for (auto& child : render(std::move(one), n->host, n->view.frame.height)) n->children.push_back(std::move(child));
  }
  void animateAlpha(double alpha, double duration) override {
    auto n = node_.lock();
    if (!n) return;
    auto* fade = new Fade{n, gtk_widget_get_opacity(n->host), alpha, duration, g_get_monotonic_time()};
    g_timeout_add_full(G_PRIORITY_DEFAULT, 16, tickFade, fade, [](gpointer f) { delete static_cast<Fade*>(f); });
  }
  void setEmitterBirthRate(double rate) override {
    auto n = node_.lock();
    if (!n) return;
    n->view.emitter.birthRate = rate;
    if (rate > 0 && n->tick == 0 && n->content) {
      n->started = n->lastTick = g_get_monotonic_time();
      n->tick = g_timeout_add(16, tickEmitter, n.get());
    }
  }

 private:
  std::weak_ptr<Node> node_;
};

}  // namespace

PangoFontDescription* fontDescription(const Font& font) {
  PangoFontDescription* desc = pango_font_description_new();
  pango_font_description_set_family(desc, font.monospaced ? "Monospace" : systemFamily().c_str());
  pango_font_description_set_absolute_size(desc, font.size * PANGO_SCALE);
  pango_font_description_set_weight(desc, pangoWeight(font.weight));
  return desc;
}

Size measureText(const std::string& text, const Font& font, double wrapWidth) {
  PangoContext* context = gdk_pango_context_get();
  PangoLayout* layout = pango_layout_new(context);
  applyFont(layout, font);
  pango_layout_set_text(layout, text.c_str(), static_cast<int>(text.size()));
  if (wrapWidth > 0) {
    pango_layout_set_width(layout, static_cast<int>(wrapWidth * PANGO_SCALE));
    pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
  }
  PangoRectangle logical;
  pango_layout_get_extents(layout, nullptr, &logical);
  g_object_unref(layout);
  g_object_unref(context);
  return {std::ceil(logical.width / double(PANGO_SCALE)), std::ceil(logical.height / double(PANGO_SCALE))};
}

PangoLayout* layoutFor(const Node& node, GtkWidget* widget) {
  PangoLayout* layout = gtk_widget_create_pango_layout(widget, node.view.text.c_str());
  applyFont(layout, node.view.font);
  if (node.view.kind == ViewKind::label && node.view.wraps) {
    pango_layout_set_width(layout, static_cast<int>(std::max(1.0, node.view.frame.width - 2 * kLabelPadding) * PANGO_SCALE));
    pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
    pango_layout_set_alignment(layout, pangoAlignment(node.view.alignment));
  }
  return layout;
}

void setSource(cairo_t* cr, const Color& c) { cairo_set_source_rgba(cr, c.red, c.green, c.blue, c.alpha); }

void roundedRect(cairo_t* cr, double x, double y, double w, double h, double r) {
  if (r <= 0) {
    cairo_rectangle(cr, x, y, w, h);
    return;
  }
  cairo_new_sub_path(cr);
  cairo_arc(cr, x + w - r, y + r, r, -kPi / 2, 0);
  cairo_arc(cr, x + w - r, y + h - r, r, 0, kPi / 2);
  cairo_arc(cr, x + r, y + h - r, r, kPi / 2, kPi);
  cairo_arc(cr, x + r, y + r, r, kPi, 3 * kPi / 2);
  cairo_close_path(cr);
}

void paintShadows(cairo_t* cr, const Nodes& nodes) {
  for (const auto& node : nodes) {
    const View& v = node->view;
    if (!v.shadow || v.hidden || v.shadow->opacity <= 0) continue;
    const Shadow& s = *v.shadow;
    const double x = v.frame.x + s.offset.x;
    // The offset is in the core's upward y; on screen a positive offset goes up.
    const double y = node->containerHeight - (v.frame.y + v.frame.height) - s.offset.y;
    // A soft edge from stacked, growing rounded rectangles: their alphas add up to the opacity
    // inside the view and fade out over the blur radius.
    const int steps = std::max(1, static_cast<int>(std::ceil(s.radius)));
    for (int i = 0; i < steps; ++i) {
      const double grow = s.radius * (1.0 - double(i) / steps);
      roundedRect(cr, x - grow, y - grow, v.frame.width + 2 * grow, v.frame.height + 2 * grow, v.cornerRadius + grow);
      setSource(cr, s.color.withAlpha(s.color.alpha * s.opacity / steps));
      cairo_fill(cr);
    }
  }
}

Node::~Node() {
  if (tick) g_source_remove(tick);
  children.clear();
  if (content) {
    g_signal_handlers_disconnect_by_data(content, this);
    g_object_unref(content);
  }
  if (host) {
    g_signal_handlers_disconnect_by_data(host, this);
    gtk_widget_destroy(host);
    g_object_unref(host);
  }
}

void Node::place() {
  const int w = std::max(0, static_cast<int>(std::lround(view.frame.width)));
  const int h = std::max(0, static_cast<int>(std::lround(view.frame.height)));
  gtk_widget_set_size_request(host, w, h);
  if (content) gtk_widget_set_size_request(content, w, h);
  const double top = containerHeight - (view.frame.y + view.frame.height);
  gtk_fixed_move(GTK_FIXED(container), host, static_cast<int>(std::lround(view.frame.x)), static_cast<int>(std::lround(top)));
}

void Node::relayoutChildren() {
  for (auto& child : children) {
    child->containerHeight = view.frame.height;
    child->place();
  }
}

void Node::redraw() {
  if (content) gtk_widget_queue_draw(content);
  gtk_widget_queue_draw(host);
}

Nodes render(std::vector<View> views, GtkWidget* container, double containerHeight) {
  Nodes nodes;
  for (auto& view : views) {
    auto node = std::make_shared<Node>();
    auto children = std::move(view.children);
    view.children.clear();
    node->view = std::move(view);
    node->container = container;
    node->containerHeight = containerHeight;
    node->host = gtk_fixed_new();
    g_object_ref_sink(node->host);
    gtk_widget_set_no_show_all(node->host, TRUE);
    g_signal_connect(node->host, "draw", G_CALLBACK(drawHost), node.get());
    gtk_fixed_put(GTK_FIXED(container), node->host, 0, 0);
    if ((node->content = makeContent(node.get()))) {
      g_object_ref_sink(node->content);
      gtk_fixed_put(GTK_FIXED(node->host), node->content, 0, 0);
      gtk_widget_show(node->content);
    }
    node->place();
    if (node->view.alpha < 1) gtk_widget_set_opacity(node->host, node->view.alpha);
    node->children = render(std::move(children), node->host, node->view.frame.height);
    gtk_widget_set_visible(node->host, !node->view.hidden);
    if (node->view.slot) node->view.slot->live = std::make_shared<GtkLiveView>(node);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

std::shared_ptr<Node> findNode(const Nodes& nodes, const std::function<bool(const Node&)>& match) {
  for (const auto& node : nodes) {
    if (match(*node)) return node;
    if (auto found = findNode(node->children, match)) return found;
  }
  return nullptr;
}

}  // namespace mirlo::gtk
