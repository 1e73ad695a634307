// The AVX2 kernel: the nine whole-input building blocks of FastUTF.h with
// 256-bit vectors, for processors without AVX-512 (whose kernel borrows the
// three ASCII prefix blocks from here).
//
// This file is compiled for AVX2 (with POPCNT) and is only called
// when the processor has them (UTFKernels.cpp decides). It includes no
// header that defines inline functions or templates, so that no code
// compiled for AVX2 can be shared with the rest of the program.
//
// The same division of work as the AVX-512 kernel: the vector paths handle
// well-formed standard UTF-8 and every UTF-32 and UTF-16 input; the exact
// steps of FastUTF.cpp take the rest (lenient or ill-formed UTF-8) and the
// last few units of each input.

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "FastUTF.h"

namespace mvcs {
namespace fast_utf {

namespace {

inline std::size_t PopCount(std::uint64_t m) {
  return static_cast<std::size_t>(__builtin_popcountll(m));
}

inline __m256i Load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

inline void Store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

inline unsigned Bits(__m256i v) { return static_cast<unsigned>(_mm256_movemask_epi8(v)); }

// ---------------------------------------------------------------------------
// UTF-8 validation by table lookups (kUTF8ErrorTables in FastUTF.h), 32
// bytes at a time.

// The bytes k places back from each byte of `v`, given the block before.
template <int k>
inline __m256i Before(__m256i v, __m256i previous) {
  return _mm256_alignr_epi8(v, _mm256_permute2x128_si256(previous, v, 0x21), 16 - k);
}

struct Validator {
  __m256i firstHigh = _mm256_broadcastsi128_si256(
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(kUTF8ErrorTables[0].entry)));
  __m256i firstLow = _mm256_broadcastsi128_si256(
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(kUTF8ErrorTables[1].entry)));
  __m256i secondHigh = _mm256_broadcastsi128_si256(
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(kUTF8ErrorTables[2].entry)));
  __m256i nibble = _mm256_set1_epi8(0x0F);

  // Nonzero where `v`, after `previous`, is not standard UTF-8.
  __m256i Errors(__m256i v, __m256i previous) const {
    const __m256i before1 = Before<1>(v, previous);
    const __m256i high1 = _mm256_and_si256(_mm256_srli_epi16(before1, 4), nibble);
    const __m256i low1 = _mm256_and_si256(before1, nibble);
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(v, 4), nibble);
    const __m256i pairs = _mm256_and_si256(_mm256_and_si256(_mm256_shuffle_epi8(firstHigh, high1),
                                                            _mm256_shuffle_epi8(firstLow, low1)),
                                           _mm256_shuffle_epi8(secondHigh, high));
    // Third and fourth bytes: two back at least E0, or three back at least F0.
    const __m256i third = _mm256_subs_epu8(Before<2>(v, previous), _mm256_set1_epi8(0x60));
    const __m256i fourth = _mm256_subs_epu8(Before<3>(v, previous), _mm256_set1_epi8(0x70));
    const __m256i must =
        _mm256_and_si256(_mm256_or_si256(third, fourth), _mm256_set1_epi8(static_cast<char>(0x80)));
    return _mm256_xor_si256(must, pairs);
  }

  // Whether `v` ends inside a character.
  static bool EndsInside(__m256i v) {
    const __m256i limits =
        _mm256_set_epi64x(static_cast<long long>(0xBFDFEFFFFFFFFFFFULL), -1, -1, -1);
    return !_mm256_testz_si256(_mm256_subs_epu8(v, limits), _mm256_subs_epu8(v, limits));
  }
};

// Continuation bytes in `v`.
inline std::size_t Continuations(__m256i v) {
  return PopCount(Bits(_mm256_cmpgt_epi8(_mm256_set1_epi8(-64), v)));
}

// Whether the 128 bytes at p are all ASCII.
inline bool AllAscii128(const unsigned char* p) {
  const __m256i any = _mm256_or_si256(_mm256_or_si256(Load(p), Load(p + 32)),
                                      _mm256_or_si256(Load(p + 64), Load(p + 96)));
  return Bits(any) == 0;
}

// The longest run of whole 32-byte blocks from p that is standard UTF-8 and
// ends at a character boundary; the last 32 bytes or fewer are left to the
// exact steps. With kCount, its characters are added to *characters.
template <bool kCount>
std::size_t StandardPrefix(const unsigned char* p, std::size_t n, std::size_t* characters) {
  const Validator check;
  __m256i previous = _mm256_setzero_si256();
  bool inside = false;  // the previous block ends inside a character
  std::size_t i = 0, continuations = 0;
  // Four blocks at a time, with one test for all.
  while (n - i >= 128) {
    const __m256i v0 = Load(p + i), v1 = Load(p + i + 32);
    const __m256i v2 = Load(p + i + 64), v3 = Load(p + i + 96);
    const __m256i any = _mm256_or_si256(_mm256_or_si256(v0, v1), _mm256_or_si256(v2, v3));
    if (Bits(any) == 0) {
      if (inside) break;
    } else {
      const __m256i errors =
          _mm256_or_si256(_mm256_or_si256(check.Errors(v0, previous), check.Errors(v1, v0)),
                          _mm256_or_si256(check.Errors(v2, v1), check.Errors(v3, v2)));
      if (!_mm256_testz_si256(errors, errors)) break;
      if (kCount) {
        continuations +=
            Continuations(v0) + Continuations(v1) + Continuations(v2) + Continuations(v3);
      }
    }
    inside = Validator::EndsInside(v3);
    previous = v3;
    i += 128;
  }
  // Then one block at a time, while whole blocks remain.
  while (n - i >= 32) {
    const __m256i v = Load(p + i);
    const __m256i errors = check.Errors(v, previous);
    if (!_mm256_testz_si256(errors, errors)) break;
    if (kCount) continuations += Continuations(v);
    inside = Validator::EndsInside(v);
    previous = v;
    i += 32;
  }
  // Back up to the start of the character that crosses i (if one does);
  // its continuation bytes were not counted.
  const std::size_t start = inside || i < n ? CharacterStart(p, i) : i;
  if (kCount) *characters += start - continuations + (start < i ? i - start - 1 : 0);
  return start;
}

// Inputs shorter than this go to the baseline, which is faster on them (the
// vector paths here leave the last 32 bytes or so to the exact steps).
const std::size_t kShortUTF8 = 64;

bool ValidateUTF8AVX2(const unsigned char* p, std::size_t n, std::size_t* characters) {
  if (n < kShortUTF8) return ValidateUTF8(p, n, characters);
  // First the ASCII at the start (all of an ASCII input), with nothing but
  // the test, 128 bytes at a time: each of its bytes is a character.
  std::size_t i = 0;
  while (n - i >= 128 && AllAscii128(p + i)) i += 128;
  std::size_t count = i;
  while (i < n) {
    i += characters != nullptr ? StandardPrefix<true>(p + i, n - i, &count)
                               : StandardPrefix<false>(p + i, n - i, nullptr);
    // The exact rules from the start of the character where the vector path
    // stopped, one block and a little on (or to the end); then again.
    if (!ValidateSteps(p, n, &i, i + 40, &count)) return false;
  }
  if (characters != nullptr) *characters = count;
  return true;
}

// ---------------------------------------------------------------------------
// Decoding, sixteen bytes at a time.
//
// Where characters continue is known from the lead bytes alone; where that
// differs from where the continuation bytes are, the text is legal only
// under the lenient rules and the chunk goes to the exact steps. Otherwise
// each byte's payload bits (by its high nibble) are computed, and the code
// point of the character ending at each byte is its payload ORed with those
// of the one, two or three bytes before, shifted, as far back as the
// character goes. The lanes where characters end are gathered by a table of
// permutations, eight lanes at a time.

struct CompressTable {
  std::uint64_t lanes[256];  // byte k: the index of the k-th set bit
};

constexpr CompressTable MakeCompressTable() {
  CompressTable table{};
  for (unsigned mask = 0; mask < 256; ++mask) {
    unsigned k = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
      if (mask & (1u << bit)) table.lanes[mask] |= static_cast<std::uint64_t>(bit) << (8 * k++);
    }
  }
  return table;
}

constexpr CompressTable kCompress = MakeCompressTable();

// Stores the lanes of `points` that `keep` marks, packed; whole vectors
// when `whole` (the caller knows 8 lanes after `out` may be written).
inline std::size_t StorePacked(__m256i points, unsigned keep, wchar_t* out, bool whole) {
  const __m256i order =
      _mm256_cvtepu8_epi32(_mm_cvtsi64_si128(static_cast<long long>(kCompress.lanes[keep & 0xFF])));
  const __m256i packed = _mm256_permutevar8x32_epi32(points, order);
  const std::size_t count = PopCount(keep & 0xFF);
  if (whole) {
    Store(out, packed);
  } else {
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    _mm256_maskstore_epi32(reinterpret_cast<int*>(out),
                           _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(count)), lanes),
                           packed);
  }
  return count;
}

struct Decoder {
  const unsigned char* p;
  std::size_t n;
  wchar_t* out;
  std::size_t boundary = 0;  // where the first character not yet written starts
  unsigned leads = 0;        // the previous chunk's lead bytes: bits 0-15 at least
                             // C0, 16-31 at least E0 (as 2 masks of 16 bits)
  unsigned leads4 = 0;       // and at least F0
  __m128i payloads = _mm_setzero_si128();
  __m128i continuations = _mm_setzero_si128();

  // Decodes the 16 bytes at s; false, writing nothing, if they are not
  // standard UTF-8 after what came before.
  bool Chunk(std::size_t s, bool whole) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + s));
    const __m128i continuation = _mm_cmpgt_epi8(_mm_set1_epi8(-64), bytes);
    auto atLeast = [&bytes](unsigned char b) {
      return static_cast<std::uint32_t>(_mm_movemask_epi8(
          _mm_cmpeq_epi8(_mm_max_epu8(bytes, _mm_set1_epi8(static_cast<char>(b))), bytes)));
    };
    const std::uint32_t lead2 = atLeast(0xC0), lead3 = atLeast(0xE0), lead4 = atLeast(0xF0);
    // Bit k: byte k - 16 of this chunk must be a continuation byte.
    const std::uint64_t must = static_cast<std::uint64_t>((leads & 0xFFFF) | lead2 << 16) << 1 |
                               static_cast<std::uint64_t>((leads >> 16) | lead3 << 16) << 2 |
                               static_cast<std::uint64_t>(leads4 | lead4 << 16) << 3;
    if (((must >> 16) & 0xFFFF) != static_cast<std::uint32_t>(_mm_movemask_epi8(continuation))) {
      return false;
    }
    const unsigned ends = static_cast<unsigned>(~(must >> 17) & 0xFFFF);
    // Payload bits by high nibble: ASCII 7F, continuation 3F, then 1F, 0F, 07.
    const __m128i masks = _mm_setr_epi8(0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x3F, 0x3F,
                                        0x3F, 0x3F, 0x1F, 0x1F, 0x0F, 0x07);
    const __m128i payload = _mm_and_si128(
        bytes,
        _mm_shuffle_epi8(masks, _mm_and_si128(_mm_srli_epi16(bytes, 4), _mm_set1_epi8(0x0F))));
    // The payloads one, two and three bytes back, where the character goes
    // back that far (every byte from there on is a continuation byte).
    const __m128i back1 = continuation;
    const __m128i back2 = _mm_and_si128(back1, _mm_alignr_epi8(continuation, continuations, 15));
    const __m128i back3 = _mm_and_si128(back2, _mm_alignr_epi8(continuation, continuations, 14));
    const __m128i p1 = _mm_and_si128(_mm_alignr_epi8(payload, payloads, 15), back1);
    const __m128i p2 = _mm_and_si128(_mm_alignr_epi8(payload, payloads, 14), back2);
    const __m128i p3 = _mm_and_si128(_mm_alignr_epi8(payload, payloads, 13), back3);
    // In 16-bit lanes: payload | p1 << 6, and p2 | p3 << 6; then joined.
    const __m256i low = _mm256_or_si256(_mm256_cvtepu8_epi16(payload),
                                        _mm256_slli_epi16(_mm256_cvtepu8_epi16(p1), 6));
    const __m256i high =
        _mm256_or_si256(_mm256_cvtepu8_epi16(p2), _mm256_slli_epi16(_mm256_cvtepu8_epi16(p3), 6));
    const __m256i first =
        _mm256_or_si256(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(low)),
                        _mm256_slli_epi32(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(high)), 12));
    const __m256i second = _mm256_or_si256(
        _mm256_cvtepu16_epi32(_mm256_extracti128_si256(low, 1)),
        _mm256_slli_epi32(_mm256_cvtepu16_epi32(_mm256_extracti128_si256(high, 1)), 12));
    out += StorePacked(first, ends, out, whole);
    out += StorePacked(second, ends >> 8, out, whole);
    if (ends != 0) boundary = s + 32 - static_cast<std::size_t>(__builtin_clz(ends));
    leads = lead2 | lead3 << 16;
    leads4 = lead4;
    payloads = payload;
    continuations = continuation;
    return true;
  }

  // 32 ASCII bytes at s, if they are and no character is open.
  bool Ascii(std::size_t s) {
    const __m256i v = Load(p + s);
    if (Bits(v) != 0 || ((leads & 0xFFFF) << 1 | (leads >> 16) << 2 | leads4 << 3) >> 16 != 0) {
      return false;
    }
    Store(out, _mm256_cvtepu8_epi32(_mm256_castsi256_si128(v)));
    Store(out + 8, _mm256_cvtepu8_epi32(_mm_srli_si128(_mm256_castsi256_si128(v), 8)));
    const __m128i upper = _mm256_extracti128_si256(v, 1);
    Store(out + 16, _mm256_cvtepu8_epi32(upper));
    Store(out + 24, _mm256_cvtepu8_epi32(_mm_srli_si128(upper, 8)));
    out += 32;
    boundary = s + 32;
    leads = leads4 = 0;
    continuations = _mm_setzero_si128();
    return true;
  }
};

void DecodeValidUTF8AVX2(const unsigned char* p, std::size_t n, wchar_t* out) {
  if (n < kShortUTF8) return DecodeValidUTF8(p, n, out);
  std::size_t i = 0;
  while (i < n) {
    Decoder decoder{p + i, n - i, out};
    std::size_t s = 0;
    while (decoder.n - s >= 16) {
      if (decoder.n - s >= 32 && decoder.Ascii(s)) {
        s += 32;
        continue;
      }
      // Whole stores when 32 more bytes (8 characters) follow the chunk.
      if (!decoder.Chunk(s, decoder.n - s >= 48)) break;
      s += 16;
    }
    out = decoder.out;
    // The exact steps from the first character not written: past a chunk
    // that is not standard, or over the last bytes.
    i += decoder.boundary;
    DecodeSteps(p, n, &i, i + 20, &out);
  }
}

// ---------------------------------------------------------------------------
// Encoding eight code points (at most 0x10FFFF; surrogates as themselves):
// each lane builds its one to four bytes in a 32-bit word, and a shuffle
// chosen by the lengths of four lanes packs each half.

struct PackTable {
  unsigned char shuffle[625][16];  // by l0 + 5 l1 + 25 l2 + 125 l3
  unsigned char size[625];
};

constexpr PackTable MakePackTable() {
  PackTable table{};
  for (unsigned key = 0; key < 625; ++key) {
    unsigned at = 0;
    for (unsigned lane = 0, rest = key; lane < 4; ++lane, rest /= 5) {
      for (unsigned byte = 0; byte < rest % 5; ++byte) {
        table.shuffle[key][at++] = static_cast<unsigned char>(4 * lane + byte);
      }
    }
    table.size[key] = static_cast<unsigned char>(at);
    for (; at < 16; ++at) table.shuffle[key][at] = 0x80;
  }
  return table;
}

constexpr PackTable kPack = MakePackTable();

// `points`: the code points; `skip`: lanes that write nothing (00/FF per
// lane). Writes 16 bytes a half (the caller leaves room); returns the bytes
// that count.
inline std::size_t EncodePoints(__m256i points, __m256i skip, char* out) {
  const __m256i two = _mm256_cmpgt_epi32(points, _mm256_set1_epi32(0x7F));
  const __m256i three = _mm256_cmpgt_epi32(points, _mm256_set1_epi32(0x7FF));
  const __m256i four = _mm256_cmpgt_epi32(points, _mm256_set1_epi32(0xFFFF));
  const __m256i length = _mm256_andnot_si256(
      skip,
      _mm256_sub_epi32(_mm256_sub_epi32(_mm256_sub_epi32(_mm256_set1_epi32(1), two), three), four));
  // The six-bit groups, first to last, as bytes 3, 2, 1, 0 of a word; the
  // word shifted right by 4 - length bytes holds the character's groups in
  // order, and the markers of its length complete it. ASCII stays itself.
  const __m256i six = _mm256_set1_epi32(0x3F);
  const __m256i groups = _mm256_or_si256(
      _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(points, six), 24),
                      _mm256_and_si256(_mm256_slli_epi32(points, 10), _mm256_set1_epi32(0x3F0000))),
      _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(points, 4), _mm256_set1_epi32(0x3F00)),
                      _mm256_srli_epi32(points, 18)));
  const __m256i shift = _mm256_slli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(4), length), 3);
  const __m256i markers = _mm256_permutevar8x32_epi32(
      _mm256_setr_epi32(0, 0, 0x80C0, 0x8080E0, static_cast<int>(0x808080F0), 0, 0, 0), length);
  const __m256i words =
      _mm256_blendv_epi8(points, _mm256_or_si256(_mm256_srlv_epi32(groups, shift), markers), two);
  // The key of each half: the lengths as bytes, times 1, 5, 25, 125.
  const __m256i lengths = _mm256_shuffle_epi8(
      length, _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 4, 8,
                               12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
  const __m256i keys = _mm256_madd_epi16(
      _mm256_maddubs_epi16(
          lengths, _mm256_setr_epi8(1, 5, 25, 125, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 5, 25,
                                    125, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)),
      _mm256_set1_epi16(1));
  const unsigned key0 = static_cast<unsigned>(_mm256_extract_epi32(keys, 0));
  const unsigned key1 = static_cast<unsigned>(_mm256_extract_epi32(keys, 4));
  const __m128i half0 =
      _mm_shuffle_epi8(_mm256_castsi256_si128(words),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[key0])));
  const __m128i half1 =
      _mm_shuffle_epi8(_mm256_extracti128_si256(words, 1),
                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(kPack.shuffle[key1])));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), half0);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + kPack.size[key0]), half1);
  return kPack.size[key0] + kPack.size[key1];
}

// The encoders go 32 units at a time while at least this many remain: a
// half of four lanes writes at least 3 bytes (4, or 3 after the end of a
// pair) and stores 16, so at most 13 bytes past them, which the 32 units or
// more that follow write over. The last units go to the baseline encoders.
const std::size_t kVectorUnits = 64;

bool ScanWideAVX2(const wchar_t* w, std::size_t n, std::size_t* utf8Bytes, bool* hasZero) {
  // Unsigned "above 0x10FFFF" as a signed compare with the top bit flipped.
  const __m256i flip = _mm256_set1_epi32(static_cast<int>(0x80000000u));
  const __m256i limit = _mm256_set1_epi32(static_cast<int>(0x10FFFFu ^ 0x80000000u));
  __m256i bad = _mm256_setzero_si256(), zero = bad, extra = bad;
  std::size_t i = 0, bytes = n;
  for (; n - i >= 8; i += 8) {
    const __m256i v = Load(w + i);
    bad = _mm256_or_si256(bad, _mm256_cmpgt_epi32(_mm256_xor_si256(v, flip), limit));
    zero = _mm256_or_si256(zero, _mm256_cmpeq_epi32(v, _mm256_setzero_si256()));
    // Minus one a step: at most 3 an iteration, so 32-bit lanes cannot
    // overflow before 2^29 iterations, more than any string has.
    extra = _mm256_add_epi32(extra, _mm256_cmpgt_epi32(v, _mm256_set1_epi32(0x7F)));
    extra = _mm256_add_epi32(extra, _mm256_cmpgt_epi32(v, _mm256_set1_epi32(0x7FF)));
    extra = _mm256_add_epi32(extra, _mm256_cmpgt_epi32(v, _mm256_set1_epi32(0xFFFF)));
  }
  alignas(32) std::uint32_t lanes[8];
  Store(lanes, extra);
  for (std::uint32_t lane : lanes) bytes += 0u - lane;  // each lane is minus its count
  bool isBad = Bits(bad) != 0, isZero = Bits(zero) != 0;
  for (; i < n; ++i) {
    const std::uint32_t c = static_cast<std::uint32_t>(w[i]);
    isBad |= c > 0x10FFFF;
    isZero |= c == 0;
    bytes += (c > 0x7F) + (c > 0x7FF) + (c > 0xFFFF);
  }
  if (isBad) return false;
  *utf8Bytes = bytes;
  *hasZero = isZero;
  return true;
}

void EncodeWideAVX2(const wchar_t* w, std::size_t n, char* out) {
  std::size_t i = 0;
  for (; n - i >= kVectorUnits; i += 32) {
    const __m256i v0 = Load(w + i), v1 = Load(w + i + 8), v2 = Load(w + i + 16),
                  v3 = Load(w + i + 24);
    const __m256i any = _mm256_or_si256(_mm256_or_si256(v0, v1), _mm256_or_si256(v2, v3));
    if (_mm256_testz_si256(any, _mm256_set1_epi32(~0x7F))) {
      // 32 ASCII units: pack to bytes. The packs work within 128-bit halves,
      // which leaves the groups of four in the order 0 2 4 6 1 3 5 7.
      const __m256i bytes =
          _mm256_packus_epi16(_mm256_packs_epi32(v0, v1), _mm256_packs_epi32(v2, v3));
      Store(out, _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
      out += 32;
      continue;
    }
    const __m256i none = _mm256_setzero_si256();
    out += EncodePoints(v0, none, out);
    out += EncodePoints(v1, none, out);
    out += EncodePoints(v2, none, out);
    out += EncodePoints(v3, none, out);
  }
  EncodeWide(w + i, n - i, out);
}

// UTF-16: a high surrogate followed by a low one is one code point, written
// in the high surrogate's lane; every other unit is a code point of its own.

std::size_t ScanUTF16AVX2(const unsigned short* u, std::size_t n, bool* hasZero) {
  std::size_t i = 0, bytes = n;
  bool zero = false;
  const __m256i top = _mm256_set1_epi16(static_cast<short>(0xFC00));
  for (; n - i >= 17; i += 16) {  // each step also reads the unit after its 16
    const __m256i v = Load(u + i), next = Load(u + i + 1);
    zero |= Bits(_mm256_cmpeq_epi16(v, _mm256_setzero_si256())) != 0;
    const unsigned pairs = Bits(_mm256_and_si256(
        _mm256_cmpeq_epi16(_mm256_and_si256(v, top), _mm256_set1_epi16(static_cast<short>(0xD800))),
        _mm256_cmpeq_epi16(_mm256_and_si256(next, top),
                           _mm256_set1_epi16(static_cast<short>(0xDC00)))));
    const unsigned two =
        ~Bits(_mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80))),
                                 _mm256_setzero_si256()));
    const unsigned three =
        ~Bits(_mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xF800))),
                                 _mm256_setzero_si256()));
    // Two mask bits a unit.
    bytes += (PopCount(two) + PopCount(three) - 2 * PopCount(pairs)) / 2;
  }
  for (; i < n; ++i) {
    const unsigned c = u[i];
    zero |= c == 0;
    bytes += (c >= 0x80) + (c >= 0x800);
    if ((c & 0xFC00) == 0xD800 && i + 1 < n && (u[i + 1] & 0xFC00) == 0xDC00) bytes -= 2;
  }
  *hasZero = zero;
  return bytes;
}

char* EncodeUTF16AVX2(const unsigned short* u, std::size_t n, char* out) {
  const __m256i top = _mm256_set1_epi32(0xFC00);
  std::size_t i = 0;
  bool afterPair = false;  // u[i] ends a pair that was written
  for (; n - i >= kVectorUnits; i += 32) {
    const __m256i v0 = Load(u + i), v1 = Load(u + i + 16);
    if (!afterPair && _mm256_testz_si256(_mm256_or_si256(v0, v1),
                                         _mm256_set1_epi16(static_cast<short>(0xFF80)))) {
      const __m256i bytes = _mm256_packus_epi16(v0, v1);  // within 128-bit halves
      Store(out, _mm256_permute4x64_epi64(bytes, 0xD8));
      out += 32;
      continue;
    }
    for (std::size_t k = 0; k < 32; k += 8) {
      const __m256i v =
          _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(u + i + k)));
      const __m256i next =
          _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(u + i + k + 1)));
      const __m256i lead = _mm256_and_si256(
          _mm256_cmpeq_epi32(_mm256_and_si256(v, top), _mm256_set1_epi32(0xD800)),
          _mm256_cmpeq_epi32(_mm256_and_si256(next, top), _mm256_set1_epi32(0xDC00)));
      // The lane after a lead is the pair's second unit (across groups too).
      const __m256i tail = _mm256_blend_epi32(
          _mm256_permutevar8x32_epi32(lead, _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6)),
          _mm256_set1_epi32(afterPair ? -1 : 0), 0x01);
      // A pair's code point: (high - D800) << 10 + (low - DC00) + 10000.
      const __m256i pair = _mm256_add_epi32(_mm256_slli_epi32(v, 10),
                                            _mm256_sub_epi32(next, _mm256_set1_epi32(0x35FDC00)));
      out += EncodePoints(_mm256_blendv_epi8(v, pair, lead), tail, out);
      afterPair = (Bits(lead) >> 28) != 0;
    }
  }
  if (afterPair) ++i;
  return EncodeUTF16(u + i, n - i, out);
}

// ---------------------------------------------------------------------------
// ASCII prefixes (FastUTF.h), 32 units a block: each block is converted and
// stored whole, then checked on its bytes. Narrowing packs with saturation,
// which turns every unit outside 00-FF into 00 or FF, so a unit is in
// 01-7F exactly when its byte is; and a byte is exactly when subtracting 1
// with signed saturation leaves it non-negative. Two blocks go at a time
// with one test; inputs of at least 32 units end with their last 32,
// overlapping the block before; shorter ones go to the baseline.

inline std::size_t FirstBit(unsigned mask) { return static_cast<std::size_t>(__builtin_ctz(mask)); }

// Each block function converts the 32 units at `in` into `out` and returns
// their bytes minus 1: the sign bit of byte k is set where unit k is not in
// 01-7F.

inline __m256i WidenBlock(const unsigned char* p, wchar_t* out) {
  for (int k = 0; k < 4; ++k) {
    Store(out + 8 * k,
          _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 8 * k))));
  }
  return _mm256_subs_epi8(Load(p), _mm256_set1_epi8(1));
}

inline __m256i NarrowWideBlock(const wchar_t* w, char* out) {
  const __m256i v0 = Load(w), v1 = Load(w + 8), v2 = Load(w + 16), v3 = Load(w + 24);
  // The packs work within 128-bit halves, which leaves the groups of four
  // in the order 0 2 4 6 1 3 5 7.
  const __m256i bytes = _mm256_permutevar8x32_epi32(
      _mm256_packus_epi16(_mm256_packs_epi32(v0, v1), _mm256_packs_epi32(v2, v3)),
      _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  Store(out, bytes);
  return _mm256_subs_epi8(bytes, _mm256_set1_epi8(1));
}

inline __m256i NarrowUTF16Block(const unsigned short* u, char* out) {
  const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(Load(u), Load(u + 16)), 0xD8);
  Store(out, bytes);
  return _mm256_subs_epi8(bytes, _mm256_set1_epi8(1));
}

// The blocks over the whole input; `block` is one of the three above and
// `baseline` the baseline's function for short inputs.
template <typename In, typename Out, typename Block>
std::size_t AsciiBlocks(const In* in, std::size_t n, Out* out, Block block,
                        std::size_t (*baseline)(const In*, std::size_t, Out*)) {
  if (n < 32) return baseline(in, n, out);
  std::size_t i = 0;
  for (; n - i >= 64; i += 64) {
    const __m256i first = block(in + i, out + i), second = block(in + i + 32, out + i + 32);
    if (Bits(_mm256_or_si256(first, second)) != 0) {
      const unsigned stop = Bits(first);
      return stop != 0 ? i + FirstBit(stop) : i + 32 + FirstBit(Bits(second));
    }
  }
  if (n - i >= 32) {
    const unsigned stop = Bits(block(in + i, out + i));
    if (stop != 0) return i + FirstBit(stop);
    i += 32;
  }
  if (i == n) return n;
  // The last 32 units; those before i are known to be in range.
  const std::size_t last = n - 32;
  const unsigned stop = Bits(block(in + last, out + last));
  return stop != 0 ? last + FirstBit(stop) : n;
}

std::size_t WidenAsciiAVX2(const unsigned char* p, std::size_t n, wchar_t* out) {
  return AsciiBlocks(p, n, out, WidenBlock, WidenAscii);
}

std::size_t NarrowAsciiWideAVX2(const wchar_t* w, std::size_t n, char* out) {
  return AsciiBlocks(w, n, out, NarrowWideBlock, NarrowAsciiWide);
}

std::size_t NarrowAsciiUTF16AVX2(const unsigned short* u, std::size_t n, char* out) {
  return AsciiBlocks(u, n, out, NarrowUTF16Block, NarrowAsciiUTF16);
}

}  // namespace

const Kernel* AVX2Kernel() {
  static const Kernel kernel = {"avx2",
                                ValidateUTF8AVX2,
                                DecodeValidUTF8AVX2,
                                ScanWideAVX2,
                                EncodeWideAVX2,
                                ScanUTF16AVX2,
                                EncodeUTF16AVX2,
                                WidenAsciiAVX2,
                                NarrowAsciiWideAVX2,
                                NarrowAsciiUTF16AVX2};
  return &kernel;
}

}  // namespace fast_utf
}  // namespace mvcs
