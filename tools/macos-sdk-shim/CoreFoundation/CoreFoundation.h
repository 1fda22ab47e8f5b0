// Core Foundation, as far as Mirlo uses it (from Apple's Core Foundation reference).
#pragma once
#include <stdint.h>
#include <stdbool.h>

// Apple's enumeration macros as the SDK defines them for C++11 and later. CF_ENUM makes a named
// enumeration with a fixed underlying type: a distinct type, to which no integer converts
// implicitly. CF_OPTIONS makes the name the integer type itself, its constants an anonymous
// enumeration, so that flags combine with |.
#define MIRLO_CF_NAMED_ENUM(type, name) enum name : type name; enum name : type
#define MIRLO_CF_ANON_ENUM(type) enum : type
#define MIRLO_CF_ENUM_PICK(_1, _2, macro, ...) macro
#define CF_ENUM(...) MIRLO_CF_ENUM_PICK(__VA_ARGS__, MIRLO_CF_NAMED_ENUM, MIRLO_CF_ANON_ENUM, )(__VA_ARGS__)
#define CF_OPTIONS(type, name) type name; enum : name

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint16_t UInt16;
typedef uint32_t UInt32;
typedef uint64_t UInt64;
typedef int32_t SInt32;
typedef int16_t SInt16;
typedef int32_t OSStatus;
typedef int16_t OSErr;
typedef UInt32 OSType;
typedef UInt32 FourCharCode;
typedef UInt16 UniChar;
typedef unsigned long UniCharCount;
typedef void* LogicalAddress;
enum { noErr = 0 };

typedef const void* CFTypeRef;
typedef unsigned long CFTypeID;
typedef long CFIndex;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;
static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  CFRange r = {location, length};
  return r;
}

typedef const struct __CFAllocator* CFAllocatorRef;
extern const CFAllocatorRef kCFAllocatorDefault;

typedef const struct __CFString* CFStringRef;
typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingUTF8 = 0x08000100 };
CFStringRef __CFStringMakeConstantString(const char* cStr);
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars, CFIndex numChars);
CFIndex CFStringGetLength(CFStringRef theString);
CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* buffer, CFIndex maxBufLen, CFIndex* usedBufLen);
CFTypeID CFStringGetTypeID(void);

typedef const struct __CFBoolean* CFBooleanRef;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
Boolean CFBooleanGetValue(CFBooleanRef boolean);
CFTypeID CFBooleanGetTypeID(void);

typedef const struct __CFData* CFDataRef;
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
const UInt8* CFDataGetBytePtr(CFDataRef theData);
CFIndex CFDataGetLength(CFDataRef theData);
CFTypeID CFDataGetTypeID(void);

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef struct {
  CFIndex version;
  const void* retain;
  const void* release;
  const void* copyDescription;
  const void* equal;
  const void* hash;
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* retain;
  const void* release;
  const void* copyDescription;
  const void* equal;
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex numValues,
                                   const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks);

typedef struct __CFBundle* CFBundleRef;
CFBundleRef CFBundleGetMainBundle(void);
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);

CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);

#ifdef __cplusplus
}
#endif
