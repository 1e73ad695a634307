// The settings file format: property lists, bytes to tree and tree to
// bytes, and why bytes were refused (a Status refusal). This is the one interface that the
// store uses; the rest of this folder (the tree, the binary reader and
// writer, the XML reader and writer, the limits) is behind it. It knows nothing of
// nodes, scopes, paths or files.
//
// Binary property lists ("bplist00") and XML ones are read and written by
// the store's own readers and writers (XML through the expat parser).

#ifndef MORVSETTINGS_FORMAT_PLISTFORMAT_H
#define MORVSETTINGS_FORMAT_PLISTFORMAT_H

#include <cstddef>
#include <string>

#include "PListTree.h"
#include "common/Status.h"

namespace mvcs {

// Reads a property list, binary or XML, whose root is a dictionary. On
// success `root` receives the new tree and the result is OK; otherwise
// `root` is untouched and the result is a refusal (Status::IsRefused; step
// kParse, no file: the caller names it with WithPath) that says why:
//   kNotAPropertyList  neither format, or damaged: cut short, offsets, counts
//                      or references out of bounds, objects of unknown
//                      kinds, an object inside itself, a key that is not a
//                      string
//   kNotADictionary    a property list whose root is not a dictionary
//   kTooDeep           containers nested deeper than kMaxNesting
//                      (PListLimits.h)
//   kTooLarge          more than kMaxSettingsFileSize, or a tree that would
//                      be far larger than its bytes (objects shared over and
//                      over)
//   kBadText           a key or string that is not well-formed text:
//                      ill-formed UTF-8, an unpaired UTF-16 surrogate, a
//                      byte above 0x7F in an ASCII string (U+0000 is text
//                      like any other)
Status ParsePropertyList(const std::string& bytes, mvtl::RefCountedPtr<PListDictionary>& root);

// Serialises the tree in the binary format, version 1.0. A refusal (step
// kSerialise, with `bytes` untouched) when it cannot be written so as to be
// read back: see WriteBinaryPList. `previous` (the bytes of the file's
// earlier version, when known) only makes the writing faster.
Status WriteBinaryPropertyList(const PListDictionary& root, std::string& bytes,
                               const std::string& previous = std::string());

// The same in the XML format, version 1.0 (for exporting settings). XML
// cannot carry U+0000: a tree with a key or string holding one is refused
// (kBadText, step kSerialise, `bytes` untouched).
Status WriteXmlPropertyList(const PListDictionary& root, std::string& bytes);

// How deep the tree's containers nest, the root counted as 1.
std::size_t NestingDepth(const PListDictionary& root);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_PLISTFORMAT_H
