// Builds binary property lists byte by byte, including malformed ones: the
// tests write hostile files with it (any counts, offsets, references and
// trailer values they like).

#ifndef MORV_TESTS_BINARYPLISTBUILDER_H
#define MORV_TESTS_BINARYPLISTBUILDER_H

#include <cstdint>
#include <string>
#include <vector>

namespace bplist {

// `value` as `size` big-endian bytes.
inline std::string BigEndian(std::uint64_t value, unsigned size) {
  std::string bytes(size, '\0');
  for (unsigned i = 0; i < size; ++i)
    bytes[size - 1 - i] = static_cast<char>((value >> (8 * i)) & 0xFF);
  return bytes;
}

// A marker byte with its count: in the low nibble, or 0xF and an integer.
inline std::string Marker(unsigned type, std::uint64_t count) {
  if (count < 15) return std::string(1, static_cast<char>((type << 4) | count));
  return std::string(1, static_cast<char>((type << 4) | 0xF)) + "\x13" + BigEndian(count, 8);
}

class Builder {
 public:
  explicit Builder(unsigned referenceSize = 1, unsigned offsetSize = 2)
      : m_referenceSize(referenceSize), m_offsetSize(offsetSize) {}

  // Adds an object given as its bytes; returns its index.
  std::size_t Add(const std::string& bytes) {
    m_objects.push_back(bytes);
    return m_objects.size() - 1;
  }

  std::string Reference(std::uint64_t index) const { return BigEndian(index, m_referenceSize); }

  std::size_t Integer(std::int64_t value) {
    return Add("\x13" + BigEndian(static_cast<std::uint64_t>(value), 8));
  }
  std::size_t Ascii(const std::string& text) { return Add(Marker(0x5, text.size()) + text); }
  std::size_t Array(const std::vector<std::uint64_t>& items) {
    std::string bytes = Marker(0xA, items.size());
    for (std::uint64_t item : items) bytes += Reference(item);
    return Add(bytes);
  }
  std::size_t Dictionary(const std::vector<std::uint64_t>& keys,
                         const std::vector<std::uint64_t>& values) {
    std::string bytes = Marker(0xD, keys.size());
    for (std::uint64_t key : keys) bytes += Reference(key);
    for (std::uint64_t value : values) bytes += Reference(value);
    return Add(bytes);
  }

  // The file; the trailer's fields default to the true ones.
  struct Trailer {
    std::int64_t objectCount = -1;
    std::int64_t topObject = -1;
    std::int64_t tableOffset = -1;
    int offsetSize = -1;
    int referenceSize = -1;
  };
  std::string Bytes(std::size_t top) const { return Bytes(top, Trailer()); }
  std::string Bytes(std::size_t top, const Trailer& trailer) const {
    std::string file = "bplist00";
    std::vector<std::uint64_t> offsets;
    for (const std::string& object : m_objects) {
      offsets.push_back(file.size());
      file += object;
    }
    const std::uint64_t tableOffset = file.size();
    for (std::uint64_t offset : offsets) file += BigEndian(offset, m_offsetSize);
    file += std::string(6, '\0');
    file += static_cast<char>(trailer.offsetSize >= 0 ? trailer.offsetSize
                                                      : static_cast<int>(m_offsetSize));
    file += static_cast<char>(trailer.referenceSize >= 0 ? trailer.referenceSize
                                                         : static_cast<int>(m_referenceSize));
    file += BigEndian(trailer.objectCount >= 0 ? static_cast<std::uint64_t>(trailer.objectCount)
                                               : m_objects.size(),
                      8);
    file +=
        BigEndian(trailer.topObject >= 0 ? static_cast<std::uint64_t>(trailer.topObject) : top, 8);
    file += BigEndian(
        trailer.tableOffset >= 0 ? static_cast<std::uint64_t>(trailer.tableOffset) : tableOffset,
        8);
    return file;
  }

 private:
  unsigned m_referenceSize;
  unsigned m_offsetSize;
  std::vector<std::string> m_objects;
};

}  // namespace bplist

#endif  // MORV_TESTS_BINARYPLISTBUILDER_H
