// Keychain items (Security SecItem.h), from Apple's reference documentation.
#pragma once
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma clang assume_nonnull begin

CF_ENUM(OSStatus) {
  errSecSuccess = 0,
  errSecParam = -50,
  errSecAllocate = -108,
  errSecNotAvailable = -25291,
  errSecAuthFailed = -25293,
  errSecDuplicateItem = -25299,
  errSecItemNotFound = -25300,
  errSecInteractionNotAllowed = -25308,
};

extern const CFStringRef kSecClass;
extern const CFStringRef kSecClassGenericPassword;
extern const CFStringRef kSecAttrService;
extern const CFStringRef kSecAttrAccessible;
extern const CFStringRef kSecAttrAccessibleWhenUnlocked;
extern const CFStringRef kSecValueData;
extern const CFStringRef kSecReturnData;
extern const CFStringRef kSecMatchLimit;
extern const CFStringRef kSecMatchLimitOne;

// The result is optional: a null pointer asks for none.
OSStatus SecItemAdd(CFDictionaryRef attributes, CFTypeRef _Nullable* _Nullable result);
OSStatus SecItemUpdate(CFDictionaryRef query, CFDictionaryRef attributesToUpdate);
OSStatus SecItemDelete(CFDictionaryRef query);
OSStatus SecItemCopyMatching(CFDictionaryRef query, __attribute__((cf_returns_retained)) CFTypeRef _Nullable* _Nullable result);

#pragma clang assume_nonnull end
#ifdef __cplusplus
}
#endif
