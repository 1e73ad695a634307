// Fast building blocks for the whole-string conversions (see FastUTF.h).

#include "FastUTF.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mvcs {
namespace fast_utf {

namespace {

typedef std::uint32_t UTF32;

// ---------------------------------------------------------------------------
// UTF-8 validation: a state machine over the reference grammar. A sequence's
// length comes from its lead byte; E0, ED, F0 and F4 restrict the second
// byte, and after ED and F4 only from above, as the reference test does (so
// ED 41 80 is one legal character). States are bit offsets into 64-bit
// rows: the next state is (row[byte] >> state) & 63.

enum : unsigned {
  kAccept = 0,    // between characters
  kTrail1 = 6,    // one trail byte (80-BF) to go
  kTrail2 = 12,   // two trail bytes to go
  kTrail3 = 18,   // three trail bytes to go
  kAfterE0 = 24,  // second byte A0-BF, then one trail byte
  kAfterED = 30,  // second byte 00-9F, then one trail byte
  kAfterF0 = 36,  // second byte 90-BF, then two trail bytes
  kAfterF4 = 42,  // second byte 00-8F, then two trail bytes
  kReject = 48,   // ill-formed; stays here
};

constexpr unsigned Next(unsigned state, unsigned byte) {
  const bool trail = byte >= 0x80 && byte <= 0xBF;
  switch (state) {
    case kAccept:
      if (byte < 0x80) return kAccept;
      if (byte >= 0xC2 && byte <= 0xDF) return kTrail1;
      if (byte == 0xE0) return kAfterE0;
      if (byte == 0xED) return kAfterED;
      if (byte >= 0xE1 && byte <= 0xEF) return kTrail2;
      if (byte == 0xF0) return kAfterF0;
      if (byte >= 0xF1 && byte <= 0xF3) return kTrail3;
      if (byte == 0xF4) return kAfterF4;
      return kReject;  // trail bytes, C0, C1, F5-FF
    case kTrail1:
      return trail ? kAccept : kReject;
    case kTrail2:
      return trail ? kTrail1 : kReject;
    case kTrail3:
      return trail ? kTrail2 : kReject;
    case kAfterE0:
      return byte >= 0xA0 && byte <= 0xBF ? kTrail1 : kReject;
    case kAfterED:
      return byte <= 0x9F ? kTrail1 : kReject;
    case kAfterF0:
      return byte >= 0x90 && byte <= 0xBF ? kTrail2 : kReject;
    case kAfterF4:
      return byte <= 0x8F ? kTrail2 : kReject;
    default:
      return kReject;
  }
}

struct Rows {
  std::uint64_t row[256];
};

constexpr Rows MakeRows() {
  Rows rows{};
  const unsigned states[] = {kAccept,  kTrail1,  kTrail2,  kTrail3, kAfterE0,
                             kAfterED, kAfterF0, kAfterF4, kReject};
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (unsigned state : states)
      rows.row[byte] |= static_cast<std::uint64_t>(Next(state, byte)) << state;
  }
  return rows;
}

constexpr Rows kRows = MakeRows();

// Subtracted from the summed bytes of a two-, three- and four-byte sequence.
const UTF32 kOffset2 = 0x00003080UL;
const UTF32 kOffset3 = 0x000E2080UL;
const UTF32 kOffset4 = 0x03C82080UL;

// ---------------------------------------------------------------------------
// ASCII blocks: sixteen units converted at once when they are all ASCII. The
// advance is then a constant, so the processor can overlap blocks; mixed
// text goes through the scalar run loops instead.

#if defined(__SSE2__)
inline __m128i Load(const void* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(void* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
#endif

#if defined(__SSE2__)
// Stores the 16 bytes of `v` as wide units.
inline void StoreWidened(__m128i v, wchar_t* out) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
  Store(out, _mm_unpacklo_epi16(lo, zero));
  Store(out + 4, _mm_unpackhi_epi16(lo, zero));
  Store(out + 8, _mm_unpacklo_epi16(hi, zero));
  Store(out + 12, _mm_unpackhi_epi16(hi, zero));
}
#endif

// Bytes to wide units.
inline bool WidenAscii16(const unsigned char* p, wchar_t* out) {
#if defined(__SSE2__)
  const __m128i v = Load(p);
  if (_mm_movemask_epi8(v) != 0) return false;
  StoreWidened(v, out);
#else
  for (int i = 0; i < 16; ++i) {
    if (p[i] >= 0x80) return false;
  }
  for (int i = 0; i < 16; ++i) out[i] = p[i];
#endif
  return true;
}

// Wide units to bytes.
inline bool NarrowAscii16(const wchar_t* w, char* out) {
#if defined(__SSE2__)
  const __m128i v0 = Load(w), v1 = Load(w + 4), v2 = Load(w + 8), v3 = Load(w + 12);
  const __m128i any = _mm_or_si128(_mm_or_si128(v0, v1), _mm_or_si128(v2, v3));
  const __m128i high = _mm_and_si128(any, _mm_set1_epi32(~0x7F));
  if (_mm_movemask_epi8(_mm_cmpeq_epi32(high, _mm_setzero_si128())) != 0xFFFF) return false;
  Store(out, _mm_packus_epi16(_mm_packs_epi32(v0, v1), _mm_packs_epi32(v2, v3)));
#else
  for (int i = 0; i < 16; ++i) {
    if (static_cast<UTF32>(w[i]) >= 0x80) return false;
  }
  for (int i = 0; i < 16; ++i) out[i] = static_cast<char>(w[i]);
#endif
  return true;
}

// UTF-16 units to bytes.
inline bool NarrowAscii16(const unsigned short* u, char* out) {
#if defined(__SSE2__)
  const __m128i v0 = Load(u), v1 = Load(u + 8);
  const __m128i high =
      _mm_and_si128(_mm_or_si128(v0, v1), _mm_set1_epi16(static_cast<short>(0xFF80)));
  if (_mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) != 0xFFFF) return false;
  Store(out, _mm_packus_epi16(v0, v1));
#else
  for (int i = 0; i < 16; ++i) {
    if (u[i] >= 0x80) return false;
  }
  for (int i = 0; i < 16; ++i) out[i] = static_cast<char>(u[i]);
#endif
  return true;
}

#if defined(__SSE2__)
// Computes the UTF-8 bytes of 8 UTF-16 units as 32-bit words in `words` and
// returns their lengths as 16-bit lanes. `next` holds each unit's successor;
// `high` and `low` mark the surrogates, which come in valid pairs here: a
// high surrogate gets the pair's four bytes and its low surrogate none.
// Without kPairs there are no surrogates, and that work is left out.
template <bool kPairs>
inline __m128i EncodeUTF16Lanes(__m128i v, __m128i next, __m128i high, __m128i low,
                                std::uint32_t* words) {
  const __m128i zero = _mm_setzero_si128();
  auto atLeast = [&](int mask) {  // -1 where a bit of `mask` is set
    return _mm_cmpeq_epi16(
        _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(mask))), zero), zero);
  };
  auto select = [](__m128i m, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b));
  };
  auto bits = [](__m128i x, int shift, int mask) {
    return _mm_and_si128(_mm_srli_epi16(x, shift), _mm_set1_epi16(static_cast<short>(mask)));
  };
  const __m128i trail = _mm_set1_epi16(0x80);
  const __m128i two = atLeast(0xFF80), three = atLeast(0xF800);
  __m128i b0 = select(three, _mm_or_si128(_mm_srli_epi16(v, 12), _mm_set1_epi16(0xE0)),
                      select(two, _mm_or_si128(_mm_srli_epi16(v, 6), _mm_set1_epi16(0xC0)), v));
  __m128i b1 = select(three, bits(v, 6, 0x3F), bits(v, 0, 0x3F));
  __m128i b2 = bits(v, 0, 0x3F);
  __m128i b3 = zero;
  // 1 + (>= 0x80) + (>= 0x800), then for pairs: + 1 for the high
  // surrogate, and 0 for the low one (which counts 3 so far).
  __m128i length = _mm_sub_epi16(_mm_sub_epi16(_mm_set1_epi16(1), two), three);
  if (kPairs) {
    // A pair's code point is (h << 10 | the low surrogate's 10 bits), where
    // h is the high surrogate's 10 bits plus 0x40 (for the 0x10000).
    const __m128i h = _mm_add_epi16(_mm_and_si128(v, _mm_set1_epi16(0x3FF)), _mm_set1_epi16(0x40));
    b0 = select(high, _mm_or_si128(_mm_srli_epi16(h, 8), _mm_set1_epi16(0xF0)), b0);
    b1 = select(high, bits(h, 2, 0x3F), b1);
    b2 = select(high, _mm_or_si128(_mm_slli_epi16(bits(h, 0, 3), 4), bits(next, 6, 0xF)), b2);
    b3 = _mm_or_si128(bits(next, 0, 0x3F), trail);
    length = _mm_add_epi16(_mm_sub_epi16(length, high), _mm_and_si128(low, _mm_set1_epi16(-3)));
  }
  const __m128i firstTwo = _mm_or_si128(b0, _mm_slli_epi16(_mm_or_si128(b1, trail), 8));
  const __m128i lastTwo = _mm_or_si128(_mm_or_si128(b2, trail), _mm_slli_epi16(b3, 8));
  Store(words, _mm_unpacklo_epi16(firstTwo, lastTwo));
  Store(words + 4, _mm_unpackhi_epi16(firstTwo, lastTwo));
  return length;
}

// Encodes 16 UTF-16 units without branching on them, when every surrogate
// among them is part of a pair inside the 16: each unit's bytes are stored
// as one 32-bit word and the output advances by the unit's length, so up to
// four bytes of garbage follow the last character (outputs carry kSlack).
inline bool EncodeUTF16Chunk(const unsigned short* u, char*& out) {
  const __m128i v0 = Load(u), v1 = Load(u + 8);
  const __m128i top = _mm_set1_epi16(static_cast<short>(0xFC00));
  const __m128i high0 =
      _mm_cmpeq_epi16(_mm_and_si128(v0, top), _mm_set1_epi16(static_cast<short>(0xD800)));
  const __m128i high1 =
      _mm_cmpeq_epi16(_mm_and_si128(v1, top), _mm_set1_epi16(static_cast<short>(0xD800)));
  const __m128i low0 =
      _mm_cmpeq_epi16(_mm_and_si128(v0, top), _mm_set1_epi16(static_cast<short>(0xDC00)));
  const __m128i low1 =
      _mm_cmpeq_epi16(_mm_and_si128(v1, top), _mm_set1_epi16(static_cast<short>(0xDC00)));
  const unsigned highs = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(high0, high1)));
  const unsigned lows = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(low0, low1)));
  const unsigned pairs = highs & (lows >> 1);
  if (highs != pairs || lows != ((pairs << 1) & 0xFFFF)) return false;
  alignas(16) std::uint32_t words[16];
  alignas(16) std::uint8_t ends[16];
  __m128i lengths;
  if (pairs == 0) {
    lengths = _mm_packus_epi16(EncodeUTF16Lanes<false>(v0, v0, high0, low0, words),
                               EncodeUTF16Lanes<false>(v1, v1, high1, low1, words + 8));
  } else {
    const __m128i next0 = _mm_or_si128(_mm_srli_si128(v0, 2), _mm_slli_si128(v1, 14));
    const __m128i next1 = _mm_srli_si128(v1, 2);
    lengths = _mm_packus_epi16(EncodeUTF16Lanes<true>(v0, next0, high0, low0, words),
                               EncodeUTF16Lanes<true>(v1, next1, high1, low1, words + 8));
  }
  // Where each unit's bytes end: the running sum of the lengths (at most 48,
  // so bytes do), in four shifted additions. The stores then do not wait on
  // one another; they run in order, so each overwrites the garbage before it.
  __m128i sum = _mm_add_epi8(lengths, _mm_slli_si128(lengths, 1));
  sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 2));
  sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 4));
  sum = _mm_add_epi8(sum, _mm_slli_si128(sum, 8));
  Store(ends, sum);
  std::memcpy(out, &words[0], 4);
  for (int i = 1; i < 16; ++i) std::memcpy(out + ends[i - 1], &words[i], 4);
  out += ends[15];
  return true;
}
#endif

// ---------------------------------------------------------------------------
// Encoding one code point (at most 0x10FFFF).

inline std::size_t UTF8Length(UTF32 ch) {
  return 1 + (ch >= 0x80) + (ch >= 0x800) + (ch >= 0x10000);
}

// Writers for one character of a known UTF-8 length; each returns the byte
// after it.
inline char* EncodeTwo(UTF32 ch, char* out) {
  out[0] = static_cast<char>(0xC0 | (ch >> 6));
  out[1] = static_cast<char>(0x80 | (ch & 0x3F));
  return out + 2;
}

inline char* EncodeThree(UTF32 ch, char* out) {
  out[0] = static_cast<char>(0xE0 | (ch >> 12));
  out[1] = static_cast<char>(0x80 | ((ch >> 6) & 0x3F));
  out[2] = static_cast<char>(0x80 | (ch & 0x3F));
  return out + 3;
}

inline char* EncodeFour(UTF32 ch, char* out) {
  out[0] = static_cast<char>(0xF0 | (ch >> 18));
  out[1] = static_cast<char>(0x80 | ((ch >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((ch >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (ch & 0x3F));
  return out + 4;
}

// Writes `ch` as UTF-8. The tests run from the most common case (ASCII,
// which every script's text has: spaces, digits, punctuation) down; this
// order measurably matters for mixed text.
inline char* EncodeOne(UTF32 ch, char* out) {
  if (ch < 0x80) {
    *out = static_cast<char>(ch);
    return out + 1;
  }
  if (ch < 0x800) return EncodeTwo(ch, out);
  if (ch < 0x10000) return EncodeThree(ch, out);
  return EncodeFour(ch, out);
}

inline bool IsHighSurrogate(UTF32 u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool IsLowSurrogate(UTF32 u) { return u >= 0xDC00 && u <= 0xDFFF; }

#if defined(__SSE2__)
// Sums the four 32-bit lanes.
inline std::size_t Sum32(__m128i v) {
  std::uint32_t lanes[4];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), v);
  return static_cast<std::size_t>(lanes[0]) + lanes[1] + lanes[2] + lanes[3];
}

// Sums the eight 16-bit lanes, read as unsigned.
inline std::size_t Sum16(__m128i v) {
  const __m128i zero = _mm_setzero_si128();
  return Sum32(_mm_add_epi32(_mm_unpacklo_epi16(v, zero), _mm_unpackhi_epi16(v, zero)));
}

// Iterations after which the vector counters are added up, before a lane
// could overflow (at most 3 a lane an iteration for 32-bit lanes, 2 for
// unsigned 16-bit lanes).
const std::size_t kFlushEvery = 16384;
#endif

}  // namespace

namespace {

#if defined(__SSE2__)
// The block check of CheckStandard: flags in `error` every byte of `v` that
// breaks standard UTF-8, given the block before it (`previous`), and adds
// the characters that start in `v` to `starts`.
//
// Bytes are compared as signed values where that helps: trail bytes 80-BF
// are exactly those below -64. A byte must be a trail byte exactly when the
// byte before it is at least C0, or the one two before at least E0, or the
// one three before at least F0 (unsigned; found by saturating subtraction).
__attribute__((always_inline)) inline void CheckBlock(__m128i v, __m128i previous, __m128i& error,
                                                      __m128i& starts) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i before1 = _mm_or_si128(_mm_slli_si128(v, 1), _mm_srli_si128(previous, 15));
  const __m128i before2 = _mm_or_si128(_mm_slli_si128(v, 2), _mm_srli_si128(previous, 14));
  const __m128i before3 = _mm_or_si128(_mm_slli_si128(v, 3), _mm_srli_si128(previous, 13));
  const __m128i trail = _mm_cmpgt_epi8(_mm_set1_epi8(-64), v);
  const __m128i noTrailExpected = _mm_cmpeq_epi8(
      _mm_or_si128(_mm_or_si128(_mm_subs_epu8(before1, _mm_set1_epi8(static_cast<char>(0xBF))),
                                _mm_subs_epu8(before2, _mm_set1_epi8(static_cast<char>(0xDF)))),
                   _mm_subs_epu8(before3, _mm_set1_epi8(static_cast<char>(0xEF)))),
      zero);
  // C0, C1 and F5-FF never occur.
  const __m128i invalid = _mm_or_si128(
      _mm_cmpeq_epi8(_mm_and_si128(v, _mm_set1_epi8(static_cast<char>(0xFE))),
                     _mm_set1_epi8(static_cast<char>(0xC0))),
      _mm_cmpeq_epi8(_mm_cmpeq_epi8(_mm_subs_epu8(v, _mm_set1_epi8(static_cast<char>(0xF4))), zero),
                     zero));
  // Second bytes: after E0 at least A0, after ED at most 9F, after F0 at
  // least 90, after F4 at most 8F.
  auto after = [&](int lead) {
    return _mm_cmpeq_epi8(before1, _mm_set1_epi8(static_cast<char>(lead)));
  };
  auto below = [&](int x) { return _mm_cmpgt_epi8(_mm_set1_epi8(static_cast<char>(x)), v); };
  auto above = [&](int x) { return _mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(x))); };
  const __m128i second = _mm_or_si128(
      _mm_or_si128(_mm_and_si128(after(0xE0), below(-96)), _mm_and_si128(after(0xED), above(-97))),
      _mm_or_si128(_mm_and_si128(after(0xF0), below(-112)),
                   _mm_and_si128(after(0xF4), above(-113))));
  error = _mm_or_si128(
      error, _mm_or_si128(_mm_cmpeq_epi8(noTrailExpected, trail), _mm_or_si128(invalid, second)));
  starts = _mm_add_epi64(starts, _mm_sad_epu8(_mm_andnot_si128(trail, _mm_set1_epi8(1)), zero));
}

// Whether [p, p + n) is standard well-formed UTF-8 (Unicode's table of
// well-formed byte sequences). Every such input is also accepted by the
// reference rules, and then *characters receives its number of characters.
// False says only "not standard": the input may still be legal under the
// reference rules (ED 41 80), so the caller asks the state machine.
bool CheckStandard(const unsigned char* p, std::size_t n, std::size_t* characters) {
  const __m128i zero = _mm_setzero_si128();
  __m128i previous = zero, error = zero, starts = zero;
  std::size_t ascii = 0, i = 0;
  bool previousAscii = true;
  for (; n - i >= 16; i += 16) {
    const __m128i v = Load(p + i);
    const bool isAscii = _mm_movemask_epi8(v) == 0;
    if (isAscii && previousAscii) {
      ascii += 16;
    } else {
      CheckBlock(v, previous, error, starts);
      if (_mm_movemask_epi8(error) != 0) return false;
    }
    previous = v;
    previousAscii = isAscii;
  }
  // The rest, padded with zero bytes; then a block of zeros, which fails
  // when the input ends inside a character.
  unsigned char last[16] = {0};
  std::memcpy(last, p + i, n - i);
  const __m128i v = Load(last);
  CheckBlock(v, previous, error, starts);
  __m128i padding = zero;
  CheckBlock(zero, v, error, padding);
  if (_mm_movemask_epi8(error) != 0) return false;
  // The padding bytes were counted as character starts.
  *characters = ascii + static_cast<std::size_t>(_mm_cvtsi128_si64(starts)) +
                static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(starts, starts))) -
                (16 - (n - i));
  return true;
}
#endif

// The state machine over the whole input, with or without counting.
template <bool kCount>
bool Validate(const unsigned char* p, std::size_t n, std::size_t* characters) {
  const unsigned char* const end = p + n;
  std::uint64_t state = kAccept;  // the state is the low 6 bits
  std::size_t count = 0;
  for (; p < end; ++p) {
    state = kRows.row[*p] >> (state & 63);
    if (kCount) count += (state & 63) == kAccept;
  }
  if ((state & 63) != kAccept) return false;  // ill-formed, or cut off
  if (kCount) *characters = count;
  return true;
}

}  // namespace

namespace {

// Inputs up to this size are first tested for being all ASCII, which most
// short texts are (setting names) and which takes much less than the check.
const std::size_t kShortText = 64;

// Whether the n bytes at p are all ASCII: 8 at a time, the last 8
// overlapping the ones before.
bool AllAscii(const unsigned char* p, std::size_t n) {
  const std::uint64_t high = 0x8080808080808080ULL;
  if (n < 8) {
    unsigned any = 0;
    for (std::size_t i = 0; i < n; ++i) any |= p[i];
    return any < 0x80;
  }
  std::uint64_t any = 0, word;
  for (std::size_t i = 0; i + 8 < n; i += 8) {
    std::memcpy(&word, p + i, 8);
    any |= word;
  }
  std::memcpy(&word, p + n - 8, 8);
  return ((any | word) & high) == 0;
}

}  // namespace

bool ValidateUTF8(const unsigned char* p, std::size_t n, std::size_t* characters) {
  if (n <= kShortText && AllAscii(p, n)) {
    if (characters != nullptr) *characters = n;
    return true;
  }
#if defined(__SSE2__)
  std::size_t standard = 0;
  if (CheckStandard(p, n, &standard)) {
    if (characters != nullptr) *characters = standard;
    return true;
  }
#endif
  return characters != nullptr ? Validate<true>(p, n, characters) : Validate<false>(p, n, nullptr);
}

namespace {

// ---------------------------------------------------------------------------
// UTF-8 validation by table lookups (the method of Keiser and Lemire,
// "Validating UTF-8 in less than one instruction per byte", 2021).
//
// Every error that two adjacent bytes can show is one bit of a byte; three
// 16-entry tables, indexed by the high and low nibble of the first byte and
// the high nibble of the second, each hold the errors their nibble takes
// part in, so the AND of the three lookups holds the errors that occur. The
// one error that needs a third or fourth byte (a continuation byte where
// none may be, or none where one must be) is the XOR of "two continuations
// in a row" with "this is the third or fourth byte of a character".

enum : unsigned {
  kTooShort = 1 << 0,   // a lead byte followed by a lead byte or ASCII
  kTooLong = 1 << 1,    // ASCII followed by a continuation byte
  kOverlong3 = 1 << 2,  // E0 80..9F
  kTooLarge = 1 << 3,   // F4 90..BF, F5..FF 90..BF
  kSurrogate = 1 << 4,  // ED A0..BF
  kOverlong2 = 1 << 5,  // C0, C1
  kBit6 = 1 << 6,       // F0 80..8F (overlong), F5..FF 80..8F (too large)
  kTwoConts = 1 << 7,   // continuation followed by continuation
};

// One error: the nibbles for which it occurs, as 16-bit sets.
struct ErrorRule {
  unsigned bit, firstHigh, firstLow, secondHigh;
};

constexpr unsigned Range(unsigned from, unsigned to) {
  return static_cast<unsigned>(((1u << (to + 1)) - 1) & ~((1u << from) - 1));
}

constexpr ErrorRule kRules[] = {
    {kTooShort, Range(12, 15), Range(0, 15), Range(0, 7) | Range(12, 15)},
    {kTooLong, Range(0, 7), Range(0, 15), Range(8, 11)},
    {kOverlong3, Range(14, 14), Range(0, 0), Range(8, 9)},
    {kTooLarge, Range(15, 15), Range(4, 15), Range(9, 11)},
    {kSurrogate, Range(14, 14), Range(13, 13), Range(10, 11)},
    {kOverlong2, Range(12, 12), Range(0, 1), Range(0, 15)},
    {kBit6, Range(15, 15), Range(0, 0) | Range(5, 15), Range(8, 8)},
    {kTwoConts, Range(8, 11), Range(0, 15), Range(8, 11)},
};

// Which part of the pair a table is indexed by.
enum Part { kFirstHigh, kFirstLow, kSecondHigh };

constexpr NibbleTable MakeTable(Part part) {
  NibbleTable table{};
  for (unsigned nibble = 0; nibble < 16; ++nibble) {
    unsigned bits = 0;
    for (const ErrorRule& rule : kRules) {
      const unsigned set = part == kFirstHigh  ? rule.firstHigh
                           : part == kFirstLow ? rule.firstLow
                                               : rule.secondHigh;
      if (set & (1u << nibble)) bits |= rule.bit;
    }
    table.entry[nibble] = static_cast<unsigned char>(bits);
  }
  return table;
}

}  // namespace

const NibbleTable kUTF8ErrorTables[3] = {MakeTable(kFirstHigh), MakeTable(kFirstLow),
                                         MakeTable(kSecondHigh)};

std::size_t CharacterStart(const unsigned char* p, std::size_t at) {
  for (std::size_t back = 1; back <= 3 && back <= at; ++back) {
    const unsigned char b = p[at - back];
    if ((b & 0xC0) == 0x80) continue;
    const std::size_t length = b < 0xC0 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
    return length > back ? at - back : at;
  }
  return at;
}

bool ValidateSteps(const unsigned char* p, std::size_t n, std::size_t* i, std::size_t until,
                   std::size_t* characters) {
  std::size_t at = *i, count = 0;
  unsigned state = kAccept;
  while (at < n && (at < until || state != kAccept)) {
    state = static_cast<unsigned>(kRows.row[p[at++]] >> state) & 63;
    count += state == kAccept;
  }
  if (state != kAccept) return false;  // ill-formed, or cut off
  *i = at;
  *characters += count;
  return true;
}

namespace {

// Decodes the one character at p (already validated) with the reference
// arithmetic.
inline void DecodeOne(const unsigned char*& p, wchar_t*& out) {
  const UTF32 b0 = *p;
  if (b0 < 0x80) {
    *out++ = static_cast<wchar_t>(b0);
    p += 1;
  } else if (b0 < 0xE0) {
    *out++ = static_cast<wchar_t>((b0 << 6) + p[1] - kOffset2);
    p += 2;
  } else if (b0 < 0xF0) {
    *out++ = static_cast<wchar_t>((b0 << 12) + (static_cast<UTF32>(p[1]) << 6) + p[2] - kOffset3);
    p += 3;
  } else {
    *out++ = static_cast<wchar_t>((b0 << 18) + (static_cast<UTF32>(p[1]) << 12) +
                                  (static_cast<UTF32>(p[2]) << 6) + p[3] - kOffset4);
    p += 4;
  }
}

}  // namespace

// The three converters below work in chunks of 16 units: a chunk that is all
// ASCII is converted at once, any other goes one character at a time (a
// character that starts in the chunk is finished even if it runs past it).

void DecodeSteps(const unsigned char* p, std::size_t n, std::size_t* i, std::size_t until,
                 wchar_t** out) {
  const unsigned char* at = p + *i;
  const unsigned char* const stop = p + (until < n ? until : n);
  while (at < stop) DecodeOne(at, *out);
  *i = static_cast<std::size_t>(at - p);
}

void DecodeValidUTF8(const unsigned char* p, std::size_t n, wchar_t* out) {
  const unsigned char* const end = p + n;
  while (end - p >= 16) {
    if (WidenAscii16(p, out)) {
      p += 16;
      out += 16;
      continue;
    }
    const unsigned char* const stop = p + 16;
    while (p < stop) DecodeOne(p, out);
  }
  while (p < end) DecodeOne(p, out);
}

bool ScanWide(const wchar_t* w, std::size_t n, std::size_t* utf8Bytes, bool* hasZero) {
  std::size_t i = 0, bytes = n;
  bool bad = false, zero = false;
#if defined(__SSE2__)
  // Unsigned "above 0x10FFFF" as a signed compare of values with the top
  // bit flipped; the size steps as signed compares (only read when valid).
  const __m128i flip = _mm_set1_epi32(static_cast<int>(0x80000000u));
  const __m128i limit = _mm_set1_epi32(static_cast<int>(0x10FFFFu ^ 0x80000000u));
  const __m128i t1 = _mm_set1_epi32(0x7F), t2 = _mm_set1_epi32(0x7FF);
  const __m128i t3 = _mm_set1_epi32(0xFFFF), none = _mm_setzero_si128();
  __m128i badLanes = none, zeroLanes = none;
  while (n - i >= 4) {
    __m128i extra = none;
    for (std::size_t k = 0; k < kFlushEvery && n - i >= 4; ++k, i += 4) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(w + i));
      badLanes = _mm_or_si128(badLanes, _mm_cmpgt_epi32(_mm_xor_si128(v, flip), limit));
      zeroLanes = _mm_or_si128(zeroLanes, _mm_cmpeq_epi32(v, none));
      extra = _mm_sub_epi32(extra, _mm_cmpgt_epi32(v, t1));
      extra = _mm_sub_epi32(extra, _mm_cmpgt_epi32(v, t2));
      extra = _mm_sub_epi32(extra, _mm_cmpgt_epi32(v, t3));
    }
    bytes += Sum32(extra);
  }
  bad = _mm_movemask_epi8(badLanes) != 0;
  zero = _mm_movemask_epi8(zeroLanes) != 0;
#endif
  for (; i < n; ++i) {
    const UTF32 ch = static_cast<UTF32>(w[i]);
    bad |= ch > 0x10FFFF;
    zero |= ch == 0;
    bytes += UTF8Length(ch) - 1;
  }
  if (bad) return false;
  *utf8Bytes = bytes;
  *hasZero = zero;
  return true;
}

void EncodeWide(const wchar_t* w, std::size_t n, char* out) {
  const wchar_t* const end = w + n;
  while (end - w >= 16) {
    if (NarrowAscii16(w, out)) {
      w += 16;
      out += 16;
      continue;
    }
    for (const wchar_t* const stop = w + 16; w < stop; ++w)
      out = EncodeOne(static_cast<UTF32>(*w), out);
  }
  for (; w < end; ++w) out = EncodeOne(static_cast<UTF32>(*w), out);
}

std::size_t ScanUTF16(const unsigned short* u, std::size_t n, bool* hasZero) {
  // One byte a unit, one more from 0x80, one more from 0x800; a high
  // surrogate followed by a low one is one character of four bytes, not two
  // of three, so each such pair takes two off.
  std::size_t i = 0, bytes = n;
  bool zero = false;
#if defined(__SSE2__)
  const __m128i none = _mm_setzero_si128();
  const __m128i m80 = _mm_set1_epi16(static_cast<short>(0xFF80)),
                m800 = _mm_set1_epi16(static_cast<short>(0xF800));
  const __m128i mSurrogate = _mm_set1_epi16(static_cast<short>(0xFC00));
  const __m128i high = _mm_set1_epi16(static_cast<short>(0xD800)),
                low = _mm_set1_epi16(static_cast<short>(0xDC00));
  __m128i zeroLanes = none;
  while (n - i >= 9) {  // each step also reads the unit after its eight
    __m128i extra = none, pairs = none;
    for (std::size_t k = 0; k < kFlushEvery && n - i >= 9; ++k, i += 8) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(u + i));
      const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(u + i + 1));
      zeroLanes = _mm_or_si128(zeroLanes, _mm_cmpeq_epi16(v, none));
      // cmpeq gives -1 where the unit is below the step: add 1 + that.
      extra = _mm_add_epi16(
          extra, _mm_add_epi16(_mm_set1_epi16(2),
                               _mm_add_epi16(_mm_cmpeq_epi16(_mm_and_si128(v, m80), none),
                                             _mm_cmpeq_epi16(_mm_and_si128(v, m800), none))));
      const __m128i pair = _mm_and_si128(_mm_cmpeq_epi16(_mm_and_si128(v, mSurrogate), high),
                                         _mm_cmpeq_epi16(_mm_and_si128(next, mSurrogate), low));
      pairs = _mm_sub_epi16(pairs, pair);
    }
    bytes += Sum16(extra) - 2 * Sum16(pairs);
  }
  zero = _mm_movemask_epi8(zeroLanes) != 0;
#endif
  for (; i < n; ++i) {
    const UTF32 unit = u[i];
    zero |= unit == 0;
    bytes += (unit >= 0x80) + (unit >= 0x800);
    if (IsHighSurrogate(unit) && i + 1 < n && IsLowSurrogate(u[i + 1])) bytes -= 2;
  }
  *hasZero = zero;
  return bytes;
}

namespace {

// Encodes the UTF-16 character at u: a pair makes one character, an
// unpaired surrogate stands for itself. Same order of tests as EncodeOne.
inline void EncodeUTF16One(const unsigned short*& u, const unsigned short* end, char*& out) {
  const UTF32 ch = *u++;
  if (ch < 0x80) {
    *out++ = static_cast<char>(ch);
  } else if (ch < 0x800) {
    out = EncodeTwo(ch, out);
  } else if (ch < 0xD800 || ch > 0xDFFF) {
    out = EncodeThree(ch, out);
  } else if (ch <= 0xDBFF && u < end && IsLowSurrogate(*u)) {
    out = EncodeFour(((ch - 0xD800) << 10) + (*u++ - 0xDC00) + 0x10000, out);
  } else {
    out = EncodeThree(ch, out);
  }
}

}  // namespace

char* EncodeUTF16(const unsigned short* u, std::size_t n, char* out) {
  const unsigned short* const end = u + n;
  while (end - u >= 16) {
    if (NarrowAscii16(u, out)) {
      u += 16;
      out += 16;
      continue;
    }
#if defined(__SSE2__)
    if (EncodeUTF16Chunk(u, out)) {
      u += 16;
      continue;
    }
#endif
    const unsigned short* const stop = u + 16;
    while (u < stop) EncodeUTF16One(u, end, out);
  }
  while (u < end) EncodeUTF16One(u, end, out);
  return out;
}

// ---------------------------------------------------------------------------
// ASCII prefixes, sixteen units a block: each block is converted and stored
// whole (the room is there), then checked on its bytes. Narrowing packs
// with saturation, which turns every unit outside 00-FF into 00 or FF, so a
// unit is in 01-7F exactly when its byte is; and a byte is exactly when
// subtracting 1 with signed saturation leaves it non-negative. Inputs of at
// least 16 units end with their last 16, overlapping the block before;
// shorter ones go one unit at a time.

namespace {

// One unit at a time, from i.
template <typename In, typename Out>
std::size_t AsciiSteps(const In* in, std::size_t i, std::size_t n, Out* out) {
  for (; i < n; ++i) {
    const UTF32 unit = static_cast<UTF32>(in[i]);
    if (unit - 1 >= 0x7F) break;  // 00 wraps around
    out[i] = static_cast<Out>(unit);
  }
  return i;
}

#if defined(__SSE2__)
// Each block function converts the 16 units at `in` into `out` and returns
// a mask of those not in 01-7F (bit k for unit k).
inline unsigned Outside(__m128i bytes) {
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_subs_epi8(bytes, _mm_set1_epi8(1))));
}

inline unsigned WidenBlock(const unsigned char* p, wchar_t* out) {
  const __m128i v = Load(p);
  StoreWidened(v, out);
  return Outside(v);
}

inline unsigned NarrowWideBlock(const wchar_t* w, char* out) {
  const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(Load(w), Load(w + 4)),
                                         _mm_packs_epi32(Load(w + 8), Load(w + 12)));
  Store(out, bytes);
  return Outside(bytes);
}

inline unsigned NarrowUTF16Block(const unsigned short* u, char* out) {
  const __m128i bytes = _mm_packus_epi16(Load(u), Load(u + 8));
  Store(out, bytes);
  return Outside(bytes);
}

inline std::size_t FirstBit(unsigned mask) { return static_cast<std::size_t>(__builtin_ctz(mask)); }

// The blocks over the whole input; `block` is one of the three above.
template <typename In, typename Out, typename Block>
std::size_t AsciiBlocks(const In* in, std::size_t n, Out* out, Block block) {
  if (n < 16) return AsciiSteps(in, 0, n, out);
  std::size_t i = 0;
  for (; n - i >= 16; i += 16) {
    const unsigned stop = block(in + i, out + i);
    if (stop != 0) return i + FirstBit(stop);
  }
  if (i == n) return n;
  // The last 16 units; those before i are known to be in range.
  const std::size_t last = n - 16;
  const unsigned stop = block(in + last, out + last);
  return stop != 0 ? last + FirstBit(stop) : n;
}
#endif

}  // namespace

#if defined(__SSE2__)
std::size_t WidenAscii(const unsigned char* p, std::size_t n, wchar_t* out) {
  return AsciiBlocks(p, n, out, WidenBlock);
}

std::size_t NarrowAsciiWide(const wchar_t* w, std::size_t n, char* out) {
  return AsciiBlocks(w, n, out, NarrowWideBlock);
}

std::size_t NarrowAsciiUTF16(const unsigned short* u, std::size_t n, char* out) {
  return AsciiBlocks(u, n, out, NarrowUTF16Block);
}
#else
std::size_t WidenAscii(const unsigned char* p, std::size_t n, wchar_t* out) {
  return AsciiSteps(p, 0, n, out);
}

std::size_t NarrowAsciiWide(const wchar_t* w, std::size_t n, char* out) {
  return AsciiSteps(w, 0, n, out);
}

std::size_t NarrowAsciiUTF16(const unsigned short* u, std::size_t n, char* out) {
  return AsciiSteps(u, 0, n, out);
}
#endif

const Kernel* BaselineKernel() {
#if defined(__SSE2__)
  static const Kernel kernel = {"sse2",          ValidateUTF8,    DecodeValidUTF8, ScanWide,
                                EncodeWide,      ScanUTF16,       EncodeUTF16,     WidenAscii,
                                NarrowAsciiWide, NarrowAsciiUTF16};
#else
  static const Kernel kernel = {"scalar",        ValidateUTF8,    DecodeValidUTF8, ScanWide,
                                EncodeWide,      ScanUTF16,       EncodeUTF16,     WidenAscii,
                                NarrowAsciiWide, NarrowAsciiUTF16};
#endif
  return &kernel;
}

}  // namespace fast_utf
}  // namespace mvcs
