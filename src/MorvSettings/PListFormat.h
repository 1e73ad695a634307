// The settings file format: property lists read (binary or XML) into the
// store's tree and written from it in the binary format, version 1.0 (or
// XML, for exports), all through libplist.

#ifndef MORVSETTINGS_PLISTFORMAT_H
#define MORVSETTINGS_PLISTFORMAT_H

#include <cstddef>
#include <string>

#include "PListTree.h"

namespace mvcs {

// Parses a property list whose root is a dictionary. On success `root`
// receives the new tree (with the reference `root` holds). False for
// anything else: not a property list, a root of another kind, or bytes that
// the input checks refuse (see PListInputCheck.h); `root` is then untouched.
bool ParsePropertyList(const std::string& bytes, mvtl::RefCountedPtr<PListDictionary>& root);

// Serialises the tree in the binary format, version 1.0. False (with
// `bytes` untouched) if libplist cannot, or if ParsePropertyList would
// refuse the result (a tree far larger than its file: see
// PListInputCheck.h), so that whatever is written can be read back.
bool WriteBinaryPropertyList(const PListDictionary& root, std::string& bytes);

// The same in the XML format, version 1.0 (for exporting settings).
bool WriteXmlPropertyList(const PListDictionary& root, std::string& bytes);

// How deep the tree's containers nest, the root counted as 1 (entries
// kept as they were read count with their own arrays and dictionaries).
std::size_t NestingDepth(const PListDictionary& root);

// What an entry kept as it was read holds.
enum class OpaqueKind { kArray, kDate, kOther };
OpaqueKind KindOf(const PListOpaque& opaque);

}  // namespace mvcs

#endif  // MORVSETTINGS_PLISTFORMAT_H
