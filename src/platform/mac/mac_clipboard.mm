#include "platform/mac/mac_clipboard.h"

#import <AppKit/AppKit.h>

namespace mirlo::mac {

namespace {

class MacClipboard final : public Clipboard {
 public:
  std::optional<std::string> readText() override {
    NSString* text = [[NSPasteboard generalPasteboard] stringForType:NSPasteboardTypeString];
    if (!text) return std::nullopt;
    const char* utf8 = [text UTF8String];
    if (!utf8) return std::nullopt;
    return std::string(utf8);
  }

  void clear() override { [[NSPasteboard generalPasteboard] clearContents]; }

  void putText(const std::string& text) override {
    NSString* string = [[[NSString alloc] initWithBytes:text.data()
                                                 length:text.size()
                                               encoding:NSUTF8StringEncoding] autorelease];
    if (!string) return;
    [[NSPasteboard generalPasteboard] setString:string forType:NSPasteboardTypeString];
  }
};

}  // namespace

std::unique_ptr<Clipboard> makeClipboard() { return std::make_unique<MacClipboard>(); }

}  // namespace mirlo::mac
