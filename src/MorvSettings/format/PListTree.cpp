// The in-memory form of a property list (see PListTree.h).

#include "PListTree.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

namespace mvcs {

// Arrays of entries move entries, never copy them, when they grow.
static_assert(std::is_nothrow_move_constructible<PListEntries::Entry>::value,
              "entries must move without copying");

PListDictionary* AsDictionary(const PListValue& value) {
  const PListDictionaryRef* dictionary = std::get_if<PListDictionaryRef>(&value);
  return dictionary != nullptr ? dictionary->Get() : nullptr;
}

namespace {

// Compares a key with the `size` bytes at `key`.
int CompareKey(const std::string& entryKey, const char* key, std::size_t size) {
  return entryKey.compare(0, std::string::npos, key, size);
}

}  // namespace

PListEntries::iterator PListEntries::LowerBound(const char* key, std::size_t size) {
  return std::lower_bound(
      m_entries.begin(), m_entries.end(), 0,
      [key, size](const Entry& entry, int) { return CompareKey(entry.first, key, size) < 0; });
}

PListEntries::const_iterator PListEntries::LowerBound(const char* key, std::size_t size) const {
  return std::lower_bound(
      m_entries.begin(), m_entries.end(), 0,
      [key, size](const Entry& entry, int) { return CompareKey(entry.first, key, size) < 0; });
}

PListEntries::iterator PListEntries::find(const std::string& key) {
  const iterator it = LowerBound(key.data(), key.size());
  return it != end() && it->first == key ? it : end();
}

PListEntries::const_iterator PListEntries::find(const std::string& key) const {
  const const_iterator it = LowerBound(key.data(), key.size());
  return it != end() && it->first == key ? it : end();
}

PListEntries::iterator PListEntries::Insert(iterator position, const char* key, std::size_t size) {
  return m_entries.emplace(position, std::piecewise_construct, std::forward_as_tuple(key, size),
                           std::forward_as_tuple());
}

const PListValue* PListDictionary::Find(const std::string& key) const {
  const Entries::const_iterator it = m_entries.find(key);
  return it == m_entries.end() ? nullptr : &it->second;
}

void PListDictionary::Set(const std::string& key, PListValue value) {
  Slot(key.data(), key.size()) = std::move(value);
}

PListValue& PListDictionary::Slot(const char* key, std::size_t size) {
  // Readers meet keys in order (writers sort them), so the common case is
  // an append, in constant time.
  if (m_entries.empty() || CompareKey((m_entries.end() - 1)->first, key, size) < 0) {
    return m_entries.Insert(m_entries.end(), key, size)->second;
  }
  const Entries::iterator it = m_entries.LowerBound(key, size);
  if (it != m_entries.end() && CompareKey(it->first, key, size) == 0) {
    it->second = PListValue();
    return it->second;
  }
  return m_entries.Insert(it, key, size)->second;
}

void PListDictionary::Remove(const std::string& key) {
  const Entries::iterator it = m_entries.find(key);
  if (it != m_entries.end()) m_entries.erase(it);
}

void PListDictionary::MarkDetached() {
  m_detached = true;
  for (const auto& entry : m_entries) {
    if (PListDictionary* child = AsDictionary(entry.second)) child->MarkDetached();
  }
}

namespace {

struct SameAs {
  const PListValue& other;
  template <class T>
  bool operator()(const T& value) const {
    const T* theirs = std::get_if<T>(&other);
    return theirs != nullptr && Equal(value, *theirs);
  }
  static bool Equal(const PListDictionaryRef& a, const PListDictionaryRef& b) {
    return a.Get() == b.Get() || SameTree(*a.Get(), *b.Get());
  }
  static bool Equal(const PListInteger& a, const PListInteger& b) {
    return a.bits == b.bits && a.wide == b.wide;
  }
  static bool Equal(const PListReal& a, const PListReal& b) { return SameBits(a.value, b.value); }
  static bool Equal(const PListDate& a, const PListDate& b) {
    return SameBits(a.seconds, b.seconds);
  }
  static bool Equal(const PListUid& a, const PListUid& b) { return a.value == b.value; }
  static bool Equal(bool a, bool b) { return a == b; }
  static bool Equal(const std::string& a, const std::string& b) { return a == b; }
  static bool Equal(const PListData& a, const PListData& b) { return a == b; }
  static bool Equal(const PListArrayRef& a, const PListArrayRef& b) {
    if (a == b) return true;
    if (a->isSet != b->isSet || a->items.size() != b->items.size()) return false;
    for (std::size_t i = 0; i < a->items.size(); ++i) {
      if (!SameValue(a->items[i], b->items[i])) return false;
    }
    return true;
  }
  // NaN equals itself, 0.0 differs from -0.0: what is written is the bits.
  static bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(a)) == 0; }
};

}  // namespace

bool SameValue(const PListValue& a, const PListValue& b) { return std::visit(SameAs{b}, a); }

bool SameTree(const PListDictionary& a, const PListDictionary& b) {
  const PListDictionary::Entries& mine = a.GetEntries();
  const PListDictionary::Entries& theirs = b.GetEntries();
  if (mine.size() != theirs.size()) return false;
  for (auto i = mine.begin(), j = theirs.begin(); i != mine.end(); ++i, ++j) {
    if (i->first != j->first || !SameValue(i->second, j->second)) return false;
  }
  return true;
}

}  // namespace mvcs
