// The binary property-list reader ("bplist00"): bytes to tree in one pass,
// every structural check made as it goes.

#ifndef MORVSETTINGS_FORMAT_BINARYPLISTREADER_H
#define MORVSETTINGS_FORMAT_BINARYPLISTREADER_H

#include <cstddef>

#include "PListFormat.h"
#include "PListTree.h"

namespace mvcs {

// Reads the binary property list `bytes` into a new tree. On success `root`
// receives the tree and the result is OK; otherwise `root` is untouched and
// the result is the refusal that says why (see ParsePropertyList). Time and
// memory stay proportional to `size`, whatever the bytes hold.
Status ReadBinaryPropertyList(const unsigned char* bytes, std::size_t size,
                              mvtl::RefCountedPtr<PListDictionary>& root);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_BINARYPLISTREADER_H
