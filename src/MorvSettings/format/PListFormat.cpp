// The settings file format's interface (see PListFormat.h): the choice
// between the binary and the XML format, and what is common to both.

#include "PListFormat.h"

#include <algorithm>
#include <cstring>

#include "BinaryPListReader.h"
#include "BinaryPListWriter.h"
#include "PListLimits.h"
#include "XmlPList.h"

namespace mvcs {

namespace {

bool Report(PListError result, PListError* error) {
  if (error != nullptr) *error = result;
  return result == PListError::kNone;
}

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

const char* DescribePListError(PListError error) {
  switch (error) {
    case PListError::kNone:
      return "a property list";
    case PListError::kNotAPropertyList:
      return "not a property list (or a damaged one)";
    case PListError::kNotADictionary:
      return "a property list without a dictionary at its root";
    case PListError::kTooDeep:
      return "nested too deep";
    case PListError::kTooLarge:
      return "too large";
    case PListError::kBadText:
      return "holding text that is not well-formed UTF-8";
  }
  return "not a property list";
}

bool ParsePropertyList(const std::string& bytes, mvtl::RefCountedPtr<PListDictionary>& root,
                       PListError* error) {
  if (bytes.size() > kMaxSettingsFileSize) return Report(PListError::kTooLarge, error);
  if (bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0) {
    return Report(ReadBinaryPropertyList(reinterpret_cast<const unsigned char*>(bytes.data()),
                                         bytes.size(), root),
                  error);
  }
  return Report(ReadXmlPropertyList(bytes.data(), bytes.size(), root), error);
}

bool WriteBinaryPropertyList(const PListDictionary& root, std::string& bytes, PListError* error,
                             std::size_t expectedSize) {
  return Report(WriteBinaryPList(root, expectedSize, bytes), error);
}

bool WriteXmlPropertyList(const PListDictionary& root, std::string& bytes, PListError* error) {
  return Report(WriteXmlPList(root, bytes), error);
}

std::size_t NestingDepth(const PListDictionary& root) {
  std::size_t deepest = 0;
  for (const auto& entry : root.GetEntries()) {
    deepest = std::max(deepest, ValueNesting(entry.second));
  }
  return deepest + 1;
}

}  // namespace mvcs
