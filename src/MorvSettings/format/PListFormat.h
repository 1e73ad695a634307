// The settings file format: property lists, bytes to tree and tree to
// bytes, and why bytes were refused. This is the one interface that the
// store uses; the rest of this folder (the tree, the binary reader and
// writer, the XML bridge, the limits) is behind it. It knows nothing of
// nodes, scopes, paths or files.
//
// Binary property lists ("bplist00") are read and written by the store's
// own reader and writer; XML ones are read (and exports written) through
// libplist.

#ifndef MORVSETTINGS_FORMAT_PLISTFORMAT_H
#define MORVSETTINGS_FORMAT_PLISTFORMAT_H

#include <cstddef>
#include <string>

#include "PListTree.h"

namespace mvcs {

// Why bytes are not a settings property list, or a tree cannot be written.
enum class PListError {
  kNone = 0,
  kNotAPropertyList,  // neither format, or damaged: cut short, offsets, counts or
                      // references out of bounds, objects of unknown kinds, an
                      // object inside itself, a key that is not a string
  kNotADictionary,    // a property list whose root is not a dictionary
  kTooDeep,           // containers nested deeper than kMaxNesting (PListLimits.h)
  kTooLarge,          // more than kMaxSettingsFileSize, or a tree that would be far
                      // larger than its bytes (objects shared over and over)
  kBadText,           // a key or string that is not well-formed text, or holds U+0000
};

// A short description, for messages: "not a property list", ...
const char* DescribePListError(PListError error);

// Reads a property list, binary or XML, whose root is a dictionary. On
// success `root` receives the new tree and the result is true; otherwise
// `root` is untouched, the result is false and *error (when not null) says
// why.
bool ParsePropertyList(const std::string& bytes, mvtl::RefCountedPtr<PListDictionary>& root,
                       PListError* error = nullptr);

// Serialises the tree in the binary format, version 1.0. False (with
// `bytes` untouched and *error set) when it cannot be written so as to be
// read back: see WriteBinaryPList. `expectedSize` (the size of the file's
// previous version, if known) only makes the writing faster.
bool WriteBinaryPropertyList(const PListDictionary& root, std::string& bytes,
                             PListError* error = nullptr, std::size_t expectedSize = 0);

// The same in the XML format, version 1.0 (for exporting settings).
bool WriteXmlPropertyList(const PListDictionary& root, std::string& bytes,
                          PListError* error = nullptr);

// How deep the tree's containers nest, the root counted as 1.
std::size_t NestingDepth(const PListDictionary& root);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_PLISTFORMAT_H
