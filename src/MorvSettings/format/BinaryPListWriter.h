// The binary property-list writer ("bplist00", version 1.0): tree to bytes
// in time linear in the number of objects.

#ifndef MORVSETTINGS_FORMAT_BINARYPLISTWRITER_H
#define MORVSETTINGS_FORMAT_BINARYPLISTWRITER_H

#include <cstddef>
#include <string>

#include "PListFormat.h"
#include "PListTree.h"

namespace mvcs {

// Serialises `root` as a binary property list: equal strings (keys repeat
// across dictionaries) written once, the smallest reference and offset
// sizes. `expectedSize` is the size the result is likely to have (say, the
// file's previous version), 0 when unknown; it only sizes the writer's
// tables. On success `bytes` receives it and the result is OK; otherwise
// `bytes` is untouched and the result is a refusal (step kSerialise) that
// says why: kBadText for a string that is not tree text, kTooDeep for
// containers nested deeper than kMaxNesting, kTooLarge for a result larger
// than kMaxSettingsFileSize or one that ReadBinaryPropertyList would refuse
// as expanding too much. What it writes, ReadBinaryPropertyList reads back
// to an equal tree.
Status WriteBinaryPList(const PListDictionary& root, std::size_t expectedSize, std::string& bytes);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_BINARYPLISTWRITER_H
