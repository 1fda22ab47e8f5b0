// The correction engine: takes the user's selection, has the service correct it, writes the
// answer back in place and keeps the last replacement for undo. Everything here runs on the main
// queue except the service's completion, which hops there first.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "base/lifetime.h"
#include "platform/accessibility.h"
#include "platform/http.h"

namespace mirlo {

class App;

// What the user is shown when a correction fails.
struct MirloError {
  std::string message;              // French, shown as it is
  bool upsell = false;              // the card offers the account page
  std::optional<std::string> code;  // the service's code, e.g. "auth", "quota", "too_long"
  friend bool operator==(const MirloError&, const MirloError&) = default;
};

// The corrected text, a service error, or a failure of the transport itself.
using CorrectionResult = std::variant<std::string, MirloError, TransportError>;

// What a person reads about a transport failure: French words chosen by its kind, the same on
// every platform. The platform's technical description is for --verbose and logs only.
std::string transportMessage(const TransportError& failure);

class Engine {
 public:
  static constexpr const char* corrected = "mirlo.corrected";

  struct UndoInfo {
    AXElementRef element;  // none after the clipboard path
    std::int64_t location = 0;
    std::string original;
    std::string corrected;
    double at = 0;  // main-queue time of the replacement
    std::optional<std::string> textAfter;  // the element's whole text just after the write
  };

  explicit Engine(App& app);

  // Corrects ("fix") or rephrases (any other mode) the current selection.
  void run(const std::string& mode);

  bool busy() const { return busy_; }
  const std::optional<UndoInfo>& undoInfo() const { return undoInfo_; }

  // One correction request. `done` may run on any thread; "auth" answers refresh the session
  // once and repeat the request when `allowRetry`.
  void request(const std::string& text, const std::string& mode, bool allowRetry,
               std::function<void(CorrectionResult)> done);

  // Command+Z was seen: restores the original text of the last replacement within a minute.
  void handleUndoKey();

  // --- Keystrokes and clipboard.
  void postKey(std::uint16_t keyCode, std::uint64_t flags);
  void waitModifiersReleased(double timeout);
  void copyFlow(const std::string& mode);
  void pasteReplace(const std::string& text);

 private:
  void process(const std::string& text, const std::string& mode, AXElementRef element, std::int64_t location);
  void finish(const CorrectionResult& result, const std::string& original, const AXElementRef& element,
              std::int64_t location);
  void restore(const UndoInfo& info);
  static std::string progressLabel(const std::string& mode);

  App& app_;
  bool busy_ = false;
  std::optional<UndoInfo> undoInfo_;
  Lifetime life_;  // delayed work does nothing once the engine is gone
};

}  // namespace mirlo
