/// CoreFoundation for systems that lack it: the calls with which programs make, read, change and store the property
/// lists of a task, under their public names. On macOS this file is not used; the framework is.
///
/// Rules that hold for every call:
/// - What Create and Copy return is the caller's, to be given to CFRelease; what Get returns is not.
/// - A Create or Copy call for which memory runs out returns NULL; a call that changes a container leaves it as it was.
///   No call throws.
/// - A reference handed in must be of the type that its parameter names. NULL or another type there, an index beyond
///   the end, or a container that is immutable where one is to be changed, ends the process with a message.
/// - Retaining and releasing are safe from any thread. So is reading one object from several threads; changing a
///   container while another thread uses it is not.
/// - `allocator` is accepted and ignored: memory comes from malloc.
/// - Objects released by a container that is being released are destroyed one after the other, not one inside the
///   other: depth costs no stack.
///
/// What is not here: everything that is not declared below, and
/// - mutable strings and mutable data, hence also mutable leaves of property lists;
/// - string encodings other than UTF-8 and ASCII;
/// - containers of anything but objects: callbacks other than the kCFType ones end the process.
/// Property lists have limits of their own: see CFPropertyList below.

#ifndef ORV_COREFOUNDATION_H
#define ORV_COREFOUNDATION_H

#include <stdint.h>
#ifndef __cplusplus
#include <stdbool.h>
#include <uchar.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

// --- Base types ------------------------------------------------------------------------------------------------------

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef uint16_t UniChar;

typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFHashCode;
typedef unsigned long CFOptionFlags;

typedef const void* CFTypeRef;
typedef const void* CFPropertyListRef;
typedef const struct OrvCFAllocator* CFAllocatorRef;
typedef const struct OrvCFString* CFStringRef;
typedef const struct OrvCFNumber* CFNumberRef;
typedef const struct OrvCFBoolean* CFBooleanRef;
typedef const struct OrvCFDate* CFDateRef;
typedef const struct OrvCFData* CFDataRef;
typedef const struct OrvCFArray* CFArrayRef;
typedef struct OrvCFArray* CFMutableArrayRef;
typedef const struct OrvCFDictionary* CFDictionaryRef;
typedef struct OrvCFDictionary* CFMutableDictionaryRef;
typedef struct OrvCFError* CFErrorRef;

/// An enumeration type whose values are stored as a CFIndex.
#ifdef __cplusplus
#define ORV_CF_ENUM(name) enum name : CFIndex
#else
#define ORV_CF_ENUM(name)                                                                                              \
    typedef CFIndex name;                                                                                              \
    enum
#endif

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length)
{
    CFRange range;
    range.location = location;
    range.length = length;
    return range;
}

/// NULL, and the only allocator there is.
extern const CFAllocatorRef kCFAllocatorDefault;

// --- Every object ----------------------------------------------------------------------------------------------------

/// `object`, its retain count raised by one.
CFTypeRef CFRetain(CFTypeRef object);

/// Lowers the retain count by one; the object is gone when that was the last.
void CFRelease(CFTypeRef object);

/// The number of owners; for tests. Constants (CFSTR, kCFBooleanTrue, kCFBooleanFalse) have some large number, always.
CFIndex CFGetRetainCount(CFTypeRef object);

CFTypeID CFGetTypeID(CFTypeRef object);

/// Whether both are of one type and have equal content. Numbers compare by value, whatever their width and kind:
/// integer 1 equals double 1.0; not-a-number equals itself; minus zero does not equal zero. A number never equals a
/// boolean. Recurses into containers: one that contains itself must not be compared with another.
Boolean CFEqual(CFTypeRef left, CFTypeRef right);

/// Equal objects have equal hashes.
CFHashCode CFHash(CFTypeRef object);

// --- CFString --------------------------------------------------------------------------------------------------------
// Immutable UTF-16. Any units are possible, U+0000 and unpaired surrogates too.

typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingASCII = 0x0600, kCFStringEncodingUTF8 = 0x08000100 };

CFTypeID CFStringGetTypeID(void);

/// A string with the content of the C string `text`; NULL if that is not valid in `encoding`, or if `encoding` is
/// unknown.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);

/// The same of `count` bytes, zero bytes included. Both drop a byte-order mark at the front.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
    CFStringEncoding encoding, Boolean isExternalRepresentation);

/// A string of `count` UTF-16 units, taken as they are.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex count);

/// The number of UTF-16 units.
CFIndex CFStringGetLength(CFStringRef string);

/// Copies the units of `range` to `units`, which has room for them.
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* units);

/// Writes the string and a zero byte to `text`. False if it cannot be had in `encoding` (an unpaired surrogate in
/// UTF-8, U+0080 and above in ASCII), if `encoding` is unknown, or if `capacity` bytes do not suffice; `text` then
/// holds the empty string if there is room for that. A U+0000 inside is copied as a zero byte.
Boolean CFStringGetCString(CFStringRef string, char* text, CFIndex capacity, CFStringEncoding encoding);

/// A constant string from a literal: it takes no memory at run time, is never destroyed and may be used from any
/// thread. Two places with the same literal give two objects, which are equal. Escapes such as \xe9 are UTF-16 units.
#ifdef __cplusplus
#define CFSTR(literal)                                                                                                 \
    ([]() noexcept -> CFStringRef {                                                                                    \
        static struct OrvCFConstantString orvPlace;                                                                    \
        return OrvCFMakeConstantString(&orvPlace, u"" literal, (CFIndex)(sizeof(u"" literal) / sizeof(char16_t) - 1)); \
    }())
#else
#define CFSTR(literal)                                                                                                 \
    __extension__({                                                                                                    \
        static struct OrvCFConstantString orvPlace;                                                                    \
        OrvCFMakeConstantString(&orvPlace, u"" literal, (CFIndex)(sizeof(u"" literal) / sizeof(char16_t) - 1));        \
    })
#endif

/// Not for use by itself: the place of one CFSTR, all zero until it is first reached, and what makes the string there.
struct OrvCFConstantString {
    CFStringRef made;
    uint64_t object[12];
};
CFStringRef OrvCFMakeConstantString(struct OrvCFConstantString* place, const char16_t* units, CFIndex count);

// --- CFNumber and CFBoolean ------------------------------------------------------------------------------------------

ORV_CF_ENUM(CFNumberType){kCFNumberSInt8Type = 1, kCFNumberSInt16Type = 2, kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4, kCFNumberFloat32Type = 5, kCFNumberFloat64Type = 6, kCFNumberCharType = 7,
    kCFNumberShortType = 8, kCFNumberIntType = 9, kCFNumberLongType = 10, kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12, kCFNumberDoubleType = 13, kCFNumberCFIndexType = 14};

CFTypeID CFNumberGetTypeID(void);

/// A number from the value of type `type` at `value`; NULL if `type` is none of the above.
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);

/// How the number is stored: one of the six sized types, whichever name it was created under.
CFNumberType CFNumberGetType(CFNumberRef number);

Boolean CFNumberIsFloatType(CFNumberRef number);

/// Stores the number as a value of type `type` at `value`. True if that is exact; else a fraction has been cut off, or
/// a number out of range has given some value. False, with nothing stored, for an unknown type.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

// --- CFDate ----------------------------------------------------------------------------------------------------------

typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime; ///< seconds since 2001-01-01T00:00:00Z

CFTypeID CFDateGetTypeID(void);
CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime seconds);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

// --- CFData ----------------------------------------------------------------------------------------------------------

CFTypeID CFDataGetTypeID(void);

/// A copy of `count` bytes. `bytes` may be NULL if `count` is 0, which gives a valid empty object.
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count);

CFIndex CFDataGetLength(CFDataRef data);

/// The bytes; they live as long as the object. No promise if there are none.
const UInt8* CFDataGetBytePtr(CFDataRef data);

/// Copies the bytes of `range` to `bytes`, which has room for them.
void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* bytes);

// --- CFArray ---------------------------------------------------------------------------------------------------------
// A container retains what it holds.

typedef struct OrvCFArrayCallBacks CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;

CFTypeID CFArrayGetTypeID(void);

/// An empty array that can be changed. `capacity` is a hint and sets no limit.
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity, const CFArrayCallBacks* callBacks);

/// A new array with the same values, each retained once more; the original is left as it is.
CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFArrayRef array);

CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

void CFArrayAppendValue(CFMutableArrayRef array, const void* value);
void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);

// --- CFDictionary ----------------------------------------------------------------------------------------------------

typedef struct OrvCFDictionaryKeyCallBacks CFDictionaryKeyCallBacks;
typedef struct OrvCFDictionaryValueCallBacks CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CFTypeID CFDictionaryGetTypeID(void);

/// An immutable dictionary of `count` pairs; `keys` and `values` may be NULL if `count` is 0. Of equal keys the first
/// counts.
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);

/// An empty dictionary that can be changed. `capacity` is a hint and sets no limit.
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);

/// A new dictionary with the same keys and values, each retained once more; the original is left as it is.
CFMutableDictionaryRef CFDictionaryCreateMutableCopy(
    CFAllocatorRef allocator, CFIndex capacity, CFDictionaryRef dictionary);

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);

/// The value of `key`, or NULL.
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

/// Fills two arrays of CFDictionaryGetCount elements, in no particular but in the same order; each may be NULL.
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);

/// Calls `apply` with each key, its value and `context`.
typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);
void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction apply, void* context);

/// Replaces the value that an equal key has, keeping the key that is there, or adds the pair.
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);

// --- CFPropertyList --------------------------------------------------------------------------------------------------

ORV_CF_ENUM(CFPropertyListFormat){
    kCFPropertyListOpenStepFormat = 1, kCFPropertyListXMLFormat_v1_0 = 100, kCFPropertyListBinaryFormat_v1_0 = 200};

enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1 << 0,
    kCFPropertyListMutableContainersAndLeaves = 1 << 1 ///< leaves are never mutable here: the same as MutableContainers
};

// A property list is a string, number, boolean, date or data, or an array or dictionary of property lists, the keys
// strings. XML and binary lists are read, XML is written.
//
// Limits. What goes beyond them is refused: NULL, with an error.
// - A list is at most 512 containers deep. One that contains itself is thus refused, too.
// - What is read has at most 2^31 - 1 bytes; what is written has at most about 2^30, in 2^23 objects.
// - In a binary list an object may be used in several places, and counts once for each. With n the length of the list,
//   there are at most n + 2^20 objects, with 64 n + 2^24 bytes of strings and data.
// - Strings with U+0000 or an unpaired surrogate are neither read nor written, nor are dates beyond the years 0 to
//   9999 in XML.
//
// Some lists that the framework reads are refused here on purpose: docs/formats.md lists them.
//
// A dictionary in XML with the only key CF$UID and an integer from 0 to 2^32 - 1 stands for a keyed archiver's UID. It
// is read as an object of a type of its own, as a UID in a binary list is. That can be written, but not copied.

/// `list` as XML, to the byte as the framework writes it: keys in the order of their UTF-16 units, dates cut to whole
/// seconds. NULL if `list` is NULL or no property list, and for any other format, the binary one too. `options` has no
/// meaning. On failure `*error`, unless `error` is NULL, is set to an error for the caller to release, or to NULL if
/// there was no memory for that; on success it stays as it is.
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef list, CFPropertyListFormat format,
    CFOptionFlags options, CFErrorRef* error);

/// The list in `data`, XML or binary; NULL if there is none. Containers are mutable if `options` asks for that; else
/// do not change them, even where the framework lets you. Of a key that stands in a dictionary twice, the last value
/// counts in XML, the first in a binary list. `format`, if not NULL, is set on success; `error` as above.
CFPropertyListRef CFPropertyListCreateWithData(
    CFAllocatorRef allocator, CFDataRef data, CFOptionFlags options, CFPropertyListFormat* format, CFErrorRef* error);

/// A copy in which every array and dictionary is new, empty ones too, and mutable if `options` asks for that; all other
/// objects are the same, retained. NULL if `list` is NULL or no property list.
CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator, CFPropertyListRef list, CFOptionFlags options);

#ifdef __cplusplus
}
#endif

#endif
