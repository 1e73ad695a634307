// Writing XML property lists (for exports): the tree to text.

#ifndef MORVSETTINGS_FORMAT_XMLPLISTWRITER_H
#define MORVSETTINGS_FORMAT_XMLPLISTWRITER_H

#include <string>

#include "PListTree.h"
#include "common/Status.h"

namespace mvcs {

// Writes `root` as an XML property list (version 1.0); sets are written as
// arrays. OK with `text` set; otherwise `text` is untouched and the result
// is a refusal (step kSerialise).
Status WriteXmlPList(const PListDictionary& root, std::string& text);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_XMLPLISTWRITER_H
