// Takes screenshots of every card the core shows, drawn by the GTK renderer over a text window, on
// the X display in $DISPLAY. Usage: mirlo_gtk_shots OUTPUT_DIR
#include <cstdio>
#include <string>

#include "gtk/gtk_world.h"

using namespace mirlo;
using namespace mirlo::testing;

namespace {

void shoot(const std::string& dir, const std::string& name, const GtkWorld& world) {
  settle();
  auto panel = world.panel();
  // The card with a margin of the window beneath, so that its edges and corners show.
  Rect f = panel && !panel->closed() ? panel->frame() : Rect{400, 300, 200, 60};
  const int margin = 24;
  const int x = static_cast<int>(f.x) - margin, w = static_cast<int>(f.width) + 2 * margin;
  const int top = static_cast<int>(gtk::onXScreen(f).y) - margin, h = static_cast<int>(f.height) + 2 * margin;
  const std::string path = dir + "/" + name + ".png";
  if (captureScreen(path, x, top, w, h)) std::printf("%s  card %gx%g\n", path.c_str(), f.width, f.height);
}

}  // namespace

int main(int argc, char** argv) {
  gtk_init(&argc, &argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  GtkWorld world;
  world.openBackdrop("Bonjour Léa,\n\nJe voulais te dire que la réunion de demain est déplacé à 15 h.\n"
                     "Peut tu prévenir les autres ? Merci d'avance.\n");
  // The selection's last character, in the desktop's bottom-left-origin space.
  const Rect anchor{520, 800 - 160, 8, 18};
  Card& card = world.app->card();

  card.showButtons(anchor);
  shoot(dir, "card-buttons", world);
  card.showProgress("Correction…");
  shoot(dir, "card-progress", world);
  card.showSuccess("Corrigé", [] {});
  shoot(dir, "card-success", world);
  card.showError("Sélectionne d'abord un texte", false);
  shoot(dir, "card-error", world);
  card.showError("aujourd'hui", true);
  shoot(dir, "card-error-upsell", world);
  card.showConnect(anchor);
  shoot(dir, "card-connect", world);
  world.desk.screens.mouse = {640, 420};
  card.showNotice("Connecté : lea@example.fr");
  shoot(dir, "card-notice", world);
  card.showError("Le texte est trop long pour une seule correction : sélectionne un paragraphe plus court, "
                 "puis réessaie.",
                 false);
  shoot(dir, "card-error-long", world);
  std::string refusal = "Le service a refusé la demande : ";
  while (refusal.size() < 420) refusal += "la correction n'a pas pu aboutir pour une raison que le serveur détaille ici. ";
  card.showError(refusal, false);
  shoot(dir, "card-error-very-long", world);
  card.showError("https://mirlo.test/erreurs/" + std::string(160, 'x') + "/fin", false);
  shoot(dir, "card-error-unbroken", world);
  card.close();
  settle();
  return 0;
}
