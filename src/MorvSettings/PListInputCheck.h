// Checks that decide whether a settings file's bytes may be handed to
// libplist's parsers at all.
//
// libplist 2.2 has no nesting limit (its recursion can exhaust the stack)
// and does not share objects that a binary file references many times (a
// small file whose objects reference one another repeatedly expands
// exponentially). These checks walk the file's structure first, in linear
// time and memory, and refuse anything that could make a parser crash, hang
// or allocate without bound. A refused file is treated as unreadable.

#ifndef MORVSETTINGS_PLISTINPUTCHECK_H
#define MORVSETTINGS_PLISTINPUTCHECK_H

#include <cstddef>

namespace mvcs {

// A binary property list ("bplist00") may be parsed when: its trailer and
// offset table are consistent with its size; every object lies inside the
// object area and is of a kind libplist reads; every reference names an
// object; dictionary keys are strings; every string is text that libplist
// can write back as it was read (ASCII strings are plain ASCII, UTF-16
// strings pair their surrogates) and none holds U+0000 (libplist keeps such
// strings inconsistently: its dictionary iteration asserts on them and its
// copies cut them short); the root is a dictionary; no object
// contains itself; containers nest at most kMaxNesting deep; and the tree
// that parsing would build (every shared object copied at each of its
// uses) stays within a budget proportional to the file's size.
bool IsSafeBinaryPList(const unsigned char* bytes, std::size_t size);

// An XML property list may be parsed when it holds no NUL byte (for the
// same reason) and its containers (<dict>, <array>) nest at most
// kMaxNesting deep. (XML has no shared objects; its tree grows linearly with
// the text.)
bool IsSafeXmlPList(const char* text, std::size_t size);

}  // namespace mvcs

#endif  // MORVSETTINGS_PLISTINPUTCHECK_H
