// The settings file format through libplist (see PListFormat.h).
//
// Every key and string of a settings file must be well-formed UTF-8: libplist
// 2.2 writes other bytes, and lone surrogates, back altered or broken, so a
// file holding them is refused as unreadable (and so kept, not rewritten).
//
// libplist keeps integers as 64 bits plus a width: values of 2^63 and more
// that a file holds as 16-byte unsigned integers are told apart from
// negative 8-byte ones only by that width, which its API shows through
// plist_compare_node_value. The store keeps the distinction (PListInteger's
// `wide`) so that such values are written back as they were read.

#include "PListFormat.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "PListInputCheck.h"
#include "SettingsText.h"

namespace mvcs {

PListOpaque::~PListOpaque() { plist_free(static_cast<plist_t>(m_node)); }

namespace {

// Owns a libplist node.
struct NodeDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
typedef std::unique_ptr<void, NodeDeleter> Node;

// Whether an unsigned node above 2^63 - 1 is a 16-byte unsigned integer
// rather than an 8-byte one (a negative value).
bool IsWideInteger(plist_t node, std::uint64_t value) {
  const Node narrow(plist_new_uint(value));
  return plist_compare_node_value(node, narrow.get()) == 0;
}

// A 16-byte unsigned integer node: libplist makes one only from text.
plist_t NewWideInteger(std::uint64_t value) {
  char xml[96];
  const int length = std::snprintf(xml, sizeof(xml), "<plist><integer>%llu</integer></plist>",
                                   static_cast<unsigned long long>(value));
  plist_t node = nullptr;
  plist_from_xml(xml, static_cast<uint32_t>(length), &node);
  return node;
}

bool ToTree(plist_t node, PListValue& value, std::size_t depth);

// Calls visit(key, child) for each entry of a dictionary node, in order,
// until it returns false; returns whether every call returned true.
template <class Visit>
bool ForEachEntry(plist_t dictionary, Visit visit) {
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(dictionary, &iterator);
  if (iterator == nullptr) return false;
  bool ok = true;
  while (ok) {
    char* key = nullptr;  // a copy, ours to free
    plist_t child = nullptr;
    plist_dict_next_item(dictionary, iterator, &key, &child);
    if (child == nullptr) {
      std::free(key);
      break;
    }
    ok = key != nullptr && visit(key, child);
    std::free(key);
  }
  std::free(iterator);
  return ok;
}

// Whether libplist writes `text` back unchanged: well-formed UTF-8 without
// U+0000 (it alters other bytes and lone surrogates when it writes them).
bool IsWritableText(const char* text, std::size_t length) {
  return text != nullptr && std::strlen(text) == length && IsWellFormedUTF8(text, length);
}

// Whether every string and key inside an entry kept as it was read (an
// array, say) is writable text.
bool HasOnlyWritableText(plist_t node, std::size_t depth) {
  if (depth > kMaxNesting) return false;
  switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      return IsWritableText(text, static_cast<std::size_t>(length));
    }
    case PLIST_ARRAY: {
      const uint32_t size = plist_array_get_size(node);
      for (uint32_t i = 0; i < size; ++i) {
        if (!HasOnlyWritableText(plist_array_get_item(node, i), depth + 1)) return false;
      }
      return true;
    }
    case PLIST_DICT:
      return ForEachEntry(node, [depth](const char* key, plist_t child) {
        return IsWritableText(key, std::strlen(key)) && HasOnlyWritableText(child, depth + 1);
      });
    default:
      return true;
  }
}

bool DictionaryToTree(plist_t node, PListValue& value, std::size_t depth) {
  if (depth > kMaxNesting) return false;
  PListDictionaryRef dictionary;
  dictionary.Assign(new PListDictionary);
  const bool ok = ForEachEntry(node, [&](const char* key, plist_t child) {
    PListValue entry;
    if (!IsWritableText(key, std::strlen(key)) || !ToTree(child, entry, depth + 1)) return false;
    dictionary->Set(key, std::move(entry));
    return true;
  });
  if (ok) value = dictionary;
  return ok;
}

bool ToTree(plist_t node, PListValue& value, std::size_t depth) {
  switch (plist_get_node_type(node)) {
    case PLIST_DICT:
      return DictionaryToTree(node, value, depth);
    case PLIST_UINT: {
      uint64_t bits = 0;
      plist_get_uint_val(node, &bits);
      const bool wide = bits > static_cast<std::uint64_t>(std::numeric_limits<long long>::max()) &&
                        IsWideInteger(node, bits);
      value = PListInteger{static_cast<long long>(bits), wide};
      return true;
    }
    case PLIST_REAL: {
      double real = 0;
      plist_get_real_val(node, &real);
      value = PListReal{real};
      return true;
    }
    case PLIST_BOOLEAN: {
      uint8_t boolean = 0;
      plist_get_bool_val(node, &boolean);
      value = boolean != 0;
      return true;
    }
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      if (!IsWritableText(text, static_cast<std::size_t>(length))) return false;
      value = std::string(text, static_cast<std::size_t>(length));
      return true;
    }
    case PLIST_DATA: {
      uint64_t length = 0;
      const char* data = plist_get_data_ptr(node, &length);
      value = data != nullptr ? PListData(data, data + length) : PListData();
      return true;
    }
    default: {
      // Arrays, dates, UIDs: kept as they are.
      if (!HasOnlyWritableText(node, depth)) return false;
      plist_t copy = plist_copy(node);
      if (copy == nullptr) return false;
      value = std::make_shared<const PListOpaque>(copy);
      return true;
    }
  }
}

// Builds libplist's node for one entry.
struct NodeBuilder {
  plist_t operator()(const PListDictionaryRef& dictionary) const { return Build(*dictionary); }
  plist_t Build(const PListDictionary& dictionary) const {
    plist_t node = plist_new_dict();
    for (const auto& entry : dictionary.GetEntries()) {
      plist_t child = std::visit(*this, entry.second);
      if (child == nullptr) {
        plist_free(node);
        return nullptr;
      }
      plist_dict_set_item(node, entry.first.c_str(), child);
    }
    return node;
  }
  plist_t operator()(const PListInteger& integer) const {
    return integer.wide ? NewWideInteger(static_cast<std::uint64_t>(integer.bits))
                        : plist_new_uint(static_cast<std::uint64_t>(integer.bits));
  }
  plist_t operator()(const PListReal& real) const { return plist_new_real(real.value); }
  plist_t operator()(bool boolean) const { return plist_new_bool(boolean ? 1 : 0); }
  plist_t operator()(const std::string& text) const { return plist_new_string(text.c_str()); }
  plist_t operator()(const PListData& data) const {
    return plist_new_data(reinterpret_cast<const char*>(data.data()), data.size());
  }
  plist_t operator()(const std::shared_ptr<const PListOpaque>& opaque) const {
    return plist_copy(static_cast<plist_t>(opaque->GetNode()));
  }
};

}  // namespace

bool ParsePropertyList(const std::string& bytes, mvtl::RefCountedPtr<PListDictionary>& root) {
  if (bytes.size() > std::numeric_limits<uint32_t>::max()) return false;
  const uint32_t size = static_cast<uint32_t>(bytes.size());
  plist_t parsed = nullptr;  // libplist leaves it as it was on some failures
  if (size >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0) {
    if (!IsSafeBinaryPList(reinterpret_cast<const unsigned char*>(bytes.data()), size)) {
      return false;
    }
    plist_from_bin(bytes.data(), size, &parsed);
  } else {
    if (!IsSafeXmlPList(bytes.data(), size)) return false;
    plist_from_xml(bytes.data(), size, &parsed);
  }
  const Node owner(parsed);
  if (parsed == nullptr || plist_get_node_type(parsed) != PLIST_DICT) return false;
  PListValue value;
  if (!ToTree(parsed, value, 1)) return false;
  root = AsDictionary(value);
  return true;
}

namespace {

// Serialises the tree with libplist's `write` (plist_to_bin, plist_to_xml),
// frees libplist's copy with `release`, and keeps the result only if
// `readable` (the matching input check) accepts it.
template <class Write, class Release, class Readable>
bool WritePropertyList(const PListDictionary& root, std::string& bytes, Write write,
                       Release release, Readable readable) {
  const Node node(NodeBuilder().Build(root));
  if (!node) return false;
  char* written = nullptr;
  uint32_t length = 0;
  write(node.get(), &written, &length);
  if (written == nullptr) return false;
  const bool ok = readable(written, length);
  if (ok) bytes.assign(written, length);
  release(written);
  return ok;
}

}  // namespace

bool WriteBinaryPropertyList(const PListDictionary& root, std::string& bytes) {
  // Never write what could not be read back: libplist shares equal values
  // in the file, so a tree with very many uses of one long text can make a
  // file small enough for the reading budget to refuse.
  return WritePropertyList(
      root, bytes, plist_to_bin, plist_to_bin_free, [](const char* written, uint32_t length) {
        return IsSafeBinaryPList(reinterpret_cast<const unsigned char*>(written), length);
      });
}

bool WriteXmlPropertyList(const PListDictionary& root, std::string& bytes) {
  return WritePropertyList(root, bytes, plist_to_xml, plist_to_xml_free, IsSafeXmlPList);
}

namespace {

// The nesting of a libplist node: 1 for a container holding no container,
// 0 for anything else.
std::size_t NodeNesting(plist_t node) {
  std::size_t deepest = 0;
  switch (plist_get_node_type(node)) {
    case PLIST_ARRAY: {
      const uint32_t size = plist_array_get_size(node);
      for (uint32_t i = 0; i < size; ++i) {
        deepest = std::max(deepest, NodeNesting(plist_array_get_item(node, i)));
      }
      return deepest + 1;
    }
    case PLIST_DICT:
      ForEachEntry(node, [&deepest](const char*, plist_t child) {
        deepest = std::max(deepest, NodeNesting(child));
        return true;
      });
      return deepest + 1;
    default:
      return 0;
  }
}

}  // namespace

std::size_t NestingDepth(const PListDictionary& root) {
  std::size_t deepest = 0;
  for (const auto& entry : root.GetEntries()) {
    if (const PListDictionary* child = AsDictionary(entry.second)) {
      deepest = std::max(deepest, NestingDepth(*child));
    } else if (const auto* opaque =
                   std::get_if<std::shared_ptr<const PListOpaque>>(&entry.second)) {
      deepest = std::max(deepest, NodeNesting(static_cast<plist_t>((*opaque)->GetNode())));
    }
  }
  return deepest + 1;
}

OpaqueKind KindOf(const PListOpaque& opaque) {
  switch (plist_get_node_type(static_cast<plist_t>(opaque.GetNode()))) {
    case PLIST_ARRAY:
      return OpaqueKind::kArray;
    case PLIST_DATE:
      return OpaqueKind::kDate;
    default:
      return OpaqueKind::kOther;
  }
}

}  // namespace mvcs
