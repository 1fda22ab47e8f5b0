#include "platform/linux/gdk_screens.h"

#include <gdk/gdk.h>

#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

namespace {

Rect toRect(const GdkRectangle& r) {
  return {static_cast<double>(r.x), static_cast<double>(r.y), static_cast<double>(r.width),
          static_cast<double>(r.height)};
}

GdkMonitor* primaryMonitor(GdkDisplay* display) {
  GdkMonitor* primary = gdk_display_get_primary_monitor(display);
  if (!primary && gdk_display_get_n_monitors(display) > 0) primary = gdk_display_get_monitor(display, 0);
  return primary;
}

}  // namespace

Rect flipToBottomLeft(const Rect& topLeft, const Rect& primary) {
  return {topLeft.x - primary.x, primary.y + primary.height - (topLeft.y + topLeft.height), topLeft.width,
          topLeft.height};
}

Rect flipToTopLeft(const Rect& bottomLeft, const Rect& primary) {
  return {bottomLeft.x + primary.x, primary.y + primary.height - (bottomLeft.y + bottomLeft.height),
          bottomLeft.width, bottomLeft.height};
}

Rect primaryMonitorGeometry() {
  GdkDisplay* display = gdk_display_get_default();
  GdkMonitor* primary = display ? primaryMonitor(display) : nullptr;
  if (!primary) return {};
  GdkRectangle geometry;
  gdk_monitor_get_geometry(primary, &geometry);
  return toRect(geometry);
}

GdkScreens::GdkScreens() {
  if (!gdk_display_get_default()) {
    gdk_set_allowed_backends("x11");
    if (!gdk_init_check(nullptr, nullptr) || !gdk_display_get_default())
      throw NoDisplayError("GDK cannot open the X display");
  }
  GdkDisplay* display = gdk_display_get_default();
  addedId_ = g_signal_connect_swapped(display, "monitor-added", G_CALLBACK(onMonitorsChanged), this);
  removedId_ = g_signal_connect_swapped(display, "monitor-removed", G_CALLBACK(onMonitorsChanged), this);
  // A monitor moved or resized, without one coming or going.
  rearrangedId_ = g_signal_connect_swapped(gdk_display_get_default_screen(display), "monitors-changed",
                                           G_CALLBACK(onMonitorsChanged), this);
}

GdkScreens::~GdkScreens() {
  if (GdkDisplay* display = gdk_display_get_default()) {
    g_signal_handler_disconnect(display, addedId_);
    g_signal_handler_disconnect(display, removedId_);
    g_signal_handler_disconnect(gdk_display_get_default_screen(display), rearrangedId_);
  }
  if (idle_) g_source_remove(idle_);
}

// Connected swapped: the instance comes first and the signal's own arguments are not needed. GDK
// emits while it is still rebuilding its list of monitors, so the change is told from the main loop
// once that is done, and once for a burst of signals.
void GdkScreens::onMonitorsChanged(void* self) {
  auto* screens = static_cast<GdkScreens*>(self);
  if (!screens->idle_) screens->idle_ = g_idle_add(&GdkScreens::tellChange, screens);
}

int GdkScreens::tellChange(void* self) {
  auto* screens = static_cast<GdkScreens*>(self);
  screens->idle_ = 0;
  auto handlers = screens->changeHandlers_;
  for (auto& handler : handlers) handler();
  return G_SOURCE_REMOVE;
}

void GdkScreens::addChangeHandler(std::function<void()> handler) { changeHandlers_.push_back(std::move(handler)); }

std::vector<Screen> GdkScreens::screens() {
  GdkDisplay* display = gdk_display_get_default();
  std::vector<Screen> result;
  GdkMonitor* primary = primaryMonitor(display);
  if (!primary) return result;
  GdkRectangle primaryGeometry;
  gdk_monitor_get_geometry(primary, &primaryGeometry);
  const Rect origin = toRect(primaryGeometry);
  auto add = [&](GdkMonitor* monitor) {
    GdkRectangle geometry, workArea;
    gdk_monitor_get_geometry(monitor, &geometry);
    gdk_monitor_get_workarea(monitor, &workArea);
    result.push_back({flipToBottomLeft(toRect(geometry), origin), flipToBottomLeft(toRect(workArea), origin)});
  };
  add(primary);
  for (int i = 0; i < gdk_display_get_n_monitors(display); ++i) {
    GdkMonitor* monitor = gdk_display_get_monitor(display, i);
    if (monitor != primary) add(monitor);
  }
  return result;
}

std::optional<Screen> GdkScreens::mainScreen() {
  // The screen holding the keyboard focus on macOS; here the one under the pointer.
  GdkDisplay* display = gdk_display_get_default();
  auto all = screens();
  if (all.empty()) return std::nullopt;
  Point pointer = mouseLocation();
  for (const auto& screen : all)
    if (screen.frame.contains(pointer)) return screen;
  (void)display;
  return all.front();
}

Point GdkScreens::mouseLocation() {
  GdkDisplay* display = gdk_display_get_default();
  GdkSeat* seat = gdk_display_get_default_seat(display);
  GdkDevice* pointer = seat ? gdk_seat_get_pointer(seat) : nullptr;
  if (!pointer) return {};
  int x = 0, y = 0;
  gdk_device_get_position(pointer, nullptr, &x, &y);
  GdkMonitor* primary = primaryMonitor(display);
  GdkRectangle geometry{0, 0, 0, 0};
  if (primary) gdk_monitor_get_geometry(primary, &geometry);
  return {static_cast<double>(x - geometry.x), static_cast<double>(geometry.y + geometry.height - y)};
}

}  // namespace mirlo::linuxdesk
