#include "platform/mac/mac_ui.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>

#include "platform/mac/ns.h"

#include <cmath>
#include <functional>
#include <utility>
#include <vector>

using mirlo::Color;
using mirlo::View;
using mirlo::ViewKind;

// --- Conversions.

namespace {

// What AppKit shows for a text that is not UTF-8 (the core never makes one): nothing.
NSString* nsString(const std::string& text) {
  NSString* string = mirlo::mac::makeNSString(text);
  return string ? string : @"";
}

std::string stdString(NSString* string) { return mirlo::mac::utf8Of(string).value_or(std::string()); }

NSColor* nsColor(const Color& c) { return [NSColor colorWithSRGBRed:c.red green:c.green blue:c.blue alpha:c.alpha]; }

NSRect nsRect(const mirlo::Rect& r) { return NSMakeRect(r.x, r.y, r.width, r.height); }

mirlo::Rect rectOf(NSRect r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }

NSFont* nsFont(const mirlo::Font& font) {
  NSFontWeight weight = NSFontWeightRegular;
  switch (font.weight) {
    case mirlo::FontWeight::regular: weight = NSFontWeightRegular; break;
    case mirlo::FontWeight::medium: weight = NSFontWeightMedium; break;
    case mirlo::FontWeight::semibold: weight = NSFontWeightSemibold; break;
    case mirlo::FontWeight::bold: weight = NSFontWeightBold; break;
    case mirlo::FontWeight::heavy: weight = NSFontWeightHeavy; break;
  }
  if (font.monospaced) return [NSFont monospacedSystemFontOfSize:font.size weight:weight];
  return [NSFont systemFontOfSize:font.size weight:weight];
}

NSTextAlignment nsAlignment(mirlo::TextAlignment alignment) {
  switch (alignment) {
    case mirlo::TextAlignment::natural: return NSTextAlignmentNatural;
    case mirlo::TextAlignment::left: return NSTextAlignmentLeft;
    case mirlo::TextAlignment::center: return NSTextAlignmentCenter;
    case mirlo::TextAlignment::right: return NSTextAlignmentRight;
  }
  return NSTextAlignmentNatural;
}

NSAttributedString* attributedText(const mirlo::RichText& text) {
  NSMutableAttributedString* result = [[[NSMutableAttributedString alloc] init] autorelease];
  NSMutableParagraphStyle* paragraph = [[[NSMutableParagraphStyle alloc] init] autorelease];
  [paragraph setLineSpacing:text.lineSpacing];
  for (const auto& run : text.runs) {
    NSMutableDictionary* attributes = [NSMutableDictionary dictionary];
    [attributes setObject:nsFont(run.font) forKey:NSFontAttributeName];
    [attributes setObject:nsColor(run.color) forKey:NSForegroundColorAttributeName];
    [attributes setObject:paragraph forKey:NSParagraphStyleAttributeName];
    if (run.background) [attributes setObject:nsColor(*run.background) forKey:NSBackgroundColorAttributeName];
    if (run.dottedUnderline) {
      [attributes setObject:[NSNumber numberWithInteger:static_cast<NSInteger>(NSUnderlineStyleSingle) |
                                                            static_cast<NSInteger>(NSUnderlineStylePatternDot)]
                     forKey:NSUnderlineStyleAttributeName];
      [attributes setObject:nsColor(*run.dottedUnderline) forKey:NSUnderlineColorAttributeName];
    }
    NSAttributedString* piece = [[[NSAttributedString alloc] initWithString:nsString(run.text)
                                                                  attributes:attributes] autorelease];
    [result appendAttributedString:piece];
  }
  return result;
}

// A new path (+1) from the core's steps.
CGMutablePathRef createPath(const std::vector<mirlo::PathStep>& steps) {
  CGMutablePathRef path = CGPathCreateMutable();
  for (const auto& step : steps) {
    switch (step.op) {
      case mirlo::PathStep::Op::moveTo: CGPathMoveToPoint(path, nullptr, step.to.x, step.to.y); break;
      case mirlo::PathStep::Op::lineTo: CGPathAddLineToPoint(path, nullptr, step.to.x, step.to.y); break;
      case mirlo::PathStep::Op::quadCurveTo:
        CGPathAddQuadCurveToPoint(path, nullptr, step.control.x, step.control.y, step.to.x, step.to.y);
        break;
    }
  }
  return path;
}

}  // namespace

// --- Views with behaviour of their own.

// The target of a control's action or a menu item: runs a copy of the closure, with itself kept
// alive, so that an action that tears down its own surface (or rebuilds its menu) completes.
@interface MirloActionTarget : NSObject {
  std::function<void()> action_;
}
- (instancetype)initWithAction:(std::function<void()>)action;
- (void)perform:(id)sender;
@end

@implementation MirloActionTarget
- (instancetype)initWithAction:(std::function<void()>)action {
  if ((self = [super init])) action_ = std::move(action);
  return self;
}
- (void)perform:(id)sender {
  // The action may close the surface that holds the sender and this target: both stay alive
  // until the current event has been handled.
  [[self retain] autorelease];
  [[sender retain] autorelease];
  if (!action_) return;
  auto action = action_;
  action();
}
@end

// Buttons and check boxes: their own target, an optional click-through, and an optional single
// hover tracking area whose events go to the description's handlers.
@interface MirloButton : NSButton {
  MirloActionTarget* target_;
  BOOL acceptsFirstMouse_;
  NSTrackingAreaOptions trackingOptions_;
  std::function<void()> onEntered_;
  std::function<void()> onExited_;
}
- (void)mirloConfigure:(const View&)view;
@end

@implementation MirloButton
- (void)dealloc {
  [target_ release];
  [super dealloc];
}
- (void)mirloConfigure:(const View&)view {
  [target_ release];
  target_ = [[MirloActionTarget alloc] initWithAction:view.action];
  [self setTarget:target_];
  [self setAction:@selector(perform:)];
  acceptsFirstMouse_ = view.acceptsFirstMouse ? YES : NO;
  trackingOptions_ = view.trackingAreaOptions;
  onEntered_ = view.onMouseEntered;
  onExited_ = view.onMouseExited;
  [self updateTrackingAreas];
}
- (BOOL)acceptsFirstMouse:(NSEvent*)event {
  (void)event;
  return acceptsFirstMouse_;
}
- (void)updateTrackingAreas {
  [super updateTrackingAreas];
  for (NSTrackingArea* area in [[[self trackingAreas] copy] autorelease]) [self removeTrackingArea:area];
  if (trackingOptions_ == 0) return;
  NSTrackingArea* area = [[[NSTrackingArea alloc] initWithRect:[self bounds]
                                                       options:trackingOptions_
                                                         owner:self
                                                      userInfo:nil] autorelease];
  [self addTrackingArea:area];
}
- (void)mouseEntered:(NSEvent*)event {
  (void)event;
  if (onEntered_) onEntered_();
}
- (void)mouseExited:(NSEvent*)event {
  (void)event;
  if (onExited_) onExited_();
}
@end

namespace mirlo::mac {

namespace {

void applyLayerLook(NSView* view, const View& description) {
  const bool needsLayer = description.wantsLayer || description.background || description.cornerRadius != 0 ||
                          description.borderWidth != 0 || description.shadow;
  if (needsLayer) {
    [view setWantsLayer:YES];
    CALayer* layer = [view layer];
    if (description.background) [layer setBackgroundColor:[nsColor(*description.background) CGColor]];
    [layer setCornerRadius:description.cornerRadius];
    [layer setBorderWidth:description.borderWidth];
    if (description.borderColor) [layer setBorderColor:[nsColor(*description.borderColor) CGColor]];
    if (const auto& shadow = description.shadow) {
      [layer setShadowColor:[nsColor(shadow->color) CGColor]];
      [layer setShadowOpacity:static_cast<float>(shadow->opacity)];
      [layer setShadowRadius:shadow->radius];
      [layer setShadowOffset:CGSizeMake(shadow->offset.x, shadow->offset.y)];
    }
  }
  [view setAlphaValue:description.alpha];
  [view setHidden:description.hidden ? YES : NO];
}

// A button's title in its font and tint.
void setButtonTitle(NSButton* button, const std::string& title, const Font& font, const std::optional<Color>& tint) {
  [button setTitle:nsString(title)];
  [button setFont:nsFont(font)];
  [button setContentTintColor:tint ? nsColor(*tint) : nil];
}

NSTextField* makeLabel(const View& v) {
  NSTextField* label = [NSTextField labelWithString:nsString(v.text)];
  [label setFont:nsFont(v.font)];
  if (v.textColor) [label setTextColor:nsColor(*v.textColor)];
  [label setAlignment:nsAlignment(v.alignment)];
  if (v.wraps) {
    [label setLineBreakMode:NSLineBreakByWordWrapping];
    [label setUsesSingleLineMode:NO];
    [label setMaximumNumberOfLines:0];
  }
  return label;
}

MirloButton* makeButton(const View& v) {
  MirloButton* button = [[[MirloButton alloc] initWithFrame:NSZeroRect] autorelease];
  switch (v.kind) {
    case ViewKind::flatButton:
      [button setBordered:NO];
      [button setWantsLayer:YES];
      break;
    case ViewKind::checkBox:
      [button setButtonType:NSButtonTypeSwitch];
      [button setState:v.checked ? NSControlStateValueOn : NSControlStateValueOff];
      break;
    default:
      [button setButtonType:NSButtonTypeMomentaryPushIn];
      [button setBezelStyle:NSBezelStyleRounded];
      break;
  }
  setButtonTitle(button, v.text, v.font, v.textColor);
  if (!v.keyEquivalent.empty()) [button setKeyEquivalent:nsString(v.keyEquivalent)];
  return button;
}

NSTextView* makeRichText(const View& v) {
  NSTextView* text = [[[NSTextView alloc] initWithFrame:nsRect(v.frame)] autorelease];
  [text setEditable:NO];
  [text setSelectable:NO];
  [text setDrawsBackground:NO];
  [text setTextContainerInset:NSMakeSize(v.textInset.width, v.textInset.height)];
  [[text textStorage] setAttributedString:attributedText(v.richText)];
  return text;
}

NSView* makeShape(const View& v) {
  NSView* view = [[[NSView alloc] initWithFrame:nsRect(v.frame)] autorelease];
  [view setWantsLayer:YES];
  CAShapeLayer* shape = [CAShapeLayer layer];
  [shape setFrame:[view bounds]];
  CGMutablePathRef path = createPath(v.shape.path);
  [shape setPath:path];  // the layer keeps its own reference
  CGPathRelease(path);
  [shape setStrokeColor:v.shape.stroke ? [nsColor(*v.shape.stroke) CGColor] : nullptr];
  [shape setFillColor:v.shape.fill ? [nsColor(*v.shape.fill) CGColor] : nullptr];
  [shape setLineWidth:v.shape.lineWidth];
  if (v.shape.roundCaps) [shape setLineCap:kCALineCapRound];
  [[view layer] addSublayer:shape];
  return view;
}

// The image of one confetti piece: a rounded rectangle of the colour.
id cellImage(const EmitterStyle& style, const Color& color) {
  const NSSize size = NSMakeSize(style.cellSize.width, style.cellSize.height);
  NSColor* fill = nsColor(color);
  const CGFloat radius = style.cellCornerRadius;
  NSImage* image = [NSImage imageWithSize:size
                                  flipped:NO
                           drawingHandler:^BOOL(NSRect bounds) {
                             [fill setFill];
                             [[NSBezierPath bezierPathWithRoundedRect:bounds xRadius:radius yRadius:radius] fill];
                             return YES;
                           }];
  // Owned by the image; the cell's `contents` keeps its own reference.
  return (id)[image CGImageForProposedRect:nullptr context:nil hints:nil];
}

NSView* makeEmitter(const View& v, MainQueue& mainQueue) {
  NSView* view = [[[NSView alloc] initWithFrame:nsRect(v.frame)] autorelease];
  [view setWantsLayer:YES];
  const EmitterStyle& style = v.emitter;
  CAEmitterLayer* emitter = [CAEmitterLayer layer];
  [emitter setEmitterPosition:CGPointMake(style.position.x, style.position.y)];
  [emitter setEmitterSize:CGSizeMake(style.size.width, style.size.height)];
  [emitter setBirthRate:static_cast<float>(style.birthRate)];  // multiplies each cell's rate
  NSMutableArray* cells = [NSMutableArray array];
  for (const auto& color : style.colors) {
    CAEmitterCell* cell = [CAEmitterCell emitterCell];
    [cell setContents:cellImage(style, color)];
    [cell setBirthRate:static_cast<float>(style.cellBirthRate > 0 ? style.cellBirthRate : style.birthRate)];
    [cell setLifetime:static_cast<float>(style.lifetime)];
    [cell setVelocity:style.velocity];
    [cell setVelocityRange:style.velocityRange];
    [cell setEmissionLongitude:style.emissionLongitude];
    [cell setEmissionRange:style.emissionRange];
    [cell setSpin:style.spin];
    [cell setSpinRange:style.spinRange];
    [cell setScale:style.scale];
    [cell setScaleRange:style.scaleRange];
    [cell setYAcceleration:style.yAcceleration];
    [cells addObject:cell];
  }
  [emitter setEmitterCells:cells];
  [[view layer] addSublayer:emitter];
  // Production stops when the core says so (through the live view, or after the description's
  // duration when it gives one); the pieces in flight finish their lives.
  if (style.duration > 0) {
    [emitter retain];
    mainQueue.postAfter(style.duration, [emitter] {
      [emitter setBirthRate:0.0f];
      [emitter release];
    });
  }
  return view;
}

class MacLiveView final : public LiveView {
 public:
  MacLiveView(NSView* view, const View& description, MainQueue& mainQueue)
      : view_([view retain]), mainQueue_(&mainQueue), background_(description.background),
        textColor_(description.textColor), font_(description.font) {}
  ~MacLiveView() override { [view_ autorelease]; }
  MacLiveView(const MacLiveView&) = delete;
  MacLiveView& operator=(const MacLiveView&) = delete;

  std::string text() const override {
    if ([view_ isKindOfClass:[NSTextView class]]) return stdString([static_cast<NSTextView*>(view_) string]);
    if ([view_ isKindOfClass:[NSButton class]]) return stdString([static_cast<NSButton*>(view_) title]);
    if ([view_ isKindOfClass:[NSTextField class]]) return stdString([static_cast<NSTextField*>(view_) stringValue]);
    return {};
  }

  bool isChecked() const override {
    if (![view_ isKindOfClass:[NSButton class]]) return false;
    return [static_cast<NSButton*>(view_) state] == NSControlStateValueOn;
  }

  void setText(const std::string& text) override {
    if ([view_ isKindOfClass:[NSButton class]]) setButtonTitle(static_cast<NSButton*>(view_), text, font_, textColor_);
    else if ([view_ isKindOfClass:[NSTextField class]]) [static_cast<NSTextField*>(view_) setStringValue:nsString(text)];
    else if ([view_ isKindOfClass:[NSTextView class]]) [static_cast<NSTextView*>(view_) setString:nsString(text)];
  }

  void setRichText(const RichText& text) override {
    if (![view_ isKindOfClass:[NSTextView class]]) return;
    [[static_cast<NSTextView*>(view_) textStorage] setAttributedString:attributedText(text)];
  }

  void setHidden(bool hidden) override { [view_ setHidden:hidden ? YES : NO]; }

  void setBackground(const std::optional<Color>& color) override {
    background_ = color;
    [view_ setWantsLayer:YES];
    [[view_ layer] setBackgroundColor:color ? [nsColor(*color) CGColor] : nullptr];
  }
  std::optional<Color> background() const override { return background_; }

  std::optional<Color> textColor() const override { return textColor_; }
  void setTextColor(const std::optional<Color>& color) override {
    textColor_ = color;
    if ([view_ isKindOfClass:[NSButton class]])
      [static_cast<NSButton*>(view_) setContentTintColor:color ? nsColor(*color) : nil];
    else if ([view_ isKindOfClass:[NSTextField class]])
      [static_cast<NSTextField*>(view_) setTextColor:color ? nsColor(*color) : [NSColor labelColor]];
  }

  Rect frame() const override { return rectOf([view_ frame]); }
  void setFrame(const Rect& frame) override {
    [view_ setFrame:nsRect(frame)];
    [view_ updateTrackingAreas];
  }

  void addSubview(View view) override;

  void animateAlpha(double alpha, double duration) override {
    NSView* target = view_;
    [NSAnimationContext
        runAnimationGroup:^(NSAnimationContext* context) {
          [context setDuration:duration];
          [[target animator] setAlphaValue:alpha];
        }
        completionHandler:nil];
  }

  void setEmitterBirthRate(double rate) override {
    for (CALayer* layer in [[view_ layer] sublayers])
      if ([layer isKindOfClass:[CAEmitterLayer class]]) [static_cast<CAEmitterLayer*>(layer) setBirthRate:static_cast<float>(rate)];
  }

 private:
  NSView* view_;
  MainQueue* mainQueue_;
  std::optional<Color> background_;
  std::optional<Color> textColor_;
  Font font_;
};

// The view for one description and its children (autoreleased); fills the description's slot.
NSView* render(const View& v, MainQueue& mainQueue) {
  NSView* view = nil;
  switch (v.kind) {
    case ViewKind::box: view = [[[NSView alloc] initWithFrame:NSZeroRect] autorelease]; break;
    case ViewKind::label: view = makeLabel(v); break;
    case ViewKind::flatButton:
    case ViewKind::pushButton:
    case ViewKind::checkBox: view = makeButton(v); break;
    case ViewKind::textField:
    case ViewKind::secureField: {
      NSTextField* field = v.kind == ViewKind::secureField
                               ? [[[NSSecureTextField alloc] initWithFrame:NSZeroRect] autorelease]
                               : [[[NSTextField alloc] initWithFrame:NSZeroRect] autorelease];
      [field setStringValue:nsString(v.text)];
      [field setPlaceholderString:nsString(v.placeholder)];
      [field setFont:nsFont(v.font)];
      view = field;
      break;
    }
    case ViewKind::spinner: {
      NSProgressIndicator* spinner = [[[NSProgressIndicator alloc] initWithFrame:NSZeroRect] autorelease];
      [spinner setStyle:NSProgressIndicatorStyleSpinning];
      [spinner setControlSize:NSControlSizeSmall];
      [spinner startAnimation:nil];
      view = spinner;
      break;
    }
    case ViewKind::richText: view = makeRichText(v); break;
    case ViewKind::shape: view = makeShape(v); break;
    case ViewKind::emitter: view = makeEmitter(v, mainQueue); break;
  }
  [view setFrame:nsRect(v.frame)];
  applyLayerLook(view, v);
  if ([view isKindOfClass:[MirloButton class]]) [static_cast<MirloButton*>(view) mirloConfigure:v];
  for (const auto& child : v.children) [view addSubview:render(child, mainQueue)];
  if (v.slot) v.slot->live = std::make_shared<MacLiveView>(view, v, mainQueue);
  return view;
}

void MacLiveView::addSubview(View view) { [view_ addSubview:render(view, *mainQueue_)]; }

// --- The status item.

class MacStatusItem final : public StatusItem {
 public:
  explicit MacStatusItem(NSStatusItem* item) : item_([item retain]) {}
  ~MacStatusItem() override {
    [targets_ release];
    [item_ release];
  }
  MacStatusItem(const MacStatusItem&) = delete;
  MacStatusItem& operator=(const MacStatusItem&) = delete;

  void setTitle(const std::string& title, const Font& font) override {
    NSStatusBarButton* button = [item_ button];
    if (!button) return;
    [button setTitle:nsString(title)];
    [button setFont:nsFont(font)];
  }

  void setMenu(std::vector<MenuItem> items) override {
    NSMenu* menu = [[[NSMenu alloc] initWithTitle:@""] autorelease];
    [menu setAutoenablesItems:NO];
    NSMutableArray* targets = [[NSMutableArray alloc] init];
    for (auto& item : items) {
      if (item.separator) {
        [menu addItem:[NSMenuItem separatorItem]];
        continue;
      }
      NSMenuItem* entry = [[[NSMenuItem alloc] initWithTitle:nsString(item.title)
                                                      action:nullptr
                                               keyEquivalent:nsString(item.keyEquivalent)] autorelease];
      [entry setKeyEquivalentModifierMask:static_cast<NSEventModifierFlags>(item.keyEquivalentModifiers)];
      [entry setState:item.checked ? NSControlStateValueOn : NSControlStateValueOff];
      if (item.action) {
        MirloActionTarget* target = [[[MirloActionTarget alloc] initWithAction:std::move(item.action)] autorelease];
        [targets addObject:target];  // menu items do not keep their targets
        [entry setTarget:target];
        [entry setAction:@selector(perform:)];
      }
      [entry setEnabled:item.enabled && [entry action] != nullptr ? YES : NO];
      [menu addItem:entry];
    }
    [item_ setMenu:menu];
    [targets_ release];
    targets_ = targets;
  }

 private:
  NSStatusItem* item_;
  NSMutableArray* targets_ = nil;
};

// --- The card panel.

class MacCardPanel final : public CardPanel {
 public:
  explicit MacCardPanel(const CardPanelStyle& style, MainQueue& mainQueue) : mainQueue_(mainQueue) {
    const NSWindowStyleMask mask = style.nonActivating ? NSWindowStyleMaskNonactivatingPanel : NSWindowStyleMaskBorderless;
    panel_ = [[NSPanel alloc] initWithContentRect:nsRect(style.contentRect)
                                        styleMask:mask
                                          backing:NSBackingStoreBuffered
                                            defer:NO];
    [panel_ setReleasedWhenClosed:NO];
    [panel_ setLevel:style.level];
    [panel_ setOpaque:style.opaque ? YES : NO];
    [panel_ setBackgroundColor:[NSColor clearColor]];
    [panel_ setHasShadow:style.hasShadow ? YES : NO];
    [panel_ setHidesOnDeactivate:style.hidesOnDeactivate ? YES : NO];
    [panel_ setIgnoresMouseEvents:style.ignoresMouseEvents ? YES : NO];
    // Beside a selection in a full-screen application too: without these, a panel of another
    // application stays out of that application's Space.
    const NSWindowCollectionBehavior everySpace = NSWindowCollectionBehaviorCanJoinAllSpaces;
    [panel_ setCollectionBehavior:everySpace | NSWindowCollectionBehaviorFullScreenAuxiliary];
    const Rect& r = style.contentRect;
    NSView* content = [[[NSView alloc] initWithFrame:NSMakeRect(0, 0, r.width, r.height)] autorelease];
    [content setWantsLayer:YES];
    CALayer* layer = [content layer];
    [layer setBackgroundColor:[nsColor(style.background) CGColor]];
    [layer setCornerRadius:style.cornerRadius];
    [layer setBorderWidth:style.borderWidth];
    [layer setBorderColor:[nsColor(style.borderColor) CGColor]];
    [panel_ setContentView:content];
  }
  // The last reference can go while the panel is handling one of its own clicks (an action that
  // closes the card): it is let go once that event is done.
  ~MacCardPanel() override { [panel_ autorelease]; }
  MacCardPanel(const MacCardPanel&) = delete;
  MacCardPanel& operator=(const MacCardPanel&) = delete;

  Rect frame() const override { return rectOf([panel_ frame]); }
  void setIgnoresMouseEvents(bool ignores) override { [panel_ setIgnoresMouseEvents:ignores ? YES : NO]; }

  void removeAllViews() override {
    NSView* content = [panel_ contentView];
    for (NSView* subview in [[[content subviews] copy] autorelease]) [subview removeFromSuperview];
  }

  void setContentSize(Size size) override {
    [[panel_ contentView] setFrame:NSMakeRect(0, 0, size.width, size.height)];
  }

  void addViews(std::vector<View> views) override {
    NSView* content = [panel_ contentView];
    for (const auto& view : views) [content addSubview:render(view, mainQueue_)];
  }

  void setAlpha(double alpha) override { [panel_ setAlphaValue:alpha]; }

  void animateFrame(Rect frame, double duration, AnimationTiming timing, std::function<void()> completion) override {
    NSPanel* panel = panel_;
    [NSAnimationContext
        runAnimationGroup:^(NSAnimationContext* context) {
          [context setDuration:duration];
          if (timing == AnimationTiming::easeOut)
            [context setTimingFunction:[CAMediaTimingFunction functionWithName:kCAMediaTimingFunctionEaseOut]];
          [[panel animator] setFrame:nsRect(frame) display:YES];
        }
        completionHandler:^{
          if (completion) completion();
        }];
  }

  void animateAlpha(double alpha, double duration, AnimationTiming timing) override {
    NSPanel* panel = panel_;
    [NSAnimationContext
        runAnimationGroup:^(NSAnimationContext* context) {
          [context setDuration:duration];
          if (timing == AnimationTiming::easeOut)
            [context setTimingFunction:[CAMediaTimingFunction functionWithName:kCAMediaTimingFunctionEaseOut]];
          [[panel animator] setAlphaValue:alpha];
        }
        completionHandler:nil];
  }

  void orderFrontRegardless() override { [panel_ orderFrontRegardless]; }
  void close() override { [panel_ close]; }

 private:
  MainQueue& mainQueue_;
  NSPanel* panel_ = nil;
};

// --- Windows.

class MacWindow final : public Window {
 public:
  MacWindow(Size contentSize, MainQueue& mainQueue) : mainQueue_(mainQueue) {
    window_ = [[NSWindow alloc] initWithContentRect:NSMakeRect(0, 0, contentSize.width, contentSize.height)
                                          styleMask:NSWindowStyleMaskTitled | NSWindowStyleMaskClosable
                                            backing:NSBackingStoreBuffered
                                              defer:NO];
    [window_ setReleasedWhenClosed:NO];
    willClose_ = std::make_shared<std::function<void()>>();
    auto willClose = willClose_;
    observer_ = [[[NSNotificationCenter defaultCenter] addObserverForName:NSWindowWillCloseNotification
                                                                   object:window_
                                                                    queue:nil
                                                               usingBlock:^(NSNotification*) {
                                                                 if (*willClose) (*willClose)();
                                                               }] retain];
  }
  ~MacWindow() override {
    [[NSNotificationCenter defaultCenter] removeObserver:observer_];
    [observer_ release];
    [window_ autorelease];  // as for the card: possibly inside one of its own events
  }
  MacWindow(const MacWindow&) = delete;
  MacWindow& operator=(const MacWindow&) = delete;

  void setTitle(const std::string& title) override { [window_ setTitle:nsString(title)]; }
  void setBackground(const Color& color) override { [window_ setBackgroundColor:nsColor(color)]; }
  void center() override { [window_ center]; }

  void setContent(View root) override {
    NSView* content = [window_ contentView];
    for (NSView* subview in [[[content subviews] copy] autorelease]) [subview removeFromSuperview];
    [content addSubview:render(root, mainQueue_)];
  }

  void makeKeyAndOrderFront() override { [window_ makeKeyAndOrderFront:nil]; }
  void close() override { [window_ close]; }
  bool isVisible() const override { return [window_ isVisible]; }
  Rect frame() const override { return rectOf([window_ frame]); }
  void setWillClose(std::function<void()> handler) override { *willClose_ = std::move(handler); }

 private:
  MainQueue& mainQueue_;
  NSWindow* window_ = nil;
  id observer_ = nil;
  std::shared_ptr<std::function<void()>> willClose_;
};

// --- The whole.

class MacUI final : public UI {
 public:
  explicit MacUI(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

  std::shared_ptr<StatusItem> createStatusItem() override {
    NSStatusItem* item = [[NSStatusBar systemStatusBar] statusItemWithLength:NSSquareStatusItemLength];
    if (!item) return nullptr;
    return std::make_shared<MacStatusItem>(item);
  }

  std::shared_ptr<CardPanel> createCardPanel(const CardPanelStyle& style) override {
    return std::make_shared<MacCardPanel>(style, mainQueue_);
  }

  std::shared_ptr<Window> createWindow(Size contentSize) override {
    return std::make_shared<MacWindow>(contentSize, mainQueue_);
  }

  Size sizeToFit(const View& view) override {
    NSControl* control = nil;
    if (view.kind == ViewKind::label) control = makeLabel(view);
    else if (view.kind == ViewKind::flatButton || view.kind == ViewKind::pushButton || view.kind == ViewKind::checkBox)
      control = makeButton(view);
    if (!control) return view.frame.size();
    if (view.kind == ViewKind::label && view.wraps && view.frame.width > 0) {
      // A wrapping label keeps its width and grows as many lines as its text needs there.
      const NSSize fitted = [[control cell] cellSizeForBounds:NSMakeRect(0, 0, view.frame.width, 1e7)];
      return {view.frame.width, std::ceil(fitted.height)};
    }
    [control sizeToFit];
    const NSRect fitted = [control frame];
    return {fitted.size.width, fitted.size.height};
  }

  void activateIgnoringOtherApps() override { [NSApp activateIgnoringOtherApps:YES]; }
  void terminate() override { [NSApp terminate:nil]; }

 private:
  MainQueue& mainQueue_;
};

}  // namespace

std::unique_ptr<UI> makeUI(MainQueue& mainQueue) { return std::make_unique<MacUI>(mainQueue); }

}  // namespace mirlo::mac
