// Text in property lists (see PListText.h).

#include "PListText.h"

#include <cstdint>
#include <cstring>

namespace mvcs {

std::size_t UTF8SequenceLength(const unsigned char* p, const unsigned char* end) {
  const unsigned char b0 = *p;
  std::size_t length;
  unsigned char low = 0x80, high = 0xBF;  // bounds of the second byte
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    length = 2;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    length = 3;
    if (b0 == 0xE0) low = 0xA0;
    if (b0 == 0xED) high = 0x9F;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    length = 4;
    if (b0 == 0xF0) low = 0x90;
    if (b0 == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (static_cast<std::size_t>(end - p) < length || p[1] < low || p[1] > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (p[i] < 0x80 || p[i] > 0xBF) return 0;
  }
  return length;
}

bool IsWellFormedUTF8(const char* text, std::size_t size) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* const end = p + size;
  while (p < end) {
    if (*p < 0x80) {
      ++p;
      continue;
    }
    const std::size_t length = UTF8SequenceLength(p, end);
    if (length == 0) return false;
    p += length;
  }
  return true;
}

bool IsAsciiText(const char* text, std::size_t size) {
  // Eight bytes at a time: ASCII is no byte with its high bit set.
  const std::uint64_t kHighBits = 0x8080808080808080ull;
  std::size_t i = 0;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, text + i, 8);
    if ((word & kHighBits) != 0) return false;
  }
  for (; i < size; ++i) {
    if (static_cast<unsigned char>(text[i]) >= 0x80) return false;
  }
  return true;
}

bool AppendUTF16BigEndianAsUTF8(const unsigned char* bytes, std::size_t units, std::string& out) {
  for (std::size_t i = 0; i < units; ++i) {
    std::uint32_t code = static_cast<std::uint32_t>(bytes[2 * i]) << 8 | bytes[2 * i + 1];
    if (code >= 0xDC00 && code <= 0xDFFF) return false;
    if (code >= 0xD800 && code <= 0xDBFF) {
      if (i + 1 >= units) return false;
      const std::uint32_t low =
          static_cast<std::uint32_t>(bytes[2 * i + 2]) << 8 | bytes[2 * i + 3];
      if (low < 0xDC00 || low > 0xDFFF) return false;
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
      ++i;
    }
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | code >> 6);
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | code >> 12);
      out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | code >> 18);
      out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
      out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return true;
}

std::size_t AppendUTF8AsUTF16BigEndian(const std::string& text, std::string& out) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = p + text.size();
  std::size_t units = 0;
  auto put = [&out, &units](std::uint32_t unit) {
    out += static_cast<char>(unit >> 8);
    out += static_cast<char>(unit & 0xFF);
    ++units;
  };
  while (p < end) {
    std::uint32_t code;
    if (*p < 0x80) {
      code = *p++;
    } else if (*p < 0xE0) {
      code = (p[0] & 0x1Fu) << 6 | (p[1] & 0x3Fu);
      p += 2;
    } else if (*p < 0xF0) {
      code = (p[0] & 0x0Fu) << 12 | (p[1] & 0x3Fu) << 6 | (p[2] & 0x3Fu);
      p += 3;
    } else {
      code = (p[0] & 0x07u) << 18 | (p[1] & 0x3Fu) << 12 | (p[2] & 0x3Fu) << 6 | (p[3] & 0x3Fu);
      p += 4;
    }
    if (code >= 0x10000) {
      code -= 0x10000;
      put(0xD800 + (code >> 10));
      put(0xDC00 + (code & 0x3FF));
    } else {
      put(code);
    }
  }
  return units;
}

}  // namespace mvcs
