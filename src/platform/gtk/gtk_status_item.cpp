// The status item as a StatusNotifierItem: a label beside a themed icon, and the menu as a GTK
// menu with the key equivalents shown. A desktop without a status-notifier host gets one line on
// stderr; the item still registers if a host appears later.
#include <libayatana-appindicator/app-indicator.h>

#include <cstdio>

#include "platform/gtk/gtk_ui.h"

namespace mirlo::gtk {

namespace {

// The modifier flags of the key equivalents, as the core writes them.
constexpr std::uint64_t kShift = 0x20000, kControl = 0x40000, kOption = 0x80000, kCommand = 0x100000;

GdkModifierType modifiers(std::uint64_t flags) {
  int mods = 0;
  if (flags & kShift) mods |= GDK_SHIFT_MASK;
  // The command key of the menus is Control on this desktop.
  if (flags & (kCommand | kControl)) mods |= GDK_CONTROL_MASK;
  if (flags & kOption) mods |= GDK_MOD1_MASK;
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
    indicator_ = app_indicator_new("mirlo", "accessories-text-editor", APP_INDICATOR_CATEGORY_APPLICATION_STATUS);
    app_indicator_set_title(indicator_, "Mirlo");
    app_indicator_set_status(indicator_, APP_INDICATOR_STATUS_ACTIVE);
  }
  ~GtkStatusItem() override {
    g_object_unref(indicator_);
    menus_.clear();
  }

  void setTitle(const std::string& title, const Font&) override {
    // The guide keeps the item's width steady when the bullet comes and goes.
    app_indicator_set_label(indicator_, title.c_str(), "M\u2022");
  }

  void setMenu(std::vector<MenuItem> items) override {
    auto built = std::make_shared<Built>();
    built->items = std::move(items);
    built->menu = gtk_menu_new();
    g_object_ref_sink(built->menu);
    for (std::size_t i = 0; i < built->items.size(); ++i) {
      const MenuItem& item = built->items[i];
      GtkWidget* widget = nullptr;
      if (item.separator) {
        widget = gtk_separator_menu_item_new();
      } else {
        widget = item.checked ? gtk_check_menu_item_new_with_label(item.title.c_str())
                              : gtk_menu_item_new_with_label(item.title.c_str());
        if (item.checked) gtk_check_menu_item_set_active(GTK_CHECK_MENU_ITEM(widget), TRUE);
        gtk_widget_set_sensitive(widget, item.enabled && item.action);
        if (!item.keyEquivalent.empty()) {
          const guint key = gdk_unicode_to_keyval(g_utf8_get_char(item.keyEquivalent.c_str()));
          if (GtkWidget* label = gtk_bin_get_child(GTK_BIN(widget)); label && GTK_IS_ACCEL_LABEL(label))
            gtk_accel_label_set_accel(GTK_ACCEL_LABEL(label), gdk_keyval_to_lower(key), modifiers(item.keyEquivalentModifiers));
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

 private:
  struct Built {
    std::vector<MenuItem> items;
    GtkWidget* menu = nullptr;
    ~Built() {
      gtk_widget_destroy(menu);
      g_object_unref(menu);
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
  std::vector<std::shared_ptr<Built>> menus_;
};

}  // namespace

std::shared_ptr<StatusItem> GtkUI::createStatusItem() {
  if (!toldNoHost_ && !hostPresent()) {
    toldNoHost_ = true;
    std::fputs("mirlo: no status-notifier host on this desktop; the status menu is not shown, "
               "the hot keys and the card keep working\n", stderr);
  }
  return std::make_shared<GtkStatusItem>();
}

}  // namespace mirlo::gtk
