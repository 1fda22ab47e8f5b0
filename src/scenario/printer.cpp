#include "scenario/printer.h"

#include <string>

#include "engine/engine.h"
#include "scenario/script_line.h"
#include "ui/card/card.h"

namespace mirlo::scenario {

namespace {

std::string rect(const Rect& r) {
  return "[" + formatNumber(r.x) + " " + formatNumber(r.y) + " " + formatNumber(r.width) + " " +
         formatNumber(r.height) + "]";
}

const char* kindName(ViewKind kind) {
  switch (kind) {
    case ViewKind::box: return "box";
    case ViewKind::label: return "label";
    case ViewKind::flatButton: return "flat-button";
    case ViewKind::pushButton: return "push-button";
    case ViewKind::textField: return "text-field";
    case ViewKind::secureField: return "secure-field";
    case ViewKind::checkBox: return "check-box";
    case ViewKind::spinner: return "spinner";
    case ViewKind::richText: return "rich-text";
    case ViewKind::shape: return "shape";
    case ViewKind::emitter: return "emitter";
  }
  return "view";
}

const char* stateName(Card::State state) {
  switch (state) {
    case Card::State::idle: return "idle";
    case Card::State::buttons: return "buttons";
    case Card::State::progress: return "progress";
    case Card::State::success: return "success";
    case Card::State::error: return "error";
  }
  return "?";
}

std::string modifiers(std::uint64_t flags) {
  std::string out;
  if (flags & modifier::control) out += "ctrl+";
  if (flags & modifier::option) out += "opt+";
  if (flags & modifier::shift) out += "shift+";
  if (flags & modifier::command) out += "cmd+";
  return out;
}

// The key's name as a script writes it, on the current layout.
std::string keyName(sim::SimKeyboard& keyboard, std::uint16_t code) {
  switch (code) {
    case 36: return "return";
    case 48: return "tab";
    case 49: return "space";
    case 51: return "delete";
    case 53: return "escape";
    case 123: return "left";
    case 124: return "right";
    case 125: return "down";
    case 126: return "up";
    default: break;
  }
  auto typed = keyboard.translate(code);
  if (typed && !typed->empty() && static_cast<unsigned char>((*typed)[0]) >= 0x20) return *typed;
  return "#" + std::to_string(code);
}

std::string menuLine(const MenuItem& it) {
  if (it.separator) return "---";
  std::string line = it.title;
  if (!it.enabled || !it.action) line += " [disabled]";
  if (it.checked) line += " [checked]";
  if (!it.keyEquivalent.empty()) line += " (" + modifiers(it.keyEquivalentModifiers) + it.keyEquivalent + ")";
  return line;
}

const char* weightName(FontWeight weight) {
  switch (weight) {
    case FontWeight::regular: return "regular";
    case FontWeight::medium: return "medium";
    case FontWeight::semibold: return "semibold";
    case FontWeight::bold: return "bold";
    case FontWeight::heavy: return "heavy";
  }
  return "?";
}

}  // namespace

void Printer::views(const sim::SimNodes& nodes, int depth) {
  for (const auto& node : nodes) {
    const View& v = node->view;
    std::string line(static_cast<std::size_t>(depth) * 2, ' ');
    line += kindName(v.kind);
    line += " " + rect(v.frame);
    if (v.kind == ViewKind::richText) {
      std::string joined;
      for (const auto& run : v.richText.runs) joined += run.text;
      line += " " + quote(joined.empty() ? v.text : joined);
    } else if (v.kind == ViewKind::secureField) {
      std::string dots;
      for (unsigned char c : v.text)
        if ((c & 0xC0) != 0x80) dots += "•";
      line += " " + quote(dots);
    } else if (!v.text.empty() || v.kind == ViewKind::textField) {
      line += " " + quote(v.text);
    }
    if (!v.placeholder.empty()) line += " placeholder " + quote(v.placeholder);
    if (v.kind == ViewKind::checkBox) line += v.checked ? " checked" : " unchecked";
    if (v.keyEquivalent == "\r") line += " default";
    if (v.hidden) line += " hidden";
    if (v.alpha != 1) line += " alpha " + formatNumber(v.alpha);
    out_ << line << "\n";
    views(node->children, depth + 1);
  }
}

void Printer::element(const World& world) {
  sim::SimApp* front = world.desk.frontApp();
  if (!front) {
    out_ << "element: none (no application in front)\n";
    return;
  }
  const auto& el = *front->element;
  out_ << "element of " << front->info.bundleIdentifier.value_or("(no bundle id)") << " (pid " << front->info.pid << "):\n";
  out_ << "  text: " << quote(el.text) << "\n";
  out_ << "  selection: " << el.selection.location << " " << el.selection.length;
  if (el.selection.length > 0) out_ << " " << quote(el.textIn(el.selection));
  else out_ << " (caret)";
  out_ << "\n";
}

void Printer::clipboard(const World& world) {
  const auto& board = world.desk.clipboard;
  if (board.text) out_ << "clipboard: " << quote(*board.text) << "\n";
  else if (board.holdsImage) out_ << "clipboard: image\n";
  else out_ << "clipboard: empty\n";
}

void Printer::card(const World& world) {
  out_ << "card: " << (world.app ? stateName(world.app->card().state()) : "idle") << "\n";
  auto panel = world.desk.ui.openPanel();
  if (!panel) {
    out_ << "  no panel on screen\n";
    return;
  }
  out_ << "  panel " << rect(panel->frame());
  if (panel->alpha != 1) out_ << " alpha " << formatNumber(panel->alpha);
  if (panel->ignoresMouseEvents) out_ << " lets clicks through";
  out_ << "\n";
  views(panel->views, 2);
}

void Printer::window(const sim::SimWindow& window) {
  out_ << "window " << quote(window.title) << " " << rect(window.frame()) << (window.key ? " key" : "") << "\n";
  views(window.content, 1);
}

void Printer::windows(const World& world) {
  bool any = false;
  for (const auto& w : world.desk.ui.windows) {
    if (!w->visible) continue;
    any = true;
    window(*w);
  }
  if (!any) out_ << "windows: none open\n";
}

void Printer::titles(const World& world) {
  out_ << "windows open:";
  bool any = false;
  for (const auto& w : world.desk.ui.windows) {
    if (!w->visible) continue;
    out_ << (any ? ", " : " ") << quote(w->title);
    any = true;
  }
  out_ << (any ? "\n" : " none\n");
}

void Printer::menu(const World& world) {
  auto item = world.desk.ui.statusItem;
  if (!item) {
    out_ << "status item: none\n";
    return;
  }
  out_ << "status item: " << quote(item->title) << " (" << formatNumber(item->font.size) << " pt "
       << weightName(item->font.weight) << ")\n";
  for (const auto& it : item->menu) out_ << "  " << menuLine(it) << "\n";
}

void Printer::keys(const World& world) {
  const auto& posted = world.desk.keyboard.posted;
  out_ << "keys synthesised:";
  if (keysShown_ >= posted.size()) out_ << " none";
  out_ << "\n";
  for (std::size_t i = keysShown_; i < posted.size(); ++i) {
    const auto& k = posted[i];
    out_ << "  at " << formatNumber(k.at) << " " << modifiers(k.flags) << keyName(world.desk.keyboard, k.keyCode)
         << (k.down ? " down" : " up") << "\n";
  }
  keysShown_ = posted.size();
}

void Printer::requests(const World& world) {
  out_ << "requests sent:";
  if (requestsShown_ >= world.requests.size()) out_ << " none";
  out_ << "\n";
  for (std::size_t i = requestsShown_; i < world.requests.size(); ++i) {
    const auto& r = world.requests[i];
    out_ << "  " << r.method << " " << r.url << "\n";
    for (const auto& [name, value] : r.headers) out_ << "    " << name << ": " << value << "\n";
    out_ << "    (time-out " << formatNumber(r.timeoutSeconds) << " s"
         << (r.cachePolicy == CachePolicy::reloadIgnoringLocalCacheData ? ", no cache" : "") << ")\n";
    if (r.body) out_ << "    body: " << *r.body << "\n";
  }
  requestsShown_ = world.requests.size();
}

void Printer::notifications(const World& world) {
  out_ << "notifications posted:";
  const std::vector<std::string> none;
  const auto& posted = world.app ? world.app->notifications().posted() : none;
  if (notificationsShown_ >= posted.size()) out_ << " none";
  out_ << "\n";
  for (std::size_t i = notificationsShown_; i < posted.size(); ++i) out_ << "  " << posted[i] << "\n";
  notificationsShown_ = posted.size();
}

void Printer::opened(const World& world) {
  const auto& urls = world.desk.workspace.openedURLs;
  out_ << "opened in the browser:";
  if (openedShown_ >= urls.size()) out_ << " none";
  out_ << "\n";
  for (std::size_t i = openedShown_; i < urls.size(); ++i) out_ << "  " << urls[i] << "\n";
  openedShown_ = urls.size();
}

void Printer::busy(const World& world) {
  out_ << "engine: " << (world.app && world.app->engine().busy() ? "busy" : "not busy") << "\n";
}

void Printer::undo(const World& world) {
  const auto* info = world.app ? &world.app->engine().undoInfo() : nullptr;
  if (!info || !*info) {
    out_ << "undo: nothing to undo\n";
    return;
  }
  out_ << "undo: " << quote((*info)->original) << " replaced by " << quote((*info)->corrected) << " at "
       << (*info)->location << ", time " << formatNumber((*info)->at)
       << ((*info)->element ? "" : ", through the clipboard") << "\n";
}

void Printer::time(const World& world) { out_ << "time: " << formatNumber(world.desk.queue.now()) << "\n"; }

}  // namespace mirlo::scenario
