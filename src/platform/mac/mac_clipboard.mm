#include "platform/mac/mac_clipboard.h"

#import <AppKit/AppKit.h>

#include "platform/mac/ns.h"

namespace mirlo::mac {

namespace {

class MacClipboard final : public Clipboard {
 public:
  std::optional<std::string> readText() override {
    return utf8Of([[NSPasteboard generalPasteboard] stringForType:NSPasteboardTypeString]);
  }

  void clear() override { [[NSPasteboard generalPasteboard] clearContents]; }

  void putText(const std::string& text) override {
    NSString* string = makeNSString(text);
    if (!string) return;
    [[NSPasteboard generalPasteboard] setString:string forType:NSPasteboardTypeString];
  }
};

}  // namespace

std::unique_ptr<Clipboard> makeClipboard() { return std::make_unique<MacClipboard>(); }

}  // namespace mirlo::mac
