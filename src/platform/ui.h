// The program's own surfaces as data. The core describes every card, window and menu as a tree of
// views with absolute frames (origin bottom-left, in points) and hands it to the platform, which
// only draws it and reports the user's actions back. The few views the core changes later are
// bound to a `ViewSlot`, through which the platform hands back a live handle.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"

namespace mirlo {

struct Color {
  double red = 0, green = 0, blue = 0, alpha = 1;
  static constexpr Color rgb(double r, double g, double b, double a = 1) { return {r, g, b, a}; }
  static constexpr Color white(double w, double a = 1) { return {w, w, w, a}; }
  constexpr Color withAlpha(double a) const { return {red, green, blue, a}; }
  friend bool operator==(const Color&, const Color&) = default;
};

enum class FontWeight { regular, medium, semibold, bold, heavy };

struct Font {
  double size = 13;
  FontWeight weight = FontWeight::regular;
  bool monospaced = false;
  friend bool operator==(const Font&, const Font&) = default;
};

enum class TextAlignment { natural, left, center, right };

struct Shadow {
  Color color = Color::rgb(0, 0, 0);
  double opacity = 0;
  double radius = 0;
  Point offset;
  friend bool operator==(const Shadow&, const Shadow&) = default;
};

// A run of rich text with its own attributes.
struct TextRun {
  std::string text;
  Font font;
  Color color;
  std::optional<Color> background;
  // A dotted underline in this colour, as a spelling checker marks a word.
  std::optional<Color> dottedUnderline;
  friend bool operator==(const TextRun&, const TextRun&) = default;
};

struct RichText {
  std::vector<TextRun> runs;
  double lineSpacing = 0;
  friend bool operator==(const RichText&, const RichText&) = default;
};

// A path of straight moves and quadratic curves, stroked and optionally filled.
struct PathStep {
  enum class Op { moveTo, lineTo, quadCurveTo } op = Op::moveTo;
  Point to;
  Point control;  // quadCurveTo only
  friend bool operator==(const PathStep&, const PathStep&) = default;
};

struct ShapeStyle {
  std::vector<PathStep> path;
  std::optional<Color> stroke;
  std::optional<Color> fill;
  double lineWidth = 1;
  bool roundCaps = false;
  friend bool operator==(const ShapeStyle&, const ShapeStyle&) = default;
};

// A particle emitter (confetti): cells of colours falling from a line.
struct EmitterStyle {
  Point position;
  Size size;
  std::vector<Color> colors;
  double birthRate = 0;
  double lifetime = 0;
  double velocity = 0;
  double velocityRange = 0;
  double emissionRange = 0;
  double spin = 0;
  double scale = 1;
  double duration = 0;  // seconds before the emitter stops producing
  // The particles: `birthRate` above is the emitter's own rate, multiplying each cell's. Each
  // colour is one cell drawn as a rounded rectangle `cellSize` large.
  double cellBirthRate = 0;
  Size cellSize;
  double cellCornerRadius = 0;
  double emissionLongitude = 0;  // radians
  double spinRange = 0;
  double scaleRange = 0;
  double yAcceleration = 0;
  friend bool operator==(const EmitterStyle&, const EmitterStyle&) = default;
};

enum class ViewKind {
  box,          // a plain, possibly layer-backed view holding children
  label,        // non-editable text
  flatButton,   // the kit's flat text button
  pushButton,   // a standard rounded push button
  textField,
  secureField,
  checkBox,
  spinner,      // a small spinning progress indicator
  richText,     // a non-editable text view with attributed text
  shape,
  emitter,
};

class LiveView;

// Filled by the platform when it renders a view that carries the slot.
struct ViewSlot {
  std::shared_ptr<LiveView> live;
};

struct View {
  ViewKind kind = ViewKind::box;
  Rect frame;
  std::string text;         // label text, button or check box title, field contents
  std::string placeholder;  // text fields
  Font font;
  std::optional<Color> textColor;  // label colour, or a button's content tint
  TextAlignment alignment = TextAlignment::natural;
  bool wraps = false;
  // Layer look.
  std::optional<Color> background;
  double cornerRadius = 0;
  double borderWidth = 0;
  std::optional<Color> borderColor;
  std::optional<Shadow> shadow;
  double alpha = 1;
  bool hidden = false;
  // Backed by a layer even without a background, so that a background can be given later.
  bool wantsLayer = false;
  // Controls.
  bool checked = false;                 // check box state
  std::string keyEquivalent;            // "\r" makes a push button the window's default button
  // Buttons, check boxes. Platforms call a copy, so that an action that closes its own surface
  // (and so destroys this view) finishes safely.
  std::function<void()> action;
  // A click on this view in a panel of an inactive application acts at once instead of only
  // bringing the panel forward.
  bool acceptsFirstMouse = false;
  // Hover tracking: when non-zero, the view keeps exactly one tracking area over its bounds with
  // these options (the platform's tracking-area flags, e.g. 0x01 entered/exited | 0x80 active
  // always), recreated whenever the view is resized. The handlers are called on entry and exit.
  std::uint32_t trackingAreaOptions = 0;
  std::function<void()> onMouseEntered;
  std::function<void()> onMouseExited;
  // Rich text, shapes, emitters.
  RichText richText;
  Size textInset;
  ShapeStyle shape;
  EmitterStyle emitter;

  std::vector<View> children;
  std::shared_ptr<ViewSlot> slot;
};

// A rendered view that the core changes after it is shown.
class LiveView {
 public:
  virtual ~LiveView() = default;
  virtual std::string text() const = 0;  // a field's current contents, a label's text
  virtual bool isChecked() const = 0;
  virtual void setText(const std::string& text) = 0;
  virtual void setRichText(const RichText& text) = 0;
  virtual void setHidden(bool hidden) = 0;
  virtual void setBackground(const std::optional<Color>& color) = 0;
  virtual std::optional<Color> background() const = 0;
  // A label's colour or a button's content tint.
  virtual std::optional<Color> textColor() const = 0;
  virtual void setTextColor(const std::optional<Color>& color) = 0;
  virtual Rect frame() const = 0;
  // Moves and resizes the view; a hover-tracking view recreates its one tracking area.
  virtual void setFrame(const Rect& frame) = 0;
  // Adds a view above this one's children (confetti, a button that appears later).
  virtual void addSubview(View view) = 0;
  // Fades the view to `alpha` over `duration` seconds.
  virtual void animateAlpha(double alpha, double duration) = 0;
  // An emitter's own birth rate; 0 stops new particles while those in flight finish.
  virtual void setEmitterBirthRate(double rate) = 0;
};

struct MenuItem {
  bool separator = false;
  std::string title;
  bool enabled = true;
  std::function<void()> action;  // none: shown disabled
  std::string keyEquivalent;
  std::uint64_t keyEquivalentModifiers = 0x100000;  // Command
  bool checked = false;
  bool checkable = false;  // a switch: the menu leaves room for its check mark even when off

  static MenuItem separatorItem() {
    MenuItem item;
    item.separator = true;
    item.enabled = false;
    return item;
  }
};

class StatusItem {
 public:
  virtual ~StatusItem() = default;
  virtual void setTitle(const std::string& title, const Font& font) = 0;
  virtual void setMenu(std::vector<MenuItem> items) = 0;
};

enum class AnimationTiming { defaultTiming, easeOut };

// A floating panel that never takes the keyboard focus from the application in front.
class CardPanel {
 public:
  virtual ~CardPanel() = default;
  virtual Rect frame() const = 0;
  virtual void setIgnoresMouseEvents(bool ignores) = 0;
  virtual void removeAllViews() = 0;
  virtual void setContentSize(Size size) = 0;
  virtual void addViews(std::vector<View> views) = 0;
  virtual void setAlpha(double alpha) = 0;
  // Animations end on the main queue; `completion` runs then.
  virtual void animateFrame(Rect frame, double duration, AnimationTiming timing, std::function<void()> completion) = 0;
  virtual void animateAlpha(double alpha, double duration, AnimationTiming timing) = 0;
  virtual void orderFrontRegardless() = 0;
  virtual void close() = 0;
};

// How a card panel is made. Every field is set by the core; the platform applies it literally.
struct CardPanelStyle {
  Rect contentRect;
  // Clicking the panel does not activate this application; it has no title bar and no border.
  bool nonActivating = true;
  bool ignoresMouseEvents = false;
  int level = 25;
  bool opaque = false;  // not opaque, with a clear window background
  bool hasShadow = true;
  bool hidesOnDeactivate = false;
  // The content view's layer.
  Color background;
  double cornerRadius = 0;
  double borderWidth = 0;
  Color borderColor;
};

class Window {
 public:
  virtual ~Window() = default;
  virtual void setTitle(const std::string& title) = 0;
  virtual void setBackground(const Color& color) = 0;
  virtual void center() = 0;
  virtual void setContent(View root) = 0;
  virtual void makeKeyAndOrderFront() = 0;
  virtual void close() = 0;
  virtual bool isVisible() const = 0;
  virtual Rect frame() const = 0;
  // Called when the window is about to close, by the user or by `close`.
  virtual void setWillClose(std::function<void()> handler) = 0;
};

class UI {
 public:
  virtual ~UI() = default;
  // Nothing when the status bar gives no item.
  virtual std::shared_ptr<StatusItem> createStatusItem() = 0;
  virtual std::shared_ptr<CardPanel> createCardPanel(const CardPanelStyle& style) = 0;
  // A titled, closable, fixed-size window; not released when closed.
  virtual std::shared_ptr<Window> createWindow(Size contentSize) = 0;
  // The size a view takes when sized to fit its text (labels and buttons).
  virtual Size sizeToFit(const View& view) = 0;
  // Brings this application to the front, ignoring other applications.
  virtual void activateIgnoringOtherApps() = 0;
  virtual void terminate() = 0;
};

}  // namespace mirlo
