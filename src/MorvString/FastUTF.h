// Fast building blocks for the whole-string conversions.
//
// They implement exactly the lenient reference rules of ConvertUTF.h for
// whole strings (the differential tests compare them with the reference
// converters on every short input and on large random samples):
//  - a UTF-8 validator: a state machine over the same grammar as the
//    reference legality test, quirks included;
//  - a decoder for input that the validator accepted, using the reference
//    arithmetic (the sum of the bytes minus a per-length offset);
//  - scanners that check wide and UTF-16 input and size its UTF-8 form in
//    one pass, and encoders that then write exactly that many bytes.
// Well-formed standard UTF-8 is checked sixteen bytes at a time with SSE2
// (where the target has it) and ASCII blocks are converted sixteen units at
// once; the state machine decides everything else.

#ifndef MORVSTRING_FASTUTF_H
#define MORVSTRING_FASTUTF_H

#include <cstddef>

namespace mvcs {
namespace fast_utf {

// EncodeUTF16 may write this many bytes of garbage after the last character
// (it stores whole 32-bit words): its output needs that much extra room.
constexpr std::size_t kSlack = 4;

// Whether [p, p + n) converts with conversionOK under ConvertUTF8toUTF32 in
// lenient mode (which is also exactly what IsUTF8 accepts). On true, and if
// `characters` is not null, *characters receives the number of code points.
bool ValidateUTF8(const unsigned char* p, std::size_t n, std::size_t* characters);

// Decodes [p, p + n), which ValidateUTF8 accepted, into `out` (room for the
// characters it counted).
void DecodeValidUTF8(const unsigned char* p, std::size_t n, wchar_t* out);

// One pass over `n` wide units: false if any unit is above 0x10FFFF (as an
// unsigned value); otherwise true, with the UTF-8 size of all the units and
// whether one of them is U+0000.
bool ScanWide(const wchar_t* w, std::size_t n, std::size_t* utf8Bytes, bool* hasZero);

// Encodes `n` wide units, all at most 0x10FFFF, as UTF-8 into `out` (room
// for the size ScanWide gave).
void EncodeWide(const wchar_t* w, std::size_t n, char* out);

// One pass over `n` UTF-16 units read leniently (pairs combined, unpaired
// surrogates as themselves): their UTF-8 size, and whether one is 0.
std::size_t ScanUTF16(const unsigned short* u, std::size_t n, bool* hasZero);

// Encodes `n` UTF-16 units, read leniently, as UTF-8 into `out` (room for
// the size ScanUTF16 gave, or 3 bytes a unit, plus kSlack) and returns the
// end of what it wrote. A high surrogate as the last unit is encoded as
// itself.
char* EncodeUTF16(const unsigned short* u, std::size_t n, char* out);

}  // namespace fast_utf
}  // namespace mvcs

#endif  // MORVSTRING_FASTUTF_H
