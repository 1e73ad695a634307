// The AVX-512 kernel: six of the whole-input building blocks of FastUTF.h
// with 512-bit vectors (AVX-512 F, BW, CD, VL, VBMI and VBMI2, with BMI2);
// the three ASCII prefix blocks are the AVX2 kernel's.
//
// This file is compiled for those instruction sets and is only called when
// the processor has them (UTFKernels.cpp decides). It includes no header
// that defines inline functions or templates, so that no code compiled for
// AVX-512 can be shared with the rest of the program by the linker.
//
// The vector paths handle well-formed standard UTF-8, and every UTF-32 and
// UTF-16 input. UTF-8 that is legal only under the lenient reference rules
// (after ED or F4 a second byte below 80) and every ill-formed input go to
// the exact scalar steps of FastUTF.cpp from the start of the character
// where a block went wrong; the vector path resumes after that block.

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "FastUTF.h"

namespace mvcs {
namespace fast_utf {

namespace {

typedef std::uint64_t Mask64;

inline Mask64 LowBits(std::size_t n) { return n >= 64 ? ~Mask64(0) : (Mask64(1) << n) - 1; }

inline std::size_t PopCount(Mask64 m) { return static_cast<std::size_t>(__builtin_popcountll(m)); }

// ---------------------------------------------------------------------------
// UTF-8 validation by table lookups (kUTF8ErrorTables in FastUTF.h).

inline __m512i Broadcast(const unsigned char* table) {
  return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table)));
}

// The 64 bytes that end `k` bytes before the end of `v`, given the block
// before it: the bytes k places back from each byte of `v`.
template <int k>
inline __m512i Before(__m512i v, __m512i previous) {
  const __m512i shifted = _mm512_alignr_epi32(v, previous, 12);  // previous 128 bits
  return _mm512_alignr_epi8(v, shifted, 16 - k);
}

struct Validator {
  __m512i firstHigh = Broadcast(kUTF8ErrorTables[0].entry);
  __m512i firstLow = Broadcast(kUTF8ErrorTables[1].entry);
  __m512i secondHigh = Broadcast(kUTF8ErrorTables[2].entry);
  __m512i nibble = _mm512_set1_epi8(0x0F);

  // Nonzero where `v`, after `previous`, is not standard UTF-8.
  __m512i Errors(__m512i v, __m512i previous) const {
    const __m512i before1 = Before<1>(v, previous);
    const __m512i high1 = _mm512_and_si512(_mm512_srli_epi16(before1, 4), nibble);
    const __m512i low1 = _mm512_and_si512(before1, nibble);
    const __m512i high = _mm512_and_si512(_mm512_srli_epi16(v, 4), nibble);
    const __m512i pairs = _mm512_and_si512(_mm512_and_si512(_mm512_shuffle_epi8(firstHigh, high1),
                                                            _mm512_shuffle_epi8(firstLow, low1)),
                                           _mm512_shuffle_epi8(secondHigh, high));
    // Third and fourth bytes: two back at least E0, or three back at least F0.
    const __m512i third = _mm512_subs_epu8(Before<2>(v, previous), _mm512_set1_epi8(0x60));
    const __m512i fourth = _mm512_subs_epu8(Before<3>(v, previous), _mm512_set1_epi8(0x70));
    const __m512i must =
        _mm512_and_si512(_mm512_or_si512(third, fourth), _mm512_set1_epi8(static_cast<char>(0x80)));
    return _mm512_xor_si512(must, pairs);
  }

  // Whether `v` ends inside a character: a lead byte in its last three
  // bytes that the block does not complete.
  static bool EndsInside(__m512i v) {
    const __m512i limits =
        _mm512_set_epi64(static_cast<long long>(0xBFDFEFFFFFFFFFFFULL), -1, -1, -1, -1, -1, -1, -1);
    return _mm512_test_epi8_mask(_mm512_subs_epu8(v, limits), _mm512_subs_epu8(v, limits)) != 0;
  }
};

// The longest run of whole 64-byte blocks from p that is standard UTF-8,
// cut back to the last character boundary before the first block that is
// not; with kCount, the characters it holds are added to *characters.
template <bool kCount>
std::size_t StandardPrefix(const unsigned char* p, std::size_t n, std::size_t* characters) {
  const Validator check;
  const __m512i minusSixtyFour = _mm512_set1_epi8(-64);
  __m512i previous = _mm512_setzero_si512();
  bool inside = false;  // the previous block ends inside a character
  std::size_t i = 0, continuations = 0;
  // Four blocks at a time, with one test for all: runs of ASCII at once,
  // anything else through the tables.
  while (n - i >= 256) {
    const __m512i v0 = _mm512_loadu_si512(p + i), v1 = _mm512_loadu_si512(p + i + 64);
    const __m512i v2 = _mm512_loadu_si512(p + i + 128), v3 = _mm512_loadu_si512(p + i + 192);
    const __m512i any = _mm512_or_si512(_mm512_or_si512(v0, v1), _mm512_or_si512(v2, v3));
    if (_mm512_movepi8_mask(any) == 0) {
      if (inside) break;
    } else {
      const __m512i errors = _mm512_ternarylogic_epi32(
          _mm512_or_si512(check.Errors(v0, previous), check.Errors(v1, v0)), check.Errors(v2, v1),
          check.Errors(v3, v2), 0xFE);  // a | b | c
      if (_mm512_test_epi8_mask(errors, errors) != 0) break;
      if (kCount) {
        continuations += PopCount(_mm512_cmplt_epi8_mask(v0, minusSixtyFour)) +
                         PopCount(_mm512_cmplt_epi8_mask(v1, minusSixtyFour)) +
                         PopCount(_mm512_cmplt_epi8_mask(v2, minusSixtyFour)) +
                         PopCount(_mm512_cmplt_epi8_mask(v3, minusSixtyFour));
      }
    }
    inside = Validator::EndsInside(v3);
    previous = v3;
    i += 256;
  }
  // Then one block at a time: the rest, or the four blocks that failed.
  while (true) {
    const std::size_t left = n - i;
    if (left == 0) break;
    // A block, or the end zero-padded: the padding then fails a character
    // that the input cuts off.
    const Mask64 valid = LowBits(left);
    const __m512i v =
        left >= 64 ? _mm512_loadu_si512(p + i) : _mm512_maskz_loadu_epi8(valid, p + i);
    const __m512i errors = check.Errors(v, previous);
    if (_mm512_test_epi8_mask(errors, errors) != 0) break;
    if (left == 64 && Validator::EndsInside(v)) break;  // cut off at the end
    if (kCount) continuations += PopCount(_mm512_cmplt_epi8_mask(v, minusSixtyFour) & valid);
    if (left <= 64) {
      i = n;
      inside = false;
      break;
    }
    previous = v;
    i += 64;
  }
  // Block i failed, or the input ends inside a character: back up to the
  // start of the character that crosses i, whose continuation bytes were
  // not counted.
  const std::size_t start = i < n || inside ? CharacterStart(p, i) : n;
  if (kCount) *characters += start - continuations + (start < i ? i - start - 1 : 0);
  return start;
}

bool ValidateUTF8AVX512(const unsigned char* p, std::size_t n, std::size_t* characters) {
  if (n <= 64 && _mm512_movepi8_mask(_mm512_maskz_loadu_epi8(LowBits(n), p)) == 0) {  // short ASCII
    if (characters != nullptr) *characters = n;
    return true;
  }
  std::size_t count = 0, i = 0;
  while (true) {
    i += characters != nullptr ? StandardPrefix<true>(p + i, n - i, &count)
                               : StandardPrefix<false>(p + i, n - i, nullptr);
    if (i == n) break;
    // The exact rules from the start of the character that failed, one
    // block and a little on; then the vector path again.
    if (!ValidateSteps(p, n, &i, i + 80, &count)) return false;
    if (i == n) break;
  }
  if (characters != nullptr) *characters = count;
  return true;
}

// ---------------------------------------------------------------------------
// Decoding, 64 bytes at a time.
//
// Where characters continue is known from the lead bytes alone (a byte of at
// least C0, E0 or F0 is followed by one, two or three continuation bytes);
// where that differs from where the continuation bytes are, the text is
// legal only under the lenient rules (ED 41 80), and the block goes to the
// scalar steps. Otherwise the positions where characters end are compressed
// into a list, and the differences of successive entries are the lengths of
// the characters. For each sixteen characters a byte permutation gathers the
// four bytes that end at each end into a 32-bit lane (reaching back into
// the previous block for a character that started there); a mask chosen by
// the length keeps the character's payload bits, and two multiply-adds put
// them together.

struct Decoder {
  const unsigned char* p;
  std::size_t n;
  wchar_t* out;
  std::size_t boundary = 0;  // where the first character not yet written starts
  Mask64 carry = 0;          // continuation bytes the previous block requires
  int lastEnd = -1;          // where the last character written ends, from s
  __m512i previous = _mm512_setzero_si512();

  // Decodes the block at s (64 bytes or the rest); false, writing nothing,
  // if it is not standard UTF-8 after what came before.
  bool Block(std::size_t s) {
    const std::size_t left = n - s;
    const Mask64 valid = LowBits(left);
    const __m512i v =
        left >= 64 ? _mm512_loadu_si512(p + s) : _mm512_maskz_loadu_epi8(valid, p + s);
    const Mask64 continuation = _mm512_cmplt_epi8_mask(v, _mm512_set1_epi8(-64));
    const Mask64 lead2 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xC0)));
    const Mask64 lead3 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const Mask64 lead4 = _mm512_cmpge_epu8_mask(v, _mm512_set1_epi8(static_cast<char>(0xF0)));
    const Mask64 must = lead2 << 1 | lead3 << 2 | lead4 << 3 | carry;
    if (must != continuation) return false;
    const Mask64 next = lead2 >> 63 | lead3 >> 62 | lead4 >> 61;
    if ((continuation | lead2) == 0) {
      const std::size_t count = left < 64 ? left : 64;
      WriteAscii(v, count);
      boundary = s + count;
      lastEnd = static_cast<int>(count) - 1;
    } else {
      const Mask64 ends = ~(must >> 1 | next << 63) & valid;
      WriteCharacters(v, ends, left >= 320);
      if (ends != 0) {
        lastEnd = 63 - __builtin_clzll(ends);
        boundary = s + static_cast<std::size_t>(lastEnd) + 1;
      }
    }
    lastEnd -= 64;
    carry = next;
    previous = v;
    return true;
  }

  // Widens the first `count` bytes of `v` (all ASCII).
  void WriteAscii(__m512i v, std::size_t count) {
    if (count == 64) {
      _mm512_storeu_si512(out, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(v, 0)));
      _mm512_storeu_si512(out + 16, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(v, 1)));
      _mm512_storeu_si512(out + 32, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(v, 2)));
      _mm512_storeu_si512(out + 48, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(v, 3)));
    } else {
      for (std::size_t k = 0; k < count; k += 16) {
        _mm512_mask_storeu_epi32(out + k, static_cast<__mmask16>(LowBits(count - k)),
                                 _mm512_cvtepu8_epi32(_mm512_castsi512_si128(v)));
        v = _mm512_alignr_epi32(v, v, 4);  // the next 16 bytes down
      }
    }
    out += count;
  }

  // Writes the characters of block `v` that end where `ends` has a bit.
  // When `roomy`, 256 more bytes follow the block, so 64 more characters at
  // least, and whole groups of sixteen may be stored past its characters:
  // two groups, or four when there are more than 32 characters, a choice
  // that stays the same from block to block in text of one script.
  void WriteCharacters(__m512i v, Mask64 ends, bool roomy) {
    const __m512i positions = _mm512_set_epi8(
        63, 62, 61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48, 47, 46, 45, 44, 43, 42, 41,
        40, 39, 38, 37, 36, 35, 34, 33, 32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18,
        17, 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    const __m512i endList = _mm512_maskz_compress_epi8(ends, positions);
    // Each entry's predecessor: the list moved up one byte, after the end
    // of the last character before the block.
    const __m512i before = _mm512_mask_set1_epi8(
        _mm512_permutexvar_epi8(_mm512_sub_epi8(positions, _mm512_set1_epi8(1)), endList), 1,
        static_cast<char>(lastEnd));
    const __m512i lengths = _mm512_sub_epi8(endList, before);
    const std::size_t count = PopCount(ends);
    if (roomy) {
      _mm512_storeu_si512(out, Group(v, endList, lengths, 0));
      _mm512_storeu_si512(out + 16, Group(v, endList, lengths, 1));
      if (count > 32) {
        _mm512_storeu_si512(out + 32, Group(v, endList, lengths, 2));
        _mm512_storeu_si512(out + 48, Group(v, endList, lengths, 3));
      }
    } else {
      for (std::size_t k = 0; k < count; k += 16) {
        _mm512_mask_storeu_epi32(out + k, static_cast<__mmask16>(LowBits(count - k)),
                                 Group(v, endList, lengths, static_cast<int>(k / 16)));
      }
    }
    out += count;
  }

  // The code points of the characters at entries 16g to 16g + 15 of
  // `endList` (their last bytes' positions in block `v`) and `lengths`.
  __m512i Group(__m512i v, __m512i endList, __m512i lengths, int g) const {
    // Lane k: four copies of entry 16g + k of the list.
    const __m512i pick = _mm512_add_epi8(
        _mm512_set_epi8(15, 15, 15, 15, 14, 14, 14, 14, 13, 13, 13, 13, 12, 12, 12, 12, 11, 11, 11,
                        11, 10, 10, 10, 10, 9, 9, 9, 9, 8, 8, 8, 8, 7, 7, 7, 7, 6, 6, 6, 6, 5, 5, 5,
                        5, 4, 4, 4, 4, 3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0),
        _mm512_set1_epi8(static_cast<char>(16 * g)));
    // Byte j of a lane: the byte 3 - j before the end, where negative
    // positions (as 7-bit indexes) pick from the previous block.
    const __m512i at =
        _mm512_sub_epi8(_mm512_permutexvar_epi8(pick, endList), _mm512_set1_epi32(0x00010203));
    const __m512i bytes = _mm512_permutex2var_epi8(v, at, previous);
    // The payload bits of a character of each length, in lane order.
    const __m512i length = _mm512_maskz_permutexvar_epi8(0x1111111111111111ULL, pick, lengths);
    const __m512i masks = _mm512_permutexvar_epi32(
        length, _mm512_set_epi32(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x3F3F3F07, 0x3F3F0F00,
                                 0x3F1F0000, 0x7F000000, 0));
    const __m512i bits = _mm512_and_si512(bytes, masks);
    // (b0 * 64 + b1) * 4096 + (b2 * 64 + b3)
    return _mm512_madd_epi16(_mm512_maddubs_epi16(bits, _mm512_set1_epi16(0x0140)),
                             _mm512_set1_epi32(0x00011000));
  }
};

void DecodeValidUTF8AVX512(const unsigned char* p, std::size_t n, wchar_t* out) {
  std::size_t i = 0;
  while (i < n) {
    Decoder decoder{p + i, n - i, out};
    std::size_t s = 0;
    while (s < decoder.n && decoder.Block(s)) s += 64;
    out = decoder.out;
    if (s >= decoder.n) return;
    // Not standard: the exact steps from the character that crosses s.
    i += decoder.boundary;
    DecodeSteps(p, n, &i, i + 72, &out);
  }
}

// ---------------------------------------------------------------------------
// Encoding sixteen code points (at most 0x10FFFF; surrogates as themselves)
// into UTF-8: each lane builds its one to four bytes in a 32-bit word, and
// the bytes that count are compressed together and stored.

struct ByteTable {
  char entry[64];
};

inline __m512i Load(const ByteTable& table) { return _mm512_loadu_si512(table.entry); }

// By the leading zero bits of a code point (11 to 32), its UTF-8 length, or
// 8 times the bytes that length is short of 4; 0 at index 0, so that the
// other bytes of a 32-bit lane stay 0.
constexpr ByteTable MakeZerosTable(bool shift) {
  ByteTable table{};
  for (int zeros = 11; zeros <= 32; ++zeros) {
    const int length = zeros >= 25 ? 1 : zeros >= 21 ? 2 : zeros >= 16 ? 3 : 4;
    table.entry[zeros] = static_cast<char>(shift ? 8 * (4 - length) : length);
  }
  return table;
}

constexpr ByteTable kLengthByZeros = MakeZerosTable(false);
constexpr ByteTable kShiftByZeros = MakeZerosTable(true);

// `points`: the code points; `skip`: lanes that write nothing (the second
// unit of a UTF-16 pair, lanes past the end). Returns the bytes written.
// With `whole`, stores a whole vector: the caller knows that 64 bytes after
// `out` may be written (they will be overwritten later).
inline std::size_t EncodePoints(__m512i points, __mmask16 skip, char* out, bool whole) {
  // The length in bytes, and 8 times the bytes it is short of 4, by the
  // number of leading zero bits.
  const __m512i zeros = _mm512_lzcnt_epi32(points);
  const __m512i length = _mm512_permutexvar_epi8(zeros, Load(kLengthByZeros));
  const __m512i shift = _mm512_permutexvar_epi8(zeros, Load(kShiftByZeros));
  // The six-bit groups, first to last, as bytes 3, 2, 1, 0 of a word; the
  // word shifted right by 4 - length bytes holds the character's groups in
  // order, and the markers of its length complete it. ASCII stays itself.
  const __m512i groups = _mm512_ternarylogic_epi32(
      _mm512_slli_epi32(_mm512_and_si512(points, _mm512_set1_epi32(0x3F)), 24),
      _mm512_slli_epi32(points, 10), _mm512_set1_epi32(0x3F0000), 0xF8);  // a | b & c
  const __m512i low =
      _mm512_ternarylogic_epi32(_mm512_srli_epi32(points, 4), _mm512_set1_epi32(0x3F00),
                                _mm512_srli_epi32(points, 18), 0xEA);  // a & b | c
  const __m512i markers = _mm512_permutexvar_epi32(
      length, _mm512_set_epi32(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<int>(0x808080F0),
                               0x8080E0, 0x80C0, 0, 0));
  __m512i words = _mm512_or_si512(_mm512_srlv_epi32(_mm512_or_si512(groups, low), shift), markers);
  words = _mm512_mask_mov_epi32(words, _mm512_cmplt_epu32_mask(points, _mm512_set1_epi32(0x80)),
                                points);
  // Byte j of a lane counts when j < the lane's length (copied to its bytes).
  const __m512i lengthBytes = _mm512_shuffle_epi8(
      length, _mm512_broadcast_i32x4(_mm_setr_epi32(0, 0x04040404, 0x08080808, 0x0C0C0C0C)));
  Mask64 keep = _mm512_cmplt_epu8_mask(_mm512_set1_epi32(0x03020100), lengthBytes);
  if (skip != 0) keep &= ~(_pdep_u64(skip, 0x1111111111111111ULL) * 0xF);
  const __m512i packed = _mm512_maskz_compress_epi8(keep, words);
  const std::size_t written = PopCount(keep);
  if (whole) {
    _mm512_storeu_si512(out, packed);
  } else {
    _mm512_mask_storeu_epi8(out, LowBits(written), packed);
  }
  return written;
}

// Stores the low byte of each of the first `count` lanes (all ASCII).
inline void StoreAscii(__m512i points, std::size_t count, char* out) {
  _mm_mask_storeu_epi8(out, static_cast<__mmask16>(LowBits(count)), _mm512_cvtepi32_epi8(points));
}

// Encodes 32 code points below 0x800 in 16-bit lanes (the common case of
// Latin, Greek, Cyrillic, Hebrew and Arabic text): one or two bytes each,
// built in the lane and compressed together. Stores a whole vector.
inline std::size_t EncodeBelow800(__m512i units, char* out) {
  const __mmask32 two = _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x80));
  // Two bytes: C0 | u >> 6, then 80 | u & 3F.
  const __m512i pair = _mm512_ternarylogic_epi32(
      _mm512_srli_epi16(units, 6),
      _mm512_slli_epi16(_mm512_and_si512(units, _mm512_set1_epi16(0x3F)), 8),
      _mm512_set1_epi16(static_cast<short>(0x80C0)), 0xFE);  // a | b | c
  const __m512i words = _mm512_mask_mov_epi16(units, two, pair);
  const Mask64 keep = 0x5555555555555555ULL | _pdep_u64(two, 0xAAAAAAAAAAAAAAAAULL);
  _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(keep, words));
  return 32 + PopCount(two);
}

// Whether all 32 16-bit lanes are below 0x800.
inline bool Below800(__m512i units) {
  return _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x800)) == 0;
}

// The encoders go 64 units at a time, storing whole vectors, while at least
// this many units remain. A group of 16 units writes at least 15 bytes (16,
// or 15 when its first unit ends a pair), so the vector it stores reaches at
// most 49 bytes past them; the 64 units or more that follow the last group
// write at least 63 bytes, over what it left.
const std::size_t kWholeStores = 128;

bool ScanWideAVX512(const wchar_t* w, std::size_t n, std::size_t* utf8Bytes, bool* hasZero) {
  std::size_t bytes = n;
  __mmask16 bad = 0, zero = 0;
  for (std::size_t i = 0; i < n; i += 16) {
    const __mmask16 valid = static_cast<__mmask16>(LowBits(n - i));
    const __m512i v = _mm512_maskz_loadu_epi32(valid, w + i);
    bad |= _mm512_cmpgt_epu32_mask(v, _mm512_set1_epi32(0x10FFFF));
    zero |= _mm512_mask_cmpeq_epi32_mask(valid, v, _mm512_setzero_si512());
    bytes += PopCount(_mm512_cmpgt_epu32_mask(v, _mm512_set1_epi32(0x7F))) +
             PopCount(_mm512_cmpgt_epu32_mask(v, _mm512_set1_epi32(0x7FF))) +
             PopCount(_mm512_cmpgt_epu32_mask(v, _mm512_set1_epi32(0xFFFF)));
  }
  if (bad != 0) return false;
  *utf8Bytes = bytes;
  *hasZero = zero != 0;
  return true;
}

// 32 units below 0x10000, from 32-bit lanes to 16-bit ones.
inline __m512i Narrow(__m512i low, __m512i high) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(low)),
                            _mm512_cvtepi32_epi16(high), 1);
}

void EncodeWideAVX512(const wchar_t* w, std::size_t n, char* out) {
  std::size_t i = 0;
  for (; n - i >= kWholeStores; i += 64) {
    const __m512i v0 = _mm512_loadu_si512(w + i), v1 = _mm512_loadu_si512(w + i + 16);
    const __m512i v2 = _mm512_loadu_si512(w + i + 32), v3 = _mm512_loadu_si512(w + i + 48);
    const __m512i any = _mm512_or_si512(_mm512_or_si512(v0, v1), _mm512_or_si512(v2, v3));
    if (_mm512_cmpge_epu32_mask(any, _mm512_set1_epi32(0x80)) == 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm512_cvtepi32_epi8(v0));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), _mm512_cvtepi32_epi8(v1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 32), _mm512_cvtepi32_epi8(v2));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 48), _mm512_cvtepi32_epi8(v3));
      out += 64;
      continue;
    }
    if (_mm512_cmpge_epu32_mask(any, _mm512_set1_epi32(0x800)) == 0) {
      // All below 0x800: as 16-bit units.
      out += EncodeBelow800(Narrow(v0, v1), out);
      out += EncodeBelow800(Narrow(v2, v3), out);
      continue;
    }
    out += EncodePoints(v0, 0, out, true);
    out += EncodePoints(v1, 0, out, true);
    out += EncodePoints(v2, 0, out, true);
    out += EncodePoints(v3, 0, out, true);
  }
  for (; i < n; i += 16) {
    const std::size_t count = n - i < 16 ? n - i : 16;
    const __mmask16 valid = static_cast<__mmask16>(LowBits(count));
    const __m512i v = _mm512_maskz_loadu_epi32(valid, w + i);
    if (_mm512_cmpge_epu32_mask(v, _mm512_set1_epi32(0x80)) == 0) {
      StoreAscii(v, count, out);
      out += count;
    } else {
      out += EncodePoints(v, static_cast<__mmask16>(~valid), out, false);
    }
  }
}

// ---------------------------------------------------------------------------
// UTF-16: a high surrogate followed by a low one is one code point, written
// in the high surrogate's lane; every other unit, unpaired surrogates
// included, is a code point of its own.

std::size_t ScanUTF16AVX512(const unsigned short* u, std::size_t n, bool* hasZero) {
  std::size_t bytes = n;
  Mask64 zero = 0;
  const __m512i top = _mm512_set1_epi16(static_cast<short>(0xFC00));
  for (std::size_t i = 0; i < n; i += 32) {
    const Mask64 valid = LowBits(n - i);
    const __m512i v = _mm512_maskz_loadu_epi16(static_cast<__mmask32>(valid), u + i);
    zero |= _mm512_mask_cmpeq_epi16_mask(static_cast<__mmask32>(valid), v, _mm512_setzero_si512());
    const __m512i kind = _mm512_and_si512(v, top);
    const Mask64 high =
        _mm512_cmpeq_epi16_mask(kind, _mm512_set1_epi16(static_cast<short>(0xD800)));
    Mask64 low = _mm512_cmpeq_epi16_mask(kind, _mm512_set1_epi16(static_cast<short>(0xDC00)));
    if (n - i > 32 && (u[i + 32] & 0xFC00) == 0xDC00) low |= Mask64(1) << 32;
    bytes += PopCount(_mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x80))) +
             PopCount(_mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x800))) -
             2 * PopCount(high & (low >> 1));
  }
  *hasZero = zero != 0;
  return bytes;
}

// Encodes the 16 units at u (`valid` says which exist; `ahead`, which of the
// 16 after the first exist). `carry`: the unit before began a pair; on
// return, whether the last one does.
inline std::size_t EncodeUTF16Group(const unsigned short* u, __mmask16 valid, __mmask16 ahead,
                                    __mmask16& carry, char* out, bool whole) {
  const __m512i top = _mm512_set1_epi32(0xFC00);
  const __m512i v = _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(valid, u));
  const __m512i next = _mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(ahead, u + 1));
  const __mmask16 high =
      _mm512_cmpeq_epi32_mask(_mm512_and_si512(v, top), _mm512_set1_epi32(0xD800));
  const __mmask16 nextLow =
      _mm512_cmpeq_epi32_mask(_mm512_and_si512(next, top), _mm512_set1_epi32(0xDC00));
  const __mmask16 lead = high & nextLow;
  const __mmask16 tail = static_cast<__mmask16>(lead << 1 | carry);
  carry = static_cast<__mmask16>(lead >> 15);
  // A pair's code point: (high - D800) << 10 + (low - DC00) + 10000.
  const __m512i pair = _mm512_add_epi32(_mm512_slli_epi32(v, 10),
                                        _mm512_sub_epi32(next, _mm512_set1_epi32(0x35FDC00)));
  const __m512i points = _mm512_mask_mov_epi32(v, lead, pair);
  return EncodePoints(points, static_cast<__mmask16>(tail | ~valid), out, whole);
}

char* EncodeUTF16AVX512(const unsigned short* u, std::size_t n, char* out) {
  __mmask16 carry = 0;
  std::size_t i = 0;
  for (; n - i >= kWholeStores; i += 64) {
    const __m512i v0 = _mm512_loadu_si512(u + i), v1 = _mm512_loadu_si512(u + i + 32);
    if (carry == 0 &&
        _mm512_cmpge_epu16_mask(_mm512_or_si512(v0, v1), _mm512_set1_epi16(0x80)) == 0) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm512_cvtepi16_epi8(v0));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32), _mm512_cvtepi16_epi8(v1));
      out += 64;
      continue;
    }
    if (carry == 0 && Below800(v0) && Below800(v1)) {
      out += EncodeBelow800(v0, out);
      out += EncodeBelow800(v1, out);
      continue;
    }
    const __m512i surrogate = _mm512_set1_epi16(static_cast<short>(0xD800));
    const __m512i kind = _mm512_set1_epi16(static_cast<short>(0xF800));
    if (carry == 0 && (_mm512_cmpeq_epi16_mask(_mm512_and_si512(v0, kind), surrogate) |
                       _mm512_cmpeq_epi16_mask(_mm512_and_si512(v1, kind), surrogate)) == 0) {
      // No surrogates: every unit is its code point.
      out += EncodePoints(_mm512_cvtepu16_epi32(_mm512_castsi512_si256(v0)), 0, out, true);
      out += EncodePoints(_mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(v0, 1)), 0, out, true);
      out += EncodePoints(_mm512_cvtepu16_epi32(_mm512_castsi512_si256(v1)), 0, out, true);
      out += EncodePoints(_mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(v1, 1)), 0, out, true);
      continue;
    }
    for (std::size_t k = 0; k < 64; k += 16) {
      out += EncodeUTF16Group(u + i + k, 0xFFFF, 0xFFFF, carry, out, true);
    }
  }
  while (i < n) {
    // Up to 32 ASCII units at once, else 16 units.
    const std::size_t count = n - i < 32 ? n - i : 32;
    const __mmask32 all = static_cast<__mmask32>(LowBits(count));
    const __m512i v = _mm512_maskz_loadu_epi16(all, u + i);
    if (carry == 0 && _mm512_cmpge_epu16_mask(v, _mm512_set1_epi16(0x80)) == 0) {
      _mm512_mask_cvtepi16_storeu_epi8(out, all, v);
      out += count;
      i += count;
      continue;
    }
    const __mmask16 valid = static_cast<__mmask16>(LowBits(n - i));
    const __mmask16 ahead = static_cast<__mmask16>(LowBits(n - i - 1));
    out += EncodeUTF16Group(u + i, valid, ahead, carry, out, false);
    i += 16;
  }
  return out;
}

}  // namespace

const Kernel* AVX512Kernel() {
  // The ASCII prefixes are AVX2's: their loops are bound by memory
  // traffic, which wider vectors do not reduce.
  const Kernel& avx2 = *AVX2Kernel();
  static const Kernel kernel = {"avx512",
                                ValidateUTF8AVX512,
                                DecodeValidUTF8AVX512,
                                ScanWideAVX512,
                                EncodeWideAVX512,
                                ScanUTF16AVX512,
                                EncodeUTF16AVX512,
                                avx2.widenAscii,
                                avx2.narrowAsciiWide,
                                avx2.narrowAsciiUTF16};
  return &kernel;
}

}  // namespace fast_utf
}  // namespace mvcs
