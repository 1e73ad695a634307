// Whole-string conversions between wide strings (32-bit wchar_t, one UTF-32
// code point per unit), UTF-8 narrow strings and UTF-16 unit arrays.
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
MORVSTRING_API std::string UnicodeToUTF8(unsigned short* units,
                                         unsigned long count);

// Whether the whole string is UTF-8 by the rules the decoders apply
// (including their acceptance of ED 41 80). The empty string is UTF-8; a
// sequence cut off by the end of the string is not.
MORVSTRING_API bool IsUTF8(const std::string& text);

// The platform's narrow encoding is UTF-8: returns a copy of the argument,
// unchanged, whether or not it is UTF-8.
MORVSTRING_API std::string UTF8ToNative(const std::string& utf8);

// Exactly WideToUTF8.
MORVSTRING_API std::string WideToNative(const std::wstring& wide);

}  // namespace mvcs

#endif  // MORVSTRING_MORVSTRING_H
