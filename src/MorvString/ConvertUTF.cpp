// The six UTF converters, the UTF-8 legality test and the trail-byte lookup.
//
// Table-driven, one pass, no allocation. The decoders sum the bytes of a
// sequence and subtract a per-length offset; the encoders write UTF-8 from
// the last byte backwards. Every converter is one loop over a reader of the
// source form and a writer of the target form (see Convert below).

#include "MorvString/ConvertUTF.h"

#include <cstddef>

namespace {

// Trail bytes that follow a lead byte; 80-BF count as one-byte sequences and
// F8-FF as five- and six-byte ones, which the legality test rejects.
const signed char trailingBytesForUTF8[256] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 00
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 10
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 20
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 30
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 40
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 50
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 60
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 70
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 80
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // 90
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // A0
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  // B0
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // C0
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // D0
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  // E0
    3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5,  // F0
};

// Subtracted from the summed bytes of a sequence with that many trail bytes.
const UTF32 offsetsFromUTF8[6] = {0x00000000UL, 0x00003080UL, 0x000E2080UL,
                                  0x03C82080UL, 0xFA082080UL, 0x82082080UL};

// OR-ed into the lead byte of a sequence of that total length.
const UTF8 firstByteMark[7] = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

const int halfShift = 10;
const UTF32 halfBase = 0x0010000UL;
const UTF32 halfMask = 0x3FFUL;
const UTF32 byteMark = 0x80;
const UTF32 byteMask = 0xBF;

inline bool IsStrict(ConversionFlags flags) { return flags == strictConversion; }

inline bool IsSurrogate(UTF32 ch) { return ch >= UNI_SUR_HIGH_START && ch <= UNI_SUR_LOW_END; }

// Legality of the `length` bytes at `source`, all of which are present.
Boolean isLegalUTF8(const UTF8* source, int length) {
  const UTF8* srcptr = source + length;
  UTF8 a;
  switch (length) {
    default:
      return 0;
    case 4:
      if ((a = (*--srcptr)) < 0x80 || a > 0xBF) return 0;
      [[fallthrough]];
    case 3:
      if ((a = (*--srcptr)) < 0x80 || a > 0xBF) return 0;
      [[fallthrough]];
    case 2:
      if ((a = (*--srcptr)) > 0xBF) return 0;
      switch (*source) {
        // Only an upper bound after ED and F4: a second byte below 0x80
        // passes there (so ED 41 80 decodes to U+C040): the lenient
        // rule that results are required to match.
        case 0xE0:
          if (a < 0xA0) return 0;
          break;
        case 0xED:
          if (a > 0x9F) return 0;
          break;
        case 0xF0:
          if (a < 0x90) return 0;
          break;
        case 0xF4:
          if (a > 0x8F) return 0;
          break;
        default:
          if (a < 0x80) return 0;
          break;
      }
      [[fallthrough]];
    case 1:
      if (*source >= 0x80 && *source < 0xC2) return 0;
  }
  if (*source > 0xF4) return 0;
  return 1;
}

// Reads one UTF-8 sequence at `source`. On conversionOK, `source` has moved
// past it, `ch` holds the decoded value and `extra` its trail-byte count. On
// sourceExhausted or sourceIllegal, `source` is unchanged.
inline ConversionResult ReadUTF8(const UTF8*& source, const UTF8* sourceEnd, UTF32& ch,
                                 int& extra) {
  extra = trailingBytesForUTF8[*source];
  if (extra >= sourceEnd - source) return sourceExhausted;
  if (!isLegalUTF8(source, extra + 1)) return sourceIllegal;
  ch = 0;
  switch (extra) {
    case 5:
      ch += *source++;
      ch <<= 6;
      [[fallthrough]];
    case 4:
      ch += *source++;
      ch <<= 6;
      [[fallthrough]];
    case 3:
      ch += *source++;
      ch <<= 6;
      [[fallthrough]];
    case 2:
      ch += *source++;
      ch <<= 6;
      [[fallthrough]];
    case 1:
      ch += *source++;
      ch <<= 6;
      [[fallthrough]];
    case 0:
      ch += *source++;
  }
  ch -= offsetsFromUTF8[extra];
  return conversionOK;
}

// Reads one UTF-16 character at `source`, combining a surrogate pair. A
// lenient read keeps an unpaired surrogate as its own value. On conversionOK
// `source` has moved past the character; otherwise it is unchanged.
inline ConversionResult ReadUTF16(const UTF16*& source, const UTF16* sourceEnd,
                                  ConversionFlags flags, UTF32& ch) {
  const UTF16* p = source;
  ch = *p++;
  if (ch >= UNI_SUR_HIGH_START && ch <= UNI_SUR_HIGH_END) {
    if (p >= sourceEnd) return sourceExhausted;
    const UTF32 ch2 = *p;
    if (ch2 >= UNI_SUR_LOW_START && ch2 <= UNI_SUR_LOW_END) {
      ch = ((ch - UNI_SUR_HIGH_START) << halfShift) + (ch2 - UNI_SUR_LOW_START) + halfBase;
      ++p;
    } else if (IsStrict(flags)) {
      return sourceIllegal;
    }
  } else if (IsStrict(flags) && ch >= UNI_SUR_LOW_START && ch <= UNI_SUR_LOW_END) {
    return sourceIllegal;
  }
  source = p;
  return conversionOK;
}

// The UTF-8 length of `ch`; a value above 0x10FFFF is replaced by U+FFFD
// (three bytes) and reported through `replaced`.
inline int UTF8Length(UTF32& ch, bool& replaced) {
  replaced = false;
  if (ch < 0x80) return 1;
  if (ch < 0x800) return 2;
  if (ch < 0x10000) return 3;
  if (ch <= UNI_MAX_LEGAL_UTF32) return 4;
  ch = UNI_REPLACEMENT_CHAR;
  replaced = true;
  return 3;
}

// Writes `ch` as `length` UTF-8 bytes, back to front. False, with nothing
// written, when the bytes do not fit before `targetEnd`.
inline bool WriteUTF8Bytes(UTF32 ch, int length, UTF8*& target, UTF8* targetEnd) {
  if (target > targetEnd || length > targetEnd - target) return false;
  UTF8* p = target + length;
  switch (length) {
    case 4:
      *--p = static_cast<UTF8>((ch | byteMark) & byteMask);
      ch >>= 6;
      [[fallthrough]];
    case 3:
      *--p = static_cast<UTF8>((ch | byteMark) & byteMask);
      ch >>= 6;
      [[fallthrough]];
    case 2:
      *--p = static_cast<UTF8>((ch | byteMark) & byteMask);
      ch >>= 6;
      [[fallthrough]];
    case 1:
      *--p = static_cast<UTF8>(ch | firstByteMark[length]);
  }
  target += length;
  return true;
}

// ---------------------------------------------------------------------------
// The converters are one loop (Convert) over a reader, which takes one
// character from the source, and a writer, which puts it into the target.
// The documented differences between the six converters are differences
// between readers and writers, named by the writers' template flags.

// A reader's answer is conversionOK (the character is read and the source
// moved past it), sourceExhausted or sourceIllegal (the source unchanged).

struct ReadUTF8Character {
  ConversionResult operator()(const UTF8*& source, const UTF8* sourceEnd, ConversionFlags,
                              UTF32& ch) const {
    int extra;
    return ReadUTF8(source, sourceEnd, ch, extra);
  }
};

struct ReadUTF16Character {
  ConversionResult operator()(const UTF16*& source, const UTF16* sourceEnd, ConversionFlags flags,
                              UTF32& ch) const {
    return ReadUTF16(source, sourceEnd, flags, ch);
  }
};

struct ReadUTF32Character {
  ConversionResult operator()(const UTF32*& source, const UTF32*, ConversionFlags,
                              UTF32& ch) const {
    ch = *source++;
    return conversionOK;
  }
};

// What a writer did with one character.
enum WriteResult {
  kWritten,         // written (or skipped by rule); the conversion goes on
  kWrittenIllegal,  // as kWritten, and the final result becomes sourceIllegal
  kStopIllegal,     // nothing written; stop with sourceIllegal
  kStopTargetFull,  // nothing written; stop with targetExhausted
};

// UTF-32 target. The UTF-8 decoder replaces surrogate values (strict mode
// stops on them) and values above 0x10FFFF (noted, in both modes); the
// UTF-16 decoder passes every value through, unpaired surrogates included.
template <bool kReplaceSurrogates>
struct WriteUTF32 {
  WriteResult operator()(UTF32 ch, UTF32*& target, UTF32* targetEnd, ConversionFlags flags) const {
    if (target >= targetEnd) return kStopTargetFull;
    if (kReplaceSurrogates) {
      if (ch > UNI_MAX_LEGAL_UTF32) {
        *target++ = UNI_REPLACEMENT_CHAR;
        return kWrittenIllegal;
      }
      if (IsSurrogate(ch)) {
        if (IsStrict(flags)) return kStopIllegal;
        ch = UNI_REPLACEMENT_CHAR;
      }
    }
    *target++ = ch;
    return kWritten;
  }
};

// UTF-16 target. Surrogate values stop strict mode and are replaced in
// lenient mode. A value above 0x10FFFF is replaced in lenient mode; in
// strict mode the UTF-32 encoder skips it and goes on (kStopOnTooLarge
// false) while the UTF-8 decoder stops (true).
template <bool kStopOnTooLarge>
struct WriteUTF16 {
  WriteResult operator()(UTF32 ch, UTF16*& target, UTF16* targetEnd, ConversionFlags flags) const {
    if (target >= targetEnd) return kStopTargetFull;
    if (ch <= UNI_MAX_BMP) {
      if (IsSurrogate(ch)) {
        if (IsStrict(flags)) return kStopIllegal;
        ch = UNI_REPLACEMENT_CHAR;
      }
      *target++ = static_cast<UTF16>(ch);
      return kWritten;
    }
    if (ch > UNI_MAX_UTF16) {
      if (!IsStrict(flags)) {
        *target++ = static_cast<UTF16>(UNI_REPLACEMENT_CHAR);
        return kWritten;
      }
      return kStopOnTooLarge ? kStopIllegal : kWrittenIllegal;
    }
    if (target + 1 >= targetEnd) return kStopTargetFull;
    ch -= halfBase;
    *target++ = static_cast<UTF16>((ch >> halfShift) + UNI_SUR_HIGH_START);
    *target++ = static_cast<UTF16>((ch & halfMask) + UNI_SUR_LOW_START);
    return kWritten;
  }
};

// UTF-8 target. Strict mode stops on surrogate values (lenient mode encodes
// them as three bytes); a value above 0x10FFFF becomes U+FFFD, noted.
struct WriteUTF8 {
  WriteResult operator()(UTF32 ch, UTF8*& target, UTF8* targetEnd, ConversionFlags flags) const {
    if (IsStrict(flags) && IsSurrogate(ch)) return kStopIllegal;
    bool replaced;
    const int length = UTF8Length(ch, replaced);
    if (!WriteUTF8Bytes(ch, length, target, targetEnd)) return kStopTargetFull;
    return replaced ? kWrittenIllegal : kWritten;
  }
};

template <class S, class T, class Read, class Write>
ConversionResult Convert(const S** sourceStart, const S* sourceEnd, T** targetStart, T* targetEnd,
                         ConversionFlags flags, Read read, Write write) {
  ConversionResult result = conversionOK;
  const S* source = *sourceStart;
  T* target = *targetStart;
  while (source < sourceEnd) {
    const S* const characterStart = source;
    UTF32 ch;
    const ConversionResult readResult = read(source, sourceEnd, flags, ch);
    if (readResult != conversionOK) {
      result = readResult;
      break;
    }
    const WriteResult written = write(ch, target, targetEnd, flags);
    if (written == kStopIllegal || written == kStopTargetFull) {
      source = characterStart;  // the character is converted whole or not at all
      result = written == kStopIllegal ? sourceIllegal : targetExhausted;
      break;
    }
    if (written == kWrittenIllegal) result = sourceIllegal;
  }
  *sourceStart = source;
  *targetStart = target;
  return result;
}

}  // namespace

extern "C" {

ConversionResult ConvertUTF32toUTF16(const UTF32** sourceStart, const UTF32* sourceEnd,
                                     UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags) {
  return Convert(sourceStart, sourceEnd, targetStart, targetEnd, flags, ReadUTF32Character(),
                 WriteUTF16<false>());
}

ConversionResult ConvertUTF16toUTF32(const UTF16** sourceStart, const UTF16* sourceEnd,
                                     UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags) {
  return Convert(sourceStart, sourceEnd, targetStart, targetEnd, flags, ReadUTF16Character(),
                 WriteUTF32<false>());
}

ConversionResult ConvertUTF16toUTF8(const UTF16** sourceStart, const UTF16* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags) {
  return Convert(sourceStart, sourceEnd, targetStart, targetEnd, flags, ReadUTF16Character(),
                 WriteUTF8());
}

ConversionResult ConvertUTF32toUTF8(const UTF32** sourceStart, const UTF32* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags) {
  return Convert(sourceStart, sourceEnd, targetStart, targetEnd, flags, ReadUTF32Character(),
                 WriteUTF8());
}

ConversionResult ConvertUTF8toUTF32(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags) {
  return Convert(sourceStart, sourceEnd, targetStart, targetEnd, flags, ReadUTF8Character(),
                 WriteUTF32<true>());
}

ConversionResult ConvertUTF8toUTF16(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags) {
  return Convert(sourceStart, sourceEnd, targetStart, targetEnd, flags, ReadUTF8Character(),
                 WriteUTF16<true>());
}

Boolean isLegalUTF8Sequence(const UTF8* source, const UTF8* sourceEnd) {
  if (source == nullptr || source >= sourceEnd) return 0;
  const int length = trailingBytesForUTF8[*source] + 1;
  if (length > sourceEnd - source) return 0;
  return isLegalUTF8(source, length);
}

int getTrailingBytesForUTF8(UTF8 first) { return trailingBytesForUTF8[first]; }

}  // extern "C"
