/// CoreFoundation for systems that lack it: the calls this product uses, under their public names, its property
/// lists read and written by libplist. On macOS this file is not used; the framework is.
///
/// Rules that hold for every call:
/// - What Create and Copy return is the caller's, to be given to CFRelease; what Get returns is not. An object returned
/// by
///   Create has a retain count of 1.
/// - A Create or Copy call for which memory runs out returns NULL; a call that changes a container leaves it as it was.
/// No
///   call throws.
/// - A reference handed in must be of the type that its parameter names. NULL or another type there ends the process at
///   once with a message (on macOS it crashes, too), unless the call says what it does with NULL.
/// - Retaining and releasing are safe from any thread. So is reading one object from several threads; changing a
/// container
///   while another thread uses it is not.
/// - `allocator` and `version` parameters are accepted and ignored: memory comes from malloc.
/// - Objects released by a container that is being released are destroyed one after the other, not one inside the
/// other:
///   depth costs no stack.
///
/// What is not here: everything that is not declared below, and
/// - mutable strings and mutable data, hence also mutable leaves of property lists;
/// - string encodings other than UTF-8 and ASCII;
/// - CFCopyDescription: the `copyDescription` callbacks are never called, and are NULL in the kCFType callbacks.
/// Property lists have limits and differences of their own: see CFPropertyList below.

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

enum { kCFNotFound = -1 };

/// NULL, and the only allocator there is.
extern const CFAllocatorRef kCFAllocatorDefault;

// --- Every object ----------------------------------------------------------------------------------------------------

/// `object`, its retain count raised by one.
CFTypeRef CFRetain(CFTypeRef object);

/// Lowers the retain count by one; the object is gone when that was the last.
void CFRelease(CFTypeRef object);

/// The number of owners; for tests. Constants (CFSTR, kCFBooleanTrue, kCFBooleanFalse) have the largest CFIndex,
/// always.
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

/// The same of `count` bytes, zero bytes included. With `isExternalRepresentation`, a byte-order mark at the front is
/// dropped.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
    CFStringEncoding encoding, Boolean isExternalRepresentation);

/// A string of `count` UTF-16 units, taken as they are.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex count);

/// The string itself, retained once more.
CFStringRef CFStringCreateCopy(CFAllocatorRef allocator, CFStringRef string);

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

typedef CFIndex CFNumberType;
enum {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14
};

CFTypeID CFNumberGetTypeID(void);

/// A number from the value of type `type` at `value`; NULL if `type` is none of the above.
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);

/// How the number is stored: one of the six sized types, whichever name it was created under. Integers from property
/// lists are SInt64, reals are Float64. An integer of 2^63 or more, which only a property list can bring, says SInt64,
/// too.
CFNumberType CFNumberGetType(CFNumberRef number);

Boolean CFNumberIsFloatType(CFNumberRef number);

/// Stores the number as a value of type `type` at `value`. True if that is exact, else the nearest value has been
/// stored (a fraction is cut off towards zero; not-a-number as an integer is 0). False, with nothing stored, for an
/// unknown type.
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

/// The bytes; they live as long as the object. Never NULL, not even for an empty object.
const UInt8* CFDataGetBytePtr(CFDataRef data);

/// Copies the bytes of `range` to `bytes`, which has room for them.
void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* bytes);

// --- Containers: callbacks -------------------------------------------------------------------------------------------
// A container keeps what `retain` returns, and gives it to `release` when it lets go. A NULL callback, or NULL in place
// of the callbacks, means: values are kept as they are, nothing is released, equality is that of pointers. The kCFType
// callbacks are CFRetain, CFRelease, CFEqual and CFHash.

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* left, const void* right);
typedef struct {
    CFIndex version;
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;

extern const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* left, const void* right);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);
typedef struct {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;
typedef struct {
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;

extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

// --- CFArray ---------------------------------------------------------------------------------------------------------
// An index or range must lie within the array; anything else ends the process. Changing an immutable array does
// nothing.

CFTypeID CFArrayGetTypeID(void);

/// An immutable array of `count` values; `values` may be NULL if `count` is 0.
CFArrayRef CFArrayCreate(
    CFAllocatorRef allocator, const void** values, CFIndex count, const CFArrayCallBacks* callBacks);

/// An empty array that can be changed. `capacity` is a hint and sets no limit.
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity, const CFArrayCallBacks* callBacks);

/// A new array with the same callbacks and values, each retained once more; the original is left as it is.
CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef array);
CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity, CFArrayRef array);

CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
void CFArrayGetValues(CFArrayRef array, CFRange range, const void** values);

/// Whether a value equal to `value` lies in `range`; the index of the first, or kCFNotFound.
Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value);
CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value);

void CFArrayAppendValue(CFMutableArrayRef array, const void* value);
void CFArrayInsertValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value);
/// `index` may be the count: the value is then appended.
void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value);
void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);
void CFArrayRemoveAllValues(CFMutableArrayRef array);

// --- CFDictionary ----------------------------------------------------------------------------------------------------
// Changing an immutable dictionary does nothing.

CFTypeID CFDictionaryGetTypeID(void);

/// An immutable dictionary of `count` pairs; `keys` and `values` may be NULL if `count` is 0. Of equal keys the first
/// counts.
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);

/// An empty dictionary that can be changed. `capacity` is a hint and sets no limit.
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
    const CFDictionaryKeyCallBacks* keyCallBacks, const CFDictionaryValueCallBacks* valueCallBacks);

/// A new dictionary with the same callbacks, keys and values, each retained once more; the original is left as it is.
CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef dictionary);
CFMutableDictionaryRef CFDictionaryCreateMutableCopy(
    CFAllocatorRef allocator, CFIndex capacity, CFDictionaryRef dictionary);

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key);
Boolean CFDictionaryContainsValue(CFDictionaryRef dictionary, const void* value);

/// The value of `key`, or NULL.
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

/// Whether there is a value of `key`; it is stored at `value` if that is not NULL. Without one, `*value` stays as it
/// is.
Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef dictionary, const void* key, const void** value);

/// Fills two arrays of CFDictionaryGetCount elements, in no particular but in the same order; each may be NULL.
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);

/// Add keeps the value that an equal key has; Set replaces it, keeping the key that is there; Replace only replaces.
void CFDictionaryAddValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
void CFDictionaryReplaceValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);
void CFDictionaryRemoveAllValues(CFMutableDictionaryRef dictionary);

// --- CFError ---------------------------------------------------------------------------------------------------------

enum { kCFPropertyListReadCorruptError = 3840, kCFPropertyListWriteStreamError = 3851 };

CFTypeID CFErrorGetTypeID(void);

/// One of the codes above.
CFIndex CFErrorGetCode(CFErrorRef error);

// --- CFPropertyList --------------------------------------------------------------------------------------------------

typedef CFIndex CFPropertyListFormat;
enum { kCFPropertyListOpenStepFormat = 1, kCFPropertyListXMLFormat_v1_0 = 100, kCFPropertyListBinaryFormat_v1_0 = 200 };

enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1 << 0,
    kCFPropertyListMutableContainersAndLeaves = 1 << 1 ///< leaves are never mutable here: the same as MutableContainers
};

// A property list is a string, number, boolean, date or data, or an array or dictionary of property lists, the keys
// strings. Callbacks other than the kCFType ones do not matter; values that are no objects must not be in it.
//
// Limits. What goes beyond them is refused: NULL, with an error.
// - A list is at most 1000 containers deep. One that contains itself is thus refused, too.
// - What is read has at most 2^31 - 1 bytes; what is written has at most 2^30 in XML, counted generously.
// - In a binary list an object may be used in several places, and counts once for each. With n the length of the list,
//   there are at most n + 2^20 objects, with 64 n + 2^24 bytes of strings and data, and the containers around each
//   object add up to at most 64 n + 2^26.
// - Strings with U+0000 or an unpaired surrogate are neither read nor written.
// - Dates are written from the year 1000 to 9999.
//
// Where reading differs from the framework, because libplist reads:
// - Refused, although the framework takes it: bytes after a list; byte-order marks; UTF-16, whatever the declaration
//   says; old-style text lists; <key/> for an empty key.
// - Taken, although the framework refuses it: malformed numbers, which are worth what they start with, and malformed
//   dates, which give some date.
//
// Further, not compared with the framework:
// - Refused: a comment or CDATA section within <data> or <date>; a character reference to a surrogate; in a binary
//   list, an integer of 16 bytes that is negative or 2^64 and above, a string marked as ASCII that is not, an empty
//   UTF-16 string, and a set.
// - Taken: an XML list without its last </plist>, or with anything after a top container that is not empty; objects
//   after a top container that is empty, as if they were in it; a last key without a value, which is dropped; an "&" at
//   the end of a text; letters between the name of an entity and its semicolon.
//
// A dictionary in XML with the only key CF$UID and an integer from 0 to 2^32 - 1 stands for a keyed archiver's UID. It
// is read as an object of a type of its own, as a UID in a binary list is. That can be written, but neither copied nor
// validated.
//
// libplist 2.2.0 uses most of its allocations unchecked: when memory runs out inside it, while a list is being read or
// written, the process may end or hang (with each one failing in turn, a small list did so in half of the cases).

/// `list` as XML or in the binary format. XML is as the framework writes it, to the byte: keys in the order of their
/// UTF-16 units, dates cut to whole seconds. NULL if `list` is NULL or no property list, and for any other format.
/// `options` has no meaning. `error`, if not NULL, is set: to NULL on success, else to an error for the caller to
/// release, or to NULL if there was no memory for that.
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef list, CFPropertyListFormat format,
    CFOptionFlags options, CFErrorRef* error);

/// The list in `data`, XML or binary; NULL if there is none. Containers are mutable if `options` asks for that. Of a
/// key that stands in a dictionary twice, the last value counts in XML, the first in a binary list. `format`, if not
/// NULL, is set on success; `error` as above.
CFPropertyListRef CFPropertyListCreateWithData(
    CFAllocatorRef allocator, CFDataRef data, CFOptionFlags options, CFPropertyListFormat* format, CFErrorRef* error);

/// A copy in which every array and dictionary is new, empty ones too, and mutable if `options` asks for that; all other
/// objects are the same, retained. NULL if `list` is NULL or no property list.
CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator, CFPropertyListRef list, CFOptionFlags options);

/// Whether `list` is a property list that can be written in `format`; false for NULL, and for formats other than XML
/// and binary.
Boolean CFPropertyListIsValid(CFPropertyListRef list, CFPropertyListFormat format);

#ifdef __cplusplus
}
#endif

#endif
