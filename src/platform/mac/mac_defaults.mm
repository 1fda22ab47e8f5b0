#include "platform/mac/mac_defaults.h"

#import <Foundation/Foundation.h>

#include "platform/mac/ns.h"

namespace mirlo::mac {

namespace {

class MacDefaults final : public Defaults {
 public:
  // One handle on the standard defaults, taken once and kept.
  MacDefaults() : defaults_([[NSUserDefaults standardUserDefaults] retain]) {}
  ~MacDefaults() override { [defaults_ release]; }
  MacDefaults(const MacDefaults&) = delete;
  MacDefaults& operator=(const MacDefaults&) = delete;

  bool hasObject(const std::string& key) override { return [defaults_ objectForKey:makeNSString(key)] != nil; }

  bool boolForKey(const std::string& key) override { return [defaults_ boolForKey:makeNSString(key)]; }

  void setBool(const std::string& key, bool value) override { [defaults_ setBool:value forKey:makeNSString(key)]; }

  // A string only: NSUserDefaults' own stringForKey: would turn a stored number into its digits.
  std::optional<std::string> stringForKey(const std::string& key) override {
    id value = [defaults_ objectForKey:makeNSString(key)];
    if (![value isKindOfClass:[NSString class]]) return std::nullopt;
    return utf8Of(static_cast<NSString*>(value));
  }

  void setString(const std::string& key, const std::string& value) override {
    NSString* string = makeNSString(value);
    if (!string) return;
    [defaults_ setObject:string forKey:makeNSString(key)];
  }

 private:
  NSUserDefaults* defaults_;
};

}  // namespace

std::unique_ptr<Defaults> makeDefaults() { return std::make_unique<MacDefaults>(); }

}  // namespace mirlo::mac
