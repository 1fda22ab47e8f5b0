// The Linux adapters against a real X server, real GTK applications and the accessibility bus.
// Run under tests/linux/with-desktop.sh; skipped when there is no display.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
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

// An editor window in front with a file of our own.
class Editor : public Desktop {
 protected:
  void SetUp() override {
    Desktop::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(AtspiAccessibility::enableDesktopAccessibility());
    file_ = ::testing::TempDir() + "mirlo-editor-" + std::to_string(getpid()) + ".txt";
    std::ofstream(file_) << kSentence;
    // A private configuration: no session restore, no dialogs from an earlier run.
    editor_ = std::make_unique<Child>(std::vector<std::string>{"mousepad", "--disable-server", file_},
                                      std::vector<std::string>{"XDG_CONFIG_HOME=" + ::testing::TempDir(), "XDG_DATA_HOME=" + ::testing::TempDir()});
    ASSERT_GT(editor_->pid(), 0) << "mousepad could not start";
    workspace_ = std::make_unique<XWorkspace>();
    access_ = std::make_unique<AtspiAccessibility>(*workspace_);
    ASSERT_TRUE(waitFor([&] {
      auto front = workspace_->frontmostApplication();
      return front && front->pid == editor_->pid();
    })) << "the editor never came to the front";
    ASSERT_TRUE(waitFor([&] {
      element_ = focused();
      return element_ && value(element_) == kSentence;
    })) << "the editor's text never showed through the accessibility bus";
  }
  void TearDown() override {
    access_.reset();
    editor_.reset();
    if (!file_.empty()) std::remove(file_.c_str());
  }

  AXElementRef focused() {
    AXValue out;
    if (access_->copyAttributeValue(access_->createSystemWide(), ax::kFocusedUIElement, out) != AXError::success)
      return nullptr;
    auto* element = std::get_if<AXElementRef>(&out);
    return element ? *element : nullptr;
  }
  std::optional<std::string> value(const AXElementRef& element, const char* attribute = ax::kValue) {
    AXValue out;
    if (access_->copyAttributeValue(element, attribute, out) != AXError::success) return std::nullopt;
    auto* s = std::get_if<std::string>(&out);
    return s ? std::optional(*s) : std::nullopt;
  }
  std::optional<AXRange> selectedRange() {
    AXValue out;
    if (access_->copyAttributeValue(element_, ax::kSelectedTextRange, out) != AXError::success) return std::nullopt;
    auto* r = std::get_if<AXRange>(&out);
    return r ? std::optional(*r) : std::nullopt;
  }

  std::string file_;
  std::unique_ptr<Child> editor_;
  std::unique_ptr<XWorkspace> workspace_;
  std::unique_ptr<AtspiAccessibility> access_;
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

  AXValue bounds;
  ASSERT_EQ(access_->copyParameterizedAttributeValue(element_, ax::kBoundsForRange, AXRange{6, 4}, bounds),
            AXError::success);
  auto* rect = std::get_if<Rect>(&bounds);
  ASSERT_TRUE(rect);
  EXPECT_GT(rect->width, 0);
  EXPECT_GT(rect->height, 0);
  // Top-left screen coordinates, inside the 1280×800 screen, after the start of the line.
  EXPECT_GT(rect->x, 0);
  EXPECT_GE(rect->y, 0);
  EXPECT_LT(rect->y + rect->height, 800);
  AXValue first;
  ASSERT_EQ(access_->copyParameterizedAttributeValue(element_, ax::kBoundsForRange, AXRange{0, 1}, first),
            AXError::success);
  EXPECT_LT(std::get<Rect>(first).x, rect->x);
  EXPECT_EQ(access_->copyParameterizedAttributeValue(element_, ax::kBoundsForRange, AXRange{4, 1}, first),
            AXError::illegalArgument)
      << "an offset inside the emoji's surrogate pair";

  bool settable = false;
  ASSERT_EQ(access_->isAttributeSettable(element_, ax::kSelectedText, settable), AXError::success);
  EXPECT_TRUE(settable);
  ASSERT_EQ(access_->setAttributeValue(element_, ax::kSelectedText, std::string("chien \xC3\xA9veill\xC3\xA9")),
            AXError::success);
  const std::string expected = "Un \xF0\x9F\x98\x80 chien \xC3\xA9veill\xC3\xA9 noir";
  ASSERT_TRUE(waitFor([&] { return value(element_) == expected; })) << "got " << value(element_).value_or("?");
}

TEST_F(Editor, ClipboardTextPastesIntoTheEditorWhileThisProgramOwnsIt) {
  XClipboard clipboard(2);
  XKeyboard keyboard;
  press(keyboard, kKeyA, modifier::command);
  ASSERT_TRUE(waitFor([&] { return selectedRange() && selectedRange()->length > 0; }));
  clipboard.putText("Coll\xC3\xA9 \xE2\x80\xA6");
  press(keyboard, keycode::v, modifier::command);
  ASSERT_TRUE(waitFor([&] { return value(element_) == "Coll\xC3\xA9 \xE2\x80\xA6"; }))
      << "got " << value(element_).value_or("?");

  // And the other way: the editor's copy is what the clipboard reads.
  press(keyboard, kKeyA, modifier::command);
  clipboard.clear();
  EXPECT_EQ(clipboard.readText(), std::nullopt);
  press(keyboard, keycode::c, modifier::command);
  ASSERT_TRUE(waitFor([&] { return clipboard.readText() == "Coll\xC3\xA9 \xE2\x80\xA6"; }));
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

TEST_F(Desktop, PasswordFieldsAreNeitherReadNorWrittenUnlikePlainEntries) {
  ASSERT_TRUE(AtspiAccessibility::enableDesktopAccessibility());
  XWorkspace workspace;
  AtspiAccessibility access(workspace);
  XKeyboard keyboard;
  // The focused field of a dialog once the letter b is typed into it.
  auto typedInto = [&](const Child& dialog) -> AXElementRef {
    AXElementRef field;
    bool found = waitFor([&] {
      auto front = workspace.frontmostApplication();
      if (!front || front->pid != dialog.pid()) return false;
      AXValue out;
      if (access.copyAttributeValue(access.createSystemWide(), ax::kFocusedUIElement, out) != AXError::success)
        return false;
      field = std::get<AXElementRef>(out);
      return true;
    });
    if (!found) return nullptr;
    press(keyboard, kKeyB, 0);
    press(keyboard, kKeyA, modifier::command);
    return field;
  };

  {
    Child plain({"zenity", "--entry", "--text=Nom"});
    auto field = typedInto(plain);
    ASSERT_TRUE(field);
    AXValue out;
    ASSERT_TRUE(waitFor([&] {
      return access.copyAttributeValue(field, ax::kSelectedText, out) == AXError::success &&
             std::get<std::string>(out) == "b";
    })) << "a plain entry's selection is readable";
  }
  Child secret({"zenity", "--entry", "--hide-text", "--text=Mot de passe"});
  auto field = typedInto(secret);
  ASSERT_TRUE(field);
  AXValue out;
  EXPECT_NE(access.copyAttributeValue(field, ax::kSelectedText, out), AXError::success);
  EXPECT_NE(access.copyAttributeValue(field, ax::kValue, out), AXError::success);
  EXPECT_NE(access.copyAttributeValue(field, ax::kSelectedTextRange, out), AXError::success);
  bool settable = true;
  EXPECT_EQ(access.isAttributeSettable(field, ax::kSelectedText, settable), AXError::success);
  EXPECT_FALSE(settable);
  EXPECT_NE(access.setAttributeValue(field, ax::kSelectedText, std::string("x")), AXError::success);
}

TEST_F(Desktop, AWriteTheApplicationAcceptsButDoesNotMakeIsReportedAsNotDone) {
  ASSERT_TRUE(AtspiAccessibility::enableDesktopAccessibility());
  XWorkspace workspace;
  AtspiAccessibility access(workspace);
  Child field({MIRLO_REFUSING_ENTRY_PATH, "Il fait tres beau."});
  AXElementRef element;
  auto text = [&](const char* attribute) -> std::optional<std::string> {
    AXValue out;
    if (!element || access.copyAttributeValue(element, attribute, out) != AXError::success) return std::nullopt;
    auto* s = std::get_if<std::string>(&out);
    return s ? std::optional(*s) : std::nullopt;
  };
  ASSERT_TRUE(waitFor([&] {
    auto front = workspace.frontmostApplication();
    if (!front || front->pid != field.pid()) return false;
    AXValue out;
    if (access.copyAttributeValue(access.createSystemWide(), ax::kFocusedUIElement, out) != AXError::success)
      return false;
    element = std::get<AXElementRef>(out);
    return text(ax::kSelectedText) == "Il fait tres beau.";
  })) << "the entry's selection never showed through the accessibility bus";

  bool settable = false;
  ASSERT_EQ(access.isAttributeSettable(element, ax::kSelectedText, settable), AXError::success);
  EXPECT_TRUE(settable) << "an editable entry offers the write";
  // The application answers yes and keeps its text: the caller must hear that nothing happened,
  // and the selection must still be there for the way round through the clipboard.
  EXPECT_EQ(access.setAttributeValue(element, ax::kSelectedText, std::string("Il fait tr\xC3\xA8s beau.")),
            AXError::cannotComplete);
  EXPECT_EQ(text(ax::kValue), "Il fait tres beau.");
  EXPECT_EQ(text(ax::kSelectedText), "Il fait tres beau.");
  // Putting back the very same text changes nothing either, and that is a write done.
  EXPECT_EQ(access.setAttributeValue(element, ax::kSelectedText, std::string("Il fait tres beau.")),
            AXError::success);
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

TEST_F(Desktop, ClipboardRoundTripsWithOtherClients) {
  XClipboard clipboard(2);
  clipboard.putText("\xC5\x93uvre \xC2\xB7 fin");  // "œuvre · fin"
  EXPECT_EQ(run("xclip -selection clipboard -o"), "\xC5\x93uvre \xC2\xB7 fin");
  XClipboard second(2);
  EXPECT_EQ(second.readText(), "\xC5\x93uvre \xC2\xB7 fin");
  clipboard.clear();
  EXPECT_EQ(second.readText(), std::nullopt);
  run("printf 'depuis xclip' | xclip -selection clipboard -i >/dev/null 2>&1");
  ASSERT_TRUE(waitFor([&] { return clipboard.readText() == "depuis xclip"; }, 5));
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
}

}  // namespace
}  // namespace mirlo::linuxdesk
