// Whole-string conversions between wide strings (32-bit wchar_t, one UTF-32
// code point per unit), UTF-8 narrow strings and UTF-16 unit arrays, and
// conversions to and from named code pages (further below).
//
// Every conversion runs the lenient reference converters of ConvertUTF.h over
// the whole input. Failure never throws and never yields a partial result: it
// yields an empty string, so an empty input and a failed conversion look the
// same. Because results are built as zero-terminated strings, an input that
// holds U+0000 converts to the text before it.

#ifndef MORVSTRING_MORVSTRING_H
#define MORVSTRING_MORVSTRING_H

#include <string>

#include "MorvString/MorvStringExport.h"

namespace mvcs {

// UTF-8 to wide. Empty on any ill-formed or truncated UTF-8 (a well-formed
// sequence is never replaced).
MORVSTRING_API std::wstring UTF8ToWide(const std::string& utf8);

// Wide to UTF-8. Surrogate code points (0xD800-0xDFFF) are encoded as
// three-byte sequences; any unit above 0x10FFFF makes the result empty.
MORVSTRING_API std::string WideToUTF8(const std::wstring& wide);

// `count` UTF-16 units to UTF-8. Unpaired surrogates are passed through as
// three-byte sequences; a high surrogate as the last unit makes the result
// empty, as do a null pointer and a count of 0. The units are only read.
MORVSTRING_API std::string UnicodeToUTF8(unsigned short* units, unsigned long count);

// Whether the whole string is UTF-8 by the rules the decoders apply
// (including their acceptance of ED 41 80). The empty string is UTF-8; a
// sequence cut off by the end of the string is not.
MORVSTRING_API bool IsUTF8(const std::string& text);

// The platform's narrow encoding is UTF-8: returns a copy of the argument,
// unchanged, whether or not it is UTF-8.
MORVSTRING_API std::string UTF8ToNative(const std::string& utf8);

// Exactly WideToUTF8.
MORVSTRING_API std::string WideToNative(const std::wstring& wide);

// ---------------------------------------------------------------------------
// Code pages: conversion between any code page that ICU's converters know
// (by any of their names: "windows-1252", "shift_jis", "gb18030", ...) and
// Unicode, through ICU's converter library, which is loaded at run time
// (never linked) on first use and stays loaded until FreeCodePageResouces.
// Without the library (or one of its four entry points) every conversion
// fails. "Unicode" here is UTF-16 in 16-bit units.
//
// Arrays handed out through `out` are allocated with new[] and belong to
// the caller, who frees them with delete[]. Not thread-safe: use from one
// thread at a time.

// Unloads the converter library; the next conversion loads it again.
// Harmless when nothing is loaded. (The name is spelled this way.)
MORVSTRING_API void FreeCodePageResouces();

// Whether ICU has a converter of that name (its warnings count as yes).
// A null name is always true: it asks only for the library object, which
// always exists, loaded or not.
MORVSTRING_API bool IsCodePageAvailable(const char* name);

// `count` UTF-16 units to code page `name`. On true, *out holds the bytes
// (zero-terminated; the terminator is not counted in *outLength). Room is
// 4 bytes a unit; what does not fit, or cannot be mapped, is what ICU's
// converter makes of it (its substitution character), and the result is
// still true. False, touching nothing, for a null source, a count of 0 or a
// null out pointer; false, with *out null and *outLength 0, when the
// converter cannot be opened (unknown name, no library).
MORVSTRING_API bool UnicodeToCodePage(const char* name, const unsigned short* source,
                                      unsigned long count, char** out, unsigned long* outLength);

// `count` bytes of code page `name` to UTF-16 units; the mirror image of
// UnicodeToCodePage (4 units of room a byte, a zero unit after the text,
// *outLength in units).
MORVSTRING_API bool CodePageToUnicode(const char* name, const char* source, unsigned long count,
                                      unsigned short** out, unsigned long* outLength);

// A wide string, or UTF-8 text, to code page `name`, through UTF-16. Acts
// only with a non-null name, a non-empty text and non-null out pointers,
// *out null on entry; otherwise both outputs are left as they are, as they
// are when the text cannot be read. Success shows as a non-null *out (with
// its length); a failed conversion to the code page leaves *out null and
// *outLength 0.
MORVSTRING_API void WideToCodePage(const char* name, const std::wstring& text, char** out,
                                   unsigned long* outLength);
MORVSTRING_API void UTF8ToCodePage(const char* name, const std::string& text, char** out,
                                   unsigned long* outLength);

// `count` bytes of code page `name` to a wide string, or to UTF-8, through
// UTF-16. U+0000 inside the text is kept. Empty for a null name or source,
// a count of 0, or any failure.
MORVSTRING_API std::wstring CodePageToWide(const char* name, const char* source,
                                           unsigned long count);
MORVSTRING_API std::string CodePageToUTF8(const char* name, const char* source,
                                          unsigned long count);

// Where the converter library is loaded from next (after
// FreeCodePageResouces, or before the first use), and the suffix of its
// versioned entry points ("ucnv_open" + suffix, ...). Null arguments restore
// the defaults found when the project was built (the system ICU, e.g.
// "libicuuc.so.72" and "_72").
MORVSTRING_API void SetCodePageLibrary(const char* path, const char* symbolSuffix);

}  // namespace mvcs

#endif  // MORVSTRING_MORVSTRING_H
