// The binary property-list writer (see BinaryPListWriter.h).
//
// Two passes. The first numbers the objects (the root dictionary is 0),
// depth first, giving each distinct string one number through a hash
// table, and keeps each container's references; it also checks the text,
// the nesting and what reading the result will cost. The second writes the
// objects in number order, then the offset table and the trailer, with the
// smallest reference and offset sizes that fit.

#include "BinaryPListWriter.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "PListLimits.h"
#include "PListText.h"

namespace mvcs {

namespace {

// The bytes needed for unsigned values up to `largest`: 1, 2, 4 or 8.
std::size_t SizeFor(std::uint64_t largest) {
  if (largest <= 0xFF) return 1;
  if (largest <= 0xFFFF) return 2;
  if (largest <= 0xFFFFFFFF) return 4;
  return 8;
}

// The exponent of the marker of an integer of `size` bytes (1, 2, 4, 8, 16).
unsigned ExponentOf(std::size_t size) {
  return size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : size == 8 ? 3 : 4;
}

char* PutBigEndian(char* out, std::uint64_t value, std::size_t size) {
  switch (size) {
    case 1:
      *out = static_cast<char>(value);
      return out + 1;
    case 2: {
      const std::uint16_t big = __builtin_bswap16(static_cast<std::uint16_t>(value));
      std::memcpy(out, &big, 2);
      return out + 2;
    }
    case 4: {
      const std::uint32_t big = __builtin_bswap32(static_cast<std::uint32_t>(value));
      std::memcpy(out, &big, 4);
      return out + 4;
    }
    default: {
      const std::uint64_t big = __builtin_bswap64(value);
      std::memcpy(out, &big, 8);
      return out + 8;
    }
  }
}

char* PutDouble(char* out, unsigned char marker, double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  *out++ = static_cast<char>(marker);
  return PutBigEndian(out, bits, 8);
}

// The bytes of a marker with its count: the count is in the low nibble
// when below 15, else 0xF is there and the count follows as an integer.
std::size_t MarkerSize(std::uint64_t count) { return count < 15 ? 1 : 2 + SizeFor(count); }

char* PutMarker(char* out, unsigned type, std::uint64_t count) {
  if (count < 15) {
    *out++ = static_cast<char>(type << 4 | count);
    return out;
  }
  *out++ = static_cast<char>(type << 4 | 0xF);
  const std::size_t size = SizeFor(count);
  *out++ = static_cast<char>(0x10 | ExponentOf(size));
  return PutBigEndian(out, count, size);
}

// The bytes of an integer object holding `integer` (and the size of its
// value): 1, 2 or 4 bytes for small non-negative values, 8 for the rest,
// 16 for the unsigned values from 2^63 that the tree marks `wide`.
std::size_t IntegerSize(const PListInteger& integer) {
  const std::uint64_t bits = static_cast<std::uint64_t>(integer.bits);
  if (integer.wide) return 16;
  if (integer.bits < 0 || bits > 0xFFFFFFFF) return 8;
  return SizeFor(bits);
}

// What a string of the tree costs its reader on each use (PListLimits.h):
// its bytes as ASCII, three times its units as UTF-16.
std::uint64_t ReadCost(bool ascii, std::uint64_t length) {
  return kNodeCost + (ascii ? length : 3 * length);
}

// UTF-16 units of well-formed UTF-8 text: one per lead byte, two for the
// four-byte forms.
std::uint64_t Utf16Units(const std::string& text) {
  std::uint64_t units = 0;
  for (unsigned char byte : text) {
    if ((byte & 0xC0) != 0x80) units += byte >= 0xF0 ? 2 : 1;
  }
  return units;
}

// Dictionaries of at least this many entries have the table slots of
// their keys fetched this many keys ahead.
constexpr std::size_t kPrefetchFrom = 64;
constexpr std::size_t kPrefetchDistance = 8;

class Writer {
 public:
  // `expectedSize`: the size the result is likely to have (0 if unknown).
  Status Write(const PListDictionary& root, std::size_t expectedSize, std::string& bytes) {
    // A settings file holds a string for about every 24 bytes.
    m_strings.Reserve(expectedSize / 24);
    m_objects.reserve(expectedSize / 16);
    AddDictionary(root, 1);
    if (m_error != Code::kOk) return Refuse(m_error);
    const std::size_t referenceSize = SizeFor(m_objects.size() - 1);
    const std::uint64_t tableOffset = 8 + m_objectBytes + m_refs.size() * referenceSize;
    const std::size_t offsetSize = SizeFor(tableOffset);
    const std::uint64_t total = tableOffset + m_objects.size() * offsetSize + 32;
    if (total > kMaxSettingsFileSize || m_cost > TreeBudget(total)) return Refuse(Code::kTooLarge);

    std::string out(static_cast<std::size_t>(total), '\0');
    char* const start = &out[0];
    char* p = start;
    std::memcpy(p, "bplist00", 8);
    p += 8;
    std::vector<std::uint64_t> offsets;
    offsets.reserve(m_objects.size());
    for (const Object& object : m_objects) {
      offsets.push_back(static_cast<std::uint64_t>(p - start));
      p = WriteObject(object, referenceSize, p);
    }
    for (std::uint64_t offset : offsets) p = PutBigEndian(p, offset, offsetSize);
    p += 6;  // unused, and the sort version
    *p++ = static_cast<char>(offsetSize);
    *p++ = static_cast<char>(referenceSize);
    p = PutBigEndian(p, m_objects.size(), 8);
    p = PutBigEndian(p, 0, 8);  // the top object: the root, numbered first
    p = PutBigEndian(p, tableOffset, 8);
    bytes.swap(out);
    return Status::OK();
  }

 private:
  typedef Status::Code Code;

  static Status Refuse(Code code) { return Status::Refused(code, Status::Operation::kSerialise); }

  enum class Kind : unsigned char { kDictionary, kArray, kString, kScalar };

  struct Object {
    const void* item;        // the dictionary, array, string or scalar value
    std::uint32_t firstRef;  // containers: where their references start in m_refs
    std::uint32_t refCount;  // containers: how many there are
    std::uint32_t length;    // strings: bytes (ASCII) or UTF-16 units
    Kind kind;
    bool ascii;  // strings: written as ASCII (else UTF-16)
  };

  // The strings numbered so far, by content: open addressing over a power
  // of two of slots, each empty or an object number with the low half of
  // the string's hash, so that a probe looks at a string only when those
  // agree, and the table grows without looking at any. Eight bytes a slot,
  // for the table to stay in the processor's caches as long as it can.
  class StringTable {
   public:
    static constexpr std::uint32_t kMissing = ~std::uint32_t{0};

    std::uint32_t Find(const std::string& text, std::uint64_t hash,
                       const std::vector<Object>& objects) const {
      if (m_slots.empty()) return kMissing;
      const std::uint32_t low = static_cast<std::uint32_t>(hash);
      for (std::size_t slot = low & m_mask;; slot = (slot + 1) & m_mask) {
        const Slot& entry = m_slots[slot];
        if (entry.index == 0) return kMissing;
        if (entry.hash == low &&
            *static_cast<const std::string*>(objects[entry.index - 1].item) == text) {
          return entry.index - 1;
        }
      }
    }

    // Makes room for about `strings` strings at once, which saves growing
    // the table step by step (each step touches all of it).
    void Reserve(std::size_t strings) {
      std::size_t size = 1024;
      while (size * 7 < 10 * strings) size *= 2;
      if (size <= m_slots.size()) return;
      m_slots.assign(size, Slot{0, 0});
      m_mask = size - 1;
    }

    // Asks the processor to fetch the slot where a search for `hash`
    // starts, ahead of the search: tables larger than the caches would
    // otherwise cost a wait for memory at every string.
    void Prefetch(std::uint64_t hash) const {
      if (!m_slots.empty()) __builtin_prefetch(&m_slots[static_cast<std::uint32_t>(hash) & m_mask]);
    }

    void Insert(std::uint64_t hash, std::uint32_t index) {
      if (10 * (m_count + 1) > 7 * m_slots.size()) Grow();
      Place({static_cast<std::uint32_t>(hash), index + 1});
      ++m_count;
    }

    // A fast hash of the bytes, eight at a time (not for untrusted keys
    // that could be chosen to collide: these are the tree's own): a
    // multiply and a shift a word, and a full mix at the end.
    static std::uint64_t Hash(const std::string& text) {
      std::uint64_t hash = 0x9E3779B97F4A7C15ull ^ text.size();
      std::size_t i = 0;
      for (; i + 8 <= text.size(); i += 8) {
        std::uint64_t chunk;
        std::memcpy(&chunk, text.data() + i, 8);
        hash = (hash ^ chunk) * 0xFF51AFD7ED558CCDull;
        hash ^= hash >> 29;
      }
      std::uint64_t tail = 0;
      std::memcpy(&tail, text.data() + i, text.size() - i);
      return Mix(hash ^ tail);
    }

   private:
    struct Slot {
      std::uint32_t hash;   // the low half of the string's hash
      std::uint32_t index;  // the object number plus one; 0 for an empty slot
    };

    // Spreads every input bit over every output bit (the finaliser of
    // MurmurHash3).
    static std::uint64_t Mix(std::uint64_t h) {
      h ^= h >> 33;
      h *= 0xFF51AFD7ED558CCDull;
      h ^= h >> 33;
      h *= 0xC4CEB9FE1A85EC53ull;
      return h ^ (h >> 33);
    }

    void Place(const Slot& entry) {
      std::size_t slot = entry.hash & m_mask;
      while (m_slots[slot].index != 0) slot = (slot + 1) & m_mask;
      m_slots[slot] = entry;
    }

    void Grow() {
      std::vector<Slot> old;
      old.swap(m_slots);
      m_slots.assign(old.empty() ? 1024 : 2 * old.size(), Slot{0, 0});
      m_mask = m_slots.size() - 1;
      for (const Slot& entry : old) {
        if (entry.index != 0) Place(entry);
      }
    }

    std::vector<Slot> m_slots;
    std::size_t m_mask = 0;
    std::size_t m_count = 0;
  };

  std::uint32_t AddString(const std::string& text) {
    return AddString(text, StringTable::Hash(text));
  }

  // The same with the string's hash already computed.
  std::uint32_t AddString(const std::string& text, std::uint64_t hash) {
    const std::uint32_t found = m_strings.Find(text, hash, m_objects);
    if (found != StringTable::kMissing) {
      m_cost += ReadCost(m_objects[found].ascii, m_objects[found].length);
      return found;
    }
    const bool ascii = IsAsciiText(text.data(), text.size());
    const bool valid = ascii || IsTreeText(text.data(), text.size());
    if (!valid) m_error = Code::kBadText;
    const std::uint64_t length = ascii ? text.size() : Utf16Units(text);
    m_cost += ReadCost(ascii, length);
    m_objectBytes += MarkerSize(length) + (ascii ? length : 2 * length);
    const std::uint32_t index =
        NewObject({&text, 0, 0, static_cast<std::uint32_t>(length), Kind::kString, ascii});
    m_strings.Insert(hash, index);
    return index;
  }

  std::uint32_t NewObject(const Object& object) {
    const std::uint32_t index = static_cast<std::uint32_t>(m_objects.size());
    m_objects.push_back(object);
    return index;
  }

  // Numbers a container (first, so that the root is object 0), then what it
  // holds, depth first: addItems(first) numbers the `count` items and puts
  // their numbers at m_refs[first...].
  template <class Items>
  std::uint32_t AddContainer(Kind kind, const void* item, std::size_t depth, std::size_t count,
                             std::uint64_t markerCount, Items addItems) {
    if (depth > kMaxNesting) m_error = Code::kTooDeep;
    m_cost += kNodeCost;
    m_objectBytes += MarkerSize(markerCount);
    const std::uint32_t first = static_cast<std::uint32_t>(m_refs.size());
    const std::uint32_t index =
        NewObject({item, first, static_cast<std::uint32_t>(count), 0, kind, false});
    if (m_error != Code::kOk) return index;
    m_refs.resize(m_refs.size() + count);
    addItems(first);
    return index;
  }

  std::uint32_t AddDictionary(const PListDictionary& dictionary, std::size_t depth) {
    const PListDictionary::Entries& entries = dictionary.GetEntries();
    const std::size_t size = entries.size();
    return AddContainer(Kind::kDictionary, &dictionary, depth, 2 * size, size,
                        [&](std::uint32_t first) {
                          if (size < kPrefetchFrom) {
                            std::size_t i = first;
                            for (const auto& entry : entries) {
                              m_refs[i] = AddString(entry.first);
                              m_refs[i + size] = AddValue(entry.second, depth);
                              ++i;
                            }
                            return;
                          }
                          // A large dictionary: the keys' hashes first,
                          // then each key with the slot of the one
                          // kPrefetchDistance ahead already on its way.
                          std::vector<std::uint64_t> hashes;
                          hashes.reserve(size);
                          for (const auto& entry : entries) {
                            hashes.push_back(StringTable::Hash(entry.first));
                          }
                          std::size_t i = 0;
                          for (const auto& entry : entries) {
                            if (i + kPrefetchDistance < size) {
                              m_strings.Prefetch(hashes[i + kPrefetchDistance]);
                            }
                            m_refs[first + i] = AddString(entry.first, hashes[i]);
                            m_refs[first + i + size] = AddValue(entry.second, depth);
                            ++i;
                          }
                        });
  }

  std::uint32_t AddArray(const PListArray& array, std::size_t depth) {
    const std::size_t size = array.items.size();
    return AddContainer(Kind::kArray, &array, depth, size, size, [&](std::uint32_t first) {
      for (std::size_t i = 0; i < size; ++i) {
        m_refs[first + i] = AddValue(array.items[i], depth);
      }
    });
  }

  // Numbers a value held by a container at `depth`.
  std::uint32_t AddValue(const PListValue& value, std::size_t depth) {
    if (const PListDictionary* dictionary = AsDictionary(value)) {
      return AddDictionary(*dictionary, depth + 1);
    }
    if (const PListArrayRef* array = std::get_if<PListArrayRef>(&value)) {
      return AddArray(**array, depth + 1);
    }
    if (const std::string* text = std::get_if<std::string>(&value)) return AddString(*text);
    std::uint64_t bytes = 9;  // reals, dates: a marker and 8 bytes
    std::uint64_t payload = 0;
    if (const PListInteger* integer = std::get_if<PListInteger>(&value)) {
      bytes = 1 + IntegerSize(*integer);
    } else if (std::holds_alternative<bool>(value)) {
      bytes = 1;
    } else if (const PListData* data = std::get_if<PListData>(&value)) {
      payload = data->size();
      bytes = MarkerSize(payload) + payload;
    } else if (const PListUid* uid = std::get_if<PListUid>(&value)) {
      bytes = 1 + SizeFor(uid->value);
    }
    m_cost += kNodeCost + payload;
    m_objectBytes += bytes;
    return NewObject({&value, 0, 0, 0, Kind::kScalar, false});
  }

  char* WriteObject(const Object& object, std::size_t referenceSize, char* out) const {
    switch (object.kind) {
      case Kind::kDictionary:
        out = PutMarker(out, 0xD, object.refCount / 2);
        break;
      case Kind::kArray:
        out = PutMarker(out, static_cast<const PListArray*>(object.item)->isSet ? 0xC : 0xA,
                        object.refCount);
        break;
      case Kind::kString: {
        const std::string& text = *static_cast<const std::string*>(object.item);
        out = PutMarker(out, object.ascii ? 0x5 : 0x6, object.length);
        if (object.ascii) {
          std::memcpy(out, text.data(), text.size());
          return out + text.size();
        }
        return PutUTF8AsUTF16BigEndian(text, out);
      }
      case Kind::kScalar:
        return WriteScalar(*static_cast<const PListValue*>(object.item), out);
    }
    const std::uint32_t* refs = m_refs.data() + object.firstRef;
    for (std::uint32_t i = 0; i < object.refCount; ++i) {
      out = PutBigEndian(out, refs[i], referenceSize);
    }
    return out;
  }

  static char* PutUTF8AsUTF16BigEndian(const std::string& text, char* out) {
    std::string units;
    units.reserve(2 * text.size());
    AppendUTF8AsUTF16BigEndian(text, units);
    std::memcpy(out, units.data(), units.size());
    return out + units.size();
  }

  static char* WriteScalar(const PListValue& value, char* out) {
    if (const PListInteger* integer = std::get_if<PListInteger>(&value)) {
      const std::size_t size = IntegerSize(*integer);
      *out++ = static_cast<char>(0x10 | ExponentOf(size));
      if (size == 16) out = PutBigEndian(out, 0, 8);  // the high half of an unsigned value
      return PutBigEndian(out, static_cast<std::uint64_t>(integer->bits), size == 16 ? 8 : size);
    }
    if (const PListReal* real = std::get_if<PListReal>(&value)) {
      return PutDouble(out, 0x23, real->value);
    }
    if (const bool* boolean = std::get_if<bool>(&value)) {
      *out++ = *boolean ? '\x09' : '\x08';
      return out;
    }
    if (const PListData* data = std::get_if<PListData>(&value)) {
      out = PutMarker(out, 0x4, data->size());
      if (!data->empty()) std::memcpy(out, data->data(), data->size());
      return out + data->size();
    }
    if (const PListDate* date = std::get_if<PListDate>(&value)) {
      return PutDouble(out, 0x33, date->seconds);
    }
    const PListUid& uid = std::get<PListUid>(value);
    const std::size_t size = SizeFor(uid.value);
    *out++ = static_cast<char>(0x80 | (size - 1));
    return PutBigEndian(out, uid.value, size);
  }

  std::vector<Object> m_objects;
  std::vector<std::uint32_t> m_refs;
  StringTable m_strings;
  std::uint64_t m_objectBytes = 0;  // the bytes of the objects, but for their references
  std::uint64_t m_cost = 0;         // what reading the result will spend (PListLimits.h)
  Code m_error = Code::kOk;         // why the tree cannot be written
};

}  // namespace

Status WriteBinaryPList(const PListDictionary& root, std::size_t expectedSize, std::string& bytes) {
  return Writer().Write(root, expectedSize, bytes);
}

}  // namespace mvcs
