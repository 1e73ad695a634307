// The in-memory copy of a settings file (see PListTree.h).

#include "PListTree.h"

#include <utility>

namespace mvcs {

PListDictionary* AsDictionary(const PListValue& value) {
  const PListDictionaryRef* dictionary = std::get_if<PListDictionaryRef>(&value);
  return dictionary != NULL ? dictionary->Get() : NULL;
}

const PListValue* PListDictionary::Find(const std::string& key) const {
  const Entries::const_iterator it = m_entries.find(key);
  return it == m_entries.end() ? NULL : &it->second;
}

void PListDictionary::Set(const std::string& key, PListValue value) {
  m_entries[key] = std::move(value);
}

void PListDictionary::Remove(const std::string& key) { m_entries.erase(key); }

}  // namespace mvcs
