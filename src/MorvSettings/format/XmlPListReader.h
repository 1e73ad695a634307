// Reading XML property lists: the rare case (hand-made files, imports),
// kept apart from the binary format the store reads and writes every time.

#ifndef MORVSETTINGS_FORMAT_XMLPLISTREADER_H
#define MORVSETTINGS_FORMAT_XMLPLISTREADER_H

#include <cstddef>
#include <string>

#include "PListTree.h"
#include "common/Status.h"

namespace mvcs {

// Reads the XML property list `text` into a new tree. On success `root`
// receives it and the result is OK; otherwise `root` is untouched and the
// result is the refusal that says why (see ParsePropertyList).
//
// A file means what it means to Python's plistlib: it starts with "<?xml"
// or "<plist" (after a byte-order mark, in the encoding the mark names);
// its encoding is UTF-8, UTF-16, ISO-8859-1 or US-ASCII; entity
// declarations are refused and no DTD or external entity is ever loaded;
// elements other than the property-list ones are ignored, and a value's
// text is what follows the last tag before its end tag; values read as
// XmlPListValues.h says. Beyond plistlib, what the tree cannot hold is
// refused: integers outside -2^63 .. 2^64 - 1, containers nested deeper than
// kMaxNesting (elements of any kind deeper than 1024), a root that is not a
// dictionary, more than kMaxSettingsFileSize bytes. Time and memory are
// linear in the size of the text; nothing recurses.
Status ReadXmlPropertyList(const char* text, std::size_t size,
                           mvtl::RefCountedPtr<PListDictionary>& root);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_XMLPLISTREADER_H
