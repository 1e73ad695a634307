/* Buffer-to-buffer conversions between UTF-8, UTF-16 and UTF-32, a UTF-8
 * legality test and the UTF-8 trail-byte count.
 *
 * These follow the Unicode Consortium's reference conversion routines in
 * interface, result codes and tables, including their quirks:
 *  - every converter takes (pointer to the source start, source end, pointer
 *    to the target start, target end, flags). End pointers point one past the
 *    last unit. On return, whatever the result, *sourceStart points at the
 *    first source unit not consumed and *targetStart at the first target unit
 *    not written. A character is converted whole or not at all.
 *  - flags: strictConversion (0) or anything else, which means lenient.
 *  - lenient UTF-16 -> UTF-32/UTF-8 passes an unpaired surrogate through as
 *    its own code point; the other directions replace surrogates with U+FFFD.
 *  - a UTF-32 value above 0x10FFFF does not stop ConvertUTF32toUTF8,
 *    ConvertUTF8toUTF32 or strict ConvertUTF32toUTF16: the result becomes
 *    sourceIllegal and the rest is converted (a later targetExhausted or
 *    sourceExhausted replaces it).
 *  - after the lead bytes 0xED and 0xF4 only an upper bound is checked on
 *    the second byte: ED 41 80 is accepted and decodes to U+C040.
 * The functions keep no state, allocate nothing and never throw.
 */

#ifndef MORVSTRING_CONVERTUTF_H
#define MORVSTRING_CONVERTUTF_H

#include "MorvString/MorvStringExport.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned int UTF32;    /* one code point */
typedef unsigned short UTF16;  /* one UTF-16 code unit */
typedef unsigned char UTF8;    /* one UTF-8 code unit */
typedef unsigned char Boolean; /* 1 true, 0 false */

#define UNI_REPLACEMENT_CHAR (UTF32)0x0000FFFD
#define UNI_MAX_BMP (UTF32)0x0000FFFF
#define UNI_MAX_UTF16 (UTF32)0x0010FFFF
#define UNI_MAX_LEGAL_UTF32 (UTF32)0x0010FFFF
#define UNI_SUR_HIGH_START (UTF32)0xD800
#define UNI_SUR_HIGH_END (UTF32)0xDBFF
#define UNI_SUR_LOW_START (UTF32)0xDC00
#define UNI_SUR_LOW_END (UTF32)0xDFFF

typedef enum {
  conversionOK = 0,    /* the whole source was converted */
  sourceExhausted = 1, /* the source ends inside a character */
  targetExhausted = 2, /* the next character does not fit in the target */
  sourceIllegal = 3    /* the source holds an ill-formed unit or sequence */
} ConversionResult;

typedef enum { strictConversion = 0, lenientConversion = 1 } ConversionFlags;

MORVSTRING_API ConversionResult ConvertUTF32toUTF16(const UTF32** sourceStart,
                                                    const UTF32* sourceEnd, UTF16** targetStart,
                                                    UTF16* targetEnd, ConversionFlags flags);

MORVSTRING_API ConversionResult ConvertUTF16toUTF32(const UTF16** sourceStart,
                                                    const UTF16* sourceEnd, UTF32** targetStart,
                                                    UTF32* targetEnd, ConversionFlags flags);

MORVSTRING_API ConversionResult ConvertUTF16toUTF8(const UTF16** sourceStart,
                                                   const UTF16* sourceEnd, UTF8** targetStart,
                                                   UTF8* targetEnd, ConversionFlags flags);

MORVSTRING_API ConversionResult ConvertUTF32toUTF8(const UTF32** sourceStart,
                                                   const UTF32* sourceEnd, UTF8** targetStart,
                                                   UTF8* targetEnd, ConversionFlags flags);

MORVSTRING_API ConversionResult ConvertUTF8toUTF32(const UTF8** sourceStart, const UTF8* sourceEnd,
                                                   UTF32** targetStart, UTF32* targetEnd,
                                                   ConversionFlags flags);

MORVSTRING_API ConversionResult ConvertUTF8toUTF16(const UTF8** sourceStart, const UTF8* sourceEnd,
                                                   UTF16** targetStart, UTF16* targetEnd,
                                                   ConversionFlags flags);

/* Whether the UTF-8 sequence that starts at `source` is complete (it ends at
 * or before `sourceEnd`) and well formed under the rules above. False when
 * source is null or not before sourceEnd. */
MORVSTRING_API Boolean isLegalUTF8Sequence(const UTF8* source, const UTF8* sourceEnd);

/* The number of bytes that follow the lead byte `first` in its sequence:
 * 0 for 00-BF (so a stray trail byte counts as a one-byte sequence), 1 for
 * C0-DF, 2 for E0-EF, 3 for F0-F7, 4 for F8-FB, 5 for FC-FF. */
MORVSTRING_API int getTrailingBytesForUTF8(UTF8 first);

#ifdef __cplusplus
}
#endif

#endif /* MORVSTRING_CONVERTUTF_H */
