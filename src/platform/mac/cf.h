// Core Foundation ownership and text conversion for the macOS adapters (not seen by the core).
// An object obtained from a Create or Copy call is owned (+1) and goes into a `CFOwned`, which
// releases it on every path; an object obtained from a Get call is borrowed and never released.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace mirlo::mac {

template <typename Ref>
class CFOwned {
 public:
  CFOwned() = default;
  // Takes over one reference the caller owns (a Create or Copy result); null is allowed.
  explicit CFOwned(Ref ref) : ref_(ref) {}
  CFOwned(const CFOwned&) = delete;
  CFOwned& operator=(const CFOwned&) = delete;
  CFOwned(CFOwned&& other) noexcept : ref_(std::exchange(other.ref_, nullptr)) {}
  CFOwned& operator=(CFOwned&& other) noexcept {
    if (this != &other) {
      reset();
      ref_ = std::exchange(other.ref_, nullptr);
    }
    return *this;
  }
  ~CFOwned() { reset(); }

  Ref get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }
  // For the out-parameter of a Copy call; whatever was held is released first.
  Ref* out() {
    reset();
    return &ref_;
  }
  void reset() {
    if (ref_) CFRelease(ref_);
    ref_ = nullptr;
  }

 private:
  Ref ref_ = nullptr;
};

// A new string from UTF-8 (+1), or null when the bytes are not UTF-8.
inline CFOwned<CFStringRef> makeString(const std::string& utf8) {
  return CFOwned<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                      reinterpret_cast<const UInt8*>(utf8.data()),
                                                      static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

// The string's text as UTF-8; nothing when the conversion fails.
inline std::optional<std::string> toUTF8(CFStringRef string) {
  const CFRange all = CFRangeMake(0, CFStringGetLength(string));
  CFIndex needed = 0;
  if (CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &needed) != all.length)
    return std::nullopt;
  std::string out(static_cast<std::size_t>(needed), '\0');
  CFIndex used = 0;
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, reinterpret_cast<UInt8*>(out.data()), needed, &used);
  out.resize(static_cast<std::size_t>(used));
  return out;
}

}  // namespace mirlo::mac
