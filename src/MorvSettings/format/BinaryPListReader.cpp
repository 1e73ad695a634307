// The binary property-list reader (see BinaryPListReader.h).
//
// The format: "bplist00", the objects, a table of object offsets, and a
// 32-byte trailer (5 unused bytes, sort version, offset size, reference
// size, object count, top object, offset-table offset; numbers big-endian).
// Each object starts with a marker byte: its type in the high nibble and a
// small count in the low one, or 0xF there and the count following as an
// integer object. Containers hold references: indexes into the offset table.
//
// The reader builds the tree straight from the bytes, walking down from the
// top object. Every offset, count and reference is checked against the
// bytes before it is used; an object that contains itself, nesting deeper
// than kMaxNesting, and trees larger than the budget for the file's size
// (an object referenced from many places is copied at each use) are
// refused as soon as they are met.

#include "BinaryPListReader.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "PListLimits.h"
#include "PListText.h"

namespace mvcs {

namespace {

const std::size_t kHeaderSize = 8;  // "bplist00"
const std::size_t kTrailerSize = 32;

enum ObjectType : unsigned {
  kSimple = 0x0,  // false, true (null and fill are not property-list values)
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAsciiString = 0x5,
  kUtf16String = 0x6,
  kUid = 0x8,
  kArray = 0xA,
  kSet = 0xC,
  kDictionary = 0xD,
};

std::uint64_t ReadBigEndian(const unsigned char* p, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value << 8 | p[i];
  return value;
}

double ReadDouble(const unsigned char* p, std::size_t size) {
  const std::uint64_t bits = ReadBigEndian(p, size);
  if (size == 4) {
    const std::uint32_t narrow = static_cast<std::uint32_t>(bits);
    float value;
    std::memcpy(&value, &narrow, sizeof(value));
    return value;
  }
  double value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

class Reader {
 public:
  Reader(const unsigned char* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

  Status Read(mvtl::RefCountedPtr<PListDictionary>& root) {
    if (!ReadTrailer()) return Refuse(Code::kNotAPropertyList);
    Object top;
    if (!ReadObject(m_topObject, top)) return Refuse(m_error);
    if (top.type != kDictionary) return Refuse(Code::kNotADictionary);
    m_visiting.assign(m_objectCount, false);
    PListValue value;
    if (!ReadValue(m_topObject, 1, value)) return Refuse(m_error);
    root = AsDictionary(value);
    return Status::OK();
  }

 private:
  // One object's header: its type, its count (items, bytes or units), and
  // where its body starts. ReadObject has checked that the body lies in
  // the object area.
  struct Object {
    unsigned type;
    unsigned marker;
    std::uint64_t count;
    const unsigned char* body;
  };

  typedef Status::Code Code;

  static Status Refuse(Code code) { return Status::Refused(code, Status::Operation::kParse); }

  // Records why the bytes are refused; false, for returning.
  bool Fail(Code error) {
    m_error = error;
    return false;
  }

  bool ReadTrailer() {
    if (m_size < kHeaderSize + kTrailerSize + 1) return false;
    if (std::memcmp(m_bytes, "bplist00", kHeaderSize) != 0) return false;
    const unsigned char* trailer = m_bytes + m_size - kTrailerSize;
    m_offsetSize = trailer[6];
    m_referenceSize = trailer[7];
    const std::uint64_t objectCount = ReadBigEndian(trailer + 8, 8);
    const std::uint64_t topObject = ReadBigEndian(trailer + 16, 8);
    const std::uint64_t tableOffset = ReadBigEndian(trailer + 24, 8);
    if (m_offsetSize < 1 || m_offsetSize > 8 || m_referenceSize < 1 || m_referenceSize > 8) {
      return false;
    }
    const std::size_t tableEnd = m_size - kTrailerSize;
    if (tableOffset < kHeaderSize || tableOffset >= tableEnd) return false;
    if (objectCount == 0 || objectCount > (tableEnd - tableOffset) / m_offsetSize) return false;
    if (topObject >= objectCount) return false;
    m_objectCount = static_cast<std::size_t>(objectCount);
    m_topObject = static_cast<std::size_t>(topObject);
    m_tableOffset = static_cast<std::size_t>(tableOffset);
    m_budget = TreeBudget(m_size);
    return true;
  }

  // Reads the header of object `index` and checks that all of its body
  // lies in the object area (which ends where the offset table starts).
  bool ReadObject(std::size_t index, Object& object) {
    const std::size_t end = m_tableOffset;
    const std::uint64_t offset =
        ReadBigEndian(m_bytes + m_tableOffset + index * m_offsetSize, m_offsetSize);
    if (offset < kHeaderSize || offset >= end) return Fail(Code::kNotAPropertyList);
    std::size_t position = static_cast<std::size_t>(offset);
    object.marker = m_bytes[position++];
    object.type = object.marker >> 4;
    std::uint64_t count = object.marker & 0xF;
    const bool counted = object.type == kData || object.type == kAsciiString ||
                         object.type == kUtf16String || object.type == kArray ||
                         object.type == kSet || object.type == kDictionary;
    if (counted && count == 0xF) {
      // The count follows as an integer object of 1, 2, 4 or 8 bytes.
      if (position >= end || (m_bytes[position] >> 4) != kInteger) {
        return Fail(Code::kNotAPropertyList);
      }
      const unsigned exponent = m_bytes[position] & 0xF;
      if (exponent > 3) return Fail(Code::kNotAPropertyList);
      const std::size_t size = static_cast<std::size_t>(1) << exponent;
      if (end - position - 1 < size) return Fail(Code::kNotAPropertyList);
      count = ReadBigEndian(m_bytes + position + 1, size);
      position += 1 + size;
    }
    const std::uint64_t room = end - position;
    std::uint64_t length = 0;  // bytes of the body
    switch (object.type) {
      case kSimple:
        if (object.marker != 0x08 && object.marker != 0x09) {
          return Fail(Code::kNotAPropertyList);
        }
        break;
      case kInteger:
        if (count > 4) return Fail(Code::kNotAPropertyList);
        length = std::uint64_t{1} << count;
        break;
      case kReal:
        if (count != 2 && count != 3) return Fail(Code::kNotAPropertyList);
        length = std::uint64_t{1} << count;
        break;
      case kDate:
        if (object.marker != 0x33) return Fail(Code::kNotAPropertyList);
        length = 8;
        break;
      case kData:
      case kAsciiString:
        length = count;
        break;
      case kUtf16String:
        if (count > room / 2) return Fail(Code::kNotAPropertyList);
        length = count * 2;
        break;
      case kUid:
        length = count + 1;
        break;
      case kArray:
      case kSet:
        if (count > room / m_referenceSize) return Fail(Code::kNotAPropertyList);
        length = count * m_referenceSize;
        break;
      case kDictionary:
        if (count > room / (2 * m_referenceSize)) return Fail(Code::kNotAPropertyList);
        length = count * 2 * m_referenceSize;
        break;
      default:
        return Fail(Code::kNotAPropertyList);
    }
    if (length > room) return Fail(Code::kNotAPropertyList);
    object.count = count;
    object.body = m_bytes + position;
    return true;
  }

  // The object that reference `i` of a container's body names.
  bool Reference(const unsigned char* references, std::uint64_t i, std::size_t& index) {
    const std::uint64_t value = ReadBigEndian(references + i * m_referenceSize, m_referenceSize);
    if (value >= m_objectCount) return Fail(Code::kNotAPropertyList);
    index = static_cast<std::size_t>(value);
    return true;
  }

  // Charges `cost` to the tree's budget.
  bool Spend(std::uint64_t cost) {
    if (cost > m_budget - m_spent) return Fail(Code::kTooLarge);
    m_spent += cost;
    return true;
  }

  // Reads a string object (a key, or a string value) into `text`.
  bool ReadString(const Object& object, std::string& text) {
    const std::size_t count = static_cast<std::size_t>(object.count);
    const char* body = reinterpret_cast<const char*>(object.body);
    if (object.type == kAsciiString) {
      if (!Spend(kNodeCost + count)) return false;
      // ASCII strings hold bytes 0 to 0x7F only.
      if (!IsAsciiText(body, count)) return Fail(Code::kBadText);
      text.assign(body, count);
      return true;
    }
    if (!Spend(kNodeCost + 3 * std::uint64_t{count})) return false;
    text.clear();
    text.reserve(count);
    if (!AppendUTF16BigEndianAsUTF8(object.body, count, text)) return Fail(Code::kBadText);
    return true;
  }

  // Reads the key object `index` and makes its entry in `dictionary`;
  // `entry` receives the entry's value, to be filled.
  bool ReadKey(std::size_t index, PListDictionary& dictionary, PListValue*& entry) {
    Object object;
    if (!ReadObject(index, object)) return false;
    if (object.type == kAsciiString) {
      const std::size_t count = static_cast<std::size_t>(object.count);
      const char* body = reinterpret_cast<const char*>(object.body);
      if (!Spend(kNodeCost + count)) return false;
      if (!IsAsciiText(body, count)) return Fail(Code::kBadText);
      entry = &dictionary.Slot(body, count);
      return true;
    }
    if (object.type != kUtf16String) return Fail(Code::kNotAPropertyList);  // not a string
    if (!ReadString(object, m_key)) return false;
    entry = &dictionary.Slot(m_key.data(), m_key.size());
    return true;
  }

  bool ReadInteger(const Object& object, PListValue& value) {
    const std::size_t size = std::size_t{1} << object.count;
    if (size <= 8) {
      // 1, 2 and 4 bytes are unsigned; 8 bytes are the signed 64 bits.
      value = PListInteger{static_cast<long long>(ReadBigEndian(object.body, size)), false};
      return true;
    }
    // 16 bytes: what fits 64 bits. Values from 2^63 to 2^64 - 1 are kept as
    // unsigned (`wide`), negative ones as signed; others do not fit.
    const std::uint64_t high = ReadBigEndian(object.body, 8);
    const std::uint64_t low = ReadBigEndian(object.body + 8, 8);
    const bool negative = low >> 63 != 0;
    if (high == 0) {
      value = PListInteger{static_cast<long long>(low), negative};
    } else if (high == ~std::uint64_t{0} && negative) {
      value = PListInteger{static_cast<long long>(low), false};
    } else {
      return Fail(Code::kNotAPropertyList);
    }
    return true;
  }

  bool ReadUid(const Object& object, PListValue& value) {
    const std::size_t size = static_cast<std::size_t>(object.count) + 1;
    // Up to 16 bytes, of which only the last 8 may be other than zero.
    for (std::size_t i = 0; i + 8 < size; ++i) {
      if (object.body[i] != 0) return Fail(Code::kNotAPropertyList);
    }
    const std::size_t low = size > 8 ? 8 : size;
    value = PListUid{ReadBigEndian(object.body + size - low, low)};
    return true;
  }

  bool ReadDictionary(const Object& object, std::size_t depth, PListValue& value) {
    PListDictionaryRef dictionary;
    dictionary.Assign(new PListDictionary);
    // Room for every entry at once (the count is bounded by the bytes).
    dictionary->Reserve(static_cast<std::size_t>(object.count));
    const unsigned char* keys = object.body;
    const unsigned char* values = object.body + object.count * m_referenceSize;
    for (std::uint64_t i = 0; i < object.count; ++i) {
      std::size_t keyIndex = 0, valueIndex = 0;
      PListValue* entry = nullptr;
      if (!Reference(keys, i, keyIndex) || !Reference(values, i, valueIndex) ||
          !ReadKey(keyIndex, *dictionary, entry) || !ReadValue(valueIndex, depth + 1, *entry)) {
        return false;
      }
    }
    value = std::move(dictionary);
    return true;
  }

  bool ReadArray(const Object& object, std::size_t depth, PListValue& value) {
    auto array = std::make_shared<PListArray>();
    array->isSet = object.type == kSet;
    array->items.reserve(static_cast<std::size_t>(object.count));
    for (std::uint64_t i = 0; i < object.count; ++i) {
      std::size_t itemIndex = 0;
      if (!Reference(object.body, i, itemIndex)) return false;
      array->items.emplace_back();
      if (!ReadValue(itemIndex, depth + 1, array->items.back())) return false;
    }
    value = PListArrayRef(std::move(array));
    return true;
  }

  // Reads object `index`, at nesting `depth` if it is a container (the
  // root is 1), into `value`.
  bool ReadValue(std::size_t index, std::size_t depth, PListValue& value) {
    Object object;
    if (!ReadObject(index, object)) return false;
    switch (object.type) {
      case kSimple:
        value = object.marker == 0x09;
        return Spend(kNodeCost);
      case kInteger:
        return Spend(kNodeCost) && ReadInteger(object, value);
      case kReal:
        value = PListReal{ReadDouble(object.body, std::size_t{1} << object.count)};
        return Spend(kNodeCost);
      case kDate:
        value = PListDate{ReadDouble(object.body, 8)};
        return Spend(kNodeCost);
      case kData: {
        const std::size_t count = static_cast<std::size_t>(object.count);
        if (!Spend(kNodeCost + count)) return false;
        value = PListData(object.body, object.body + count);
        return true;
      }
      case kAsciiString:
      case kUtf16String: {
        std::string text;
        if (!ReadString(object, text)) return false;
        value = std::move(text);
        return true;
      }
      case kUid:
        return Spend(kNodeCost) && ReadUid(object, value);
      default:
        break;
    }
    // A container: arrays, sets and dictionaries.
    if (depth > kMaxNesting) return Fail(Code::kTooDeep);
    if (m_visiting[index]) return Fail(Code::kNotAPropertyList);  // inside itself
    if (!Spend(kNodeCost)) return false;
    m_visiting[index] = true;
    const bool ok = object.type == kDictionary ? ReadDictionary(object, depth, value)
                                               : ReadArray(object, depth, value);
    m_visiting[index] = false;
    return ok;
  }

  const unsigned char* m_bytes;
  std::size_t m_size;
  std::size_t m_offsetSize = 0;
  std::size_t m_referenceSize = 0;
  std::size_t m_objectCount = 0;
  std::size_t m_topObject = 0;
  std::size_t m_tableOffset = 0;
  std::uint64_t m_budget = 0;
  std::uint64_t m_spent = 0;
  std::vector<bool> m_visiting;  // containers being read: an object inside itself
  std::string m_key;             // a UTF-16 key, as UTF-8
  Code m_error = Code::kNotAPropertyList;
};

}  // namespace

Status ReadBinaryPropertyList(const unsigned char* bytes, std::size_t size,
                              mvtl::RefCountedPtr<PListDictionary>& root) {
  return Reader(bytes, size).Read(root);
}

}  // namespace mvcs
