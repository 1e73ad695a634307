// Checks that decide whether libplist may parse a settings file's bytes
// (see PListInputCheck.h).
//
// The binary format: "bplist00", the objects, a table of object offsets,
// and a 32-byte trailer (5 unused bytes, sort version, offset size,
// reference size, object count, top object, offset-table offset; numbers
// big-endian). Each object starts with a marker byte: type in the high
// nibble, a small count in the low one, or 0xF and a following integer
// object holding the count.

#include "PListInputCheck.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "PListTree.h"

namespace mvcs {

namespace {

const std::size_t kHeaderSize = 8;  // "bplist00"
const std::size_t kTrailerSize = 32;

// The tree that parsing builds is budgeted in modelled bytes: kNodeCost for
// every node (libplist's node and data records, the store's entry), plus the
// text or data it holds. The budget is a fixed floor plus a multiple of the
// file's size, well above what written files need (a dense file of small
// values models at about 20 times its size) and far below any blow-up.
const std::uint64_t kNodeCost = 64;
const std::uint64_t kBudgetFloor = 1u << 20;
const std::uint64_t kBudgetPerFileByte = 64;

enum ObjectType {
  kSimple = 0x0,  // booleans (and null and fill, which libplist refuses)
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
  for (std::size_t i = 0; i < size; ++i) value = (value << 8) | p[i];
  return value;
}

// Whether `size` bytes are ASCII text without U+0000.
bool IsPlainAscii(const unsigned char* p, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    if (p[i] == 0 || p[i] >= 0x80) return false;
  }
  return true;
}

// Whether `units` big-endian UTF-16 units are text without U+0000 and with
// every surrogate in a pair.
bool IsPairedUtf16(const unsigned char* p, std::size_t units) {
  for (std::size_t i = 0; i < units; ++i) {
    const unsigned unit = static_cast<unsigned>(p[2 * i]) << 8 | p[2 * i + 1];
    if (unit == 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) return false;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      if (i + 1 >= units) return false;
      const unsigned next = static_cast<unsigned>(p[2 * i + 2]) << 8 | p[2 * i + 3];
      if (next < 0xDC00 || next > 0xDFFF) return false;
      ++i;
    }
  }
  return true;
}

std::uint64_t SaturatingAdd(std::uint64_t a, std::uint64_t b) {
  return a + b < a ? UINT64_MAX : a + b;
}

// One object as the walk needs it.
struct Object {
  unsigned type;
  std::size_t references;  // offset of the first reference (containers)
  std::uint64_t count;     // references that follow (keys and values)
  std::uint64_t leafCost;  // kNodeCost plus payload, for leaves
};

class BinaryWalk {
 public:
  BinaryWalk(const unsigned char* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

  bool Check() {
    if (!ReadTrailer()) return false;
    Object top;
    if (!ReadObject(m_topObject, top) || top.type != kDictionary) return false;
    m_state.assign(m_objectCount, kUnvisited);
    m_isString.assign(m_objectCount, false);
    m_cost.assign(m_objectCount, 0);
    m_height.assign(m_objectCount, 0);
    std::uint64_t cost = 0;
    std::size_t height = 0;
    return Visit(m_topObject, 1, false, cost, height);
  }

 private:
  enum State : unsigned char { kUnvisited, kVisiting, kDone };

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
    m_budget = SaturatingAdd(kBudgetFloor, kBudgetPerFileByte * static_cast<std::uint64_t>(m_size));
    return true;
  }

  // Reads object `index`'s header and checks that all of it lies in the
  // object area (which ends where the offset table starts).
  bool ReadObject(std::size_t index, Object& object) const {
    const std::size_t end = m_tableOffset;
    const std::uint64_t offset =
        ReadBigEndian(m_bytes + m_tableOffset + index * m_offsetSize, m_offsetSize);
    if (offset < kHeaderSize || offset >= end) return false;
    std::size_t position = static_cast<std::size_t>(offset);
    const unsigned marker = m_bytes[position++];
    object.type = marker >> 4;
    std::uint64_t count = marker & 0xF;
    const bool counted = object.type == kData || object.type == kAsciiString ||
                         object.type == kUtf16String || object.type == kArray ||
                         object.type == kSet || object.type == kDictionary;
    if (counted && count == 0xF) {
      // The count follows as an integer object of 1, 2, 4 or 8 bytes.
      if (position >= end || (m_bytes[position] >> 4) != kInteger) return false;
      const unsigned exponent = m_bytes[position] & 0xF;
      if (exponent > 3) return false;
      const std::size_t size = static_cast<std::size_t>(1) << exponent;
      if (end - position - 1 < size) return false;
      count = ReadBigEndian(m_bytes + position + 1, size);
      position += 1 + size;
    }
    const std::uint64_t room = end - position;
    std::uint64_t length = 0;  // bytes of the object after its header
    object.count = 0;
    object.references = position;
    object.leafCost = kNodeCost;
    switch (object.type) {
      case kSimple:
        if (marker != 0x08 && marker != 0x09) return false;
        break;
      case kInteger:
        if (count > 4) return false;
        length = static_cast<std::uint64_t>(1) << count;
        break;
      case kReal:
        if (count != 2 && count != 3) return false;
        length = static_cast<std::uint64_t>(1) << count;
        break;
      case kDate:
        if (marker != 0x33) return false;
        length = 8;
        break;
      case kData:
        length = count;
        object.leafCost = SaturatingAdd(kNodeCost, count);
        break;
      case kAsciiString:  // strings must be text libplist can write back
        if (count > room || !IsPlainAscii(m_bytes + position, static_cast<std::size_t>(count)))
          return false;
        length = count;
        object.leafCost = SaturatingAdd(kNodeCost, count);
        break;
      case kUtf16String:
        if (count > room / 2 || !IsPairedUtf16(m_bytes + position, static_cast<std::size_t>(count)))
          return false;
        length = count * 2;
        object.leafCost = SaturatingAdd(kNodeCost, count * 3);  // as UTF-8
        break;
      case kUid:
        length = count + 1;
        break;
      case kArray:
      case kSet:
        if (count > room / m_referenceSize) return false;
        length = count * m_referenceSize;
        object.count = count;
        break;
      case kDictionary:
        if (count > room / (2 * m_referenceSize)) return false;
        length = count * 2 * m_referenceSize;
        object.count = count * 2;
        break;
      default:
        return false;
    }
    return length <= room;
  }

  std::size_t Reference(const Object& object, std::uint64_t i) const {
    return static_cast<std::size_t>(
        ReadBigEndian(m_bytes + object.references + i * m_referenceSize, m_referenceSize));
  }

  // Walks object `index`, a container at nesting `depth` (the root is 1):
  // `cost` receives the modelled size of the tree parsing builds from it,
  // `height` the nesting of containers it holds (itself included). Each
  // object is walked once; a shared one adds its cost at every use.
  // With `asKey`, the object must be a string (a dictionary key).
  bool Visit(std::size_t index, std::size_t depth, bool asKey, std::uint64_t& cost,
             std::size_t& height) {
    if (m_state[index] == kDone) {
      if (asKey && !m_isString[index]) return false;
      cost = m_cost[index];
      height = m_height[index];
      return depth - 1 + height <= kMaxNesting;
    }
    if (m_state[index] == kVisiting) return false;  // an object inside itself
    Object object;
    if (!ReadObject(index, object)) return false;
    const bool isString = object.type == kAsciiString || object.type == kUtf16String;
    if (asKey && !isString) return false;
    const bool container =
        object.type == kArray || object.type == kSet || object.type == kDictionary;
    if (!container) {
      cost = object.leafCost;
      height = 0;
    } else {
      if (depth > kMaxNesting) return false;
      m_state[index] = kVisiting;
      cost = kNodeCost;
      height = 1;
      const std::uint64_t keys = object.type == kDictionary ? object.count / 2 : 0;
      for (std::uint64_t i = 0; i < object.count; ++i) {
        const std::size_t child = Reference(object, i);
        if (child >= m_objectCount) return false;
        std::uint64_t childCost = 0;
        std::size_t childHeight = 0;
        if (!Visit(child, depth + 1, i < keys, childCost, childHeight)) return false;
        cost = SaturatingAdd(cost, childCost);
        if (childHeight + 1 > height) height = childHeight + 1;
        if (cost > m_budget) return false;
      }
    }
    m_state[index] = kDone;
    m_isString[index] = isString;
    m_cost[index] = cost;
    m_height[index] = height;
    return cost <= m_budget;
  }

  const unsigned char* m_bytes;
  std::size_t m_size;
  std::size_t m_offsetSize = 0;
  std::size_t m_referenceSize = 0;
  std::size_t m_objectCount = 0;
  std::size_t m_topObject = 0;
  std::size_t m_tableOffset = 0;
  std::uint64_t m_budget = 0;
  std::vector<State> m_state;
  std::vector<bool> m_isString;
  std::vector<std::uint64_t> m_cost;
  std::vector<std::uint32_t> m_height;
};

// Whether the tag that starts at `p` (just after '<') is `name` followed by
// the end of the tag's name.
bool TagIs(const char* p, const char* end, const char* name) {
  const std::size_t length = std::strlen(name);
  if (static_cast<std::size_t>(end - p) < length || std::memcmp(p, name, length) != 0) return false;
  if (static_cast<std::size_t>(end - p) == length) return true;
  const char next = p[length];
  return next == '>' || next == '/' || next == ' ' || next == '\t' || next == '\r' || next == '\n';
}

}  // namespace

bool IsSafeBinaryPList(const unsigned char* bytes, std::size_t size) {
  return BinaryWalk(bytes, size).Check();
}

bool IsSafeXmlPList(const char* text, std::size_t size) {
  if (std::memchr(text, 0, size) != nullptr) return false;  // no XML holds a NUL
  const char* const end = text + size;
  std::size_t depth = 0;
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
    if (++depth > kMaxNesting) return false;
  }
  return true;
}

}  // namespace mvcs
