// Foundation text conversion for the Objective-C++ adapters (not seen by the core). Text crosses
// as UTF-8 bytes with their length, never as a NUL-terminated C string, so that a text holding
// U+0000 arrives whole instead of cut at that character.
#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

namespace mirlo::mac {

// A new autoreleased string from UTF-8; nil when the bytes are not UTF-8.
inline NSString* makeNSString(const std::string& utf8) {
  return [[[NSString alloc] initWithBytes:utf8.data() length:utf8.size() encoding:NSUTF8StringEncoding] autorelease];
}

// The string's text as UTF-8; nothing for nil or a text that UTF-8 cannot hold (a lone surrogate).
inline std::optional<std::string> utf8Of(NSString* string) {
  if (!string) return std::nullopt;
  NSData* data = [string dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:NO];
  if (!data) return std::nullopt;
  if ([data length] == 0) return std::string();
  return std::string(static_cast<const char*>([data bytes]), [data length]);
}

}  // namespace mirlo::mac
