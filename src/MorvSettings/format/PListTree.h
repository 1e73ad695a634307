// The in-memory form of a property list: reference-counted dictionaries
// whose entries are child dictionaries or values.
//
// A dictionary lives as long as anyone holds it, also after it has been
// removed from its parent: a tree can be taken apart and put together again
// (a merge moves whole subtrees from one tree into another) without copies.

#ifndef MORVSETTINGS_FORMAT_PLISTTREE_H
#define MORVSETTINGS_FORMAT_PLISTTREE_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "common/RefCountedObject.h"
#include "mvtl/RefCountedPtr.h"

namespace mvcs {

class PListDictionary;
struct PListArray;

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

// A date: seconds since 2001-01-01T00:00:00 UTC (the property lists'
// reference date).
struct PListDate {
  double seconds;
};

// A UID (the keyed archivers' object references).
struct PListUid {
  std::uint64_t value;
};

// A counted reference to a dictionary, as entries hold them: like
// mvtl::RefCountedPtr_STLSafe, and movable without counting, so that arrays
// of entries move their entries, never copy them.
class PListDictionaryRef {
 public:
  PListDictionaryRef() noexcept {}
  PListDictionaryRef(const PListDictionaryRef& other) { Assign(other.m_dictionary); }
  PListDictionaryRef(PListDictionaryRef&& other) noexcept : m_dictionary(other.m_dictionary) {
    other.m_dictionary = nullptr;
  }
  PListDictionaryRef& operator=(const PListDictionaryRef& other) {
    Assign(other.m_dictionary);
    return *this;
  }
  PListDictionaryRef& operator=(PListDictionaryRef&& other) noexcept {
    std::swap(m_dictionary, other.m_dictionary);
    return *this;
  }
  inline ~PListDictionaryRef();

  // Holds `dictionary` (adding a reference), letting go of what it held.
  inline void Assign(PListDictionary* dictionary);

  PListDictionary* Get() const { return m_dictionary; }
  PListDictionary* operator->() const { return m_dictionary; }
  PListDictionary& operator*() const { return *m_dictionary; }

 private:
  PListDictionary* m_dictionary = nullptr;
};

// An array or a set: never changed once made, so it is shared, not copied.
typedef std::shared_ptr<const PListArray> PListArrayRef;

// One entry: a child dictionary, an integer, a real, a boolean, a UTF-8
// string, data, a date, a UID, or an array (or set). The store's typed
// operations make the first six; the others come from files written by
// other programs and are kept as they are.
typedef std::variant<PListDictionaryRef, PListInteger, PListReal, bool, std::string, PListData,
                     PListDate, PListUid, PListArrayRef>
    PListValue;

// The items of an array, or of a set (which the binary format has and XML
// has not: a set is written to XML as an array).
struct PListArray {
  std::vector<PListValue> items;
  bool isSet = false;
};

// The dictionary that `value` holds, or null when it holds something else.
PListDictionary* AsDictionary(const PListValue& value);

// The entries of a dictionary, in key order, side by side in one array:
// lookups by binary search, walks in key order over contiguous memory, and
// appends in constant time (readers meet the keys of files in order). A
// key added out of order goes to a short unsorted tail, merged into the
// sorted part when it grows past about the square root of the size (or
// when the entries are walked), so that adding n keys in any order costs
// O(n sqrt n) moves at worst, not O(n^2). Removing a key moves the entries
// after it. Walking may reorder the array, so even the const members are
// not for use from several threads at once (the store's lock serialises
// every use of its trees).
class PListEntries {
 public:
  typedef std::pair<std::string, PListValue> Entry;
  typedef std::vector<Entry>::iterator iterator;
  typedef std::vector<Entry>::const_iterator const_iterator;

  // Walks in key order (merging the tail first).
  iterator begin() {
    Sort();
    return m_entries.begin();
  }
  iterator end() {
    Sort();
    return m_entries.end();
  }
  const_iterator begin() const {
    Sort();
    return m_entries.begin();
  }
  const_iterator end() const {
    Sort();
    return m_entries.end();
  }
  std::size_t size() const { return m_entries.size(); }
  bool empty() const { return m_entries.empty(); }
  void clear() {
    m_entries.clear();
    m_sorted = 0;
  }
  void swap(PListEntries& other) {
    m_entries.swap(other.m_entries);
    std::swap(m_sorted, other.m_sorted);
  }
  void reserve(std::size_t count) { m_entries.reserve(count); }

  // The entry under the `size` bytes at `key`, or null.
  Entry* Find(const char* key, std::size_t size);
  const Entry* Find(const char* key, std::size_t size) const;

  // The entry under the `size` bytes at `key`, made (holding an empty
  // dictionary reference) when there is none.
  Entry& FindOrAdd(const char* key, std::size_t size);

  // Removes the entry under `key`, if there is one.
  void Remove(const std::string& key);

 private:
  // Merges the unsorted tail into the sorted part.
  void Sort() const;

  mutable std::vector<Entry> m_entries;
  mutable std::size_t m_sorted = 0;  // m_entries[0, m_sorted) are in key order
};

// A dictionary: named entries, kept in key order. Counted: born at 0.
class PListDictionary : public RefCountedObject<mvtl::IRefCounted> {
 public:
  typedef PListEntries Entries;

  PListDictionary() {}
  PListDictionary(const PListDictionary&) = delete;
  PListDictionary& operator=(const PListDictionary&) = delete;

  // The entry under `key`, or null.
  const PListValue* Find(const std::string& key) const;

  // Adds or replaces the entry under `key`.
  void Set(const std::string& key, PListValue value);

  // The entry under the key of `size` bytes at `key`, made (holding an
  // empty dictionary reference) or emptied the same way, for a reader to
  // fill in place. Constant time when the key sorts after every key here.
  PListValue& Slot(const char* key, std::size_t size);

  // Makes room for `count` entries, for a reader that knows how many come.
  void Reserve(std::size_t count) { m_entries.reserve(count); }

  // Removes the entry under `key`, if there is one.
  void Remove(const std::string& key);

  const Entries& GetEntries() const { return m_entries; }

 private:
  ~PListDictionary() override {}

  Entries m_entries;
};

PListDictionaryRef::~PListDictionaryRef() {
  if (m_dictionary != nullptr) m_dictionary->Release();
}

void PListDictionaryRef::Assign(PListDictionary* dictionary) {
  if (dictionary != nullptr) dictionary->AddRef();  // first: it may be the one held
  if (m_dictionary != nullptr) m_dictionary->Release();
  m_dictionary = dictionary;
}

// Whether two trees hold the same entries with the same values: the same
// kinds (an integer's `wide` and an array's `isSet` included), reals and
// dates by SameBits, dictionaries and arrays by content. These compare the
// store's tree; SameSettingsValue compares the public SettingsValue, which
// tells its kinds apart by `kind` alone (an UNSIGNED_INTEGER below 2^63
// differs from the INTEGER of the same value there, not here) and holds
// values no tree holds (NONE).
bool SameTree(const PListDictionary& a, const PListDictionary& b);
bool SameValue(const PListValue& a, const PListValue& b);

// Whether a key or string of the tree, at any depth, holds U+0000.
bool HoldsZeroText(const PListDictionary& root);

// Whether two reals are the same as a file holds them: by their bits, so
// NaN equals itself and 0.0 differs from -0.0. Both comparisons use it.
bool SameBits(double a, double b);

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_PLISTTREE_H
