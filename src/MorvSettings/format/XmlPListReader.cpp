// The XML property-list reader (see XmlPListReader.h).
//
// expat does the XML: well-formedness, encodings, line ends, the predefined
// entities, character references and CDATA. It is set up as Python's
// plistlib sets it up, and this file builds the tree from its events as
// plistlib does, so that a file means the same to both: every start tag
// clears the collected text, <dict> and <array> open a container that is
// added to the one around it at once, the end tags of the value elements
// read the text collected since the last start tag, and other elements are
// ignored. Entity declarations are refused (no entity is ever expanded
// beyond the predefined ones), no DTD or external entity is loaded, and
// nesting is checked as elements open. The tree is built with an explicit
// stack: nothing here recurses.

#include "XmlPListReader.h"

#include <expat.h>

#include <locale.h>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "PListLimits.h"
#include "PListText.h"
#include "XmlPListValues.h"

namespace mvcs {

namespace {

typedef Status::Code Code;

// Elements (known or not) nested deeper than this are refused: a valid
// settings file needs kMaxNesting containers plus <plist> and one value.
constexpr std::size_t kMaxElementDepth = 1024;

// Whether `text` starts as an XML property list must start: "<?xml" or
// "<plist", in UTF-8 or after a byte-order mark in the encoding it names.
bool StartsAsXmlPList(const char* text, std::size_t size) {
  auto startsWith = [&](const char* prefix, std::size_t length) {
    return size >= length && std::memcmp(text, prefix, length) == 0;
  };
  static const char* const kPrefixes[] = {"<?xml", "<plist"};
  for (const char* prefix : kPrefixes) {
    const std::size_t length = std::strlen(prefix);
    std::string utf8 = "\xEF\xBB\xBF", big = "\xFE\xFF", little = "\xFF\xFE";
    for (std::size_t i = 0; i < length; ++i) {
      utf8 += prefix[i];
      big += '\0';
      big += prefix[i];
      little += prefix[i];
      little += '\0';
    }
    if (startsWith(prefix, length) || startsWith(utf8.data(), utf8.size()) ||
        startsWith(big.data(), big.size()) || startsWith(little.data(), little.size())) {
      return true;
    }
  }
  return false;
}

// Builds the tree from expat's events.
class TreeBuilder {
 public:
  explicit TreeBuilder(std::size_t fileSize) : m_budget(TreeBudget(fileSize)) {}

  // The first refusal met, kOk while there is none.
  Code error() const { return m_error; }

  // The root: the last value met outside every container.
  const PListValue& root() const { return m_root; }

  void Start(const char* name) {
    m_text.clear();
    if (++m_depth > kMaxElementDepth) return Fail(Code::kTooDeep);
    if (std::strcmp(name, "dict") == 0) {
      if (!Room()) return;
      PListDictionaryRef dictionary;
      dictionary.Assign(new PListDictionary);
      PListDictionary* open = dictionary.Get();
      if (Add(std::move(dictionary))) m_open.push_back(Open{open, nullptr});
    } else if (std::strcmp(name, "array") == 0) {
      if (!Room()) return;
      auto array = std::make_shared<PListArray>();
      PListArray* open = array.get();
      if (Add(PListArrayRef(std::move(array)))) m_open.push_back(Open{nullptr, open});
    }
  }

  void End(const char* name) {
    --m_depth;
    switch (name[0]) {
      case 'a':
        if (std::strcmp(name, "array") == 0) m_open.pop_back();
        return;
      case 'd':
        if (std::strcmp(name, "dict") == 0) {
          // A key still waiting for its value is an error, unless it is
          // empty: plistlib tests the key's truth, and keeps the empty key
          // for the next value, wherever that comes.
          if (m_hasKey && !m_key.empty()) return Fail(Code::kNotAPropertyList);
          m_open.pop_back();
        } else if (std::strcmp(name, "data") == 0) {
          AddParsed(DecodeBase64);
        } else if (std::strcmp(name, "date") == 0) {
          AddParsed(ParseXmlDate);
        }
        return;
      case 'f':
        if (std::strcmp(name, "false") == 0) Add(false);
        return;
      case 'i':
        if (std::strcmp(name, "integer") == 0) AddParsed(ParseXmlInteger);
        return;
      case 'k':
        if (std::strcmp(name, "key") == 0) {
          if ((m_hasKey && !m_key.empty()) || m_open.empty() ||
              m_open.back().dictionary == nullptr) {
            return Fail(Code::kNotAPropertyList);
          }
          Charge(m_text.size());
          m_key.swap(m_text);  // both keep their buffers
          m_hasKey = true;
          m_text.clear();
        }
        return;
      case 'r':
        if (std::strcmp(name, "real") == 0) AddParsed(ParseXmlReal);
        return;
      case 's':
        if (std::strcmp(name, "string") == 0) {
          Charge(m_text.size());
          Add(std::move(m_text));
          m_text.clear();
        }
        return;
      case 't':
        if (std::strcmp(name, "true") == 0) Add(true);
        return;
      default:
        return;
    }
  }

  void Text(const char* text, int length) { m_text.append(text, static_cast<std::size_t>(length)); }

  // Records why the file is refused (the first reason only).
  void Fail(Code error) {
    if (m_error == Code::kOk) m_error = error;
  }

 private:
  // An open container: a dictionary or an array, as the tree holds it.
  struct Open {
    PListDictionary* dictionary;
    PListArray* array;
  };

  // Whether one more container may open.
  bool Room() {
    if (m_open.size() < kMaxNesting) return true;
    Fail(Code::kTooDeep);
    return false;
  }

  // Adds the value that `parse` reads from the text collected; the file is
  // refused when it reads none.
  template <typename Value>
  void AddParsed(bool (*parse)(const std::string&, Value&)) {
    Value value{};
    if (!parse(m_text, value)) return Fail(Code::kNotAPropertyList);
    if constexpr (std::is_same_v<Value, PListData>) Charge(value.size());
    Add(std::move(value));
    m_text.clear();
  }

  // Counts `bytes` of text or data against the tree's budget.
  void Charge(std::size_t bytes) {
    m_used += bytes;
    if (m_used > m_budget) Fail(Code::kTooLarge);
  }

  // Puts `value` where plistlib would: under the waiting key, at the end
  // of the open array, or as the root. False (the file refused) when the
  // open container cannot take it.
  bool Add(PListValue value) {
    Charge(kNodeCost);
    if (m_hasKey) {
      if (m_open.empty() || m_open.back().dictionary == nullptr) {
        Fail(Code::kNotAPropertyList);
        return false;
      }
      m_open.back().dictionary->Slot(m_key.data(), m_key.size()) = std::move(value);
      m_hasKey = false;
    } else if (m_open.empty()) {
      m_root = std::move(value);
    } else if (m_open.back().array != nullptr) {
      m_open.back().array->items.push_back(std::move(value));
    } else {
      Fail(Code::kNotAPropertyList);
      return false;
    }
    return true;
  }

  const std::uint64_t m_budget;
  std::uint64_t m_used = 0;
  Code m_error = Code::kOk;
  std::size_t m_depth = 0;
  std::vector<Open> m_open;
  bool m_hasKey = false;  // a key waits for its value in m_key
  std::string m_key;
  std::string m_text;  // the text since the last start tag or value
  PListValue m_root;
};

// expat's callbacks: each stops the parser once the file is refused.
struct Parse {
  XML_Parser parser;
  TreeBuilder builder;

  void StopIfFailed() {
    if (builder.error() != Code::kOk) XML_StopParser(parser, XML_FALSE);
  }

  static void OnStart(void* data, const XML_Char* name, const XML_Char**) {
    Parse* parse = static_cast<Parse*>(data);
    parse->builder.Start(name);
    parse->StopIfFailed();
  }
  static void OnEnd(void* data, const XML_Char* name) {
    Parse* parse = static_cast<Parse*>(data);
    parse->builder.End(name);
    parse->StopIfFailed();
  }
  static void OnText(void* data, const XML_Char* text, int length) {
    static_cast<Parse*>(data)->builder.Text(text, length);
  }
  // Entity declarations are refused: no entity of the file is ever
  // expanded, so none can grow the tree or reach outside the file.
  static void OnEntityDeclaration(void* data, const XML_Char*, int, const XML_Char*, int,
                                  const XML_Char*, const XML_Char*, const XML_Char*,
                                  const XML_Char*) {
    Parse* parse = static_cast<Parse*>(data);
    parse->builder.Fail(Code::kNotAPropertyList);
    parse->StopIfFailed();
  }
};

// Owns an expat parser.
struct ParserDeleter {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

}  // namespace

Status ReadXmlPropertyList(const char* text, std::size_t size,
                           mvtl::RefCountedPtr<PListDictionary>& root) {
  auto refuse = [](Code why) { return Status::Refused(why, Status::Operation::kParse); };
  if (size > kMaxSettingsFileSize) return refuse(Code::kTooLarge);
  if (!StartsAsXmlPList(text, size)) return refuse(Code::kNotAPropertyList);
  const std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreate(nullptr));
  if (!parser) return refuse(Code::kTooLarge);  // out of memory
  Parse parse{parser.get(), TreeBuilder(size)};
  XML_SetUserData(parser.get(), &parse);
  XML_SetElementHandler(parser.get(), Parse::OnStart, Parse::OnEnd);
  XML_SetCharacterDataHandler(parser.get(), Parse::OnText);
  XML_SetEntityDeclHandler(parser.get(), Parse::OnEntityDeclaration);
  const XML_Status status = XML_Parse(parser.get(), text, static_cast<int>(size), XML_TRUE);
  if (parse.builder.error() != Code::kOk) return refuse(parse.builder.error());
  if (status != XML_STATUS_OK) {
    // A character that is not UTF-8 is the usual cause of a bad token.
    const XML_Error error = XML_GetErrorCode(parser.get());
    const bool badCharacter = error == XML_ERROR_INVALID_TOKEN || error == XML_ERROR_PARTIAL_CHAR;
    return refuse(badCharacter && !IsWellFormedUTF8(text, size) ? Code::kBadText
                                                                : Code::kNotAPropertyList);
  }
  PListDictionary* dictionary = AsDictionary(parse.builder.root());
  if (dictionary == nullptr) return refuse(Code::kNotADictionary);
  root = dictionary;
  return Status::OK();
}

}  // namespace mvcs
