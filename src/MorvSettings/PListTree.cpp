// The in-memory copy of a settings file (see PListTree.h).

#include "PListTree.h"

#include <utility>

namespace mvcs {

PListDictionary* AsDictionary(const PListValue& value) {
  const PListDictionaryRef* dictionary = std::get_if<PListDictionaryRef>(&value);
  return dictionary != nullptr ? dictionary->Get() : nullptr;
}

const PListValue* PListDictionary::Find(const std::string& key) const {
  const Entries::const_iterator it = m_entries.find(key);
  return it == m_entries.end() ? nullptr : &it->second;
}

void PListDictionary::Set(const std::string& key, PListValue value) {
  // Files the store writes list keys in order, so loading them appends: the
  // hint makes each of those insertions constant time.
  if (m_entries.empty() || m_entries.rbegin()->first < key) {
    m_entries.emplace_hint(m_entries.end(), key, std::move(value));
  } else {
    m_entries.insert_or_assign(key, std::move(value));
  }
}

void PListDictionary::Remove(const std::string& key) { m_entries.erase(key); }

void PListDictionary::MarkDetached() {
  m_detached = true;
  for (const auto& entry : m_entries) {
    if (PListDictionary* child = AsDictionary(entry.second)) child->MarkDetached();
  }
}

}  // namespace mvcs
