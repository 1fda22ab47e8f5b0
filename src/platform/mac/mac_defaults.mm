#include "platform/mac/mac_defaults.h"

#import <Foundation/Foundation.h>

namespace mirlo::mac {

namespace {

NSString* stringOf(const std::string& text) {
  return [[[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding] autorelease];
}

class MacDefaults final : public Defaults {
 public:
  // One handle on the standard defaults, taken once and kept.
  MacDefaults() : defaults_([[NSUserDefaults standardUserDefaults] retain]) {}
  ~MacDefaults() override { [defaults_ release]; }
  MacDefaults(const MacDefaults&) = delete;
  MacDefaults& operator=(const MacDefaults&) = delete;

  bool hasObject(const std::string& key) override { return [defaults_ objectForKey:stringOf(key)] != nil; }

  bool boolForKey(const std::string& key) override { return [defaults_ boolForKey:stringOf(key)]; }

  void setBool(const std::string& key, bool value) override { [defaults_ setBool:value forKey:stringOf(key)]; }

  std::optional<std::string> stringForKey(const std::string& key) override {
    NSString* value = [defaults_ stringForKey:stringOf(key)];
    if (!value) return std::nullopt;
    const char* utf8 = [value UTF8String];
    if (!utf8) return std::nullopt;
    return std::string(utf8);
  }

  void setString(const std::string& key, const std::string& value) override {
    NSString* string = stringOf(value);
    if (!string) return;
    [defaults_ setObject:string forKey:stringOf(key)];
  }

 private:
  NSUserDefaults* defaults_;
};

}  // namespace

std::unique_ptr<Defaults> makeDefaults() { return std::make_unique<MacDefaults>(); }

}  // namespace mirlo::mac
