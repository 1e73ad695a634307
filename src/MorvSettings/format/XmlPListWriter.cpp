// Writing XML property lists through libplist (see XmlPListWriter.h).
//
// libplist keeps integers as 64 bits plus a width: values of 2^63 and more
// that a file holds as unsigned are told apart from negative ones only by
// that width, which its API shows through plist_compare_node_value. The
// tree keeps the distinction (PListInteger's `wide`).

#include "XmlPListWriter.h"

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

// A wide unsigned integer node: libplist makes one only from text.
plist_t NewWideInteger(std::uint64_t value) {
  char xml[96];
  const int length = std::snprintf(xml, sizeof(xml), "<plist><integer>%llu</integer></plist>",
                                   static_cast<unsigned long long>(value));
  plist_t node = nullptr;
  plist_from_xml(xml, static_cast<uint32_t>(length), &node);
  return node;
}

// Builds libplist's node for one entry: the one conversion from the store's
// tree to libplist's.
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
  plist_t operator()(const PListArrayRef& array) const {
    plist_t node = plist_new_array();
    for (const PListValue& item : array->items) {
      plist_t child = std::visit(*this, item);
      if (child == nullptr) {
        plist_free(node);
        return nullptr;
      }
      plist_array_append_item(node, child);
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
  plist_t operator()(const PListDate& date) const {
    const double seconds = std::floor(date.seconds);
    if (!(seconds >= std::numeric_limits<int32_t>::min() &&
          seconds <= std::numeric_limits<int32_t>::max())) {
      return nullptr;  // libplist holds dates in 32-bit seconds
    }
    return plist_new_date(static_cast<int32_t>(seconds),
                          static_cast<int32_t>((date.seconds - seconds) * 1e6));
  }
  plist_t operator()(const PListUid& uid) const { return plist_new_uid(uid.value); }
};

}  // namespace

Status WriteXmlPList(const PListDictionary& root, std::string& text) {
  // libplist fails only when out of memory, or for kinds it does not know.
  auto failed = [] {
    return Status::Refused(Status::Code::kNotAPropertyList, Status::Operation::kSerialise,
                           "libplist could not write it as XML");
  };
  const Node node(NodeBuilder().Build(root));
  if (!node) return failed();
  char* written = nullptr;
  uint32_t length = 0;
  plist_to_xml(node.get(), &written, &length);
  if (written == nullptr) return failed();
  text.assign(written, length);
  plist_to_xml_free(written);
  return Status::OK();
}

}  // namespace mvcs
