/// CoreFoundation for systems without it: the functions that a program needs to create, read, change and store the
/// property lists of a task, under their public names. On macOS the framework takes its place.
///
/// Rules for every function:
/// - The caller owns what Create and Copy return, and releases it with CFRelease. It does not own what Get returns.
/// - If there is no memory, Create and Copy return NULL, and a function that changes a container leaves it unchanged.
///   Nothing is thrown.
/// - These end the process with a message: NULL or an object of another type than the parameter's, an index beyond the
///   end, and a change of an immutable container.
/// - Any thread may retain and release any object. Several threads may read one object, but none may use a container
///   while another changes it.
/// - `allocator` is ignored: memory comes from malloc.
/// - Releasing a deeply nested container takes no more stack than a flat one.
///
/// Not supported: anything that is not declared below, and
/// - mutable strings and mutable data, in property lists too;
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

/// NULL, the only allocator.
extern const CFAllocatorRef kCFAllocatorDefault;

// --- Every object ----------------------------------------------------------------------------------------------------

/// Adds one to the retain count, and returns `object`.
CFTypeRef CFRetain(CFTypeRef object);

/// Subtracts one from the retain count, and destroys the object when the count is 0.
void CFRelease(CFTypeRef object);

/// The retain count, for tests. For a constant (CFSTR, kCFBooleanTrue, kCFBooleanFalse) it is always a large number.
CFIndex CFGetRetainCount(CFTypeRef object);

CFTypeID CFGetTypeID(CFTypeRef object);

/// Whether both are of the same type and have equal contents. Numbers are equal if their values are, whatever their
/// types: integer 1 equals double 1.0. Not-a-number equals itself; minus zero does not equal zero. A number never
/// equals a boolean. Do not compare containers that contain themselves.
Boolean CFEqual(CFTypeRef left, CFTypeRef right);

/// Equal objects have equal hashes.
CFHashCode CFHash(CFTypeRef object);

// --- CFString --------------------------------------------------------------------------------------------------------
// Immutable UTF-16. It may contain any unit, even U+0000 and unpaired surrogates.

typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingASCII = 0x0600, kCFStringEncodingUTF8 = 0x08000100 };

CFTypeID CFStringGetTypeID(void);

/// A string from the C string `text`; NULL if that is not valid in `encoding`, or if `encoding` is not supported.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);

/// As above, from `count` bytes, zero bytes included. Both drop a byte-order mark at the front.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
    CFStringEncoding encoding, Boolean isExternalRepresentation);

/// A string of `count` UTF-16 units, which are not checked.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex count);

/// The number of UTF-16 units.
CFIndex CFStringGetLength(CFStringRef string);

/// Copies the units of `range` to `units`, which must have room for them.
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* units);

/// Writes the string and a zero byte to `text`. A U+0000 in the string is written as a zero byte. False if `encoding`
/// is not supported or cannot represent the string (an unpaired surrogate in UTF-8, U+0080 and above in ASCII), or if
/// `capacity` bytes are too few; `text` is then the empty string if there is room for that.
Boolean CFStringGetCString(CFStringRef string, char* text, CFIndex capacity, CFStringEncoding encoding);

/// A constant string from a literal. It allocates no memory, is never destroyed, and any thread may use it. Each CFSTR
/// in the source is an object of its own; two with the same literal are equal. An escape such as \xe9 is a UTF-16 unit.
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

/// For CFSTR only: the memory of one constant string, zero before its first use, and the function that fills it.
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

/// A number from the value of type `type` at `value`; NULL if `type` is not one of the above.
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);

/// The type in which the number is stored: one of the first six, so kCFNumberIntType becomes kCFNumberSInt32Type.
CFNumberType CFNumberGetType(CFNumberRef number);

Boolean CFNumberIsFloatType(CFNumberRef number);

/// Stores the number at `value` as a value of type `type`. True if that is exact. False if a fraction was cut off, or
/// if the number is out of range and the value stored is arbitrary. False, with nothing stored, for an unknown type.
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

/// A copy of `count` bytes. `bytes` may be NULL if `count` is 0; the object is then empty.
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count);

CFIndex CFDataGetLength(CFDataRef data);

/// The bytes, valid as long as the object. If the object is empty, do not use the pointer.
const UInt8* CFDataGetBytePtr(CFDataRef data);

/// Copies the bytes of `range` to `bytes`, which must have room for them.
void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* bytes);

// --- CFArray ---------------------------------------------------------------------------------------------------------
// A container retains what it holds.

typedef struct OrvCFArrayCallBacks CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;

CFTypeID CFArrayGetTypeID(void);

/// An empty array that can be changed. `capacity` is a hint and sets no limit.
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity, const CFArrayCallBacks* callBacks);

/// A new mutable array with the same values, which it retains. The original is not changed.
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

/// An immutable dictionary of `count` pairs; `keys` and `values` may be NULL if `count` is 0. If keys are equal, the
/// first is kept.
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);

/// An empty dictionary that can be changed. `capacity` is a hint and sets no limit.
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);

/// A new mutable dictionary with the same keys and values, which it retains. The original is not changed.
CFMutableDictionaryRef CFDictionaryCreateMutableCopy(
    CFAllocatorRef allocator, CFIndex capacity, CFDictionaryRef dictionary);

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);

/// The value of `key`, or NULL.
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

/// Fills two arrays of CFDictionaryGetCount elements, both in the same order, which is arbitrary. Either may be NULL.
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);

/// Calls `apply` with each key, its value and `context`.
typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);
void CFDictionaryApplyFunction(CFDictionaryRef dictionary, CFDictionaryApplierFunction apply, void* context);

/// Adds the pair. If the dictionary has an equal key, keeps that key and replaces its value.
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

// A property list is a string, number, boolean, date or data, an array of property lists, or a dictionary of property
// lists whose keys are strings. XML and binary lists are read; only XML is written.
//
// Limits. For a list beyond one of them, the result is NULL, with an error.
// - A list is at most 512 containers deep. So a list that contains itself is rejected.
// - Input has at most 2^31 - 1 bytes; output has at most about 2^30 bytes and 2^23 objects.
// - An object in a binary list counts once for each place that uses it. A list of n bytes may have at most n + 2^20
//   objects, with 64 n + 2^24 bytes of strings and data.
// - Strings with U+0000 or an unpaired surrogate are neither read nor written, nor are dates beyond the years 0 to
//   9999 in XML.
//
// Some lists that the framework reads are rejected here on purpose: docs/formats.md lists them.
//
// An XML dictionary whose only key is CF$UID, with an integer from 0 to 2^32 - 1, is a keyed archiver's UID. It is read
// as an object of a special type, and so is a UID in a binary list. Such an object can be written, but not copied.

/// `list` as XML, with the same bytes as the framework writes: keys in the order of their UTF-16 units, dates cut to
/// whole seconds. NULL if `list` is NULL or not a property list, or if `format` is not XML. `options` is ignored.
/// `error` may be NULL. If not, a failure sets `*error` to an error that the caller releases, or to NULL if there is no
/// memory; success leaves it unchanged.
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef list, CFPropertyListFormat format,
    CFOptionFlags options, CFErrorRef* error);

/// The list in `data`, XML or binary; NULL if `data` is not a valid list. Containers are mutable if `options` asks for
/// that; else do not change them, even where the framework lets you. If a dictionary has a key twice, the last value is
/// kept in XML, the first in a binary list. `format`, if not NULL, is set on success; `error` is as above.
CFPropertyListRef CFPropertyListCreateWithData(
    CFAllocatorRef allocator, CFDataRef data, CFOptionFlags options, CFPropertyListFormat* format, CFErrorRef* error);

/// A copy in which every array and dictionary is new, and mutable if `options` asks for that. All other objects are
/// shared and retained. NULL if `list` is NULL or not a property list.
CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator, CFPropertyListRef list, CFOptionFlags options);

#ifdef __cplusplus
}
#endif

#endif
