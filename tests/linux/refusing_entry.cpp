// A window with one text entry whose owner turns down every change that does not come from the
// keyboard, the way a web page's field ignores writes through the accessibility bus while its
// application still answers that they were made. The entry starts with argv[1], all selected.
#include <gtk/gtk.h>

namespace {

void refuseInsertion(GtkEditable* editable, gchar*, gint, gpointer, gpointer) {
  g_signal_stop_emission_by_name(editable, "insert-text");
}

void refuseDeletion(GtkEditable* editable, gint, gint, gpointer) {
  g_signal_stop_emission_by_name(editable, "delete-text");
}

}  // namespace

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Refus");
  gtk_window_set_default_size(GTK_WINDOW(window), 400, 60);
  GtkWidget* entry = gtk_entry_new();
  gtk_entry_set_text(GTK_ENTRY(entry), argc > 1 ? argv[1] : "");
  g_signal_connect(entry, "insert-text", G_CALLBACK(refuseInsertion), nullptr);
  g_signal_connect(entry, "delete-text", G_CALLBACK(refuseDeletion), nullptr);
  gtk_container_add(GTK_CONTAINER(window), entry);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  gtk_widget_show_all(window);
  gtk_widget_grab_focus(entry);
  gtk_editable_select_region(GTK_EDITABLE(entry), 0, -1);
  gtk_main();
  return 0;
}
