#include "platform/linux/atspi_accessibility.h"

#include <atspi/atspi.h>
#include <gio/gio.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "platform/linux/gdk_screens.h"
#include "platform/workspace.h"

namespace mirlo::linuxdesk {

// ---- offsets ------------------------------------------------------------------------------------

namespace {

// Walks the UTF-8 text code point by code point, calling `step(characters, units)` before each one
// and once at the end; stops when `step` returns true. Invalid bytes count as one character.
template <typename Step>
bool walk(std::string_view text, Step step) {
  std::int64_t characters = 0, units = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    if (step(characters, units)) return true;
    unsigned char lead = static_cast<unsigned char>(text[i]);
    std::size_t length = lead < 0x80 ? 1 : lead >> 5 == 0x6 ? 2 : lead >> 4 == 0xE ? 3 : lead >> 3 == 0x1E ? 4 : 1;
    if (i + length > text.size()) length = 1;
    i += length;
    characters += 1;
    units += length == 4 ? 2 : 1;
  }
  return step(characters, units);
}

}  // namespace

std::optional<std::int64_t> utf16OfCharacterOffset(std::string_view text, std::int64_t characters) {
  std::optional<std::int64_t> found;
  walk(text, [&](std::int64_t c, std::int64_t u) {
    if (c == characters) found = u;
    return c >= characters;
  });
  return found;
}

std::optional<std::int64_t> characterOffsetOfUtf16(std::string_view text, std::int64_t units) {
  std::optional<std::int64_t> found;
  walk(text, [&](std::int64_t c, std::int64_t u) {
    if (u == units) found = c;
    return u >= units;
  });
  return found;
}

std::optional<std::size_t> deepestFocused(const std::vector<int>& depths) {
  std::optional<std::size_t> found;
  for (std::size_t i = 0; i < depths.size(); ++i)
    if (!found || depths[i] >= depths[*found]) found = i;
  return found;
}

// ---- elements -----------------------------------------------------------------------------------

namespace {

class AtspiElement final : public AXElement {
 public:
  enum class Kind { systemWide, application, object };
  AtspiElement(Kind k, AtspiAccessible* o, std::int32_t p = 0)
      : kind(k), object(o ? static_cast<AtspiAccessible*>(g_object_ref(o)) : nullptr), pid(p) {}
  ~AtspiElement() override {
    if (object) g_object_unref(object);
  }
  AtspiElement(const AtspiElement&) = delete;
  AtspiElement& operator=(const AtspiElement&) = delete;

  Kind kind;
  AtspiAccessible* object;
  std::int32_t pid;
};

// Owns one GObject reference (or GError) for the scope.
template <typename T>
struct Owned {
  T* p = nullptr;
  ~Owned() {
    if (p) g_object_unref(p);
  }
  T* operator->() const { return p; }
  explicit operator bool() const { return p != nullptr; }
};

struct Error {
  GError* e = nullptr;
  ~Error() {
    if (e) g_error_free(e);
  }
  GError** operator&() { return &e; }
  explicit operator bool() const { return e != nullptr; }
};

bool hasState(AtspiAccessible* object, AtspiStateType state) {
  AtspiStateSet* states = atspi_accessible_get_state_set(object);
  if (!states) return false;
  bool result = atspi_state_set_contains(states, state);
  g_object_unref(states);
  return result;
}

bool isPassword(AtspiAccessible* object) {
  Error error;
  return atspi_accessible_get_role(object, &error) == ATSPI_ROLE_PASSWORD_TEXT;
}

// The characters [start, end) of `text`, or nothing when the application does not answer.
std::optional<std::string> textBetween(AtspiText* text, gint start, gint end) {
  Error error;
  gchar* chars = atspi_text_get_text(text, start, end, &error);
  if (error || !chars) {
    g_free(chars);
    return std::nullopt;
  }
  std::string result(chars);
  g_free(chars);
  return result;
}

std::optional<std::string> wholeText(AtspiText* text) {
  Error error;
  gint count = atspi_text_get_character_count(text, &error);
  if (error || count < 0) return std::nullopt;
  return textBetween(text, 0, count);
}

// The selection (or the caret, as an empty range) in characters.
bool selectionOffsets(AtspiText* text, gint& start, gint& end) {
  Error error;
  gint count = atspi_text_get_n_selections(text, &error);
  if (error) return false;
  if (count > 0) {
    AtspiRange* range = atspi_text_get_selection(text, 0, &error);
    if (error || !range) return false;
    start = std::min(range->start_offset, range->end_offset);
    end = std::max(range->start_offset, range->end_offset);
    g_free(range);
    return true;
  }
  gint caret = atspi_text_get_caret_offset(text, &error);
  if (error) return false;
  start = end = std::max(caret, 0);
  return true;
}

// Selects the characters [start, end), replacing the first selection if there is one.
bool select(AtspiText* text, gint start, gint end) {
  Error error;
  gint count = atspi_text_get_n_selections(text, &error);
  if (error) return false;
  bool done = count > 0 ? atspi_text_set_selection(text, 0, start, end, &error)
                        : atspi_text_add_selection(text, start, end, &error);
  return done && !error;
}

}  // namespace

struct AtspiAccessibility::Impl {
  explicit Impl(Workspace& w) : workspace(w) {}
  Workspace& workspace;
  AtspiEventListener* listener = nullptr;
  AtspiAccessible* lastFocused = nullptr;

  static void onFocus(AtspiEvent* event, void* data) {
    auto* impl = static_cast<Impl*>(data);
    if (!event->source || event->detail1 == 0) return;
    if (impl->lastFocused) g_object_unref(impl->lastFocused);
    impl->lastFocused = static_cast<AtspiAccessible*>(g_object_ref(event->source));
  }

  // The application's focused object, searched through its tree.
  static AtspiAccessible* focusedUnder(AtspiAccessible* app) {
    Owned<AtspiCollection> collection{atspi_accessible_get_collection_iface(app)};
    if (!collection) return nullptr;
    AtspiStateSet* states = atspi_state_set_new(nullptr);
    atspi_state_set_add(states, ATSPI_STATE_FOCUSED);
    AtspiMatchRule* rule = atspi_match_rule_new(states, ATSPI_Collection_MATCH_ALL, nullptr,
                                                ATSPI_Collection_MATCH_NONE, nullptr, ATSPI_Collection_MATCH_NONE,
                                                nullptr, ATSPI_Collection_MATCH_NONE, FALSE);
    Error error;
    GArray* matches = atspi_collection_get_matches(collection.p, rule, ATSPI_Collection_SORT_ORDER_CANONICAL, 0,
                                                   TRUE, &error);
    g_object_unref(rule);
    g_object_unref(states);
    if (!matches) return nullptr;
    std::vector<int> depths;
    for (guint i = 0; i < matches->len; ++i) depths.push_back(depthOf(g_array_index(matches, AtspiAccessible*, i)));
    const auto chosen = deepestFocused(depths);
    AtspiAccessible* found = chosen ? g_array_index(matches, AtspiAccessible*, *chosen) : nullptr;
    // Every entry holds a reference of its own, even when one object is listed twice.
    for (guint i = 0; i < matches->len; ++i)
      if (!chosen || i != *chosen) g_object_unref(g_array_index(matches, AtspiAccessible*, i));
    g_array_free(matches, TRUE);
    return found;
  }

  // How many ancestors `object` has, up to a bound that no real tree reaches.
  static int depthOf(AtspiAccessible* object) {
    constexpr int kBound = 256;
    int depth = 0;
    AtspiAccessible* current = static_cast<AtspiAccessible*>(g_object_ref(object));
    while (depth < kBound) {
      Error error;
      AtspiAccessible* parent = atspi_accessible_get_parent(current, &error);
      g_object_unref(current);
      if (!parent) return depth;
      current = parent;
      ++depth;
    }
    g_object_unref(current);
    return depth;
  }

  static AtspiAccessible* applicationOf(std::int32_t pid) {
    AtspiAccessible* desktop = atspi_get_desktop(0);
    if (!desktop) return nullptr;
    AtspiAccessible* result = nullptr;
    Error error;
    gint count = atspi_accessible_get_child_count(desktop, &error);
    for (gint i = 0; i < count && !result; ++i) {
      Error childError;
      AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, &childError);
      if (!app) continue;
      Error pidError;
      if (static_cast<std::int32_t>(atspi_accessible_get_process_id(app, &pidError)) == pid && !pidError)
        result = app;
      else
        g_object_unref(app);
    }
    g_object_unref(desktop);
    return result;
  }

  // The focused element: the last one focus events named while it keeps the focus, else the
  // focused object of the application with the active window.
  AtspiAccessible* focused() {
    if (lastFocused && hasState(lastFocused, ATSPI_STATE_FOCUSED))
      return static_cast<AtspiAccessible*>(g_object_ref(lastFocused));
    auto front = workspace.frontmostApplication();
    if (!front) return nullptr;
    // A keyboard grab (ours, while a hot key is down; a menu's) takes the focus from the window
    // without activating another one, and the toolkit clears the focused state until the grab
    // ends. The element named last still has the focus for the person if its window is in front.
    if (lastFocused && !hasState(lastFocused, ATSPI_STATE_DEFUNCT)) {
      Error error;
      if (static_cast<std::int32_t>(atspi_accessible_get_process_id(lastFocused, &error)) == front->pid && !error)
        return static_cast<AtspiAccessible*>(g_object_ref(lastFocused));
    }
    AtspiAccessible* app = applicationOf(front->pid);
    if (!app) return nullptr;
    AtspiAccessible* found = focusedUnder(app);
    g_object_unref(app);
    return found;
  }
};

AtspiAccessibility::AtspiAccessibility(Workspace& workspace) : impl_(new Impl(workspace)) {
  atspi_init();
  impl_->listener = atspi_event_listener_new(Impl::onFocus, impl_, nullptr);
  atspi_event_listener_register(impl_->listener, "object:state-changed:focused", nullptr);
}

AtspiAccessibility::~AtspiAccessibility() {
  atspi_event_listener_deregister(impl_->listener, "object:state-changed:focused", nullptr);
  g_object_unref(impl_->listener);
  if (impl_->lastFocused) g_object_unref(impl_->lastFocused);
  delete impl_;
}

bool AtspiAccessibility::enableDesktopAccessibility() {
  Error error;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!bus) return false;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, "org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Set",
      g_variant_new("(ssv)", "org.a11y.Status", "IsEnabled", g_variant_new_boolean(TRUE)), nullptr,
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (reply) g_variant_unref(reply);
  g_object_unref(bus);
  return reply != nullptr;
}

bool AtspiAccessibility::isProcessTrusted() {
  // Any process may use the accessibility bus on Linux; it is usable when it answers.
  AtspiAccessible* desktop = atspi_get_desktop(0);
  if (!desktop) return false;
  Error error;
  atspi_accessible_get_child_count(desktop, &error);
  g_object_unref(desktop);
  return !error;
}

bool AtspiAccessibility::isProcessTrustedWithOptions(bool) { return isProcessTrusted(); }

AXElementRef AtspiAccessibility::createSystemWide() {
  return std::make_shared<AtspiElement>(AtspiElement::Kind::systemWide, nullptr);
}

AXElementRef AtspiAccessibility::createApplication(std::int32_t pid) {
  return std::make_shared<AtspiElement>(AtspiElement::Kind::application, nullptr, pid);
}

AXError AtspiAccessibility::copyAttributeValue(const AXElementRef& ref, const std::string& attribute, AXValue& out) {
  auto element = std::dynamic_pointer_cast<AtspiElement>(ref);
  if (!element) return AXError::illegalArgument;
  if (element->kind == AtspiElement::Kind::systemWide) {
    if (attribute != ax::kFocusedUIElement) return AXError::attributeUnsupported;
    AtspiAccessible* focused = impl_->focused();
    if (!focused) return AXError::noValue;
    out = AXElementRef(std::make_shared<AtspiElement>(AtspiElement::Kind::object, focused));
    g_object_unref(focused);
    return AXError::success;
  }
  if (element->kind != AtspiElement::Kind::object) return AXError::attributeUnsupported;
  if (attribute != ax::kSelectedText && attribute != ax::kSelectedTextRange && attribute != ax::kValue)
    return AXError::attributeUnsupported;
  if (isPassword(element->object)) return AXError::attributeUnsupported;
  Owned<AtspiText> text{atspi_accessible_get_text_iface(element->object)};
  if (!text) return AXError::attributeUnsupported;
  auto whole = wholeText(text.p);
  if (!whole) return AXError::cannotComplete;
  if (attribute == ax::kValue) {
    out = *whole;
    return AXError::success;
  }
  gint start = 0, end = 0;
  if (!selectionOffsets(text.p, start, end)) return AXError::cannotComplete;
  auto from = utf16OfCharacterOffset(*whole, start);
  auto to = utf16OfCharacterOffset(*whole, end);
  if (!from || !to) return AXError::cannotComplete;
  if (attribute == ax::kSelectedTextRange) {
    out = AXRange{*from, *to - *from};
    return AXError::success;
  }
  auto selected = textBetween(text.p, start, end);
  if (!selected) return AXError::cannotComplete;
  out = *selected;
  return AXError::success;
}

AXError AtspiAccessibility::copyParameterizedAttributeValue(const AXElementRef& ref, const std::string& attribute,
                                                            const AXValue& parameter, AXValue& out) {
  auto element = std::dynamic_pointer_cast<AtspiElement>(ref);
  if (!element || element->kind != AtspiElement::Kind::object) return AXError::illegalArgument;
  if (attribute != ax::kBoundsForRange) return AXError::attributeUnsupported;
  const auto* range = std::get_if<AXRange>(&parameter);
  if (!range || range->location < 0 || range->length < 0) return AXError::illegalArgument;
  if (isPassword(element->object)) return AXError::attributeUnsupported;
  Owned<AtspiText> text{atspi_accessible_get_text_iface(element->object)};
  if (!text) return AXError::attributeUnsupported;
  auto whole = wholeText(text.p);
  if (!whole) return AXError::cannotComplete;
  auto start = characterOffsetOfUtf16(*whole, range->location);
  auto end = characterOffsetOfUtf16(*whole, range->location + range->length);
  if (!start || !end) return AXError::illegalArgument;
  Error error;
  // Screen coordinates from the top-left of the X screen, as the macOS interface gives them.
  AtspiRect* rect = atspi_text_get_range_extents(text.p, static_cast<gint>(*start), static_cast<gint>(*end),
                                                 ATSPI_COORD_TYPE_SCREEN, &error);
  if (error || !rect) {
    g_free(rect);
    return AXError::cannotComplete;
  }
  // The core measures from the primary monitor's top-left corner, which need not be the X screen's.
  const Rect primary = primaryMonitorGeometry();
  out = Rect{rect->x - primary.x, rect->y - primary.y, static_cast<double>(rect->width),
             static_cast<double>(rect->height)};
  g_free(rect);
  return AXError::success;
}

AXError AtspiAccessibility::isAttributeSettable(const AXElementRef& ref, const std::string& attribute,
                                                bool& settable) {
  auto element = std::dynamic_pointer_cast<AtspiElement>(ref);
  if (!element || element->kind != AtspiElement::Kind::object) return AXError::illegalArgument;
  settable = false;
  if (isPassword(element->object)) return AXError::success;
  if (attribute == ax::kSelectedText) {
    Owned<AtspiEditableText> editable{atspi_accessible_get_editable_text_iface(element->object)};
    settable = editable && hasState(element->object, ATSPI_STATE_EDITABLE);
  } else if (attribute == ax::kSelectedTextRange) {
    Owned<AtspiText> text{atspi_accessible_get_text_iface(element->object)};
    settable = static_cast<bool>(text);
  }
  return AXError::success;
}

AXError AtspiAccessibility::setAttributeValue(const AXElementRef& ref, const std::string& attribute,
                                              const AXValue& value) {
  auto element = std::dynamic_pointer_cast<AtspiElement>(ref);
  if (!element) return AXError::illegalArgument;
  if (element->kind == AtspiElement::Kind::application) {
    // Toolkits build their trees once the desktop asks for it; nothing to set per application.
    if (attribute == ax::kEnhancedUserInterface || attribute == ax::kManualAccessibility) return AXError::success;
    return AXError::attributeUnsupported;
  }
  if (element->kind != AtspiElement::Kind::object) return AXError::illegalArgument;
  if (isPassword(element->object)) return AXError::cannotComplete;

  if (attribute == ax::kSelectedText) {
    const auto* replacement = std::get_if<std::string>(&value);
    if (!replacement) return AXError::illegalArgument;
    Owned<AtspiText> text{atspi_accessible_get_text_iface(element->object)};
    Owned<AtspiEditableText> editable{atspi_accessible_get_editable_text_iface(element->object)};
    if (!text || !editable) return AXError::attributeUnsupported;
    gint start = 0, end = 0;
    if (!selectionOffsets(text.p, start, end)) return AXError::cannotComplete;
    auto before = wholeText(text.p);
    auto selected = textBetween(text.p, start, end);
    if (!before || !selected) return AXError::cannotComplete;
    Error error;
    if (end > start && !atspi_editable_text_delete_text(editable.p, start, end, &error)) return AXError::cannotComplete;
    if (error) return AXError::cannotComplete;
    if (!replacement->empty() &&
        !atspi_editable_text_insert_text(editable.p, start, replacement->c_str(),
                                         static_cast<gint>(replacement->size()), &error))
      return AXError::cannotComplete;
    if (error) return AXError::cannotComplete;
    // Some applications answer yes to both calls and change nothing (a browser's page, a field
    // whose owner rejects programmatic edits). The text, read back, tells: untouched means the
    // write did not happen. The calls may have moved the caret: the selection is put back, for
    // another way to replace it.
    auto after = wholeText(text.p);
    if (!after) return AXError::cannotComplete;
    if (*after == *before && *selected != *replacement) {
      if (end > start) select(text.p, start, end);
      return AXError::cannotComplete;
    }
    return AXError::success;
  }
  if (attribute == ax::kSelectedTextRange) {
    const auto* range = std::get_if<AXRange>(&value);
    if (!range || range->location < 0 || range->length < 0) return AXError::illegalArgument;
    Owned<AtspiText> text{atspi_accessible_get_text_iface(element->object)};
    if (!text) return AXError::attributeUnsupported;
    auto whole = wholeText(text.p);
    if (!whole) return AXError::cannotComplete;
    auto start = characterOffsetOfUtf16(*whole, range->location);
    auto end = characterOffsetOfUtf16(*whole, range->location + range->length);
    if (!start || !end) return AXError::illegalArgument;
    if (*start != *end)
      return select(text.p, static_cast<gint>(*start), static_cast<gint>(*end)) ? AXError::success
                                                                                : AXError::cannotComplete;
    Error error;
    gint count = atspi_text_get_n_selections(text.p, &error);
    if (error) return AXError::cannotComplete;
    for (gint i = count - 1; i >= 0; --i) atspi_text_remove_selection(text.p, i, &error);
    bool done = atspi_text_set_caret_offset(text.p, static_cast<gint>(*start), &error);
    return done && !error ? AXError::success : AXError::cannotComplete;
  }
  return AXError::attributeUnsupported;
}

}  // namespace mirlo::linuxdesk
