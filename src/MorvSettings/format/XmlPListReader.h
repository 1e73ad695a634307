// Reading XML property lists: the rare case (hand-made files, imports),
// kept apart from the binary format the store reads and writes every time.

#ifndef MORVSETTINGS_FORMAT_XMLPLISTREADER_H
#define MORVSETTINGS_FORMAT_XMLPLISTREADER_H

#include <cstddef>
#include <string>

#include "PListFormat.h"
#include "PListTree.h"

namespace mvcs {

// Reads the XML property list `text` into a new tree. On success `root`
// receives it and the result is OK; otherwise `root` is untouched and the
// result is the refusal that says why (see ParsePropertyList). Text holding a NUL byte or
// containers nested deeper than kMaxNesting is refused before libplist sees it (libplist 2.2 has no
// nesting limit, and keeps strings holding U+0000 inconsistently).
Status ReadXmlPropertyList(const char* text, std::size_t size,
                           mvtl::RefCountedPtr<PListDictionary>& root);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_XMLPLISTREADER_H
