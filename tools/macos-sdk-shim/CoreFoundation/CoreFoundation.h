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

// MacTypes.h, for the 64-bit targets (arm64, x86_64).
typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef unsigned short UInt16;
typedef unsigned int UInt32;
typedef unsigned long long UInt64;
typedef signed int SInt32;
typedef signed short SInt16;
typedef SInt32 OSStatus;
typedef SInt16 OSErr;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef UInt32 OptionBits;
typedef unsigned long ItemCount;
typedef unsigned long ByteCount;
typedef UInt16 UniChar;
typedef unsigned long UniCharCount;
typedef void* LogicalAddress;
enum { noErr = 0 };

typedef const void* CFTypeRef;
typedef unsigned long CFTypeID;
typedef signed long CFIndex;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;
static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  CFRange r = {location, length};
  return r;
}

// Core Foundation's headers assume non-null pointers unless marked otherwise (CF_ASSUME_NONNULL).
#pragma clang assume_nonnull begin

typedef const struct __CFAllocator* CFAllocatorRef;
extern const CFAllocatorRef _Nullable kCFAllocatorDefault;

typedef const struct __CFString* CFStringRef;
typedef UInt32 CFStringEncoding;
typedef CF_ENUM(CFStringEncoding, CFStringBuiltInEncodings) {
  kCFStringEncodingUTF8 = 0x08000100,
};
CFStringRef __CFStringMakeConstantString(const char* cStr);
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")
CFStringRef _Nullable CFStringCreateWithBytes(CFAllocatorRef _Nullable alloc, const UInt8* _Nullable bytes,
                                              CFIndex numBytes, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);
CFStringRef _Nullable CFStringCreateWithCharacters(CFAllocatorRef _Nullable alloc, const UniChar* _Nullable chars,
                                                   CFIndex numChars);
CFIndex CFStringGetLength(CFStringRef theString);
// A null buffer measures the conversion without writing it.
CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* _Nullable buffer, CFIndex maxBufLen,
                         CFIndex* _Nullable usedBufLen);
CFTypeID CFStringGetTypeID(void);

typedef const struct __CFBoolean* CFBooleanRef;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
Boolean CFBooleanGetValue(CFBooleanRef boolean);
CFTypeID CFBooleanGetTypeID(void);

typedef const struct __CFData* CFDataRef;
CFDataRef _Nullable CFDataCreate(CFAllocatorRef _Nullable allocator, const UInt8* _Nullable bytes, CFIndex length);
const UInt8* _Nullable CFDataGetBytePtr(CFDataRef theData);
CFIndex CFDataGetLength(CFDataRef theData);
CFTypeID CFDataGetTypeID(void);

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const void* _Nullable (*CFDictionaryRetainCallBack)(CFAllocatorRef _Nullable allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef _Nullable allocator, const void* value);
typedef CFStringRef _Nullable (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* value1, const void* value2);
typedef unsigned long (*CFDictionaryHashCallBack)(const void* value);
typedef struct {
  CFIndex version;
  CFDictionaryRetainCallBack _Nullable retain;
  CFDictionaryReleaseCallBack _Nullable release;
  CFDictionaryCopyDescriptionCallBack _Nullable copyDescription;
  CFDictionaryEqualCallBack _Nullable equal;
  CFDictionaryHashCallBack _Nullable hash;
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  CFDictionaryRetainCallBack _Nullable retain;
  CFDictionaryReleaseCallBack _Nullable release;
  CFDictionaryCopyDescriptionCallBack _Nullable copyDescription;
  CFDictionaryEqualCallBack _Nullable equal;
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFDictionaryRef _Nullable CFDictionaryCreate(CFAllocatorRef _Nullable allocator, const void* _Nullable* _Nullable keys,
                                             const void* _Nullable* _Nullable values, CFIndex numValues,
                                             const CFDictionaryKeyCallBacks* _Nullable keyCallBacks,
                                             const CFDictionaryValueCallBacks* _Nullable valueCallBacks);

typedef struct __CFBundle* CFBundleRef;
CFBundleRef _Nullable CFBundleGetMainBundle(void);
// Borrowed from the bundle (a Get function): never released by the caller.
CFTypeRef _Nullable CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);

// Both refuse null: releasing or retaining NULL is a crash on a Mac.
CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFTypeID CFGetTypeID(CFTypeRef cf);

#pragma clang assume_nonnull end

#ifdef __cplusplus
}
#endif
