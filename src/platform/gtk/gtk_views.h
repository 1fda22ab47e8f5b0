// View descriptions rendered as GTK widgets. Every view becomes a GtkFixed "host" placed at its
// frame in its container (y flipped: the core's origin is the bottom-left corner), painted with
// its layer look, holding the view's content (a drawing area for what we draw ourselves with
// Cairo and Pango, or a GTK control) and its children above it.
#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/ui.h"

namespace mirlo::gtk {

// The system font at the view's size, in pixels (a point of the core is a pixel here), so that
// the same text measures the same on every screen resolution.
PangoFontDescription* fontDescription(const Font& font);

// The width and height Pango gives this text in this font, unwrapped or wrapped at `wrapWidth`.
Size measureText(const std::string& text, const Font& font, double wrapWidth = 0);

// Horizontal room a label keeps on each side of its text.
inline constexpr double kLabelPadding = 2;

struct Particle;

struct Node : std::enable_shared_from_this<Node> {
  View view;  // without its children
  GtkWidget* host = nullptr;     // owned reference; the GtkFixed placed in the container
  GtkWidget* content = nullptr;  // the drawing area or control inside the host, if any
  GtkWidget* container = nullptr;
  double containerHeight = 0;
  std::vector<std::shared_ptr<Node>> children;
  // Confetti.
  std::vector<Particle> particles;
  guint tick = 0;
  gint64 started = 0, lastTick = 0;
  double spawnCarry = 0;

  ~Node();
  void place();  // moves and sizes the host to the frame
  void relayoutChildren();
  void redraw();
};
using Nodes = std::vector<std::shared_ptr<Node>>;

struct Particle {
  double x, y, vx, vy, angle, spin, age, lifetime, w, h;
  Color color;
};

// Renders `views` into `container`, a GtkFixed `containerHeight` high, filling their slots.
Nodes render(std::vector<View> views, GtkWidget* container, double containerHeight);

// Paints the shadows of `nodes` (drawn by their container, under them).
void paintShadows(cairo_t* cr, const Nodes& nodes);
// A rounded rectangle path.
void roundedRect(cairo_t* cr, double x, double y, double w, double h, double r);
void setSource(cairo_t* cr, const Color& color);

// Depth-first search, for the tests and for the default button.
std::shared_ptr<Node> findNode(const Nodes& nodes, const std::function<bool(const Node&)>& match);

// The Pango layout a label-like node draws (labels and flat buttons), for measurement checks.
PangoLayout* layoutFor(const Node& node, GtkWidget* widget);

}  // namespace mirlo::gtk
