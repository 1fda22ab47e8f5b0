// The status item as a StatusNotifierItem: a label beside a themed icon, and the menu as a GTK
// menu with the key equivalents shown. A desktop without a status-notifier host gets one line on
// stderr; the item still registers if a host appears later.
#include <libayatana-appindicator/app-indicator.h>

#include <cstdio>

#include "platform/gtk/gtk_ui.h"
#include "platform/keyboard.h"

namespace mirlo::gtk {

namespace {

GdkModifierType modifiers(std::uint64_t flags) {
  int mods = 0;
  if (flags & modifier::shift) mods |= GDK_SHIFT_MASK;
  // The command key of the menus is Control on this desktop.
  if (flags & (modifier::command | modifier::control)) mods |= GDK_CONTROL_MASK;
  if (flags & modifier::option) mods |= GDK_MOD1_MASK;
  return static_cast<GdkModifierType>(mods);
}

bool hostPresent() {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  if (!bus) return false;
  bool present = false;
  if (GVariant* reply = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                    "org.freedesktop.DBus", "NameHasOwner",
                                                    g_variant_new("(s)", "org.kde.StatusNotifierWatcher"),
                                                    G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, 1000, nullptr, nullptr)) {
    gboolean owned = FALSE;
    g_variant_get(reply, "(b)", &owned);
    present = owned;
    g_variant_unref(reply);
  }
  g_object_unref(bus);
  return present;
}

class GtkStatusItem final : public StatusItem {
 public:
  GtkStatusItem() {
    createIndicator();
    // The indicator fetches the session bus and watches for the panel's watcher name separately;
    // now and then the name is found first, it asks for the watcher without a bus and never
    // registers. For a few seconds after start, an item that a present panel has not got is made
    // again.
    checks_ = g_timeout_add(kCheckInterval, &GtkStatusItem::checkRegistered, this);
  }
  ~GtkStatusItem() override {
    if (checks_) g_source_remove(checks_);
    g_object_unref(indicator_);
    menus_.clear();
  }

  void setTitle(const std::string& title, const Font&) override {
    title_ = title;
    // The guide keeps the item's width steady when the bullet comes and goes.
    app_indicator_set_label(indicator_, title.c_str(), "M\u2022");
  }

  void setMenu(std::vector<MenuItem> items) override {
    auto built = std::make_shared<Built>();
    built->items = std::move(items);
    built->menu = gtk_menu_new();
    g_object_ref_sink(built->menu);
    built->accelerators = gtk_accel_group_new();
    gtk_menu_set_accel_group(GTK_MENU(built->menu), built->accelerators);
    for (std::size_t i = 0; i < built->items.size(); ++i) {
      const MenuItem& item = built->items[i];
      GtkWidget* widget = nullptr;
      if (item.separator) {
        widget = gtk_separator_menu_item_new();
      } else {
        // A switch stays a check item when off, so that a panel shows it as one.
        const bool check = item.checkable || item.checked;
        widget = check ? gtk_check_menu_item_new_with_label(item.title.c_str())
                       : gtk_menu_item_new_with_label(item.title.c_str());
        // Before the activate handler is connected: setting the state emits activate.
        if (item.checked) gtk_check_menu_item_set_active(GTK_CHECK_MENU_ITEM(widget), TRUE);
        gtk_widget_set_sensitive(widget, item.enabled && item.action);
        if (!item.keyEquivalent.empty()) {
          // A real accelerator, not only a label text: the menu exported to the panel carries the
          // shortcuts it finds in the menu's accelerator group.
          const guint key = gdk_keyval_to_lower(gdk_unicode_to_keyval(g_utf8_get_char(item.keyEquivalent.c_str())));
          gtk_widget_add_accelerator(widget, "activate", built->accelerators, key, modifiers(item.keyEquivalentModifiers),
                                     GTK_ACCEL_VISIBLE);
        }
        g_object_set_data(G_OBJECT(widget), "mirlo-index", GSIZE_TO_POINTER(i));
        g_signal_connect(widget, "activate", G_CALLBACK(onActivate), built.get());
      }
      gtk_widget_show(widget);
      gtk_menu_shell_append(GTK_MENU_SHELL(built->menu), widget);
    }
    app_indicator_set_menu(indicator_, GTK_MENU(built->menu));
    // The old menus stay alive: the host may still be showing one while this one replaces it.
    menus_.push_back(built);
    if (menus_.size() > 4) menus_.erase(menus_.begin());
  }

  GtkMenu* menu() const { return menus_.empty() ? nullptr : GTK_MENU(menus_.back()->menu); }

 private:
  static constexpr guint kCheckInterval = 2000;  // milliseconds
  static constexpr int kChecks = 4;

  void createIndicator() {
    indicator_ = app_indicator_new("mirlo", "accessories-text-editor", APP_INDICATOR_CATEGORY_APPLICATION_STATUS);
    app_indicator_set_title(indicator_, "Mirlo");
    app_indicator_set_status(indicator_, APP_INDICATOR_STATUS_ACTIVE);
    if (!title_.empty()) app_indicator_set_label(indicator_, title_.c_str(), "M\u2022");
    if (GtkMenu* current = menu()) app_indicator_set_menu(indicator_, current);
  }

  static gboolean checkRegistered(gpointer data) {
    auto* self = static_cast<GtkStatusItem*>(data);
    gboolean connected = FALSE;
    g_object_get(self->indicator_, "connected", &connected, nullptr);
    if (connected || ++self->checksDone_ >= kChecks) {
      self->checks_ = 0;
      return G_SOURCE_REMOVE;
    }
    if (hostPresent()) {
      // The stuck indicator is kept alive by the reference its failed request never gave back:
      // disposed explicitly, it leaves the bus path free for the new one.
      g_object_run_dispose(G_OBJECT(self->indicator_));
      g_object_unref(self->indicator_);
      self->createIndicator();
    }
    return G_SOURCE_CONTINUE;
  }

  struct Built {
    std::vector<MenuItem> items;
    GtkWidget* menu = nullptr;
    GtkAccelGroup* accelerators = nullptr;
    ~Built() {
      gtk_widget_destroy(menu);
      g_object_unref(menu);
      g_object_unref(accelerators);
    }
  };

  static void onActivate(GtkMenuItem* widget, gpointer data) {
    auto* built = static_cast<Built*>(data);
    const auto index = GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(widget), "mirlo-index"));
    if (index >= built->items.size()) return;
    auto action = built->items[index].action;  // a copy: the action rebuilds this menu
    if (action) action();
  }

  AppIndicator* indicator_ = nullptr;
  std::string title_;
  guint checks_ = 0;
  int checksDone_ = 0;
  std::vector<std::shared_ptr<Built>> menus_;
};

}  // namespace

std::shared_ptr<StatusItem> GtkUI::createStatusItem() {
  if (!toldNoHost_ && !hostPresent()) {
    toldNoHost_ = true;
    std::fputs("mirlo: no status-notifier host on this desktop; the status menu is not shown, "
               "the hot keys and the card keep working\n", stderr);
  }
  auto item = std::make_shared<GtkStatusItem>();
  statusItem_ = item;
  return item;
}

GtkMenu* GtkUI::statusMenu() const {
  // Every status item this UI makes is a GtkStatusItem.
  auto item = std::static_pointer_cast<GtkStatusItem>(statusItem_.lock());
  return item ? item->menu() : nullptr;
}

}  // namespace mirlo::gtk
