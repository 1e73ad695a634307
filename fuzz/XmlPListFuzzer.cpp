// libFuzzer target for XML property lists: arbitrary bytes, read as XML,
// must never crash, hang or exhaust memory. They are refused, or they give
// a tree that
//   - the XML writer writes (a tree read from XML holds nothing that XML
//     cannot carry, so the writer never refuses it) as text that reads back
//     to an equal tree, which is written again to the very same text;
//   - the binary writer writes (unless the result would be larger than a
//     settings file may be) as bytes that read back to an equal tree.
// Inputs that start as binary property lists ("bplist00") are left to
// PListParseFuzzer.
//
// Build and run (clang): scripts/fuzz-xml.sh SECONDS, which starts from the
// seeds in fuzz/corpus/xml/ with the dictionary fuzz/xml.dict.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace {

typedef mvtl::RefCountedPtr<mvcs::PListDictionary> Tree;

// Ends the run on a broken invariant, saying which (libFuzzer then saves
// the input).
[[noreturn]] void Broken(const char* what, const mvcs::Status& status = mvcs::Status::OK()) {
  std::fprintf(stderr, "XmlPListFuzzer: %s%s%s\n", what, status.ok() ? "" : ": ",
               status.ok() ? "" : status.ToString().c_str());
  std::abort();
}

// The XML round trip of a tree read from XML.
void CheckXml(const mvcs::PListDictionary& tree) {
  std::string text;
  const mvcs::Status written = mvcs::WriteXmlPropertyList(tree, text);
  if (!written.ok()) Broken("the XML writer refused a tree read from XML", written);
  if (text.size() > mvcs::kMaxSettingsFileSize) return;  // too large to read back
  Tree again;
  const mvcs::Status read = mvcs::ParsePropertyList(text, again);
  if (!read.ok()) Broken("the XML written could not be read again", read);
  if (!mvcs::SameTree(tree, *again)) Broken("the XML written reads back to another tree");
  std::string rewritten;
  if (!mvcs::WriteXmlPropertyList(*again, rewritten).ok() || rewritten != text) {
    Broken("the tree read back is not written to the same XML");
  }
}

// The binary round trip of the same tree.
void CheckBinary(const mvcs::PListDictionary& tree) {
  std::string bytes;
  const mvcs::Status written = mvcs::WriteBinaryPropertyList(tree, bytes);
  if (!written.ok()) {
    if (written.code() == mvcs::Status::Code::kTooLarge) return;
    Broken("a tree read from XML could not be written in binary", written);
  }
  Tree again;
  const mvcs::Status read = mvcs::ParsePropertyList(bytes, again);
  if (!read.ok()) Broken("the binary written could not be read again", read);
  if (!mvcs::SameTree(tree, *again)) Broken("the binary written reads back to another tree");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size >= 8 && std::memcmp(data, "bplist00", 8) == 0) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Tree tree;
  if (!mvcs::ParsePropertyList(bytes, tree).ok()) return 0;
  CheckXml(*tree);
  CheckBinary(*tree);
  return 0;
}
