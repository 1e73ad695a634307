// The UTF-16 pivot of the code-page conversions, taken without ICU where
// that gives exactly ICU's result: well-formed UTF-8 to UTF-16, and
// well-formed UTF-16 to UTF-8.
//
// On well-formed input ICU's "utf8" converter does nothing but transcode, in
// either direction; only ill-formed input brings its substitutions into
// play. These functions therefore first decide whether the input is
// well-formed (by the strict rules of RFC 3629 and of UTF-16, which are
// narrower than the lenient rules of ConvertUTF.h), and the callers leave
// any other input to ICU.

#ifndef MORVSTRING_UNICODEPIVOT_H
#define MORVSTRING_UNICODEPIVOT_H

#include <cstddef>

namespace mvcs {
namespace pivot {

// DecodeWellFormedUTF8 may write up to this many units of garbage after the
// last unit (it stores whole vectors): its output needs that much more room.
constexpr std::size_t kDecodeSlack = 8;

// Whether [p, p + n) is well-formed UTF-8: no stray continuation byte, no
// overlong form, no surrogate code point, nothing above U+10FFFF, no
// sequence cut off by the end. On true, *units receives the length of its
// UTF-16 form (one unit a character, two for those above U+FFFF).
bool MeasureWellFormedUTF8(const unsigned char* p, std::size_t n, std::size_t* units);

// Decodes [p, p + n), which MeasureWellFormedUTF8 accepted, into `out`
// (room for the units it counted plus kDecodeSlack) and returns the end of
// what it wrote.
unsigned short* DecodeWellFormedUTF8(const unsigned char* p, std::size_t n, unsigned short* out);

// The same decoding one character at a time (the vector decoder's
// reference, and what it uses where vectors do not pay).
unsigned short* DecodeWellFormedUTF8Scalar(const unsigned char* p, std::size_t n,
                                           unsigned short* out);

// Whether the `n` units at `u` are well-formed UTF-16: every high surrogate
// followed by a low one, no low surrogate without its high one. On true,
// *bytes receives the length of their UTF-8 form.
bool MeasureWellFormedUTF16(const unsigned short* u, std::size_t n, std::size_t* bytes);

// EncodeWellFormedUTF16 may write up to this many bytes of garbage after
// the last byte (it stores whole vectors).
constexpr std::size_t kEncodeSlack = 16;

// Encodes `n` units that MeasureWellFormedUTF16 accepted as UTF-8 into
// `out` (room for the bytes it counted plus kEncodeSlack) and returns the
// end of what it wrote.
char* EncodeWellFormedUTF16(const unsigned short* u, std::size_t n, char* out);

// The same encoding one character at a time.
char* EncodeWellFormedUTF16Scalar(const unsigned short* u, std::size_t n, char* out);

}  // namespace pivot
}  // namespace mvcs

#endif  // MORVSTRING_UNICODEPIVOT_H
