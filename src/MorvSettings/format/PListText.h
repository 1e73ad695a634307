// Text in property lists: which strings a settings file may hold, and the
// conversions between the binary format's UTF-16 strings and the tree's
// UTF-8 ones.
//
// Every key and string of a settings tree is well-formed UTF-8, U+0000
// included (other programs write such strings, and a file keeps them): a
// file holding anything else is refused, and the writer needs nothing else.
// Names and values that programs give the store are C strings, which cannot
// hold U+0000; that rule is the store's (SettingsText.h), not the format's.

#ifndef MORVSETTINGS_FORMAT_PLISTTEXT_H
#define MORVSETTINGS_FORMAT_PLISTTEXT_H

#include <cstddef>
#include <string>

namespace mvcs {

// Whether `text` is well-formed UTF-8 (Unicode's definition: no overlong
// forms, no surrogates, nothing above U+10FFFF, nothing cut off).
bool IsWellFormedUTF8(const char* text, std::size_t size);
inline bool IsWellFormedUTF8(const std::string& text) {
  return IsWellFormedUTF8(text.data(), text.size());
}

// The length of the well-formed UTF-8 sequence that starts at `p` (before
// `end`) with a byte of 0x80 or more: 2 to 4, or 0 when there is none (no
// overlong forms, no surrogates, nothing above U+10FFFF, nothing cut off).
std::size_t UTF8SequenceLength(const unsigned char* p, const unsigned char* end);

// Whether `text` is a string a settings tree may hold: well-formed UTF-8
// (U+0000 included).
inline bool IsTreeText(const char* text, std::size_t size) { return IsWellFormedUTF8(text, size); }
inline bool IsTreeText(const std::string& text) { return IsTreeText(text.data(), text.size()); }

// Whether all `size` bytes are ASCII (0 to 0x7F, U+0000 included): tree text
// that a binary property list holds as an ASCII string.
bool IsAsciiText(const char* text, std::size_t size);

// Appends the UTF-8 form of `units` big-endian UTF-16 units at `bytes` to
// `out` (a unit of 0 becomes U+0000). False (with `out` partly appended)
// when a surrogate is unpaired.
bool AppendUTF16BigEndianAsUTF8(const unsigned char* bytes, std::size_t units, std::string& out);

// Appends the big-endian UTF-16 form of well-formed UTF-8 `text` to `out`;
// returns the number of UTF-16 units.
std::size_t AppendUTF8AsUTF16BigEndian(const std::string& text, std::string& out);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_PLISTTEXT_H
