// The in-memory copy of a settings file: reference-counted dictionaries whose
// entries are child dictionaries or values.
//
// A dictionary lives as long as anyone holds it, also after it has been
// removed from its parent (a settings node keeps its key dictionary), which
// is why the store keeps its own tree rather than libplist's: libplist frees
// a subtree as soon as it leaves its parent.

#ifndef MORVSETTINGS_PLISTTREE_H
#define MORVSETTINGS_PLISTTREE_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "RefCountedObject.h"
#include "mvtl/RefCountedPtr.h"

namespace mvcs {

// The deepest nesting of containers (dictionaries, arrays) that a settings
// file may have, the root counted as 1. Deeper files are refused as
// unreadable, and the store creates no key that would go deeper.
constexpr std::size_t kMaxNesting = 128;

class PListDictionary;

// An integer: the 64 bits as stored. `wide` marks a value of 2^63 or more
// that the file holds as a 16-byte unsigned integer (where other writers
// put such values); it is written back the same way. The store itself
// writes every integer as signed 64-bit.
struct PListInteger {
  long long bits;
  bool wide;
};

// A real. Floats and doubles alike are kept and written as doubles.
struct PListReal {
  double value;
};

typedef std::vector<unsigned char> PListData;

// An entry of a kind that the store never writes (array, date, UID, ...):
// the parsed file's node, kept unchanged so that it is written back as it
// was read. Owns the node; shared and never modified.
class PListOpaque {
 public:
  explicit PListOpaque(void* node) : m_node(node) {}
  ~PListOpaque();  // frees the node (defined beside the file format)
  PListOpaque(const PListOpaque&) = delete;
  PListOpaque& operator=(const PListOpaque&) = delete;
  void* GetNode() const { return m_node; }

 private:
  void* m_node;
};

typedef mvtl::RefCountedPtr_STLSafe<PListDictionary> PListDictionaryRef;

// One entry: a child dictionary, an integer, a real, a boolean, a UTF-8
// string, data, or an opaque entry.
typedef std::variant<PListDictionaryRef, PListInteger, PListReal, bool, std::string, PListData,
                     std::shared_ptr<const PListOpaque>>
    PListValue;

// The dictionary that `value` holds, or null when it holds something else.
PListDictionary* AsDictionary(const PListValue& value);

// A dictionary: named entries, kept in key order. Counted: born at 0.
class PListDictionary : public RefCountedObject<mvtl::IRefCounted> {
 public:
  typedef std::map<std::string, PListValue> Entries;

  PListDictionary() {}
  PListDictionary(const PListDictionary&) = delete;
  PListDictionary& operator=(const PListDictionary&) = delete;

  // The entry under `key`, or null.
  const PListValue* Find(const std::string& key) const;

  // Adds or replaces the entry under `key`.
  void Set(const std::string& key, PListValue value);

  // Removes the entry under `key`, if there is one.
  void Remove(const std::string& key);

  const Entries& GetEntries() const { return m_entries; }

  // For merges (TreeMerge.h): the entries, to change values in place; all
  // of them, leaving this dictionary empty; and all of `other`'s, leaving
  // that one empty, in place of this one's.
  Entries& MutableEntries() { return m_entries; }
  Entries TakeEntries() {
    Entries taken;
    taken.swap(m_entries);
    return taken;
  }
  void TakeEntriesOf(PListDictionary& other) {
    m_entries.clear();
    m_entries.swap(other.m_entries);
  }

  // Whether a merge with the file on disk took this dictionary out of its
  // file's tree (another process removed or replaced its key). Nodes that
  // hold it then find their key again (see MorvSettings::Open).
  bool IsDetached() const { return m_detached; }
  // Marks this dictionary and every dictionary below it detached.
  void MarkDetached();

 private:
  ~PListDictionary() override {}

  Entries m_entries;
  bool m_detached = false;
};

}  // namespace mvcs

#endif  // MORVSETTINGS_PLISTTREE_H
