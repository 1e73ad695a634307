// The binary property-list writer (see BinaryPListWriter.h).
//
// A first, light walk counts the tree (objects, strings, references and
// about how many bytes), which sizes everything below at once; the
// trailer of the tree's previous bytes, when the caller has them, tells as
// much without the walk. The second
// walk numbers the objects depth first, each container before what it
// holds (the root is object 0), and writes each object as it is numbered:
// number order is the order of the bytes. Each distinct string is written
// once: a hash table finds an equal string already written, comparing with
// its written bytes. A container's references follow its marker; the walk
// leaves room for them at the reference size that the count needs, and
// fills it in when the container's last item is numbered. When shared
// strings leave so few objects that a smaller size fits, the objects are
// copied once more, with references of that size. Then the offset table
// and the trailer, with the smallest sizes that fit. The walk checks the
// text, the nesting and what reading the result will cost.

#include "BinaryPListWriter.h"

#include <algorithm>
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

// Writes `count` numbers of `size` bytes each (1, 2, 4 or 8), with one
// choice of size for all of them.
template <class Number>
char* PutNumbers(char* out, const Number* numbers, std::size_t count, std::size_t size) {
  switch (size) {
    case 1:
      for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<char>(numbers[i]);
      return out + count;
    case 2:
      for (std::size_t i = 0; i < count; ++i) out = PutBigEndian(out, numbers[i], 2);
      return out;
    case 4:
      for (std::size_t i = 0; i < count; ++i) out = PutBigEndian(out, numbers[i], 4);
      return out;
    default:
      for (std::size_t i = 0; i < count; ++i) out = PutBigEndian(out, numbers[i], 8);
      return out;
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

// The bytes of a scalar (not a string or a container) and of its payload
// (what reading it copies besides the node: a data's bytes).
std::size_t ScalarSize(const PListValue& value, std::uint64_t& payload) {
  payload = 0;
  switch (value.index()) {
    case 1:  // integer
      return 1 + IntegerSize(*std::get_if<PListInteger>(&value));
    case 3:  // boolean
      return 1;
    case 5:  // data
      payload = std::get_if<PListData>(&value)->size();
      return MarkerSize(payload) + payload;
    case 7:  // UID
      return 1 + SizeFor(std::get_if<PListUid>(&value)->value);
    default:  // real, date: a marker and 8 bytes
      return 9;
  }
}

char* PutScalar(const PListValue& value, char* out) {
  switch (value.index()) {
    case 1: {
      const PListInteger& integer = *std::get_if<PListInteger>(&value);
      const std::size_t size = IntegerSize(integer);
      *out++ = static_cast<char>(0x10 | ExponentOf(size));
      if (size == 16) out = PutBigEndian(out, 0, 8);  // the high half of an unsigned value
      return PutBigEndian(out, static_cast<std::uint64_t>(integer.bits), size == 16 ? 8 : size);
    }
    case 2:
      return PutDouble(out, 0x23, std::get_if<PListReal>(&value)->value);
    case 3:
      *out++ = *std::get_if<bool>(&value) ? '\x09' : '\x08';
      return out;
    case 5: {
      const PListData& data = *std::get_if<PListData>(&value);
      out = PutMarker(out, 0x4, data.size());
      if (!data.empty()) std::memcpy(out, data.data(), data.size());
      return out + data.size();
    }
    case 6:
      return PutDouble(out, 0x33, std::get_if<PListDate>(&value)->seconds);
    default: {
      const std::uint64_t uid = std::get_if<PListUid>(&value)->value;
      const std::size_t size = SizeFor(uid);
      *out++ = static_cast<char>(0x80 | (size - 1));
      return PutBigEndian(out, uid, size);
    }
  }
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

// A string's hash, and whether it is ASCII, from one read of its bytes.
struct TextKey {
  std::uint64_t hash;
  bool ascii;
};

// Spreads every input bit over every output bit (the finaliser of
// MurmurHash3).
std::uint64_t Mix(std::uint64_t h) {
  h ^= h >> 33;
  h *= 0xFF51AFD7ED558CCDull;
  h ^= h >> 33;
  h *= 0xC4CEB9FE1A85EC53ull;
  return h ^ (h >> 33);
}

// A fast hash of the bytes, eight at a time (not for untrusted keys that
// could be chosen to collide: these are the tree's own): a multiply and a
// shift a word, the last (partial) word read as whole words that overlap,
// and a full mix at the end. The same reads tell ASCII: no byte with its
// high bit set.
TextKey KeyOf(const std::string& text) {
  const char* const data = text.data();
  const std::size_t size = text.size();
  std::uint64_t hash = 0x9E3779B97F4A7C15ull ^ size, high = 0, last = 0;
  if (size >= 8) {
    for (std::size_t i = 0; i + 8 < size; i += 8) {
      std::uint64_t chunk;
      std::memcpy(&chunk, data + i, 8);
      high |= chunk;
      hash = (hash ^ chunk) * 0xFF51AFD7ED558CCDull;
      hash ^= hash >> 29;
    }
    std::memcpy(&last, data + size - 8, 8);
  } else if (size >= 4) {
    std::uint32_t first, end;
    std::memcpy(&first, data, 4);
    std::memcpy(&end, data + size - 4, 4);
    last = static_cast<std::uint64_t>(first) << 32 | end;
  } else if (size > 0) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    last = static_cast<std::uint64_t>(bytes[0]) << 16 | bytes[size / 2] << 8 | bytes[size - 1];
  }
  high |= last;
  return {Mix(hash ^ last), (high & 0x8080808080808080ull) == 0};
}

// Dictionaries of at least this many entries have the table slots of
// their keys fetched this many keys ahead.
constexpr std::size_t kPrefetchFrom = 64;
constexpr std::size_t kPrefetchDistance = 8;

// What the first walk counts: upper bounds, since equal strings are
// counted at each use.
struct Census {
  std::uint64_t objects = 0;
  std::uint64_t strings = 0;
  std::uint64_t references = 0;
  std::uint64_t bytes = 0;  // the objects' bytes but for their references; text as ASCII
  std::uint64_t size = 0;   // the file's, when known so (else from the rest)
};

void CountValue(const PListValue& value, std::size_t depth, Census& census);

void CountDictionary(const PListDictionary& dictionary, std::size_t depth, Census& census) {
  const PListDictionary::Entries& entries = dictionary.GetEntries();
  const std::size_t size = entries.size();
  census.objects += 1 + size;
  census.strings += size;
  census.references += 2 * size;
  census.bytes += MarkerSize(size);
  if (depth > kMaxNesting) return;  // refused by the writing walk
  for (const auto& entry : entries) {
    census.bytes += MarkerSize(entry.first.size()) + entry.first.size();
    CountValue(entry.second, depth, census);
  }
}

void CountValue(const PListValue& value, std::size_t depth, Census& census) {
  switch (value.index()) {
    case 0:
      if (const PListDictionary* dictionary = std::get_if<PListDictionaryRef>(&value)->Get()) {
        CountDictionary(*dictionary, depth + 1, census);
      } else {
        ++census.objects;  // written as an empty dictionary
        ++census.bytes;
      }
      return;
    case 4: {
      const std::size_t size = std::get_if<std::string>(&value)->size();
      ++census.objects;
      ++census.strings;
      census.bytes += MarkerSize(size) + size;
      return;
    }
    case 8: {
      const PListArray& array = **std::get_if<PListArrayRef>(&value);
      ++census.objects;
      census.references += array.items.size();
      census.bytes += MarkerSize(array.items.size());
      if (depth + 1 > kMaxNesting) return;
      for (const PListValue& item : array.items) CountValue(item, depth + 1, census);
      return;
    }
    default:
      break;
  }
  std::uint64_t payload;
  ++census.objects;
  census.bytes += ScalarSize(value, payload);
}

// What the bytes of the tree's previous version tell of the tree, when
// they are a binary property list: a tree changed a little since has about
// as many objects, references and bytes. Saves the count of the tree; a
// guess that proves wrong costs a copy at most. False for other bytes.
bool EstimateFrom(const std::string& previous, Census& census) {
  if (previous.size() < 8 + 32 || previous.compare(0, 8, "bplist00") != 0) return false;
  const unsigned char* trailer =
      reinterpret_cast<const unsigned char*>(previous.data()) + previous.size() - 32;
  std::uint64_t objects = 0;
  for (int i = 8; i < 16; ++i) objects = objects << 8 | trailer[i];
  if (objects == 0 || objects > previous.size()) return false;
  census.objects = objects + objects / 16 + 16;
  census.strings = census.objects * 3 / 4;  // keys, and most values, are strings
  census.references = census.objects + census.objects / 2;
  census.size = previous.size() + previous.size() / 32 + 64;
  return true;
}

class Writer {
 public:
  Status Write(const PListDictionary& root, const std::string& previous, std::string& bytes) {
    Census census;
    if (!EstimateFrom(previous, census)) CountDictionary(root, 1, census);
    m_referenceSize = SizeFor(census.objects - 1);
    m_offsets.reserve(census.objects);
    m_refs.reserve(census.references);
    m_strings.Reserve(census.strings);
    // Never more than the largest file at first: a tree too large to
    // write is found out without making room for all of it.
    const std::uint64_t estimate = census.size != 0
                                       ? census.size
                                       : 8 + census.bytes + census.references * m_referenceSize +
                                             census.objects * SizeFor(census.bytes) + 32;
    m_out.resize(static_cast<std::size_t>(std::min<std::uint64_t>(estimate, kMaxSettingsFileSize)));
    std::memcpy(&m_out[0], "bplist00", 8);
    m_used = 8;

    AddDictionary(root, 1);
    if (m_error != Code::kOk) return Refuse(m_error);
    if (m_counting) return Refuse(Code::kTooLarge);
    const std::size_t referenceSize = SizeFor(m_offsets.size() - 1);
    if (referenceSize != m_referenceSize) Relayout(referenceSize);
    const std::uint64_t tableOffset = m_used;
    const std::size_t offsetSize = SizeFor(tableOffset);
    const std::uint64_t total = tableOffset + m_offsets.size() * offsetSize + 32;
    if (total > kMaxSettingsFileSize || m_cost > TreeBudget(total)) return Refuse(Code::kTooLarge);
    char* p = Room(static_cast<std::size_t>(total - tableOffset));
    p = PutNumbers(p, m_offsets.data(), m_offsets.size(), offsetSize);
    std::memset(p, 0, 6);  // unused, and the sort version
    p += 6;
    *p++ = static_cast<char>(offsetSize);
    *p++ = static_cast<char>(referenceSize);
    p = PutBigEndian(p, m_offsets.size(), 8);
    p = PutBigEndian(p, 0, 8);  // the top object: the root, numbered first
    PutBigEndian(p, tableOffset, 8);
    m_out.resize(m_used);
    // Shared strings can leave much of the room counted unused.
    if (m_out.capacity() - m_used > m_used / 2 + 4096) m_out.shrink_to_fit();
    bytes.swap(m_out);
    return Status::OK();
  }

 private:
  typedef Status::Code Code;

  static Status Refuse(Code code) { return Status::Refused(code, Status::Operation::kSerialise); }

  // A container: its number, and where its references start in m_refs and
  // how many there are.
  struct Container {
    std::uint32_t object;
    std::uint32_t firstRef;
    std::uint32_t refCount;
  };

  // The strings written so far, by content: open addressing over a power
  // of two of slots, each empty or an object number with the low half of
  // the string's hash, so that a probe looks at a string only when those
  // agree, and the table grows without looking at any. Eight bytes a slot,
  // for the table to stay in the processor's caches as long as it can.
  class StringTable {
   public:
    static constexpr std::uint32_t kMissing = ~std::uint32_t{0};

    // Makes room for `strings` strings at once (each growth touches the
    // whole table).
    void Reserve(std::uint64_t strings) {
      std::size_t size = 1024;
      while (size * 7 < 10 * strings) size *= 2;
      m_slots.assign(size, Slot{0, 0});
      m_mask = size - 1;
    }

    // Asks the processor to fetch the slot where a search for `hash`
    // starts, ahead of the search: tables larger than the caches would
    // otherwise cost a wait for memory at every string.
    void Prefetch(std::uint64_t hash) const {
      __builtin_prefetch(&m_slots[static_cast<std::uint32_t>(hash) & m_mask]);
    }

    // The number of the string whose hash is `hash` and for whose number
    // `same` is true; if there is none, kMissing, and `index` is entered
    // as that string's number.
    template <class Same>
    std::uint32_t FindOrAdd(std::uint64_t hash, std::uint32_t index, Same same) {
      const std::uint32_t low = static_cast<std::uint32_t>(hash);
      std::size_t slot = low & m_mask;
      for (;; slot = (slot + 1) & m_mask) {
        const Slot& entry = m_slots[slot];
        if (entry.index == 0) break;
        if (entry.hash == low && same(entry.index - 1)) return entry.index - 1;
      }
      m_slots[slot] = Slot{low, index + 1};
      if (10 * ++m_count > 7 * m_slots.size()) Grow();
      return kMissing;
    }

   private:
    struct Slot {
      std::uint32_t hash;   // the low half of the string's hash
      std::uint32_t index;  // the object number plus one; 0 for an empty slot
    };

    void Grow() {
      std::vector<Slot> old;
      old.swap(m_slots);
      m_slots.assign(2 * old.size(), Slot{0, 0});
      m_mask = m_slots.size() - 1;
      for (const Slot& entry : old) {
        if (entry.index == 0) continue;
        std::size_t slot = entry.hash & m_mask;
        while (m_slots[slot].index != 0) slot = (slot + 1) & m_mask;
        m_slots[slot] = entry;
      }
    }

    std::vector<Slot> m_slots;
    std::size_t m_mask = 0;
    std::size_t m_count = 0;
  };

  // Room for `size` more bytes at the end of the output, or null once the
  // output is certain to be too large (then the walk only checks).
  char* Room(std::size_t size) {
    if (m_used + size > m_out.size()) {
      // The objects so far, with references of the smallest size, are a
      // lower bound of the file.
      if (m_used + size - m_refs.size() * (m_referenceSize - 1) > kMaxSettingsFileSize) {
        m_counting = true;
      }
      if (m_counting) return nullptr;
      m_out.resize(std::max(2 * m_out.size(), m_used + size));
    }
    char* const room = &m_out[m_used];
    m_used += size;
    return room;
  }

  // Numbers a new object of `size` bytes; null when nothing is written.
  char* NewObject(std::size_t size) {
    m_offsets.push_back(static_cast<std::uint32_t>(m_used));
    return m_counting ? nullptr : Room(size);
  }

  std::uint32_t Number() const { return static_cast<std::uint32_t>(m_offsets.size()); }

  // Whether object `index` is the string `text`, ASCII or not as `ascii`
  // says. An equal string has the same form and length.
  bool SameString(std::uint32_t index, const std::string& text, bool ascii) {
    const unsigned char* p =
        reinterpret_cast<const unsigned char*>(m_out.data()) + m_offsets[index];
    if ((*p >> 4) != (ascii ? 0x5 : 0x6)) return false;
    std::uint64_t count = *p++ & 0xF;
    if (count == 0xF) {
      const std::size_t size = std::size_t{1} << (*p++ & 0xF);
      count = 0;
      for (std::size_t i = 0; i < size; ++i) count = count << 8 | *p++;
    }
    if (ascii) return count == text.size() && std::memcmp(p, text.data(), text.size()) == 0;
    m_units.clear();
    if (count != Utf16Units(text)) return false;
    AppendUTF8AsUTF16BigEndian(text, m_units);
    return std::memcmp(p, m_units.data(), m_units.size()) == 0;
  }

  std::uint32_t AddString(const std::string& text) { return AddString(text, KeyOf(text)); }

  // The same with the string's key already computed.
  std::uint32_t AddString(const std::string& text, TextKey key) {
    const bool ascii = key.ascii;
    const std::uint64_t length = ascii ? text.size() : Utf16Units(text);
    m_cost += ReadCost(ascii, length);
    const std::uint32_t index = Number();
    if (!m_counting) {
      const std::uint32_t found = m_strings.FindOrAdd(
          key.hash, index, [&](std::uint32_t other) { return SameString(other, text, ascii); });
      if (found != StringTable::kMissing) return found;
    }
    if (!ascii && !IsTreeText(text.data(), text.size())) {
      m_error = Code::kBadText;
      return index;
    }
    char* out = NewObject(MarkerSize(length) + (ascii ? length : 2 * length));
    if (out == nullptr) return index;
    out = PutMarker(out, ascii ? 0x5 : 0x6, length);
    if (ascii) {
      std::memcpy(out, text.data(), text.size());
    } else {
      m_units.clear();
      AppendUTF8AsUTF16BigEndian(text, m_units);
      std::memcpy(out, m_units.data(), m_units.size());
    }
    return index;
  }

  // Numbers a container (first, so that the root is object 0), then what it
  // holds, depth first: addItems(refs) numbers the `count` items and puts
  // their numbers at refs[0...]; then writes its references.
  template <class Items>
  std::uint32_t AddContainer(unsigned type, std::size_t depth, std::size_t count,
                             std::uint64_t markerCount, Items addItems) {
    const std::uint32_t index = Number();
    if (depth > kMaxNesting) {
      m_error = Code::kTooDeep;
      return index;
    }
    m_cost += kNodeCost;
    const std::size_t markerSize = MarkerSize(markerCount);
    if (char* out = NewObject(markerSize + count * m_referenceSize))
      PutMarker(out, type, markerCount);
    const std::size_t refsAt = m_used - count * m_referenceSize;
    const std::uint32_t first = static_cast<std::uint32_t>(m_refs.size());
    m_containers.push_back({index, first, static_cast<std::uint32_t>(count)});
    m_refs.resize(m_refs.size() + count);
    addItems(first);
    if (m_error == Code::kOk && !m_counting && SizeFor(Number() - 1) <= m_referenceSize) {
      PutNumbers(&m_out[refsAt], m_refs.data() + first, count, m_referenceSize);
    }
    return index;
  }

  std::uint32_t AddDictionary(const PListDictionary& dictionary, std::size_t depth) {
    const PListDictionary::Entries& entries = dictionary.GetEntries();
    const std::size_t size = entries.size();
    return AddContainer(0xD, depth, 2 * size, size, [&](std::uint32_t first) {
      if (size < kPrefetchFrom) {
        std::size_t i = first;
        for (const auto& entry : entries) {
          m_refs[i] = AddString(entry.first);
          if (m_error != Code::kOk) return;
          m_refs[i + size] = AddValue(entry.second, depth);
          if (m_error != Code::kOk) return;
          ++i;
        }
        return;
      }
      // A large dictionary: the keys' hashes first, then each key with
      // the slot of the one kPrefetchDistance ahead already on its way.
      const std::size_t base = m_keys.size();
      for (const auto& entry : entries) m_keys.push_back(KeyOf(entry.first));
      std::size_t i = 0;
      for (const auto& entry : entries) {
        if (i + kPrefetchDistance < size)
          m_strings.Prefetch(m_keys[base + i + kPrefetchDistance].hash);
        m_refs[first + i] = AddString(entry.first, m_keys[base + i]);
        if (m_error != Code::kOk) break;
        m_refs[first + i + size] = AddValue(entry.second, depth);
        if (m_error != Code::kOk) break;
        ++i;
      }
      m_keys.resize(base);
    });
  }

  std::uint32_t AddArray(const PListArray& array, std::size_t depth) {
    const std::size_t size = array.items.size();
    return AddContainer(array.isSet ? 0xC : 0xA, depth, size, size, [&](std::uint32_t first) {
      for (std::size_t i = 0; i < size; ++i) {
        m_refs[first + i] = AddValue(array.items[i], depth);
        if (m_error != Code::kOk) return;
      }
    });
  }

  // Numbers a value held by a container at `depth`.
  std::uint32_t AddValue(const PListValue& value, std::size_t depth) {
    switch (value.index()) {
      case 0:
        if (const PListDictionary* dictionary = std::get_if<PListDictionaryRef>(&value)->Get()) {
          return AddDictionary(*dictionary, depth + 1);
        }
        // A reference to no dictionary: an empty one.
        return AddContainer(0xD, depth + 1, 0, 0, [](std::uint32_t) {});
      case 4:
        return AddString(*std::get_if<std::string>(&value));
      case 8:
        return AddArray(**std::get_if<PListArrayRef>(&value), depth + 1);
      default:
        break;
    }
    std::uint64_t payload;
    const std::size_t size = ScalarSize(value, payload);
    m_cost += kNodeCost + payload;
    const std::uint32_t index = Number();
    if (char* out = NewObject(size)) PutScalar(value, out);
    return index;
  }

  // Copies the objects again with references of `referenceSize` bytes.
  void Relayout(std::size_t referenceSize) {
    const std::size_t oldSize = m_referenceSize;
    std::string out;
    out.resize(m_used + m_refs.size() * referenceSize - m_refs.size() * oldSize +
               m_offsets.size() * 8 + 32);
    const char* const from = m_out.data();
    char* to = &out[0];
    std::memcpy(to, from, 8);
    to += 8;
    std::size_t copied = 8;  // of m_out
    std::size_t next = 0;    // the first object not yet moved
    for (const Container& container : m_containers) {
      // The objects before the container, as they are; then its marker, and
      // its references at the new size.
      const std::size_t start = m_offsets[container.object];
      const std::size_t end =
          container.object + 1 < m_offsets.size() ? m_offsets[container.object + 1] : m_used;
      const std::size_t shift = static_cast<std::size_t>(to - out.data()) - copied;
      std::memcpy(to, from + copied, start - copied);
      to += start - copied;
      for (; next <= container.object; ++next) m_offsets[next] += shift;
      const std::size_t marker = end - start - container.refCount * oldSize;
      std::memcpy(to, from + start, marker);
      to = PutNumbers(to + marker, m_refs.data() + container.firstRef, container.refCount,
                      referenceSize);
      copied = end;
    }
    const std::size_t shift = static_cast<std::size_t>(to - out.data()) - copied;
    std::memcpy(to, from + copied, m_used - copied);
    to += m_used - copied;
    for (; next < m_offsets.size(); ++next) m_offsets[next] += shift;
    m_used = static_cast<std::size_t>(to - out.data());
    m_out.swap(out);
    m_referenceSize = referenceSize;
  }

  std::string m_out;  // the bytes; the first m_used written
  std::size_t m_used = 0;
  std::size_t m_referenceSize = 1;       // of the references written
  std::vector<std::uint32_t> m_offsets;  // of each object, in number order
  std::vector<std::uint32_t> m_refs;     // every container's references
  std::vector<Container> m_containers;   // in number order
  std::vector<TextKey> m_keys;           // the keys of the large dictionaries being walked
  StringTable m_strings;
  std::string m_units;       // a string's UTF-16 form
  std::uint64_t m_cost = 0;  // what reading the result will spend (PListLimits.h)
  bool m_counting = false;   // too large: the walk only checks
  Code m_error = Code::kOk;  // why the tree cannot be written
};

}  // namespace

Status WriteBinaryPList(const PListDictionary& root, std::string& bytes,
                        const std::string& previous) {
  return Writer().Write(root, previous, bytes);
}

}  // namespace mvcs
