// The UTF-16 pivot of the code-page conversions without ICU, for
// well-formed input (see UnicodePivot.h).
//
// The UTF-8 check is the whole-string validator of UTFKernels.h plus one
// pass for the single sequence its lenient rules accept beyond RFC 3629.
// The decoder, the UTF-16 check and the encoder are this file's own: they
// need not handle what is not well-formed, which keeps their vector steps
// short (SSE4.1, chosen at run time; one character at a time elsewhere).

#include "UnicodePivot.h"

#include <cstdint>

#include "UTFKernels.h"

#if defined(__x86_64__)
#include <emmintrin.h>
#include <smmintrin.h>
#include <tmmintrin.h>
#endif

namespace mvcs {
namespace pivot {

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

// Encoding one character of well-formed UTF-16 at u[*i] (both units of a
// pair) as UTF-8.
inline void EncodeOne(const unsigned short* u, std::size_t* i, char** out) {
  std::uint32_t c = u[*i];
  char* o = *out;
  if (c < 0x80) {
    *o++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *o++ = static_cast<char>(0xC0 | c >> 6);
    *o++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if ((c & 0xF800) != 0xD800) {
    *o++ = static_cast<char>(0xE0 | c >> 12);
    *o++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
    *o++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    c = 0x10000 + ((c - 0xD800) << 10) + (u[++*i] - 0xDC00);
    *o++ = static_cast<char>(0xF0 | c >> 18);
    *o++ = static_cast<char>(0x80 | (c >> 12 & 0x3F));
    *o++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
    *o++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  ++*i;
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

// Byte shuffles that pack, in order, the first length(key, lane) bytes of
// each of the 16 / kWidth lanes of a vector, for every 8-bit key; and how
// many bytes that is. The rest of the vector is zeroed.
struct Packing {
  unsigned char shuffle[256][16];
  unsigned char count[256];
};

template <unsigned kWidth, class Length>
constexpr Packing MakePacking(Length length) {
  Packing table{};
  for (unsigned key = 0; key < 256; ++key) {
    unsigned k = 0;
    for (unsigned lane = 0; lane < 16 / kWidth; ++lane) {
      for (unsigned b = 0; b < length(key, lane); ++b) {
        table.shuffle[key][k++] = static_cast<unsigned char>(kWidth * lane + b);
      }
    }
    table.count[key] = static_cast<unsigned char>(k);
    while (k < 16) table.shuffle[key][k++] = 0x80;
  }
  return table;
}

// Decoding: the 16-bit lanes whose bit is set (where a character starts).
constexpr Packing kStartingLanes =
    MakePacking<2>([](unsigned key, unsigned lane) { return (key >> lane & 1) * 2; });

// Encoding below U+0800: one byte in each 16-bit lane, two where its bit is
// set.
constexpr Packing kTwoByteLanes =
    MakePacking<2>([](unsigned key, unsigned lane) { return 1 + (key >> lane & 1); });

// Encoding the BMP: 32-bit lanes of one byte, plus one where bit `lane` is
// set, plus one more where bit 4 + `lane` is.
constexpr Packing kThreeByteLanes = MakePacking<4>(
    [](unsigned key, unsigned lane) { return 1 + (key >> lane & 1) + (key >> (4 + lane) & 1); });

// The UTF-16 unit of the character that starts at each of 8 positions,
// given as 16-bit lanes the byte there and the low six bits of the two
// after it (meaningless where no character starts, or where one of four
// bytes does).
__attribute__((target("sse4.1"))) inline __m128i Units8(__m128i b0, __m128i t1, __m128i t2) {
  const __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6), t1);
  // Shifting the lead left by 12 keeps its low four bits, all that count.
  const __m128i three =
      _mm_or_si128(_mm_or_si128(_mm_slli_epi16(b0, 12), _mm_slli_epi16(t1, 6)), t2);
  const __m128i isThree = _mm_cmpgt_epi16(b0, _mm_set1_epi16(0xDF));
  const __m128i isTwo = _mm_cmpgt_epi16(b0, _mm_set1_epi16(0xBF));
  return _mm_blendv_epi8(_mm_blendv_epi8(b0, two, isTwo), three, isThree);
}

// Writes the units of the lanes in `starts`, in order, and advances *out.
__attribute__((target("sse4.1"))) inline void Compact(__m128i units, unsigned starts,
                                                      unsigned short** out) {
  Store(*out, _mm_shuffle_epi8(units, Load(kStartingLanes.shuffle[starts])));
  *out += kStartingLanes.count[starts] / 2;  // bytes to units
}

// Sixteen positions a step: all ASCII are widened at once; with no lead of
// four bytes among them, the units of the characters starting there are
// computed in all lanes and the starting lanes compacted; otherwise one
// character at a time. Every character that starts before `i` has been
// decoded, so a step may begin inside one.
__attribute__((target("sse4.1"))) unsigned short* DecodeSSE41(const unsigned char* p, std::size_t n,
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
    const __m128i six = _mm_set1_epi8(0x3F);
    const __m128i t1 = _mm_and_si128(Load(p + i + 1), six),
                  t2 = _mm_and_si128(Load(p + i + 2), six);
    // Continuation bytes, 80-BF, are -128..-65 as signed bytes.
    const unsigned starts =
        ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmplt_epi8(v, _mm_set1_epi8(-64)))) & 0xFFFF;
    Compact(Units8(_mm_unpacklo_epi8(v, zero), _mm_unpacklo_epi8(t1, zero),
                   _mm_unpacklo_epi8(t2, zero)),
            starts & 0xFF, &out);
    Compact(Units8(_mm_unpackhi_epi8(v, zero), _mm_unpackhi_epi8(t1, zero),
                   _mm_unpackhi_epi8(t2, zero)),
            starts >> 8, &out);
    i += 16;
  }
  DecodeStarting(p, n, &i, n, &out);
  return out;
}

// `a` where `mask` is set, `b` elsewhere.
__attribute__((target("sse4.1"))) inline __m128i Select(__m128i mask, __m128i a, __m128i b) {
  return _mm_blendv_epi8(b, a, mask);
}

// Encodes 4 characters of the BMP, none a surrogate, given as 32-bit lanes.
__attribute__((target("sse4.1"))) inline void EncodeBMP4(__m128i w, char** out) {
  const __m128i six = _mm_set1_epi32(0x3F), trail = _mm_set1_epi32(0x80);
  const __m128i two = _mm_cmpgt_epi32(w, _mm_set1_epi32(0x7F));
  const __m128i three = _mm_cmpgt_epi32(w, _mm_set1_epi32(0x7FF));
  const __m128i low = _mm_or_si128(_mm_and_si128(w, six), trail);
  const __m128i middle = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(w, 6), six), trail);
  const __m128i first =
      Select(three, _mm_or_si128(_mm_srli_epi32(w, 12), _mm_set1_epi32(0xE0)),
             Select(two, _mm_or_si128(_mm_srli_epi32(w, 6), _mm_set1_epi32(0xC0)), w));
  const __m128i second = Select(three, middle, low);
  const __m128i words =
      _mm_or_si128(_mm_or_si128(first, _mm_slli_epi32(second, 8)), _mm_slli_epi32(low, 16));
  const unsigned key = static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(two)) |
                                             _mm_movemask_ps(_mm_castsi128_ps(three)) << 4);
  Store(*out, _mm_shuffle_epi8(words, Load(kThreeByteLanes.shuffle[key])));
  *out += kThreeByteLanes.count[key];
}

// Eight units a step: all ASCII are narrowed at once; below U+0800 each
// lane's one or two bytes are packed by one shuffle; other characters of the
// BMP go four at a time; a step with a surrogate goes one character at a
// time (a pair may then end one unit past it).
__attribute__((target("sse4.1"))) char* EncodeSSE41(const unsigned short* u, std::size_t n,
                                                    char* out) {
  const __m128i zero = _mm_setzero_si128();
  std::size_t i = 0;
  while (i + 8 <= n) {
    const __m128i v = Load(u + i);
    const auto none = [&](int bits) {
      const __m128i masked = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(bits)));
      return _mm_movemask_epi8(_mm_cmpeq_epi16(masked, zero)) == 0xFFFF;
    };
    if (none(0xFF80)) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, v));
      out += 8;
      i += 8;
    } else if (none(0xF800)) {
      const __m128i two = _mm_cmpgt_epi16(v, _mm_set1_epi16(0x7F));
      const __m128i first =
          Select(two, _mm_or_si128(_mm_srli_epi16(v, 6), _mm_set1_epi16(0xC0)), v);
      const __m128i second =
          _mm_or_si128(_mm_and_si128(v, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80));
      const unsigned mask =
          static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(two, zero))) & 0xFF;
      Store(out, _mm_shuffle_epi8(_mm_or_si128(first, _mm_slli_epi16(second, 8)),
                                  Load(kTwoByteLanes.shuffle[mask])));
      out += kTwoByteLanes.count[mask];
      i += 8;
    } else if (_mm_movemask_epi8(
                   _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800))),
                                   _mm_set1_epi16(static_cast<short>(0xD800)))) == 0) {
      EncodeBMP4(_mm_unpacklo_epi16(v, zero), &out);
      EncodeBMP4(_mm_unpackhi_epi16(v, zero), &out);
      i += 8;
    } else {
      const std::size_t until = i + 8;
      while (i < until) EncodeOne(u, &i, &out);
    }
  }
  while (i < n) EncodeOne(u, &i, &out);
  return out;
}

bool HasSSE41() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1");
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
  const __m128i ed = _mm_set1_epi8(static_cast<char>(0xED));
  while (i + 17 <= n) {
    // A block of at most 255 vectors (so that byte counters cannot pass
    // 255), looked at closely only if one of its bytes is ED or above.
    std::size_t end = i;
    __m128i top = zero;
    for (int k = 0; k < 255 && end + 17 <= n; ++k, end += 16)
      top = _mm_max_epu8(top, Load(p + end));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_max_epu8(top, ed), top)) == 0) {
      i = end;
      continue;
    }
    __m128i counters = zero;
    for (; i < end; i += 16) {
      const __m128i v = Load(p + i), next = Load(p + i + 1);
      const __m128i lead = _mm_or_si128(_mm_cmpeq_epi8(v, ed),
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

// The UTF-8 size of `n` units of UTF-16 read as well-formed: one byte a
// unit, one more from U+0080 and one more from U+0800, less one for a
// surrogate (which counts 2 then, and a pair its 4). Sets *surrogates if
// there are any.
std::size_t UTF8Size(const unsigned short* u, std::size_t n, bool* surrogates) {
  std::size_t bytes = n, i = 0, found = 0;
#if defined(__x86_64__)
  const __m128i zero = _mm_setzero_si128();
  while (i + 8 <= n) {
    // 16-bit counters: `more` adds 1 from 0080 and 1 from 0800, `less`
    // counts the surrogates; summed before their difference can pass 32767.
    __m128i more = zero, less = zero;
    for (int k = 0; k < 8192 && i + 8 <= n; ++k, i += 8) {
      const __m128i v = Load(u + i);
      const auto atLeast = [&](int bits) {
        const __m128i masked = _mm_and_si128(v, _mm_set1_epi16(static_cast<short>(bits)));
        return _mm_cmpeq_epi16(_mm_cmpeq_epi16(masked, zero), zero);
      };
      more = _mm_sub_epi16(_mm_sub_epi16(more, atLeast(0xFF80)), atLeast(0xF800));
      less = _mm_sub_epi16(
          less, _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(static_cast<short>(0xF800))),
                                _mm_set1_epi16(static_cast<short>(0xD800))));
    }
    const __m128i sums = _mm_madd_epi16(_mm_sub_epi16(more, less), _mm_set1_epi16(1));
    alignas(16) std::int32_t lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), sums);
    bytes += static_cast<std::size_t>(static_cast<std::uint32_t>(lanes[0]) + lanes[1]) +
             static_cast<std::size_t>(static_cast<std::uint32_t>(lanes[2]) + lanes[3]);
    found |= _mm_movemask_epi8(_mm_cmpeq_epi16(less, zero)) != 0xFFFF;
  }
#endif
  for (; i < n; ++i) {
    bytes += (u[i] >= 0x80) + (u[i] >= 0x800);
    if ((u[i] & 0xF800) == 0xD800) {
      --bytes;
      found = 1;
    }
  }
  *surrogates = found != 0;
  return bytes;
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
  static const bool vector = HasSSE41();
  if (vector) return DecodeSSE41(p, n, out);
#endif
  return DecodeWellFormedUTF8Scalar(p, n, out);
}

bool MeasureWellFormedUTF16(const unsigned short* u, std::size_t n, std::size_t* bytes) {
  bool surrogates = false;
  *bytes = UTF8Size(u, n, &surrogates);
  if (!surrogates) return true;
  for (std::size_t i = 0; i < n; ++i) {
    if ((u[i] & 0xF800) != 0xD800) continue;
    if (u[i] >= 0xDC00 || i + 1 == n || (u[i + 1] & 0xFC00) != 0xDC00) return false;
    ++i;  // the pair's low surrogate
  }
  return true;
}

char* EncodeWellFormedUTF16Scalar(const unsigned short* u, std::size_t n, char* out) {
  std::size_t i = 0;
  while (i < n) EncodeOne(u, &i, &out);
  return out;
}

char* EncodeWellFormedUTF16(const unsigned short* u, std::size_t n, char* out) {
#if defined(__x86_64__)
  static const bool vector = HasSSE41();
  if (vector) return EncodeSSE41(u, n, out);
#endif
  return EncodeWellFormedUTF16Scalar(u, n, out);
}

}  // namespace pivot
}  // namespace mvcs
