#include "platform/mac/mac_keyboard.h"

#include <ApplicationServices/ApplicationServices.h>
#include <Carbon/Carbon.h>

#include "platform/mac/cf.h"

namespace mirlo::mac {

namespace {

// The Unicode layout data of the current keyboard layout; borrowed from `source`, which must
// outlive its use.
CFDataRef layoutData(const CFOwned<TISInputSourceRef>& source) {
  if (!source) return nullptr;
  return static_cast<CFDataRef>(TISGetInputSourceProperty(source.get(), kTISPropertyUnicodeKeyLayoutData));
}

class MacKeyboard final : public Keyboard {
 public:
  bool postKeyEvent(std::uint16_t keyCode, bool keyDown, std::uint64_t flags) override {
    CFOwned<CGEventSourceRef> source(CGEventSourceCreate(kCGEventSourceStateCombinedSessionState));
    CFOwned<CGEventRef> event(CGEventCreateKeyboardEvent(source.get(), keyCode, keyDown));
    if (!event) return false;
    CGEventSetFlags(event.get(), flags);
    CGEventPost(kCGHIDEventTap, event.get());
    return true;
  }

  std::uint64_t currentModifierFlags() override { return CGEventSourceFlagsState(kCGEventSourceStateHIDSystemState); }

  bool hasLayoutData() override {
    CFOwned<TISInputSourceRef> source(TISCopyCurrentKeyboardLayoutInputSource());
    return layoutData(source) != nullptr;
  }

  std::optional<std::string> translate(std::uint16_t keyCode) override {
    CFOwned<TISInputSourceRef> source(TISCopyCurrentKeyboardLayoutInputSource());
    CFDataRef data = layoutData(source);
    if (!data) return std::nullopt;
    const auto* layout = reinterpret_cast<const UCKeyboardLayout*>(CFDataGetBytePtr(data));
    UInt32 deadKeyState = 0;
    UniChar units[4] = {};
    UniCharCount length = 0;
    const OSStatus status = UCKeyTranslate(layout, keyCode, kUCKeyActionDisplay, 0, LMGetKbdType(), 0, &deadKeyState,
                                           4, &length, units);
    if (status != noErr || length == 0) return std::nullopt;
    CFOwned<CFStringRef> text(CFStringCreateWithCharacters(kCFAllocatorDefault, units, static_cast<CFIndex>(length)));
    if (!text) return std::nullopt;
    return toUTF8(text.get());
  }
};

}  // namespace

std::unique_ptr<Keyboard> makeKeyboard() { return std::make_unique<MacKeyboard>(); }

}  // namespace mirlo::mac
