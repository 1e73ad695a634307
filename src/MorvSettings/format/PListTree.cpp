// The in-memory form of a property list (see PListTree.h).

#include "PListTree.h"

#include <algorithm>
#include <cmath>
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

bool KeyLess(const PListEntries::Entry& a, const PListEntries::Entry& b) {
  return a.first < b.first;
}

}  // namespace

PListEntries::Entry* PListEntries::Find(const char* key, std::size_t size) {
  const auto sortedEnd = m_entries.begin() + static_cast<std::ptrdiff_t>(m_sorted);
  const auto it = std::lower_bound(
      m_entries.begin(), sortedEnd, 0,
      [key, size](const Entry& entry, int) { return CompareKey(entry.first, key, size) < 0; });
  if (it != sortedEnd && CompareKey(it->first, key, size) == 0) return &*it;
  for (auto tail = sortedEnd; tail != m_entries.end(); ++tail) {
    if (CompareKey(tail->first, key, size) == 0) return &*tail;
  }
  return nullptr;
}

const PListEntries::Entry* PListEntries::Find(const char* key, std::size_t size) const {
  return const_cast<PListEntries*>(this)->Find(key, size);
}

PListEntries::Entry& PListEntries::FindOrAdd(const char* key, std::size_t size) {
  // In order (as readers add them): an append to the sorted part.
  if (m_sorted == m_entries.size() &&
      (m_entries.empty() || CompareKey(m_entries.back().first, key, size) < 0)) {
    m_entries.emplace_back(std::piecewise_construct, std::forward_as_tuple(key, size),
                           std::forward_as_tuple());
    ++m_sorted;
    return m_entries.back();
  }
  if (Entry* found = Find(key, size)) return *found;
  m_entries.emplace_back(std::piecewise_construct, std::forward_as_tuple(key, size),
                         std::forward_as_tuple());
  const std::size_t tail = m_entries.size() - m_sorted;
  if (tail > 16 + static_cast<std::size_t>(std::sqrt(static_cast<double>(m_sorted)))) {
    std::string added(key, size);
    Sort();
    return *Find(added.data(), added.size());
  }
  return m_entries.back();
}

void PListEntries::Remove(const std::string& key) {
  Entry* found = Find(key.data(), key.size());
  if (found == nullptr) return;
  const std::size_t position = static_cast<std::size_t>(found - m_entries.data());
  if (position >= m_sorted) {
    // In the tail, where order does not matter.
    std::swap(*found, m_entries.back());
    m_entries.pop_back();
    return;
  }
  m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(position));
  --m_sorted;
}

void PListEntries::Sort() const {
  if (m_sorted == m_entries.size()) return;
  const auto middle = m_entries.begin() + static_cast<std::ptrdiff_t>(m_sorted);
  std::sort(middle, m_entries.end(), KeyLess);
  std::inplace_merge(m_entries.begin(), middle, m_entries.end(), KeyLess);
  m_sorted = m_entries.size();
}

const PListValue* PListDictionary::Find(const std::string& key) const {
  const Entries::Entry* entry = m_entries.Find(key.data(), key.size());
  return entry == nullptr ? nullptr : &entry->second;
}

void PListDictionary::Set(const std::string& key, PListValue value) {
  m_entries.FindOrAdd(key.data(), key.size()).second = std::move(value);
}

PListValue& PListDictionary::Slot(const char* key, std::size_t size) {
  PListValue& value = m_entries.FindOrAdd(key, size).second;
  value = PListValue();
  return value;
}

void PListDictionary::Remove(const std::string& key) { m_entries.Remove(key); }

namespace {

// Compares a value with `other` (std::visit calls it with the value's own
// kind): false for another kind.
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
    return a == b ||
           (a->isSet == b->isSet && std::equal(a->items.begin(), a->items.end(), b->items.begin(),
                                               b->items.end(), SameValue));
  }
};

bool HoldsZero(const std::string& text) { return text.find('\0') != std::string::npos; }

bool ValueHoldsZeroText(const PListValue& value) {
  if (const PListDictionary* dictionary = AsDictionary(value)) return HoldsZeroText(*dictionary);
  if (const PListArrayRef* array = std::get_if<PListArrayRef>(&value)) {
    return std::any_of((*array)->items.begin(), (*array)->items.end(), ValueHoldsZeroText);
  }
  const std::string* text = std::get_if<std::string>(&value);
  return text != nullptr && HoldsZero(*text);
}

}  // namespace

bool HoldsZeroText(const PListDictionary& root) {
  for (const auto& entry : root.GetEntries()) {
    if (HoldsZero(entry.first) || ValueHoldsZeroText(entry.second)) return true;
  }
  return false;
}

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(a)) == 0; }

bool SameValue(const PListValue& a, const PListValue& b) { return std::visit(SameAs{b}, a); }

bool SameTree(const PListDictionary& a, const PListDictionary& b) {
  const PListDictionary::Entries& mine = a.GetEntries();
  const PListDictionary::Entries& theirs = b.GetEntries();
  return std::equal(mine.begin(), mine.end(), theirs.begin(), theirs.end(),
                    [](const PListEntries::Entry& i, const PListEntries::Entry& j) {
                      return i.first == j.first && SameValue(i.second, j.second);
                    });
}

}  // namespace mvcs
