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
// sizes; the same tree always gives the same bytes. On success `bytes`
// receives it and the result is OK; otherwise `bytes` is untouched and the
// result is a refusal (step kSerialise) that says why: kBadText for a
// string that is not tree text, kTooDeep for containers nested deeper than
// kMaxNesting (whichever the walk, depth first in key order, meets first),
// else kTooLarge for a result larger than kMaxSettingsFileSize or one that
// ReadBinaryPropertyList would refuse as expanding too much. What it
// writes, ReadBinaryPropertyList reads back to an equal tree. `previous`,
// the bytes of the tree's earlier version (say, the file before this save)
// when the caller has them, only saves the writer a count of the tree; the
// bytes written are the same with or without it.
Status WriteBinaryPList(const PListDictionary& root, std::string& bytes,
                        const std::string& previous = std::string());

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_BINARYPLISTWRITER_H
