// Carbon event manager hot keys (HIToolbox CarbonEvents.h), text input sources
// (HIToolbox TextInputSources.h) and Unicode key layouts (CarbonCore UnicodeUtilities.h), from
// Apple's reference documentation.
#pragma once
#include <ApplicationServices/ApplicationServices.h>

#ifdef __cplusplus
extern "C" {
#endif

// Events.
typedef struct OpaqueEventRef* EventRef;
typedef struct OpaqueEventHandlerCallRef* EventHandlerCallRef;
typedef struct OpaqueEventHandlerRef* EventHandlerRef;
typedef struct OpaqueEventTargetRef* EventTargetRef;
typedef struct OpaqueEventHotKeyRef* EventHotKeyRef;
typedef UInt32 EventParamName;
typedef UInt32 EventParamType;
typedef OSStatus (*EventHandlerProcPtr)(EventHandlerCallRef inHandlerCallRef, EventRef inEvent, void* inUserData);
typedef EventHandlerProcPtr EventHandlerUPP;
EventHandlerUPP NewEventHandlerUPP(EventHandlerProcPtr userRoutine);

typedef struct EventTypeSpec {
  OSType eventClass;
  UInt32 eventKind;
} EventTypeSpec;
typedef struct EventHotKeyID {
  OSType signature;
  UInt32 id;
} EventHotKeyID;

enum { kEventClassKeyboard = 'keyb' };
enum { kEventHotKeyPressed = 5, kEventHotKeyReleased = 6 };
enum { kEventParamDirectObject = '----' };
enum { typeEventHotKeyID = 'hkid' };
enum { cmdKey = 0x0100, shiftKey = 0x0200, optionKey = 0x0800, controlKey = 0x1000 };
enum { eventNotHandledErr = -9874 };

EventTargetRef GetApplicationEventTarget(void);
OSStatus InstallEventHandler(EventTargetRef inTarget, EventHandlerUPP inHandler, ItemCount inNumTypes,
                             const EventTypeSpec* inList, void* inUserData, EventHandlerRef* outRef);
OSStatus RegisterEventHotKey(UInt32 inHotKeyCode, UInt32 inHotKeyModifiers, EventHotKeyID inHotKeyID,
                             EventTargetRef inTarget, OptionBits inOptions, EventHotKeyRef* outRef);
OSStatus GetEventParameter(EventRef inEvent, EventParamName inName, EventParamType inDesiredType,
                           EventParamType* outActualType, ByteCount inBufferSize, ByteCount* outActualSize,
                           void* outData);

// Text input sources.
typedef struct __TISInputSource* TISInputSourceRef;
extern const CFStringRef kTISPropertyUnicodeKeyLayoutData;
MIRLO_CF_RETURNS_RETAINED TISInputSourceRef TISCopyCurrentKeyboardLayoutInputSource(void);
void* TISGetInputSourceProperty(TISInputSourceRef inputSource, CFStringRef propertyKey);

// Unicode key layouts.
typedef struct UCKeyboardLayout UCKeyboardLayout;
enum { kUCKeyActionDown = 0, kUCKeyActionUp = 1, kUCKeyActionAutoKey = 2, kUCKeyActionDisplay = 3 };
enum { kUCKeyTranslateNoDeadKeysBit = 0 };
UInt8 LMGetKbdType(void);
OSStatus UCKeyTranslate(const UCKeyboardLayout* keyLayoutPtr, UInt16 virtualKeyCode, UInt16 keyAction,
                        UInt32 modifierKeyState, UInt32 keyboardType, OptionBits keyTranslateOptions,
                        UInt32* deadKeyState, UniCharCount maxStringLength, UniCharCount* actualStringLength,
                        UniChar unicodeString[]);

#ifdef __cplusplus
}
#endif

// Apple events (AE AppleEvents.h, HIServices InternetConfig).
#ifdef __cplusplus
extern "C" {
#endif
enum { kInternetEventClass = 'GURL', kAEGetURL = 'GURL' };
enum { keyDirectObject = '----' };
#ifdef __cplusplus
}
#endif
