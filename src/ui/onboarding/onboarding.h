// The first-run window: sign-in, the accessibility permission, then a demonstration that ends on a
// recap. The window keeps no step number: `refresh` looks at the account and the permission every
// time something may have changed and rebuilds the content for the first step not yet done.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/lifetime.h"
#include "platform/app_info.h"
#include "platform/main_queue.h"
#include "platform/ui.h"

namespace mirlo {

class App;

class Onboarding {
 public:
  static constexpr Size kSize{520, 470};
  static constexpr const char* kAccessibilityPane =
      "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

  // One token of the demonstration sentence: the text shown, and its correction when it is a
  // mistake.
  struct DemoToken {
    std::string text;
    std::optional<std::string> correction;
  };
  static const std::vector<DemoToken>& demoTokens();

  explicit Onboarding(App& app);

  // Opens (creating it once) and fronts the window at the first unfinished step, or at the
  // demonstration when every step is done. Deferred to the main queue so that it can be called
  // from any main-queue context.
  void show();
  // Opens the window unless the user is signed in, trusted and already onboarded.
  void showIfNeeded();
  // The step machine: rebuilds the content for the current step. With every step done the window
  // closes, unless the person `asked` for it (show), who sees the demonstration again.
  void refresh(bool asked = false);

  // ---- Pieces of every page.
  // An empty page with the word mark and its wavy red underline.
  View container();
  // The step label (none when `step` is empty), the title and the two-line subtitle.
  void header(View& container, const std::string& step, const std::string& title, const std::string& sub);

  // ---- Step 1: sign-in.
  View stepLogin();
  // The e-mail (trimmed of spaces and tabs, lower-cased) and the password as typed; nothing, with
  // the reason in the status line, when they cannot be sent.
  std::optional<std::pair<std::string, std::string>> credentials();
  void signInTapped();
  void signUpTapped();

  // ---- Step 2: the permission.
  View stepAccessibility();

  // ---- Step 3: the demonstration.
  View stepTryIt();
  // The sentence with the first `fixed` mistakes corrected (in green unless `settled`), the others
  // underlined in dotted red; all of it on a selection background when `selected`.
  static RichText demoAttributed(int fixed, bool selected, bool settled);
  void runDemoCycle(std::int64_t gen, bool first);
  void revealNext();
  void addConfetti(LiveView& view);
  void showRecap();

  Window* window() { return window_.get(); }
  std::int64_t animGen() const { return animGen_; }
  bool nextShown() const { return nextShown_; }

 private:
  void windowWillClose();
  void setContent(View root);
  void startPermissionTimer();
  bool alive(std::int64_t gen) const;
  void credentialsTapped(bool signUp);
  void showStatus(const std::string& text);
  View settingsMiniature(HostSystem system);
  static std::shared_ptr<LiveView> live(const std::shared_ptr<ViewSlot>& slot) {
    return slot ? slot->live : nullptr;
  }

  App& app_;
  std::shared_ptr<Window> window_;
  std::shared_ptr<Timer> axTimer_;
  // What the window shows now, and the handles of the views changed later.
  std::shared_ptr<ViewSlot> content_;
  std::shared_ptr<ViewSlot> emailField_, passwordField_, loginStatus_;
  std::shared_ptr<ViewSlot> animView_, animText_, animPopup_, animCorriger_, skipButton_;
  std::int64_t animGen_ = 0;
  bool nextShown_ = false;
  Lifetime life_;
};

}  // namespace mirlo
