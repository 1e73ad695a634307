// Writing XML property lists (for exports): the tree to text, in the
// layout that plistlib and Apple's tools write.

#ifndef MORVSETTINGS_FORMAT_XMLPLISTWRITER_H
#define MORVSETTINGS_FORMAT_XMLPLISTWRITER_H

#include <string>

#include "PListTree.h"
#include "common/Status.h"

namespace mvcs {

// Writes `root` as an XML property list, version 1.0, in UTF-8. On success
// `text` receives it and the result is OK; otherwise `text` is untouched and
// the result is a refusal (step kSerialise).
//
// The layout: the XML declaration, the DOCTYPE line of Apple's property-list
// DTD, <plist version="1.0">, then one element per line, indented by one tab
// per level (the root dictionary at none, its entries at one), <dict/> and
// <array/> when empty, and "</plist>" with a newline last. Dictionaries list
// their keys in the tree's (byte) order.
//
// What each kind becomes:
//   integer     <integer>, in decimal: signed 64-bit, or unsigned 64-bit
//               for the ones marked `wide` (2^63 and up)
//   real        <real>, the shortest text that reads back to the same
//               double, in the form of Python's repr() ("0.1", "3.0",
//               "-0.0", "1e+300"); "inf", "-inf", and "nan" (or "-nan" when
//               the sign bit is set): XML has no way to carry a NaN's
//               payload, so every NaN reads back as the default one
//   boolean     <true/> or <false/>
//   string      <string>; '&', '<' and '>' as "&amp;", "&lt;" and "&gt;",
//               carriage return as "&#13;" (a literal one would read back
//               as a line feed); everything else as it is
//   data        <data>, in base64, on lines of their own as plistlib wraps
//               them (at most 76 columns, counting a tab as 8, and at least
//               16 characters a line)
//   date        <date>YYYY-MM-DDTHH:MM:SSZ</date>, in UTC: the whole seconds
//               at or before the value (fractions are dropped towards minus
//               infinity, as in "2000-12-31T23:59:59Z" for -0.5)
//   UID         <dict><key>CF$UID</key><integer>N</integer></dict>, N
//               unsigned (XML has no UIDs: that dictionary is what keyed
//               archives write in their place)
//   array, set  <array>
//   dictionary  <dict>, each entry a <key> followed by its value
//
// The refusals:
//   kBadText           a key or string holding a character that XML 1.0
//                      cannot carry (U+0000 to U+0008, U+000B, U+000C,
//                      U+000E to U+001F, U+FFFE, U+FFFF), or that is not
//                      well-formed UTF-8
//   kNotAPropertyList  a date outside the years 1 to 9999, or NaN
//   kTooDeep           containers nested deeper than kMaxNesting
//                      (PListLimits.h), the root counted as 1 and a UID's
//                      dictionary counted as a level
//   kTooLarge          text longer than kMaxSettingsFileSize
// so that the XML reader never refuses what was written. The messages of
// all but kTooLarge name the entry by its key path: the keys from the root
// down, joined by '/', an array item as "[i]" (its index from 0), so
// "Servers/[2]/Name" is the entry "Name" of the third item of the array
// "Servers"; in a path, characters that XML cannot carry are shown as
// "\uXXXX" and bytes that are no UTF-8 as "\xNN". For example:
//   the string at "Server/Name" holds U+0001, which XML cannot carry
//   the key at "Server/Na\u0001me" holds U+0001, which XML cannot carry
//   the date at "Backup/When" lies outside the years 1 to 9999 that XML
//   dates can carry
//   the date at "Dates/[1]" is not a number
Status WriteXmlPList(const PListDictionary& root, std::string& text);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_XMLPLISTWRITER_H
