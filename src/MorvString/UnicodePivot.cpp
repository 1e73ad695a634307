// The UTF-16 pivot of the code-page conversions without ICU, for
// well-formed input (see UnicodePivot.h).
//
// The UTF-8 check is the whole-string validator of UTFKernels.h plus one
// pass for the single sequence its lenient rules accept beyond RFC 3629;
// the decoder is this file's own. The UTF-16 side measures and encodes with
// the kernel's scanner and encoder, which read well-formed UTF-16 exactly as
// the standard does.

#include "UnicodePivot.h"

#include <cstdint>

#include "UTFKernels.h"

#if defined(__x86_64__)
#include <emmintrin.h>
#include <tmmintrin.h>
#endif

namespace mvcs {
namespace pivot {

static_assert(kEncodeSlack >= fast_utf::kSlack, "the encoder's slack");

namespace {

// ---------------------------------------------------------------------------
// Decoding one character of well-formed UTF-8 at p[*i].

inline void DecodeOne(const unsigned char* p, std::size_t* i, unsigned short** out) {
  const unsigned lead = p[*i];
  unsigned short* o = *out;
  if (lead < 0x80) {
    *o++ = static_cast<unsigned short>(lead);
    *i += 1;
  } else if (lead < 0xE0) {
    *o++ = static_cast<unsigned short>((lead & 0x1F) << 6 | (p[*i + 1] & 0x3F));
    *i += 2;
  } else if (lead < 0xF0) {
    *o++ = static_cast<unsigned short>((lead & 0x0F) << 12 | (p[*i + 1] & 0x3F) << 6 |
                                       (p[*i + 2] & 0x3F));
    *i += 3;
  } else {
    const std::uint32_t c = ((lead & 0x07) << 18 | (p[*i + 1] & 0x3F) << 12 |
                             (p[*i + 2] & 0x3F) << 6 | (p[*i + 3] & 0x3F)) -
                            0x10000;
    *o++ = static_cast<unsigned short>(0xD800 | c >> 10);
    *o++ = static_cast<unsigned short>(0xDC00 | (c & 0x3FF));
    *i += 4;
  }
  *out = o;
}

inline bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Decodes the characters that start in [*i, until), after skipping the
// continuation bytes at *i (the end of a character already decoded);
// leaves *i after the last of them.
inline void DecodeStarting(const unsigned char* p, std::size_t n, std::size_t* i, std::size_t until,
                           unsigned short** out) {
  while (*i < n && IsContinuation(p[*i])) ++*i;
  while (*i < until) DecodeOne(p, i, out);
}

#if defined(__x86_64__)

inline __m128i Load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void Store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// -1 in the bytes F0-FF (in valid input: the leads of four bytes), else 0.
inline __m128i FourByteLeads(__m128i v) {
  const __m128i top = _mm_set1_epi8(static_cast<char>(0xF0));
  return _mm_cmpeq_epi8(_mm_and_si128(v, top), top);
}

// For every 8-bit mask of the lanes that start a character, the byte
// shuffle that moves those 16-bit lanes, in order, to the front.
struct Compaction {
  unsigned char shuffle[256][16];
  unsigned char count[256];
};

constexpr Compaction MakeCompaction() {
  Compaction table{};
  for (unsigned mask = 0; mask < 256; ++mask) {
    unsigned k = 0;
    for (unsigned lane = 0; lane < 8; ++lane) {
      if (mask & (1u << lane)) {
        table.shuffle[mask][2 * k] = static_cast<unsigned char>(2 * lane);
        table.shuffle[mask][2 * k + 1] = static_cast<unsigned char>(2 * lane + 1);
        ++k;
      }
    }
    for (unsigned j = 2 * k; j < 16; ++j) table.shuffle[mask][j] = 0x80;  // zero
    table.count[mask] = static_cast<unsigned char>(k);
  }
  return table;
}

constexpr Compaction kCompaction = MakeCompaction();

// The UTF-16 unit of the character that starts at each of 8 positions,
// given the byte there and the two after it as 16-bit lanes (meaningless
// where no character starts, or where one of four bytes does).
__attribute__((target("ssse3"))) inline __m128i Units8(__m128i b0, __m128i b1, __m128i b2) {
  const __m128i six = _mm_set1_epi16(0x3F);
  const __m128i t1 = _mm_and_si128(b1, six), t2 = _mm_and_si128(b2, six);
  const __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6), t1);
  // Shifting the lead left by 12 keeps its low four bits, all that count.
  const __m128i three =
      _mm_or_si128(_mm_or_si128(_mm_slli_epi16(b0, 12), _mm_slli_epi16(t1, 6)), t2);
  const __m128i isThree = _mm_cmpgt_epi16(b0, _mm_set1_epi16(0xDF));
  const __m128i isTwo = _mm_cmpgt_epi16(b0, _mm_set1_epi16(0xBF));
  const __m128i oneOrTwo = _mm_or_si128(_mm_and_si128(isTwo, two), _mm_andnot_si128(isTwo, b0));
  return _mm_or_si128(_mm_and_si128(isThree, three), _mm_andnot_si128(isThree, oneOrTwo));
}

// Writes the units of the lanes in `starts`, in order, and advances *out.
__attribute__((target("ssse3"))) inline void Compact(__m128i units, unsigned starts,
                                                     unsigned short** out) {
  Store(*out, _mm_shuffle_epi8(units, Load(kCompaction.shuffle[starts])));
  *out += kCompaction.count[starts];
}

// Sixteen positions a step: all ASCII are widened at once; with no lead of
// four bytes among them, the units of the characters starting there are
// computed in all lanes and the starting lanes compacted; otherwise one
// character at a time. Every character that starts before `i` has been
// decoded, so a step may begin inside one.
__attribute__((target("ssse3"))) unsigned short* DecodeSSSE3(const unsigned char* p, std::size_t n,
                                                             unsigned short* out) {
  const __m128i zero = _mm_setzero_si128();
  std::size_t i = 0;
  while (i + 18 <= n) {
    const __m128i v = Load(p + i);
    if (_mm_movemask_epi8(v) == 0) {
      Store(out, _mm_unpacklo_epi8(v, zero));
      Store(out + 8, _mm_unpackhi_epi8(v, zero));
      out += 16;
      i += 16;
      continue;
    }
    if (_mm_movemask_epi8(FourByteLeads(v)) != 0) {
      DecodeStarting(p, n, &i, i + 16, &out);
      continue;
    }
    const __m128i v1 = Load(p + i + 1), v2 = Load(p + i + 2);
    // Continuation bytes, 80-BF, are -128..-65 as signed bytes.
    const unsigned starts =
        ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, _mm_set1_epi8(-64)))) & 0xFFFF;
    Compact(Units8(_mm_unpacklo_epi8(v, zero), _mm_unpacklo_epi8(v1, zero),
                   _mm_unpacklo_epi8(v2, zero)),
            starts & 0xFF, &out);
    Compact(Units8(_mm_unpackhi_epi8(v, zero), _mm_unpackhi_epi8(v1, zero),
                   _mm_unpackhi_epi8(v2, zero)),
            starts >> 8, &out);
    i += 16;
  }
  DecodeStarting(p, n, &i, n, &out);
  return out;
}

bool HasSSSE3() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("ssse3");
}

#endif  // __x86_64__

// In input that the lenient validator accepted: whether it holds the one
// sequence those rules accept beyond RFC 3629, ED or F4 followed by a byte
// below 80 (ED 41 80 passes as one character; every ED and F4 there is a
// lead byte). If not, *fourByte receives the number of bytes F0-FF, the
// leads of the four-byte characters.
bool HasLenientSequence(const unsigned char* p, std::size_t n, std::size_t* fourByte) {
  std::size_t count = 0, i = 0;
#if defined(__x86_64__)
  const __m128i zero = _mm_setzero_si128();
  __m128i found = zero;
  while (i + 17 <= n) {
    // Byte counters, summed before any of them can pass 255.
    __m128i counters = zero;
    for (int k = 0; k < 255 && i + 17 <= n; ++k, i += 16) {
      const __m128i v = Load(p + i), next = Load(p + i + 1);
      const __m128i lead = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(0xED))),
                                        _mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(0xF4))));
      found = _mm_or_si128(found, _mm_andnot_si128(next, lead));  // sign bit: next < 80
      counters = _mm_sub_epi8(counters, FourByteLeads(v));
    }
    const __m128i sums = _mm_sad_epu8(counters, zero);
    count += static_cast<std::size_t>(_mm_cvtsi128_si32(sums)) +
             static_cast<std::size_t>(_mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
  }
  if (_mm_movemask_epi8(found) != 0) return true;
#endif
  for (; i < n; ++i) {
    if ((p[i] == 0xED || p[i] == 0xF4) && i + 1 < n && p[i + 1] < 0x80) return true;
    count += p[i] >= 0xF0;
  }
  *fourByte = count;
  return false;
}

// Whether any of the `n` units is a surrogate.
bool HasSurrogate(const unsigned short* u, std::size_t n) {
  std::size_t i = 0;
#if defined(__x86_64__)
  __m128i found = _mm_setzero_si128();
  const __m128i top = _mm_set1_epi16(static_cast<short>(0xF800));
  const __m128i surrogate = _mm_set1_epi16(static_cast<short>(0xD800));
  for (; i + 8 <= n; i += 8) {
    found = _mm_or_si128(found, _mm_cmpeq_epi16(_mm_and_si128(Load(u + i), top), surrogate));
  }
  if (_mm_movemask_epi8(found) != 0) return true;
#endif
  for (; i < n; ++i) {
    if ((u[i] & 0xF800) == 0xD800) return true;
  }
  return false;
}

}  // namespace

bool MeasureWellFormedUTF8(const unsigned char* p, std::size_t n, std::size_t* units) {
  std::size_t characters = 0;
  if (!fast_utf::ActiveKernel().validateUTF8(p, n, &characters)) return false;
  std::size_t fourByte = 0;
  if (HasLenientSequence(p, n, &fourByte)) return false;
  *units = characters + fourByte;
  return true;
}

unsigned short* DecodeWellFormedUTF8Scalar(const unsigned char* p, std::size_t n,
                                           unsigned short* out) {
  std::size_t i = 0;
  while (i < n) DecodeOne(p, &i, &out);
  return out;
}

unsigned short* DecodeWellFormedUTF8(const unsigned char* p, std::size_t n, unsigned short* out) {
#if defined(__x86_64__)
  static const bool vector = HasSSSE3();
  if (vector) return DecodeSSSE3(p, n, out);
#endif
  return DecodeWellFormedUTF8Scalar(p, n, out);
}

bool MeasureWellFormedUTF16(const unsigned short* u, std::size_t n, std::size_t* bytes) {
  if (HasSurrogate(u, n)) {
    for (std::size_t i = 0; i < n; ++i) {
      if ((u[i] & 0xF800) != 0xD800) continue;
      if (u[i] >= 0xDC00 || i + 1 == n || (u[i + 1] & 0xFC00) != 0xDC00) return false;
      ++i;  // the pair's low surrogate
    }
  }
  bool hasZero = false;
  *bytes = fast_utf::ActiveKernel().scanUTF16(u, n, &hasZero);
  return true;
}

void EncodeWellFormedUTF16(const unsigned short* u, std::size_t n, char* out) {
  fast_utf::ActiveKernel().encodeUTF16(u, n, out);
}

}  // namespace pivot
}  // namespace mvcs
