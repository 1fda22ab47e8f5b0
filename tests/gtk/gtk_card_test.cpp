// The card as a person sees it on a real X display: the window GTK shows has the size the core
// laid out, no text is cut, the application beneath keeps the keyboard, a button lights under the
// pointer and acts on the first click, and a card that is not clickable lets clicks through.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <string>

#include "gtk/gtk_world.h"
#include "ui/kit/palette.h"

namespace mirlo::testing {
namespace {

class GtkCard : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!gdk_display_get_default()) GTEST_SKIP() << "no X display";
    text = world.openBackdrop("Le chat mange la souris.\nUne deuxième ligne de texte.");
    ASSERT_TRUE(gtk_window_is_active(GTK_WINDOW(world.backdrop))) << "the window manager gave no focus";
  }

  // The X window's geometry, top-left origin.
  static GdkRectangle onScreen(GtkWidget* window) {
    GdkRectangle r{};
    GdkWindow* w = gtk_widget_get_window(window);
    gdk_window_get_origin(w, &r.x, &r.y);
    r.width = gdk_window_get_width(w);
    r.height = gdk_window_get_height(w);
    return r;
  }

  // The centre of a rendered view, in X screen coordinates.
  static void centreOf(const gtk::Node& node, int& x, int& y) {
    GtkWidget* widget = node.content ? node.content : node.host;
    gdk_window_get_origin(gtk_widget_get_window(widget), &x, &y);
    GtkAllocation a;
    gtk_widget_get_allocation(widget, &a);
    if (!gtk_widget_get_has_window(widget)) {
      x += a.x;
      y += a.y;
    }
    x += a.width / 2;
    y += a.height / 2;
  }

  static void pointer(const std::string& args) {
    ASSERT_EQ(std::system(("xdotool " + args).c_str()), 0) << "xdotool " << args;
  }

  std::shared_ptr<gtk::Node> nodeShowing(const std::string& label) {
    return gtk::findNode(world.panel()->views(), [&](const gtk::Node& n) { return n.view.text == label; });
  }

  // Every text on the card fits the frame the core gave it, as Pango lays it out for drawing.
  void expectNoClippedText() {
    for (const auto& root : world.panel()->views()) {
      auto check = [&](const auto& self, const gtk::Node& n) -> void {
        if ((n.view.kind == ViewKind::label || n.view.kind == ViewKind::flatButton) && n.content) {
          PangoLayout* layout = gtk::layoutFor(n, n.content);
          int w = 0, h = 0;
          pango_layout_get_pixel_size(layout, &w, &h);
          g_object_unref(layout);
          const double room = n.view.kind == ViewKind::label ? 2 * gtk::kLabelPadding : 0;
          EXPECT_LE(w + room, n.view.frame.width) << "\"" << n.view.text << "\" is cut";
          EXPECT_LE(h, n.view.frame.height) << "\"" << n.view.text << "\" is cut";
          EXPECT_TRUE(pumpUntil([&] { return gtk_widget_get_allocated_width(n.content) == std::lround(n.view.frame.width); }, 2))
              << "\"" << n.view.text << "\" is drawn " << gtk_widget_get_allocated_width(n.content) << " wide";
        }
        for (const auto& child : n.children) self(self, *child);
      };
      check(check, *root);
    }
  }

  void expectWindowMatchesFrame() {
    auto panel = world.panel();
    ASSERT_TRUE(panel && !panel->closed());
    ASSERT_TRUE(pumpUntil(
        [&] {
          GdkRectangle r = onScreen(panel->window());
          const Rect f = panel->frame();
          return r.width == std::lround(f.width) && r.height == std::lround(f.height) &&
                 r.x == std::lround(f.x) && r.y == std::lround(gtk::onXScreen(f).y);
        },
        2))
        << "the card's window never took the frame the core laid out";
  }

  GtkWorld world;
  GtkWidget* text = nullptr;
  const Rect anchor{500, 800 - 170, 8, 18};
};

TEST_F(GtkCard, EveryContentIsShownAtTheCoresSizeWithNoTextCut) {
  Card& card = world.app->card();
  card.showButtons(anchor);
  ASSERT_TRUE(pumpUntil([&] { return world.panel() && gtk_widget_get_mapped(world.panel()->window()); }, 2));
  expectWindowMatchesFrame();
  expectNoClippedText();
  ASSERT_TRUE(nodeShowing("Corriger") && nodeShowing("Reformuler"));

  // Each following card reuses the panel: its views arrive once the move ends.
  const std::vector<std::pair<std::function<void()>, std::string>> following = {
      {[&] { card.showProgress("Correction…"); }, "Correction…"},
      {[&] { card.showSuccess("Corrigé", [] {}); }, "Annuler"},
      {[&] { card.showError("aujourd'hui", true); }, "Passer en Pro"},
      {[&] { card.showError(std::string(40, 'W') + " — un message d'erreur très long, qui élargit la carte", false); }, "!"},
  };
  for (const auto& [show, label] : following) {
    show();
    ASSERT_TRUE(pumpUntil([&] { return nodeShowing(label) != nullptr; }, 2)) << label;
    expectWindowMatchesFrame();
    expectNoClippedText();
  }
  EXPECT_TRUE(gtk_window_is_active(GTK_WINDOW(world.backdrop)));
}

TEST_F(GtkCard, AButtonLightsUnderThePointerActsOnTheFirstClickAndTheApplicationKeepsTheKeyboard) {
  bool undone = false;
  world.app->card().showSuccess("Corrigé", [&] { undone = true; });
  ASSERT_TRUE(pumpUntil([&] { return world.panel() && nodeShowing("Annuler"); }, 2));
  settle();
  EXPECT_FALSE(gtk_window_is_active(GTK_WINDOW(world.panel()->window())));
  EXPECT_TRUE(gtk_window_is_active(GTK_WINDOW(world.backdrop)));

  auto button = nodeShowing("Annuler");
  int x = 0, y = 0;
  centreOf(*button, x, y);
  pointer("mousemove " + std::to_string(x) + " " + std::to_string(y));
  ASSERT_TRUE(pumpUntil([&] { return button->view.background == DA::hover; }, 2)) << "no hover look";
  pointer("mousemove 5 5");
  EXPECT_TRUE(pumpUntil([&] { return !button->view.background; }, 2)) << "the hover look stayed";
  pointer("mousemove " + std::to_string(x) + " " + std::to_string(y));
  ASSERT_TRUE(pumpUntil([&] { return button->view.background == DA::hover; }, 2));
  pointer("click 1");
  ASSERT_TRUE(pumpUntil([&] { return undone; }, 2)) << "the first click did not act";
  EXPECT_EQ(world.app->card().state(), Card::State::idle);
  settle(0.2);
  EXPECT_TRUE(gtk_window_is_active(GTK_WINDOW(world.backdrop))) << "the click took the focus";
  EXPECT_TRUE(gtk_widget_has_focus(text));
}

// Which of our toplevel windows the X server delivered a button press to.
struct PressWatch {
  GdkWindow* backdrop = nullptr;
  GdkWindow* panel = nullptr;
  int onBackdrop = 0, onPanel = 0;
  static void handle(GdkEvent* event, gpointer data) {
    auto* self = static_cast<PressWatch*>(data);
    if (event->type == GDK_BUTTON_PRESS) {
      GdkWindow* top = gdk_window_get_toplevel(event->button.window);
      if (top == self->backdrop) ++self->onBackdrop;
      if (top == self->panel) ++self->onPanel;
    }
    gtk_main_do_event(event);
  }
};

TEST_F(GtkCard, AProgressCardLetsClicksThroughToTheApplicationBeneath) {
  world.app->card().showProgress("Correction…");
  ASSERT_TRUE(pumpUntil([&] { return world.panel() && gtk_widget_get_mapped(world.panel()->window()); }, 2));
  settle();
  PressWatch watch{gtk_widget_get_window(world.backdrop), gtk_widget_get_window(world.panel()->window())};
  gdk_event_handler_set(PressWatch::handle, &watch, nullptr);
  const Rect f = world.panel()->frame();
  const int x = static_cast<int>(f.x + f.width / 2), y = static_cast<int>(gtk::onXScreen(f).y + f.height / 2);
  pointer("mousemove " + std::to_string(x) + " " + std::to_string(y));
  pointer("click 1");
  const bool arrived = pumpUntil([&] { return watch.onBackdrop + watch.onPanel > 0; }, 2);
  gdk_event_handler_set([](GdkEvent* event, gpointer) { gtk_main_do_event(event); }, nullptr, nullptr);
  ASSERT_TRUE(arrived) << "the click reached neither window";
  EXPECT_EQ(watch.onPanel, 0) << "the card swallowed the click";
  EXPECT_EQ(watch.onBackdrop, 1);
}

}  // namespace
}  // namespace mirlo::testing

int main(int argc, char** argv) {
  gtk_init_check(&argc, &argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

