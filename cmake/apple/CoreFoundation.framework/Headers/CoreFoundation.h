// Only what src/platform uses, so that a machine without Apple's headers can compile it.
#pragma once

#include <MacTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef signed long CFIndex;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFTypeID;
typedef UInt32 CFStringEncoding;
typedef const void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFError* CFErrorRef;
typedef CFIndex CFPropertyListFormat;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

enum { kCFPropertyListImmutable = 0 };
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  CFRange range = {location, length};
  return range;
}

void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error);
CFTypeID CFDictionaryGetTypeID(void);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternal);
CFIndex CFStringGetLength(CFStringRef string);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean isExternal, UInt8* bytes, CFIndex most,
                         CFIndex* used);

#ifdef __cplusplus
}
#endif
