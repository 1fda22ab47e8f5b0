// The Linux adapters against a real X server, real GTK applications and the accessibility bus.
// Run under tests/linux/with-desktop.sh; skipped when there is no display.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <X11/Xatom.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "platform/linux/atspi_accessibility.h"
#include "platform/linux/gdk_screens.h"
#include "platform/linux/glib_main_queue.h"
#include "platform/linux/x_clipboard.h"
#include "platform/linux/x_event_monitor.h"
#include "platform/linux/x_hot_keys.h"
#include "platform/linux/x_keyboard.h"
#include "platform/linux/x_workspace.h"

extern char** environ;

namespace mirlo::linuxdesk {
namespace {

constexpr std::uint16_t kKeyA = 0, kKeyB = 11;
const std::string kSentence = "Un \xF0\x9F\x98\x80 chat noir";  // "Un 😀 chat noir"

// A child process, ended when the handle goes.
class Child {
 public:
  explicit Child(std::vector<std::string> argv, std::vector<std::string> env = {}) {
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    std::vector<std::string> environment;
    for (char** e = environ; *e; ++e) environment.emplace_back(*e);
    for (auto& e : env) environment.push_back(e);
    std::vector<char*> envp;
    for (auto& e : environment) envp.push_back(e.data());
    envp.push_back(nullptr);
    if (posix_spawnp(&pid_, args[0], nullptr, nullptr, args.data(), envp.data()) != 0) pid_ = 0;
  }
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
};

std::string run(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[256];
    while (std::size_t n = fread(buffer, 1, sizeof buffer, pipe)) out.append(buffer, n);
    pclose(pipe);
  }
  return out;
}

class Desktop : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "no X display (run under tests/linux/with-desktop.sh)";
    queue_ = std::make_unique<GLibMainQueue>();
  }

  // Runs the main loop until `done` holds, for at most `limit` seconds.
  template <typename Pred>
  bool waitFor(Pred done, double limit = 10) {
    const double deadline = queue_->now() + limit;
    while (!done()) {
      if (queue_->now() >= deadline) return false;
      if (!g_main_context_iteration(nullptr, false)) g_usleep(10000);
    }
    return true;
  }

  void press(Keyboard& keyboard, std::uint16_t key, std::uint64_t flags) {
    keyboard.postKeyEvent(key, true, flags);
    keyboard.postKeyEvent(key, false, flags);
  }

  // Whether some other client holds the whole keyboard (an active grab), asked from a connection
  // of our own.
  static bool keyboardGrabbedByAnother() {
    Display* display = XOpenDisplay(nullptr);
    if (!display) return false;
    const int status = XGrabKeyboard(display, DefaultRootWindow(display), False, GrabModeAsync, GrabModeAsync,
                                     CurrentTime);
    if (status == GrabSuccess) XUngrabKeyboard(display, CurrentTime);
    XCloseDisplay(display);
    return status == AlreadyGrabbed;
  }

  std::unique_ptr<GLibMainQueue> queue_;
};

// The accessibility bus switched on, read through the adapter.
class Accessible : public Desktop {
 protected:
  void SetUp() override {
    Desktop::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(AtspiAccessibility::enableDesktopAccessibility());
    workspace_ = std::make_unique<XWorkspace>();
    access_ = std::make_unique<AtspiAccessibility>(*workspace_);
  }

  // The focused element once the process is in front and `ready` holds for it.
  template <typename Ready>
  AXElementRef focusedIn(pid_t pid, Ready ready) {
    AXElementRef element;
    waitFor([&] {
      auto front = workspace_->frontmostApplication();
      AXValue out;
      if (!front || front->pid != pid ||
          access_->copyAttributeValue(access_->createSystemWide(), ax::kFocusedUIElement, out) != AXError::success)
        return false;
      element = std::get<AXElementRef>(out);
      return ready(element);
    });
    return element;
  }
  // An attribute of the element when it holds a T.
  template <typename T = std::string>
  std::optional<T> value(const AXElementRef& element, const char* attribute = ax::kValue) {
    AXValue out;
    if (!element || access_->copyAttributeValue(element, attribute, out) != AXError::success) return std::nullopt;
    auto* v = std::get_if<T>(&out);
    return v ? std::optional(*v) : std::nullopt;
  }

  std::unique_ptr<XWorkspace> workspace_;
  std::unique_ptr<AtspiAccessibility> access_;
};

// An editor window in front with a file of our own.
class Editor : public Accessible {
 protected:
  void SetUp() override {
    Accessible::SetUp();
    if (IsSkipped()) return;
    file_ = ::testing::TempDir() + "mirlo-editor-" + std::to_string(getpid()) + ".txt";
    std::ofstream(file_) << kSentence;
    // A private configuration: no session restore, no dialogs from an earlier run.
    editor_ = std::make_unique<Child>(std::vector<std::string>{"mousepad", "--disable-server", file_},
                                      std::vector<std::string>{"XDG_CONFIG_HOME=" + ::testing::TempDir(), "XDG_DATA_HOME=" + ::testing::TempDir()});
    ASSERT_GT(editor_->pid(), 0) << "mousepad could not start";
    element_ = focusedIn(editor_->pid(), [&](const AXElementRef& e) { return value(e) == kSentence; });
    ASSERT_EQ(value(element_), kSentence) << "the editor's text never showed through the accessibility bus";
  }
  void TearDown() override {
    access_.reset();
    editor_.reset();
    if (!file_.empty()) std::remove(file_.c_str());
  }

  std::optional<AXRange> selectedRange() { return value<AXRange>(element_, ax::kSelectedTextRange); }

  std::string file_;
  std::unique_ptr<Child> editor_;
  AXElementRef element_;
};

TEST_F(Editor, SelectionIsReadReplacedAndMeasuredInUtf16Units) {
  EXPECT_TRUE(access_->isProcessTrusted());
  XKeyboard keyboard;
  press(keyboard, kKeyA, modifier::command);  // Control+A on this desktop
  const std::int64_t length = text::utf16Length(kSentence);
  ASSERT_TRUE(waitFor([&] { return selectedRange() == AXRange{0, length}; })) << "Control+A selected nothing";
  EXPECT_EQ(value(element_, ax::kSelectedText), kSentence);

  // "chat" starts after "Un ", two units of emoji and a space.
  ASSERT_EQ(access_->setAttributeValue(element_, ax::kSelectedTextRange, AXRange{6, 4}), AXError::success);
  ASSERT_TRUE(waitFor([&] { return value(element_, ax::kSelectedText) == "chat"; }));
  EXPECT_EQ(selectedRange(), (AXRange{6, 4}));

  // Where the card goes is checked end to end; an offset inside the emoji's surrogate pair is
  // refused rather than rounded to a neighbour.
  AXValue bounds;
  EXPECT_EQ(access_->copyParameterizedAttributeValue(element_, ax::kBoundsForRange, AXRange{4, 1}, bounds),
            AXError::illegalArgument);

  bool settable = false;
  ASSERT_EQ(access_->isAttributeSettable(element_, ax::kSelectedText, settable), AXError::success);
  EXPECT_TRUE(settable);
  ASSERT_EQ(access_->setAttributeValue(element_, ax::kSelectedText, std::string("chien \xC3\xA9veill\xC3\xA9")),
            AXError::success);
  const std::string expected = "Un \xF0\x9F\x98\x80 chien \xC3\xA9veill\xC3\xA9 noir";
  ASSERT_TRUE(waitFor([&] { return value(element_) == expected; })) << "got " << value(element_).value_or("?");
}

TEST_F(Editor, TheEditorIsTheFrontmostRunningApplication) {
  auto front = workspace_->frontmostApplication();
  ASSERT_TRUE(front);
  EXPECT_EQ(front->bundleIdentifier, "Mousepad");
  bool listed = false;
  for (const auto& app : workspace_->runningApplications()) listed |= app.pid == editor_->pid();
  EXPECT_TRUE(listed);

  std::vector<std::int32_t> activated;
  workspace_->observeActivations([&](const std::optional<RunningApp>& app) {
    if (app) activated.push_back(app->pid);
  });
  Child dialog({"zenity", "--info", "--text=Bonjour"});
  ASSERT_TRUE(waitFor([&] { return !activated.empty() && activated.back() == dialog.pid(); }))
      << "no activation for the dialog";
}

TEST_F(Accessible, PasswordFieldsAreNeitherReadNorWrittenUnlikePlainEntries) {
  XKeyboard keyboard;
  // The focused field of a dialog once the letter b is typed into it and selected.
  auto typedInto = [&](const Child& dialog) {
    auto field = focusedIn(dialog.pid(), [](const AXElementRef&) { return true; });
    press(keyboard, kKeyB, 0);
    press(keyboard, kKeyA, modifier::command);
    return field;
  };
  {
    Child plain({"zenity", "--entry", "--text=Nom"});
    auto field = typedInto(plain);
    ASSERT_TRUE(field);
    ASSERT_TRUE(waitFor([&] { return value(field, ax::kSelectedText) == "b"; })) << "a plain entry's selection is readable";
  }
  Child secret({"zenity", "--entry", "--hide-text", "--text=Mot de passe"});
  auto field = typedInto(secret);
  ASSERT_TRUE(field);
  AXValue out;
  for (const char* attribute : {ax::kSelectedText, ax::kValue, ax::kSelectedTextRange})
    EXPECT_NE(access_->copyAttributeValue(field, attribute, out), AXError::success) << attribute;
  bool settable = true;
  EXPECT_EQ(access_->isAttributeSettable(field, ax::kSelectedText, settable), AXError::success);
  EXPECT_FALSE(settable);
  EXPECT_NE(access_->setAttributeValue(field, ax::kSelectedText, std::string("x")), AXError::success);
}

TEST_F(Accessible, AWriteTheApplicationAcceptsButDoesNotMakeIsReportedAsNotDone) {
  const std::string sentence = "Il fait tres beau.";
  Child field({MIRLO_REFUSING_ENTRY_PATH, sentence});
  auto element = focusedIn(field.pid(), [&](const AXElementRef& e) { return value(e, ax::kSelectedText) == sentence; });
  ASSERT_EQ(value(element, ax::kSelectedText), sentence) << "the entry's selection never showed through the accessibility bus";

  bool settable = false;
  ASSERT_EQ(access_->isAttributeSettable(element, ax::kSelectedText, settable), AXError::success);
  EXPECT_TRUE(settable) << "an editable entry offers the write";
  // The application answers yes and keeps its text: the caller must hear that nothing happened,
  // and the selection must still be there for the way round through the clipboard.
  EXPECT_EQ(access_->setAttributeValue(element, ax::kSelectedText, std::string("Il fait tr\xC3\xA8s beau.")),
            AXError::cannotComplete);
  EXPECT_EQ(value(element), sentence);
  EXPECT_EQ(value(element, ax::kSelectedText), sentence);
  // Putting back the very same text changes nothing either, and that is a write done.
  EXPECT_EQ(access_->setAttributeValue(element, ax::kSelectedText, sentence), AXError::success);
}

TEST_F(Desktop, SynthesisedKeysReachTheMonitorWithTheirModifiersAndRepeats) {
  XKeyboard keyboard;
  XEventMonitor monitor;
  std::vector<InputEvent> seen;
  monitor.addGlobalMonitor(eventmask::keyDown | eventmask::keyUp,
                           [&](const InputEvent& event) { seen.push_back(event); });
  keyboard.postKeyEvent(kKeyB, true, modifier::command);
  keyboard.postKeyEvent(kKeyB, true, modifier::command);
  keyboard.postKeyEvent(kKeyB, false, modifier::command);
  auto bEvents = [&] {
    std::vector<InputEvent> b;
    for (const auto& e : seen)
      if (e.keyCode == kKeyB) b.push_back(e);
    return b;
  };
  ASSERT_TRUE(waitFor([&] { return bEvents().size() == 3; }));
  auto b = bEvents();
  EXPECT_EQ(b[0].type, InputEventType::keyDown);
  EXPECT_FALSE(b[0].isARepeat);
  EXPECT_TRUE(b[0].modifierFlags & modifier::command);
  EXPECT_EQ(b[1].type, InputEventType::keyDown);
  EXPECT_TRUE(b[1].isARepeat);
  EXPECT_EQ(b[2].type, InputEventType::keyUp);
  // The Control key was pressed and released around the letter, seen as Command.
  bool commandDown = false;
  for (const auto& e : seen) commandDown |= e.keyCode == 55 && e.type == InputEventType::keyDown;
  EXPECT_TRUE(commandDown);
  EXPECT_EQ(keyboard.currentModifierFlags() & modifier::command, 0u);

  // A held modifier is what the hardware state reports.
  keyboard.postKeyEvent(56, true, modifier::shift);
  EXPECT_TRUE(keyboard.currentModifierFlags() & modifier::shift);
  keyboard.postKeyEvent(56, false, 0);
  EXPECT_FALSE(keyboard.currentModifierFlags() & modifier::shift);

  EXPECT_TRUE(keyboard.hasLayoutData());
  EXPECT_EQ(keyboard.translate(kKeyA), "a");
  EXPECT_EQ(keyboard.translate(keycode::c), "c");
  EXPECT_EQ(keyboard.translate(keycode::escape).value_or("\x1b"), "\x1b");
}

TEST_F(Desktop, MouseButtonsAndScrollingReachTheMonitor) {
  XEventMonitor monitor;
  std::vector<InputEventType> seen;
  monitor.addGlobalMonitor(eventmask::leftMouseDown | eventmask::leftMouseUp | eventmask::scrollWheel,
                           [&](const InputEvent& event) { seen.push_back(event.type); });
  run("xdotool mousemove 400 300 click 1 click 5");
  ASSERT_TRUE(waitFor([&] { return seen.size() >= 3; }));
  EXPECT_EQ(seen, (std::vector<InputEventType>{InputEventType::leftMouseDown, InputEventType::leftMouseUp,
                                                InputEventType::scrollWheel}));
}

TEST_F(Desktop, AHotKeyFiresOnceGrabbedAndASecondClientCannotTakeIt) {
  XHotKeys hotKeys;
  std::vector<std::uint32_t> pressed;
  hotKeys.installHandler([&](const HotKeyEvent& event) {
    if (auto id = event.readID()) pressed.push_back(id->id);
    return 0;
  });
  auto grab = hotKeys.registerHotKey(kKeyA, hotkeymod::command | hotkeymod::shift, {0x4D49524C, 7});
  ASSERT_TRUE(grab);

  XHotKeys other;
  EXPECT_EQ(other.registerHotKey(kKeyA, hotkeymod::command | hotkeymod::shift, {1, 1}), nullptr);
  // The failed attempt left the first grab intact. The key counts once it is let go: while it is
  // down the grab holds the keyboard, and the application in front has lost its focus to us.
  XKeyboard keyboard;
  keyboard.postKeyEvent(kKeyA, true, modifier::command | modifier::shift);
  ASSERT_TRUE(waitFor([&] { return keyboardGrabbedByAnother(); })) << "the hot key's grab never started";
  while (g_main_context_iteration(nullptr, false)) {
  }
  EXPECT_TRUE(pressed.empty()) << "reported while the key is still down";
  keyboard.postKeyEvent(kKeyA, false, modifier::command | modifier::shift);
  ASSERT_TRUE(waitFor([&] { return pressed.size() == 1; }));
  EXPECT_EQ(pressed[0], 7u);

  // With Caps Lock on, the key still works.
  press(keyboard, 57, 0);
  press(keyboard, kKeyA, modifier::command | modifier::shift);
  press(keyboard, 57, 0);
  ASSERT_TRUE(waitFor([&] { return pressed.size() == 2; }));

  // Released, the key is free for another client.
  grab.reset();
  EXPECT_NE(other.registerHotKey(kKeyA, hotkeymod::command | hotkeymod::shift, {1, 1}), nullptr);
}

// About 5 MB of numbered lines made mostly of two- and four-byte characters, so that the pieces a
// large transfer is cut into end inside characters, and a lost, doubled or swapped piece shows.
std::string largeText() {
  std::string text;
  for (int line = 0; text.size() < 5 * 1024 * 1024; ++line)
    text += std::to_string(line) + " \xC3\xA9t\xC3\xA9 \xF0\x9F\x98\x80\xF0\x9F\x90\x88 \xC5\x93uvre \xC2\xB7 fin\n";
  return text;
}

::testing::AssertionResult sameText(const std::optional<std::string>& got, const std::string& want) {
  if (!got) return ::testing::AssertionFailure() << "no text";
  if (*got == want) return ::testing::AssertionSuccess();
  auto at = std::mismatch(got->begin(), got->end(), want.begin(), want.end()).first - got->begin();
  return ::testing::AssertionFailure() << got->size() << " bytes instead of " << want.size()
                                       << ", first difference at byte " << at;
}

std::string writeTemp(const std::string& name, const std::string& content) {
  const std::string path = ::testing::TempDir() + name + "-" + std::to_string(getpid());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

TEST_F(Desktop, LargeClipboardTextsCrossBetweenApplicationsIntact) {
  const std::string big = largeText();
  XClipboard clipboard(5);
  clipboard.putText(big);
  EXPECT_TRUE(sameText(run("xclip -selection clipboard -o"), big)) << "xclip reading ours";
  // Two readers at once, each getting the whole text.
  const std::string a = ::testing::TempDir() + "mirlo-a-" + std::to_string(getpid());
  const std::string b = ::testing::TempDir() + "mirlo-b-" + std::to_string(getpid());
  run("xclip -selection clipboard -o >" + a + " & xclip -selection clipboard -o >" + b + " & wait");
  EXPECT_TRUE(sameText(run("cat " + a), big)) << "first of two readers";
  EXPECT_TRUE(sameText(run("cat " + b), big)) << "second of two readers";
  std::remove(a.c_str());
  std::remove(b.c_str());
  const std::string gtkRead =
      "/usr/bin/python3 -c \"import sys, gi; gi.require_version('Gtk', '3.0'); from gi.repository import Gtk, Gdk; "
      "t = Gtk.Clipboard.get(Gdk.SELECTION_CLIPBOARD).wait_for_text(); sys.stdout.write(t or '')\"";
  EXPECT_TRUE(sameText(run(gtkRead), big)) << "a GTK application reading ours";
  XClipboard second(5);
  EXPECT_TRUE(sameText(second.readText(), big)) << "another connection of ours";

  // And the other way round, from an owner that hands it over in pieces of its own size.
  const std::string fromXclip = "\xE2\x80\xA6" + big.substr(0, big.rfind('\n', big.size() - 2) + 1);
  const std::string file = writeTemp("mirlo-big", fromXclip);
  run("xclip -selection clipboard -i " + file + " >/dev/null 2>&1");
  std::optional<std::string> got;
  EXPECT_TRUE(waitFor([&] { return (got = clipboard.readText()) && got->starts_with("\xE2\x80\xA6"); }, 10));
  EXPECT_TRUE(sameText(got, fromXclip)) << "ours reading xclip's";
  std::remove(file.c_str());

  const std::string fromGtk = "GTK " + big.substr(0, big.find('\n', 3 * 1024 * 1024) + 1);
  const std::string gtkFile = writeTemp("mirlo-gtk", fromGtk);
  Child gtkOwner({"/usr/bin/python3", "-c",
                  "import sys, gi; gi.require_version('Gtk', '3.0'); from gi.repository import Gtk, Gdk; "
                  "t = open(sys.argv[1], encoding='utf-8').read(); "
                  "Gtk.Clipboard.get(Gdk.SELECTION_CLIPBOARD).set_text(t, -1); Gtk.main()",
                  gtkFile});
  EXPECT_TRUE(waitFor([&] { return (got = clipboard.readText()) && got->starts_with("GTK"); }, 10));
  EXPECT_TRUE(sameText(got, fromGtk)) << "ours reading a GTK application's";
  std::remove(gtkFile.c_str());
  clipboard.putText("court");
  clipboard.clear();  // gives up ownership: nobody holds a text any more
  EXPECT_EQ(second.readText(), std::nullopt);
  EXPECT_EQ(run("xclip -selection clipboard -o 2>/dev/null"), "");
}

// Another application asking for the clipboard with plain Xlib, as far as it chooses to go.
class Requestor {
 public:
  Requestor() : display_(XOpenDisplay(nullptr)) {
    window_ = XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 1, 1, 0, 0, 0);
    XSelectInput(display_, window_, PropertyChangeMask);
    property_ = XInternAtom(display_, "PASTE_HERE", False);
  }
  ~Requestor() { vanish(); }

  // What the owner put in the property first: its type and the first 32-bit item.
  std::pair<Atom, long> ask() {
    XConvertSelection(display_, XInternAtom(display_, "CLIPBOARD", False), XInternAtom(display_, "UTF8_STRING", False),
                      property_, window_, CurrentTime);
    XEvent event;
    if (!next(SelectionNotify, event) || event.xselection.property == None) return {None, 0};
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(display_, window_, property_, 0, 1, False, AnyPropertyType, &type, &format, &count, &after,
                       &data);
    const long first = data && format == 32 && count == 1 ? *reinterpret_cast<long*>(data) : 0;
    if (data) XFree(data);
    return {type, first};
  }
  // Deletes the property, as a reader does to ask for a piece, and returns the next piece's size.
  long takePiece() {
    XDeleteProperty(display_, window_, property_);
    XEvent event;
    while (next(PropertyNotify, event))
      if (event.xproperty.state == PropertyNewValue)
        return static_cast<long>(windowPropertyString(display_, window_, property_).size());
    return -1;
  }
  void vanish() {
    if (!display_) return;
    XDestroyWindow(display_, window_);
    XCloseDisplay(display_);
    display_ = nullptr;
  }

 private:
  bool next(int type, XEvent& event) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
      while (XPending(display_) > 0) {
        XNextEvent(display_, &event);
        if (event.type == type) return true;
      }
      pollfd fd{ConnectionNumber(display_), POLLIN, 0};
      poll(&fd, 1, 50);
    }
    return false;
  }

  Display* display_;
  Window window_;
  Atom property_;
};

TEST_F(Desktop, ARequestorThatVanishesOrStallsDoesNotHoldUpTheOthers) {
  const std::string big = largeText();
  XClipboard clipboard(2);
  clipboard.putText(big);

  Requestor vanishing;
  auto [type, size] = vanishing.ask();
  Display* d = XOpenDisplay(nullptr);
  const Atom incr = XInternAtom(d, "INCR", False);
  XCloseDisplay(d);
  ASSERT_EQ(type, incr) << "a large text is announced, to be taken in pieces";
  EXPECT_EQ(size, static_cast<long>(big.size()));
  const long piece = vanishing.takePiece();
  EXPECT_GT(piece, 0);
  EXPECT_LT(piece, static_cast<long>(big.size()));
  vanishing.vanish();

  Requestor silent;  // asks, then never takes a piece
  EXPECT_EQ(silent.ask().first, incr);

  EXPECT_TRUE(sameText(run("xclip -selection clipboard -o"), big));
  // The small texts that follow go whole, and still reach the silent one's neighbours.
  clipboard.putText("petit \xC3\xA9t\xC3\xA9");
  EXPECT_EQ(run("xclip -selection clipboard -o"), "petit \xC3\xA9t\xC3\xA9");
}

// An owner of the clipboard that announces a large text and then never finishes handing it
// over: it either falls silent or trickles pieces without end.
class BadOwner {
 public:
  explicit BadOwner(bool trickles) : trickles_(trickles), display_(XOpenDisplay(nullptr)) {
    window_ = XCreateSimpleWindow(display_, DefaultRootWindow(display_), 0, 0, 1, 1, 0, 0, 0);
    XSetSelectionOwner(display_, XInternAtom(display_, "CLIPBOARD", False), window_, CurrentTime);
    XSync(display_, False);
    thread_ = std::thread([this] { serve(); });
  }
  ~BadOwner() {
    stop_ = true;
    thread_.join();
    XCloseDisplay(display_);
  }

 private:
  void serve() {
    const Atom incr = XInternAtom(display_, "INCR", False);
    const Atom utf8 = XInternAtom(display_, "UTF8_STRING", False);
    Window requestor = None;
    Atom property = None;
    while (!stop_) {
      while (XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        if (event.type == SelectionRequest) {
          requestor = event.xselectionrequest.requestor;
          property = event.xselectionrequest.property;
          XSelectInput(display_, requestor, PropertyChangeMask);
          long size = 10 * 1024 * 1024;
          XChangeProperty(display_, requestor, property, incr, 32, PropModeReplace,
                          reinterpret_cast<unsigned char*>(&size), 1);
          XSelectionEvent reply{};
          reply.type = SelectionNotify;
          reply.requestor = requestor;
          reply.selection = event.xselectionrequest.selection;
          reply.target = event.xselectionrequest.target;
          reply.property = property;
          reply.time = event.xselectionrequest.time;
          XSendEvent(display_, requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
          XFlush(display_);
        } else if (event.type == PropertyNotify && trickles_ && event.xproperty.window == requestor &&
                   event.xproperty.atom == property && event.xproperty.state == PropertyDelete) {
          XChangeProperty(display_, requestor, property, utf8, 8, PropModeReplace,
                          reinterpret_cast<const unsigned char*>("ab"), 2);
          XFlush(display_);
        }
      }
      pollfd fd{ConnectionNumber(display_), POLLIN, 0};
      poll(&fd, 1, 20);
    }
  }

  bool trickles_;
  Display* display_;
  Window window_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST_F(Desktop, ReadingALargeTextGivesUpWithinTheLimitWhenItsOwnerNeverFinishes) {
  XClipboard clipboard(1);
  for (bool trickles : {false, true}) {
    SCOPED_TRACE(trickles ? "an owner trickling pieces without end" : "an owner fallen silent");
    BadOwner owner(trickles);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(clipboard.readText(), std::nullopt);
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(took, 0.9);
    EXPECT_LT(took, 2.0) << "the limit covers the whole transfer";
  }
  // The next owner's text comes through as usual.
  run("printf 'apr\xC3\xA8s' | xclip -selection clipboard -i >/dev/null 2>&1");
  EXPECT_TRUE(waitFor([&] { return clipboard.readText() == "apr\xC3\xA8s"; }, 5));
  clipboard.clear();
}

TEST_F(Desktop, ScreensAndThePointerAreMeasuredFromTheBottomLeft) {
  GdkScreens screens;
  auto all = screens.screens();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].frame, (Rect{0, 0, 1280, 800}));
  EXPECT_GE(all[0].visibleFrame.minY(), 0);
  EXPECT_LE(all[0].visibleFrame.maxY(), 800);
  run("xdotool mousemove 100 50");
  ASSERT_TRUE(waitFor([&] { return screens.mouseLocation() == Point{100, 750}; }, 5))
      << screens.mouseLocation();
  EXPECT_EQ(screens.mainScreen()->frame, all[0].frame);

  // The monitor changes (a smaller mode, as when a display is swapped): the change is told once
  // GDK knows the new size, and the screens read then are the new ones.
  int changes = 0;
  std::vector<Screen> seen;
  screens.addChangeHandler([&] {
    ++changes;
    seen = screens.screens();
  });
  run("xrandr --newmode mirlo-small 10 640 650 660 670 480 490 500 510 2>&1;"
      "xrandr --addmode screen mirlo-small && xrandr --output screen --mode mirlo-small");
  ASSERT_TRUE(waitFor([&] { return changes > 0 && !seen.empty() && seen[0].frame == Rect{0, 0, 640, 480}; }, 5))
      << "changes seen: " << changes;
  run("xrandr --output screen --mode 1280x800");
  ASSERT_TRUE(waitFor([&] { return !seen.empty() && seen[0].frame == Rect{0, 0, 1280, 800}; }, 5));
}

}  // namespace
}  // namespace mirlo::linuxdesk
