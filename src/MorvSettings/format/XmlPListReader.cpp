// Reading XML property lists through libplist (see XmlPListReader.h).
//
// libplist keeps integers as 64 bits plus a width: values of 2^63 and more
// that a file holds as unsigned are told apart from negative ones only by
// that width, which its API shows through plist_compare_node_value. The
// tree keeps the distinction (PListInteger's `wide`).

#include "XmlPListReader.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "PListLimits.h"
#include "PListText.h"

namespace mvcs {

namespace {

// Owns a libplist node.
struct NodeDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
typedef std::unique_ptr<void, NodeDeleter> Node;

// Whether the tag that starts at `p` (just after '<') is `name` followed by
// the end of the tag's name.
bool TagIs(const char* p, const char* end, const char* name) {
  const std::size_t length = std::strlen(name);
  if (static_cast<std::size_t>(end - p) < length || std::memcmp(p, name, length) != 0) return false;
  if (static_cast<std::size_t>(end - p) == length) return true;
  const char next = p[length];
  return next == '>' || next == '/' || next == ' ' || next == '\t' || next == '\r' || next == '\n';
}

// How deep <dict> and <array> elements nest in `text` (a scan of the tags,
// linear, before any parsing).
std::size_t XmlNesting(const char* text, std::size_t size) {
  const char* const end = text + size;
  std::size_t depth = 0, deepest = 0;
  for (const char* p = text; p < end;) {
    const char* open = static_cast<const char*>(std::memchr(p, '<', end - p));
    if (open == nullptr) break;
    p = open + 1;
    if (p < end && *p == '/') {
      if ((TagIs(p + 1, end, "dict") || TagIs(p + 1, end, "array")) && depth > 0) --depth;
      continue;
    }
    if (!TagIs(p, end, "dict") && !TagIs(p, end, "array")) continue;
    // An empty element (<dict/>) opens nothing.
    const char* close = static_cast<const char*>(std::memchr(p, '>', end - p));
    if (close != nullptr && close[-1] == '/') continue;
    if (++depth > deepest) deepest = depth;
  }
  return deepest;
}

// Whether an unsigned node above 2^63 - 1 is an unsigned integer of that
// value rather than a negative one.
bool IsWideInteger(plist_t node, std::uint64_t value) {
  const Node narrow(plist_new_uint(value));
  return plist_compare_node_value(node, narrow.get()) == 0;
}

// Why a list is refused.
typedef Status::Code Refusal;

// Converts libplist's `node`, which sits at nesting `depth` if it is a
// container (the root is 1): the one conversion from libplist's tree to the
// store's (NodeBuilder goes the other way).
bool FromLibplist(plist_t node, std::size_t depth, PListValue& value, Refusal& error) {
  const plist_type type = plist_get_node_type(node);
  if ((type == PLIST_DICT || type == PLIST_ARRAY) && depth > kMaxNesting) {
    error = Refusal::kTooDeep;
    return false;
  }
  switch (type) {
    case PLIST_DICT: {
      PListDictionaryRef dictionary;
      dictionary.Assign(new PListDictionary);
      plist_dict_iter iterator = nullptr;
      plist_dict_new_iter(node, &iterator);
      if (iterator == nullptr) return false;
      bool ok = true;
      while (ok) {
        char* key = nullptr;  // a copy, ours to free
        plist_t child = nullptr;
        plist_dict_next_item(node, iterator, &key, &child);
        if (child == nullptr) {
          std::free(key);
          break;
        }
        PListValue entry;
        if (key == nullptr || !IsTreeText(key, std::strlen(key))) {
          error = Refusal::kBadText;
          ok = false;
        } else {
          ok = FromLibplist(child, depth + 1, entry, error);
          if (ok) dictionary->Set(key, std::move(entry));
        }
        std::free(key);
      }
      std::free(iterator);
      if (ok) value = std::move(dictionary);
      return ok;
    }
    case PLIST_ARRAY: {
      auto array = std::make_shared<PListArray>();
      const uint32_t size = plist_array_get_size(node);
      array->items.resize(size);
      for (uint32_t i = 0; i < size; ++i) {
        if (!FromLibplist(plist_array_get_item(node, i), depth + 1, array->items[i], error)) {
          return false;
        }
      }
      value = PListArrayRef(std::move(array));
      return true;
    }
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
      if (text == nullptr || std::strlen(text) != length ||
          !IsTreeText(text, static_cast<std::size_t>(length))) {
        error = Refusal::kBadText;
        return false;
      }
      value = std::string(text, static_cast<std::size_t>(length));
      return true;
    }
    case PLIST_DATA: {
      uint64_t length = 0;
      const char* data = plist_get_data_ptr(node, &length);
      value = data != nullptr ? PListData(data, data + length) : PListData();
      return true;
    }
    case PLIST_DATE: {
      int32_t seconds = 0, microseconds = 0;
      plist_get_date_val(node, &seconds, &microseconds);
      value = PListDate{seconds + microseconds / 1e6};
      return true;
    }
    case PLIST_UID: {
      uint64_t uid = 0;
      plist_get_uid_val(node, &uid);
      value = PListUid{uid};
      return true;
    }
    default:
      return false;
  }
}

}  // namespace

Status ReadXmlPropertyList(const char* text, std::size_t size,
                           mvtl::RefCountedPtr<PListDictionary>& root) {
  auto refuse = [](Refusal why) { return Status::Refused(why, Status::Operation::kParse); };
  if (std::memchr(text, 0, size) != nullptr) return refuse(Refusal::kNotAPropertyList);
  if (XmlNesting(text, size) > kMaxNesting) return refuse(Refusal::kTooDeep);
  plist_t parsed = nullptr;  // libplist leaves it as it was on some failures
  plist_from_xml(text, static_cast<uint32_t>(size), &parsed);
  const Node owner(parsed);
  if (parsed == nullptr) return refuse(Refusal::kNotAPropertyList);
  if (plist_get_node_type(parsed) != PLIST_DICT) return refuse(Refusal::kNotADictionary);
  PListValue value;
  Refusal error = Refusal::kNotAPropertyList;
  if (!FromLibplist(parsed, 1, value, error)) return refuse(error);
  root = AsDictionary(value);
  return Status::OK();
}

}  // namespace mvcs
