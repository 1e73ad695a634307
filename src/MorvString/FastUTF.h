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
//
// Three more blocks convert the ASCII text at the start of an input
// straight into the result, for the conversions to try first (ASCII is the
// common case, and its result size is known without measuring).
//
// Several kernels implement these nine blocks: the baseline here (SSE2 where
// the target has it, plain C++ elsewhere) and vector kernels for processors
// that have more (UTFKernels.h chooses one at run time). The vector kernels
// handle what is standard and give every other character to the exact
// steps below, so every kernel gives the same results.

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

// The ASCII prefix: each converts units from the start of the input while
// they are 01-7F (ASCII other than U+0000), each to the one unit of the
// same value, and returns how many it converted: n, or the index of the
// first unit that is 00 or above 7F (in wide input, any value as unsigned).
// `out` must have room for n units, all of which may be written: those from
// the returned index on hold anything.
std::size_t WidenAscii(const unsigned char* p, std::size_t n, wchar_t* out);
std::size_t NarrowAsciiWide(const wchar_t* w, std::size_t n, char* out);
std::size_t NarrowAsciiUTF16(const unsigned short* u, std::size_t n, char* out);

// The exact rules one character at a time, for the vector kernels to hand
// over to. Both start at *i, which must be a character boundary, and stop at
// the first character boundary at or after `until` (or at n), leaving *i
// there.
//
// ValidateSteps adds the characters it passes to *characters; it returns
// false if the input is not legal there (or ends inside a character).
bool ValidateSteps(const unsigned char* p, std::size_t n, std::size_t* i, std::size_t until,
                   std::size_t* characters);
// DecodeSteps decodes input that ValidateUTF8 accepted, advancing *out.
void DecodeSteps(const unsigned char* p, std::size_t n, std::size_t* i, std::size_t until,
                 wchar_t** out);

// Where the character that crosses `at` starts, or `at` if none does, in
// input whose bytes before `at` are well formed: the last byte before `at`
// that is not a continuation byte, if the length its value gives reaches
// past `at`. (What follows does not count: under the lenient rules the
// second byte after ED or F4 may be ASCII.)
std::size_t CharacterStart(const unsigned char* p, std::size_t at);

// The three 16-entry tables of the UTF-8 check by table lookups that the
// vector kernels use (FastUTF.cpp says how they work).
struct NibbleTable {
  unsigned char entry[16];
};
extern const NibbleTable kUTF8ErrorTables[3];

// One implementation of the nine blocks above, with the same contracts
// (except that a kernel's EncodeUTF16 may need less than kSlack).
struct Kernel {
  const char* name;
  bool (*validateUTF8)(const unsigned char* p, std::size_t n, std::size_t* characters);
  void (*decodeValidUTF8)(const unsigned char* p, std::size_t n, wchar_t* out);
  bool (*scanWide)(const wchar_t* w, std::size_t n, std::size_t* utf8Bytes, bool* hasZero);
  void (*encodeWide)(const wchar_t* w, std::size_t n, char* out);
  std::size_t (*scanUTF16)(const unsigned short* u, std::size_t n, bool* hasZero);
  char* (*encodeUTF16)(const unsigned short* u, std::size_t n, char* out);
  std::size_t (*widenAscii)(const unsigned char* p, std::size_t n, wchar_t* out);
  std::size_t (*narrowAsciiWide)(const wchar_t* w, std::size_t n, char* out);
  std::size_t (*narrowAsciiUTF16)(const unsigned short* u, std::size_t n, char* out);
};

// The functions above: "sse2" on x86-64, "scalar" elsewhere.
const Kernel* BaselineKernel();

#if defined(__x86_64__)
// The vector kernels, built on x86-64 only. Calling one on a processor that
// lacks its instructions is undefined: use UTFKernels.h to choose.
const Kernel* AVX2Kernel();    // AVX2 and POPCNT
const Kernel* AVX512Kernel();  // AVX-512 F, BW, CD, VL, VBMI, VBMI2; BMI2; AVX2
#endif

}  // namespace fast_utf
}  // namespace mvcs

#endif  // MORVSTRING_FASTUTF_H
