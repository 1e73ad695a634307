// The settings file format's interface (see PListFormat.h): the choice
// between the binary and the XML format, and what is common to both.

#include "PListFormat.h"

#include <algorithm>
#include <cstring>

#include "BinaryPListReader.h"
#include "BinaryPListWriter.h"
#include "PListLimits.h"
#include "XmlPListReader.h"
#include "XmlPListWriter.h"

namespace mvcs {

namespace {

std::size_t ValueNesting(const PListValue& value) {
  if (const PListDictionary* dictionary = AsDictionary(value)) return NestingDepth(*dictionary);
  if (const PListArrayRef* array = std::get_if<PListArrayRef>(&value)) {
    std::size_t deepest = 0;
    for (const PListValue& item : (*array)->items) deepest = std::max(deepest, ValueNesting(item));
    return deepest + 1;
  }
  return 0;
}

}  // namespace

Status ParsePropertyList(const std::string& bytes, mvtl::RefCountedPtr<PListDictionary>& root) {
  if (bytes.size() > kMaxSettingsFileSize) {
    return Status::Refused(Status::Code::kTooLarge, Status::Operation::kParse);
  }
  if (bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0) {
    return ReadBinaryPropertyList(reinterpret_cast<const unsigned char*>(bytes.data()),
                                  bytes.size(), root);
  }
  return ReadXmlPropertyList(bytes.data(), bytes.size(), root);
}

Status WriteBinaryPropertyList(const PListDictionary& root, std::string& bytes,
                               const std::string& previous) {
  return WriteBinaryPList(root, bytes, previous);
}

Status WriteXmlPropertyList(const PListDictionary& root, std::string& bytes) {
  return WriteXmlPList(root, bytes);
}

std::size_t NestingDepth(const PListDictionary& root) {
  std::size_t deepest = 0;
  for (const auto& entry : root.GetEntries()) {
    deepest = std::max(deepest, ValueNesting(entry.second));
  }
  return deepest + 1;
}

}  // namespace mvcs
