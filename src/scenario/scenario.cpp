#include "scenario/scenario.h"

#include <atomic>
#include <chrono>
#include <istream>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <vector>

#include "account/auth.h"
#include "app/app.h"
#include "app/app_delegate.h"
#include "app/launch.h"
#include "base/base64.h"
#include "base/json.h"
#include "base/text.h"
#include "platform/curl/curl_http_client.h"
#include "platform/sim/sim_desktop.h"
#include "platform/sim/sim_tokens.h"
#include "scenario/printer.h"
#include "scenario/script_line.h"

namespace mirlo::scenario {

namespace {

constexpr const char* kSessionService = "io.mirlo.app.session";
// A fixed device identifier, so that the requests a script prints are the same on every run.
constexpr const char* kScriptDeviceId = "00000000-0000-4000-8000-000000000000";

AppConfig simulatedService() {
  return AppConfig{"https://project.supabase.test", "anon-key", "https://mirlo.test"};
}

using sim::accessTokenFor;

// Replaces each "{token:EMAIL}" by an access token for that e-mail.
std::string expandTokens(std::string url) {
  const std::string open = "{token:";
  std::size_t at = 0;
  while ((at = url.find(open, at)) != std::string::npos) {
    auto close = url.find('}', at);
    if (close == std::string::npos) throw ScriptFault("{token:… is never closed");
    std::string email = url.substr(at + open.size(), close - at - open.size());
    if (email.empty()) throw ScriptFault("{token:} needs an e-mail: {token:lea@example.fr}");
    std::string token = accessTokenFor(email);
    url.replace(at, close - at + 1, token);
    at += token.size();
  }
  return url;
}

// Every request the program sends, whichever client carries it, and how many are still waiting
// for their answer.
class RecordingHttp final : public HttpClient {
 public:
  HttpClient* inner = nullptr;

  void send(HttpRequest request, std::function<void(HttpResult)> done) override {
    {
      std::lock_guard lock(mutex_);
      sent_.push_back(request);
    }
    ++inFlight_;
    inner->send(std::move(request), [this, done = std::move(done)](HttpResult result) {
      done(std::move(result));
      --inFlight_;
    });
  }
  std::vector<HttpRequest> sent() const {
    std::lock_guard lock(mutex_);
    return sent_;
  }
  int inFlight() const { return inFlight_; }

 private:
  mutable std::mutex mutex_;
  std::vector<HttpRequest> sent_;
  std::atomic<int> inFlight_{0};
};

struct Key {
  std::uint16_t code = 0;
  std::uint64_t flags = 0;
  bool hasKey = true;  // false: modifiers alone
};

const std::map<std::string, std::uint16_t>& namedKeys() {
  static const std::map<std::string, std::uint16_t> keys = {
      {"return", 36},   {"enter", 36},   {"tab", 48},       {"space", 49},    {"delete", 51},
      {"backspace", 51}, {"escape", 53}, {"esc", 53},       {"left", 123},    {"right", 124},
      {"down", 125},    {"up", 126},     {"home", 115},     {"end", 119},     {"pageup", 116},
      {"pagedown", 121}, {"forwarddelete", 117}};
  return keys;
}

std::uint32_t hotKeyModifiers(std::uint64_t flags) {
  std::uint32_t m = 0;
  if (flags & modifier::command) m |= hotkeymod::command;
  if (flags & modifier::shift) m |= hotkeymod::shift;
  if (flags & modifier::option) m |= 0x0800;
  if (flags & modifier::control) m |= 0x1000;
  return m;
}

struct Answerable {
  const char* name;
  const char* fragment;
};
constexpr Answerable kAnswerables[] = {
    {"correct", "/functions/v1/correct"},
    {"sign-in", "grant_type=password"},
    {"sign-up", "/auth/v1/signup"},
    {"refresh", "grant_type=refresh_token"},
    {"manifest", "/version.json"},
};

class Runner {
 public:
  Runner(std::ostream& out) : out_(out), printer_(out) {
    recorder_.inner = &desk_.http;
    desk_.defaults.values["deviceId"] = std::string(kScriptDeviceId);
  }
  ~Runner() {
    // The application goes first; then the real client, whose threads may still hand answers
    // to the recorder.
    app_.reset();
    curl_.reset();
  }

  void run(ScriptLine& line);

 private:
  // --- The world before launch.
  void signedIn(ScriptLine& line);
  void signedOut(ScriptLine& line);
  void storedSession(ScriptLine& line);
  void accessibility(ScriptLine& line);
  void preference(ScriptLine& line);
  void layout(ScriptLine& line);
  void screen(ScriptLine& line);
  void mainScreen(ScriptLine& line);
  void pointer(ScriptLine& line);
  void appCommand(ScriptLine& line);
  void activate(ScriptLine& line);
  void version(ScriptLine& line);
  void update(ScriptLine& line);
  // --- The front application's element and the clipboard.
  void text(ScriptLine& line);
  void select(ScriptLine& line);
  void caret(ScriptLine& line);
  void element(ScriptLine& line);
  void clipboard(ScriptLine& line);
  // --- Actions.
  void launch(ScriptLine& line);
  void press(ScriptLine& line);
  void hold(ScriptLine& line);
  void repeat(ScriptLine& line);
  void release(ScriptLine& line);
  void mouse(ScriptLine& line);
  void scroll(ScriptLine& line);
  void open(ScriptLine& line);
  void click(ScriptLine& line);
  void hover(ScriptLine& line, bool enters);
  void type(ScriptLine& line);
  void wait(ScriptLine& line);
  // --- The service.
  void answer(ScriptLine& line);
  void service(ScriptLine& line);
  // --- Output.
  void print(ScriptLine& line);

  void beforeLaunch(const std::string& what) {
    if (app_) throw ScriptFault(what + " describes the world before launch; the program has already launched");
  }
  App& launched(const std::string& what) {
    if (!app_) throw ScriptFault(what + " needs the program running: write 'launch' first");
    return *app_;
  }
  sim::SimApp& frontApp() {
    sim::SimApp* front = desk_.frontApp();
    if (!front) throw ScriptFault("no application is in front: start one with 'app PID BUNDLE-ID'");
    return *front;
  }
  sim::SimElement& frontElement() { return *frontApp().element; }
  sim::SimHttp& simulatedHttp(const std::string& what) {
    if (curl_) throw ScriptFault(what + " scripts the simulated service, but this script talks to a real one");
    return desk_.http;
  }
  Key readKeys(ScriptLine& line);
  void deliverMouse(InputEventType type, ScriptLine& line);
  void settle() { desk_.queue.runReady(); }

  std::ostream& out_;
  Printer printer_;
  sim::SimDesktop desk_;
  RecordingHttp recorder_;
  std::unique_ptr<CurlHttpClient> curl_;
  AppConfig config_ = simulatedService();
  bool screensGiven_ = false;
  std::optional<Key> held_;
  std::map<std::string, std::string> standingAnswers_;
  std::unique_ptr<App> app_;
};

void Runner::run(ScriptLine& line) {
  const std::string command = line.word("a command");
  if (command == "signed") {
    if (line.accept("in")) return signedIn(line);
    if (line.accept("out")) return signedOut(line);
    throw ScriptFault("write 'signed in as EMAIL' or 'signed out'");
  }
  if (command == "stored") return storedSession(line);
  if (command == "accessibility") return accessibility(line);
  if (command == "preference") return preference(line);
  if (command == "layout") return layout(line);
  if (command == "screen") return screen(line);
  if (command == "main") return mainScreen(line);
  if (command == "pointer") return pointer(line);
  if (command == "app") return appCommand(line);
  if (command == "activate") return activate(line);
  if (command == "version") return version(line);
  if (command == "update") return update(line);
  if (command == "text") return text(line);
  if (command == "select") return select(line);
  if (command == "caret") return caret(line);
  if (command == "element") return element(line);
  if (command == "clipboard") return clipboard(line);
  if (command == "launch") return launch(line);
  if (command == "press") return press(line);
  if (command == "hold") return hold(line);
  if (command == "repeat") return repeat(line);
  if (command == "release") return release(line);
  if (command == "mouse") return mouse(line);
  if (command == "scroll") return scroll(line);
  if (command == "open") return open(line);
  if (command == "click") return click(line);
  if (command == "hover") return hover(line, true);
  if (command == "unhover") return hover(line, false);
  if (command == "type") return type(line);
  if (command == "wait") return wait(line);
  if (command == "answer") return answer(line);
  if (command == "service") return service(line);
  if (command == "print") return print(line);
  if (command == "note") {
    out_ << "# " << line.rest() << "\n";
    return;
  }
  throw ScriptFault("unknown command '" + command + "' (see docs/scenarios.md)");
}

// --- The world before launch.

void Runner::signedIn(ScriptLine& line) {
  line.expect("as");
  const std::string email = line.text("the e-mail");
  std::string refresh = "refresh-1";
  if (line.accept("refresh")) refresh = line.text("the refresh token");
  line.end();
  beforeLaunch("'signed in'");
  desk_.secrets.items[kSessionService] = dumpJson(Json{{"access", accessTokenFor(email)}, {"refresh", refresh}});
}

void Runner::signedOut(ScriptLine& line) {
  line.end();
  beforeLaunch("'signed out'");
  desk_.secrets.items.erase(kSessionService);
}

void Runner::storedSession(ScriptLine& line) {
  line.expect("session");
  const std::string raw = line.rest();
  beforeLaunch("'stored session'");
  if (raw.empty()) throw ScriptFault("'stored session' needs the item's contents");
  desk_.secrets.items[kSessionService] = raw;
}

void Runner::accessibility(ScriptLine& line) {
  const std::string w = line.word("granted or denied");
  line.end();
  if (w == "granted") desk_.accessibility.trusted = true;
  else if (w == "denied") desk_.accessibility.trusted = false;
  else throw ScriptFault("accessibility is 'granted' or 'denied', not '" + w + "'");
  settle();
}

void Runner::preference(ScriptLine& line) {
  const std::string key = line.text("the preference's name");
  if (line.atEnd()) throw ScriptFault("missing the value of preference '" + key + "'");
  if (line.accept("unset")) {
    line.end();
    desk_.defaults.values.erase(key);
    return;
  }
  if (line.peekQuoted()) {
    desk_.defaults.values[key] = line.quoted("the value");
    line.end();
    return;
  }
  const std::string w = line.peek();
  if (w == "yes" || w == "on" || w == "true" || w == "no" || w == "off" || w == "false") {
    desk_.defaults.values[key] = line.yesNo("the value");
  } else {
    desk_.defaults.values[key] = line.integer("the value of preference '" + key + "' (yes, no, a whole number or a quoted string)");
  }
  line.end();
}

void Runner::layout(ScriptLine& line) {
  const std::string name = line.word("the layout (us or french)");
  line.end();
  if (name == "us") desk_.keyboard.layout = sim::Layout::us;
  else if (name == "french") desk_.keyboard.layout = sim::Layout::frenchAzerty;
  else if (name == "none") desk_.keyboard.layout = sim::Layout::none;
  else throw ScriptFault("unknown layout '" + name + "' (us, french or none)");
}

namespace {
Rect readRect(ScriptLine& line, const std::string& what) {
  Rect r;
  r.x = line.number(what + "'s x");
  r.y = line.number(what + "'s y");
  r.width = line.number(what + "'s width");
  r.height = line.number(what + "'s height");
  if (r.width < 0 || r.height < 0) throw ScriptFault(what + " cannot have a negative size");
  return r;
}
}  // namespace

void Runner::screen(ScriptLine& line) {
  Screen s;
  s.frame = readRect(line, "the screen frame");
  s.visibleFrame = s.frame;
  if (line.accept("visible")) s.visibleFrame = readRect(line, "the visible frame");
  line.end();
  if (!screensGiven_) {
    desk_.screens.list.clear();
    desk_.screens.mainIndex = 0;
    screensGiven_ = true;
  }
  desk_.screens.list.push_back(s);
}

void Runner::mainScreen(ScriptLine& line) {
  line.expect("screen");
  if (line.accept("none")) {
    line.end();
    desk_.screens.mainIndex.reset();
    return;
  }
  const auto n = line.integer("the screen's number (1 is the first)");
  line.end();
  if (n < 1 || static_cast<std::size_t>(n) > desk_.screens.list.size())
    throw ScriptFault("there is no screen " + std::to_string(n) + " (" + std::to_string(desk_.screens.list.size()) +
                      " described)");
  desk_.screens.mainIndex = static_cast<std::size_t>(n - 1);
}

void Runner::pointer(ScriptLine& line) {
  line.expect("at");
  desk_.screens.mouse.x = line.number("the pointer's x");
  desk_.screens.mouse.y = line.number("the pointer's y");
  line.end();
}

void Runner::appCommand(ScriptLine& line) {
  const auto pid = line.integer("the process id");
  const std::string bundle = line.text("the bundle identifier");
  bool background = false;
  if (line.accept("in")) {
    line.expect("background");
    background = true;
  }
  line.end();
  if (pid <= 0 || pid > 0x7FFFFFFF) throw ScriptFault("a process id is a positive number");
  if (desk_.app(static_cast<std::int32_t>(pid))) throw ScriptFault("an application with pid " + std::to_string(pid) + " is already running");
  const auto previous = desk_.workspace.frontPid;
  desk_.launchApp(static_cast<std::int32_t>(pid), bundle);
  if (background && previous) desk_.workspace.frontPid = previous;
  else if (background) desk_.workspace.frontPid.reset();
  settle();
}

void Runner::activate(ScriptLine& line) {
  const auto pid = line.integer("the process id");
  line.end();
  if (!desk_.app(static_cast<std::int32_t>(pid))) throw ScriptFault("no application with pid " + std::to_string(pid) + " is running");
  desk_.activate(static_cast<std::int32_t>(pid));
  settle();
}

void Runner::version(ScriptLine& line) {
  if (line.accept("none")) {
    line.end();
    desk_.appInfo.version.reset();
    return;
  }
  desk_.appInfo.version = line.text("the running version");
  line.end();
}

void Runner::update(ScriptLine& line) {
  line.expect("manifest");
  const std::string body = line.rest();
  auto& http = simulatedHttp("'update manifest'");
  standingAnswers_["/version.json"] = body;
  auto answers = standingAnswers_;
  http.setResponder([answers](const HttpRequest& request) -> std::optional<sim::SimAnswer> {
    for (const auto& [fragment, standing] : answers)
      if (request.url.find(fragment) != std::string::npos) return sim::SimAnswer::json(200, standing);
    return std::nullopt;
  });
}

// --- The element and the clipboard.

void Runner::text(ScriptLine& line) {
  const std::string value = line.quoted("the text");
  line.end();
  frontElement().setText(value);
}

void Runner::select(ScriptLine& line) {
  auto& el = frontElement();
  if (line.accept("all")) {
    line.end();
    el.selection = {0, static_cast<std::int64_t>(text::utf16Length(el.text))};
    return;
  }
  if (line.accept("nothing")) {
    line.end();
    el.selection.length = 0;
    return;
  }
  if (line.peekQuoted()) {
    const std::string needle = line.quoted("the text to select");
    line.end();
    if (needle.empty()) throw ScriptFault("select \"\" selects nothing: write 'select nothing'");
    if (!el.selectText(needle)) throw ScriptFault("the element's text does not contain " + quote(needle));
    return;
  }
  const auto location = line.integer("the selection's start (UTF-16 units)");
  const auto length = line.integer("the selection's length (UTF-16 units)");
  line.end();
  if (location < 0 || length < 0) throw ScriptFault("a selection cannot start or run backwards");
  const auto size = static_cast<std::int64_t>(text::utf16Length(el.text));
  if (location + length > size)
    throw ScriptFault("the selection " + std::to_string(location) + " " + std::to_string(length) +
                      " runs past the end of the text (" + std::to_string(size) + " UTF-16 units)");
  el.selection = {location, length};
}

void Runner::caret(ScriptLine& line) {
  line.expect("at");
  auto& el = frontElement();
  const auto size = static_cast<std::int64_t>(text::utf16Length(el.text));
  std::int64_t at = 0;
  if (line.accept("end")) at = size;
  else at = line.integer("the caret's position (UTF-16 units)");
  line.end();
  if (at < 0 || at > size)
    throw ScriptFault("the caret at " + std::to_string(at) + " is outside the text (" + std::to_string(size) + " UTF-16 units)");
  el.selection = {at, 0};
}

void Runner::element(ScriptLine& line) {
  auto& front = frontApp();
  auto& el = *front.element;
  const std::string property = line.word("the element's property");
  if (property == "bounds") {
    if (line.accept("none")) {
      line.end();
      el.bounds = [](AXRange) { return std::optional<Rect>(); };
      return;
    }
    if (line.accept("rect")) {
      Rect fixed = readRect(line, "the bounds");
      line.end();
      el.bounds = [fixed](AXRange) { return std::optional<Rect>(fixed); };
      return;
    }
    if (line.accept("at")) {
      el.origin.x = line.number("the text's left edge");
      el.origin.y = line.number("the text's top edge (from the top of the screen)");
      if (line.accept("char")) el.charWidth = line.number("the character width");
      if (line.accept("line")) el.lineHeight = line.number("the line height");
      line.end();
      el.bounds = nullptr;
      return;
    }
    throw ScriptFault("element bounds: write 'at X Y [char W] [line H]', 'rect X Y W H' or 'none'");
  }
  const bool value = line.yesNo("element " + property);
  line.end();
  if (property == "accessibility") front.exposesAccessibility = value;
  else if (property == "answers") el.answers = value;
  else if (property == "alive") el.alive = value;
  else if (property == "selected-text") el.exposesSelectedText = value;
  else if (property == "selected-range") el.exposesSelectedRange = value;
  else if (property == "value") el.exposesValue = value;
  else if (property == "settable") el.selectedTextSettable = value;
  else if (property == "writes") el.acceptsSelectedText = value;
  else if (property == "range-writes") el.acceptsSelectedRange = value;
  else if (property == "copy") front.behaviour.honoursCopy = value;
  else if (property == "paste") front.behaviour.honoursPaste = value;
  else if (property == "undo") front.behaviour.undoes = value;
  else throw ScriptFault("unknown element property '" + property + "' (see docs/scenarios.md)");
}

void Runner::clipboard(ScriptLine& line) {
  if (line.accept("empty")) {
    line.end();
    desk_.clipboard.text.reset();
    desk_.clipboard.holdsImage = false;
    return;
  }
  if (line.accept("image")) {
    line.end();
    desk_.clipboard.putImage();
    return;
  }
  const std::string value = line.quoted("the clipboard's text (or empty, or image)");
  line.end();
  desk_.clipboard.text = value;
  desk_.clipboard.holdsImage = false;
}

// --- Actions.

void Runner::launch(ScriptLine& line) {
  std::vector<std::string> urls;
  if (line.accept("with")) {
    line.expect("url");
    urls.push_back(expandTokens(line.text("the URL")));
    while (line.accept("and")) urls.push_back(expandTokens(line.text("the URL")));
  }
  line.end();
  if (app_) throw ScriptFault("the program has already launched");
  if (curl_) recorder_.inner = curl_.get();
  Platform platform{desk_.queue,  recorder_,      desk_.accessibility, desk_.keyboard, desk_.clipboard,
                    desk_.events, desk_.hotKeys, desk_.workspace,     desk_.screens,  desk_.secrets,
                    desk_.defaults, desk_.appInfo, desk_.ui};
  app_ = std::make_unique<App>(platform, config_);
  finishLaunching(*app_, urls);
  settle();
}

Key Runner::readKeys(ScriptLine& line) {
  const std::string keys = line.word("the keys, such as cmd+shift+a");
  Key key;
  key.hasKey = false;
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (true) {
    // "cmd++" names the plus key.
    auto plus = keys.find('+', start);
    if (plus == start && plus + 1 == keys.size()) {
      parts.push_back("+");
      break;
    }
    parts.push_back(keys.substr(start, plus == std::string::npos ? std::string::npos : plus - start));
    if (plus == std::string::npos) break;
    start = plus + 1;
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string& p = parts[i];
    if (p == "cmd" || p == "command") key.flags |= modifier::command;
    else if (p == "shift") key.flags |= modifier::shift;
    else if (p == "opt" || p == "option" || p == "alt") key.flags |= modifier::option;
    else if (p == "ctrl" || p == "control") key.flags |= modifier::control;
    else {
      if (i + 1 != parts.size()) throw ScriptFault("in '" + keys + "', '" + p + "' is not a modifier (cmd, shift, opt, ctrl)");
      if (p.empty()) throw ScriptFault("'" + keys + "' names no key");
      key.hasKey = true;
      if (p.size() > 1 && p[0] == '#') {
        std::size_t used = 0;
        unsigned long code = 0;
        try {
          code = std::stoul(p.substr(1), &used);
        } catch (const std::exception&) {
          used = 0;
        }
        if (used != p.size() - 1 || code > 127) throw ScriptFault("'" + p + "' is not a virtual key code (#0 to #127)");
        key.code = static_cast<std::uint16_t>(code);
      } else if (auto named = namedKeys().find(p); named != namedKeys().end()) {
        key.code = named->second;
      } else if (auto code = desk_.keyboard.codeFor(p)) {
        key.code = *code;
      } else {
        throw ScriptFault("no key types '" + p + "' on the current layout");
      }
    }
  }
  return key;
}

void Runner::press(ScriptLine& line) {
  const Key key = readKeys(line);
  std::int64_t times = 1;
  if (line.accept("times")) times = line.integer("how many times");
  line.end();
  if (!key.hasKey) throw ScriptFault("'press' needs a key, not modifiers alone: use 'hold' for those");
  if (held_) throw ScriptFault("a key is still held: 'release' it first");
  if (times < 1 || times > 1000) throw ScriptFault("'times' must be between 1 and 1000");
  for (std::int64_t i = 0; i < times; ++i) {
    // A registered hot key is taken by the hot-key service: neither the monitors nor the front
    // application see it.
    if (!desk_.hotKeys.press(key.code, hotKeyModifiers(key.flags))) {
      desk_.keyboard.hold(key.flags);
      desk_.keyDown(key.code, key.flags);
      desk_.keyUp(key.code, key.flags);
      desk_.keyboard.releaseAll();
    }
    settle();
  }
}

void Runner::hold(ScriptLine& line) {
  const Key key = readKeys(line);
  std::optional<double> forSeconds;
  if (line.accept("for")) forSeconds = line.duration("how long");
  line.end();
  if (held_) throw ScriptFault("a key is already held: 'release' it first");
  const double start = desk_.queue.now();
  if (!key.hasKey) {
    // Modifiers alone: the hardware reports them held, no event goes anywhere.
    if (forSeconds) desk_.keyboard.hold(key.flags, desk_.queue.now() + *forSeconds);
    else desk_.keyboard.hold(key.flags);
    settle();
    return;
  }
  if (forSeconds) desk_.keyboard.hold(key.flags, desk_.queue.now() + *forSeconds);
  else desk_.keyboard.hold(key.flags);
  held_ = key;
  if (desk_.hotKeys.press(key.code, hotKeyModifiers(key.flags))) held_->hasKey = false;  // taken by the hot key
  else desk_.keyDown(key.code, key.flags);
  settle();
  if (forSeconds) {
    // The key comes up D after it went down. The program may already have spent some of that
    // time (a correction waits for the keys to be let go), so the clock only goes on to then.
    desk_.queue.advance(start + *forSeconds - desk_.queue.now());
    ScriptLine none("");
    release(none);
  }
}

void Runner::repeat(ScriptLine& line) {
  std::int64_t times = 1;
  if (!line.atEnd()) times = line.integer("how many repeats");
  line.end();
  if (!held_ || !held_->hasKey) throw ScriptFault("'repeat' needs a key held with 'hold'");
  if (times < 1 || times > 1000) throw ScriptFault("repeats must be between 1 and 1000");
  for (std::int64_t i = 0; i < times; ++i) {
    desk_.keyDown(held_->code, held_->flags, true);
    settle();
  }
}

void Runner::release(ScriptLine& line) {
  line.end();
  if (held_ && held_->hasKey) desk_.keyUp(held_->code, held_->flags);
  held_.reset();
  desk_.keyboard.releaseAll();
  settle();
}

void Runner::deliverMouse(InputEventType type, ScriptLine& line) {
  bool toUs = false;
  if (line.accept("in")) {
    line.expect("mirlo");
    toUs = true;
  }
  line.end();
  InputEvent event;
  event.type = type;
  event.modifierFlags = desk_.keyboard.currentModifierFlags();
  desk_.events.deliver(event, toUs);
  settle();
}

void Runner::mouse(ScriptLine& line) {
  const std::string what = line.word("down, up or select");
  if (what == "down") return deliverMouse(InputEventType::leftMouseDown, line);
  if (what == "up") return deliverMouse(InputEventType::leftMouseUp, line);
  if (what == "select") {
    // Press, drag over the text, let go: the selection exists when the button comes up.
    ScriptLine down("");
    deliverMouse(InputEventType::leftMouseDown, down);
    select(line);
    ScriptLine up("");
    deliverMouse(InputEventType::leftMouseUp, up);
    return;
  }
  throw ScriptFault("mouse: write 'mouse down', 'mouse up' or 'mouse select …', not '" + what + "'");
}

void Runner::scroll(ScriptLine& line) { deliverMouse(InputEventType::scrollWheel, line); }

void Runner::open(ScriptLine& line) {
  line.expect("url");
  const std::string url = expandTokens(line.text("the URL"));
  line.end();
  launched("'open url'").delegate().handleURLEvent(url);
  settle();
}

void Runner::click(ScriptLine& line) {
  const std::string where = line.word("card, window or menu");
  if (where == "card") {
    const std::string title = line.quoted("the button's title");
    line.end();
    auto panel = desk_.ui.openPanel();
    if (!panel) throw ScriptFault("no card is on screen to click " + quote(title));
    auto node = panel->find(title);
    if (!node) throw ScriptFault("the card shows nothing titled " + quote(title));
    if (panel->ignoresMouseEvents) {
      out_ << "(the click on " << quote(title) << " goes through the card to the application beneath)\n";
    } else if (!panel->click(title)) {
      out_ << "(the click on " << quote(title) << " does nothing)\n";
    }
    settle();
    return;
  }
  if (where == "window") {
    const std::string windowTitle = line.quoted("the window's title");
    const std::string title = line.quoted("the button's title");
    line.end();
    auto window = desk_.ui.window(windowTitle);
    if (!window) throw ScriptFault("no window titled " + quote(windowTitle) + " is open");
    if (!window->find(title)) throw ScriptFault("the window " + quote(windowTitle) + " shows nothing titled " + quote(title));
    if (!window->click(title)) out_ << "(the click on " << quote(title) << " does nothing)\n";
    settle();
    return;
  }
  if (where == "menu") {
    const std::string title = line.quoted("the menu item's title");
    line.end();
    auto item = desk_.ui.statusItem;
    if (!item) throw ScriptFault("there is no status item to open a menu from");
    for (const auto& it : item->menu) {
      if (it.separator || it.title != title) continue;
      if (!it.enabled || !it.action) {
        out_ << "(the menu item " << quote(title) << " is disabled)\n";
        return;
      }
      auto action = it.action;  // the menu may be rebuilt by its own action
      action();
      settle();
      return;
    }
    throw ScriptFault("the status menu has no item titled " + quote(title));
  }
  throw ScriptFault("click: write 'click card \"…\"', 'click window \"…\" \"…\"' or 'click menu \"…\"'");
}

void Runner::hover(ScriptLine& line, bool enters) {
  line.expect("card");
  const std::string title = line.quoted("the button's title");
  line.end();
  auto panel = desk_.ui.openPanel();
  if (!panel) throw ScriptFault("no card is on screen");
  if (!panel->find(title)) throw ScriptFault("the card shows nothing titled " + quote(title));
  if (enters) panel->hover(title);
  else panel->unhover(title);
  settle();
}

void Runner::type(ScriptLine& line) {
  const std::string value = line.quoted("the text to type");
  line.expect("into");
  const std::string field = line.quoted("the field's placeholder");
  line.end();
  for (const auto& window : desk_.ui.windows) {
    if (!window->visible) continue;
    auto node = sim::findNode(window->content, [&](const sim::SimNode& n) {
      return (n.view.kind == ViewKind::textField || n.view.kind == ViewKind::secureField) && !n.view.hidden &&
             n.view.placeholder == field;
    });
    if (node) {
      node->view.text = value;
      settle();
      return;
    }
  }
  throw ScriptFault("no open window has a field with the placeholder " + quote(field));
}

void Runner::wait(ScriptLine& line) {
  if (line.accept("for")) {
    line.expect("network");
    double limit = 10;
    if (line.accept("up")) {
      line.expect("to");
      limit = line.duration("the time limit");
    }
    line.end();
    // Real answers come from other threads: wait for them in real time, with a limit.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (recorder_.inFlight() > 0 && std::chrono::steady_clock::now() < deadline) {
      if (curl_) desk_.queue.waitForReady(std::chrono::milliseconds(50));
      else desk_.queue.advance(0.1);
      settle();
    }
    settle();
    if (recorder_.inFlight() > 0) out_ << "(still waiting for the network after " << formatNumber(limit) << " s)\n";
    return;
  }
  const double seconds = line.duration("how long to wait");
  line.end();
  desk_.queue.advance(seconds);
}

// --- The service.

void Runner::answer(ScriptLine& line) {
  const std::string kind = line.text("what is answered (correct, sign-in, sign-up, refresh, manifest)");
  std::string fragment;
  for (const auto& a : kAnswerables)
    if (kind == a.name) fragment = a.fragment;
  if (fragment.empty()) throw ScriptFault("cannot answer '" + kind + "': correct, sign-in, sign-up, refresh or manifest");
  double delay = 0;
  if (line.accept("after")) delay = line.duration("the delay");
  auto& http = simulatedHttp("'answer'");
  if (line.accept("failure")) {
    static const std::map<std::string, TransportFailure> kinds = {
        {"offline", TransportFailure::noConnection}, {"timeout", TransportFailure::timedOut},
        {"host", TransportFailure::hostNotFound},    {"tls", TransportFailure::tls},
        {"refused", TransportFailure::refused},      {"other", TransportFailure::other}};
    const std::string kindName = line.word("the kind of failure (offline, timeout, host, tls, refused, other)");
    auto found = kinds.find(kindName);
    if (found == kinds.end())
      throw ScriptFault("unknown failure '" + kindName + "': offline, timeout, host, tls, refused or other");
    std::string description;
    if (!line.atEnd()) description = line.quoted("the platform's technical description");
    line.end();
    http.enqueue(fragment, sim::SimAnswer::failure(found->second, description, delay));
    return;
  }
  const auto status = line.integer("the HTTP status (or 'failure')");
  if (status < 100 || status > 599) throw ScriptFault("the HTTP status must be between 100 and 599");
  http.enqueue(fragment, sim::SimAnswer::json(static_cast<long>(status), line.rest(), delay));
}

void Runner::service(ScriptLine& line) {
  line.expect("real");
  const std::string url = line.text("the service's address");
  line.end();
  beforeLaunch("'service real'");
  if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0)
    throw ScriptFault("the service's address must begin with http:// or https://");
  std::string base = url;
  while (!base.empty() && base.back() == '/') base.pop_back();
  config_ = AppConfig{base, AppConfig::fromBuild().anonKey, base};
  curl_ = std::make_unique<CurlHttpClient>();
}

// --- Output.

void Runner::print(ScriptLine& line) {
  const std::string what = line.word("what to print");
  std::string windowTitle;
  if (what == "window") windowTitle = line.quoted("the window's title");
  line.end();
  out_ << "> print " << what << (windowTitle.empty() ? "" : " " + quote(windowTitle)) << "\n";
  World world{desk_, app_.get(), recorder_.sent()};
  const bool all = what == "everything";
  bool known = false;
  auto section = [&](const char* name, auto&& fn) {
    if (all || what == name) {
      fn();
      known = true;
    }
  };
  section("element", [&] { printer_.element(world); });
  section("clipboard", [&] { printer_.clipboard(world); });
  section("card", [&] { printer_.card(world); });
  section("windows", [&] { printer_.windows(world); });
  if (what == "titles") {
    printer_.titles(world);
    known = true;
  }
  section("menu", [&] { printer_.menu(world); });
  section("keys", [&] { printer_.keys(world); });
  section("requests", [&] { printer_.requests(world); });
  section("notifications", [&] { printer_.notifications(world); });
  section("opened", [&] { printer_.opened(world); });
  section("busy", [&] { printer_.busy(world); });
  section("undo", [&] { printer_.undo(world); });
  section("time", [&] { printer_.time(world); });
  if (what == "window") {
    auto window = desk_.ui.window(windowTitle);
    if (!window) throw ScriptFault("no window titled " + quote(windowTitle) + " is open");
    printer_.window(*window);
    known = true;
  }
  if (!known) throw ScriptFault("cannot print '" + what + "' (see docs/scenarios.md)");
}

}  // namespace

int runScript(std::istream& in, const std::string& name, std::ostream& out, std::ostream& err) {
  Runner runner(out);
  std::string raw;
  int number = 0;
  while (std::getline(in, raw)) {
    ++number;
    try {
      ScriptLine line(raw);
      if (line.blank()) continue;
      runner.run(line);
    } catch (const ScriptFault& fault) {
      out.flush();
      err << name << ":" << number << ": " << fault.what() << "\n";
      return 2;
    } catch (const std::exception& failure) {
      out.flush();
      err << name << ":" << number << ": the program failed here: " << failure.what() << "\n";
      return 2;
    }
  }
  return 0;
}

}  // namespace mirlo::scenario
