// The XML property-list writer (see XmlPListWriter.h).
//
// One pass over the tree with a stack of its own (one frame per open
// container), so that no call nests as deep as the tree does, writing
// straight into one buffer that grows by doubling: no text is made for a
// value on its own. A refusal names its entry by the keys and indices that
// the frames stand at, so the path is made only when one is needed.

#include "XmlPListWriter.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "PListLimits.h"
#include "PListText.h"
#include "XmlPListValues.h"

namespace mvcs {

namespace {

constexpr char kHeader[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr char kFooter[] = "</plist>\n";

// What a byte of a key or string asks of the writer.
enum ByteClass : unsigned char {
  kPlain,      // copied as it is
  kEscaped,    // '&', '<', '>', CR: written as a reference
  kForbidden,  // a control character that XML 1.0 cannot carry
  kLead,       // the first byte of a multi-byte UTF-8 sequence (or no UTF-8)
};

struct ByteClasses {
  ByteClass of[256];
};

constexpr ByteClasses MakeByteClasses() {
  ByteClasses classes{};
  for (int byte = 0; byte < 256; ++byte) {
    ByteClass kind = kPlain;
    if (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r') kind = kForbidden;
    if (byte == '&' || byte == '<' || byte == '>' || byte == '\r') kind = kEscaped;
    if (byte >= 0x80) kind = kLead;
    classes.of[byte] = kind;
  }
  return classes;
}

constexpr ByteClasses kByteClasses = MakeByteClasses();

// Whether the eight bytes at `p` are all plain ASCII (kPlain). Each test
// says exactly whether any byte is so (not which): bytes below 0x20 are
// those from which subtracting 0x20 borrows into a high bit that the byte
// did not have; '&', '<' and '>' (with '<' | 2 == '>') are the bytes that
// XOR to zero.
bool IsPlainWord(const unsigned char* p) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
  std::uint64_t word;
  std::memcpy(&word, p, 8);
  auto anyZero = [](std::uint64_t v) { return (v - kOnes) & ~v & kHigh; };
  const std::uint64_t special = ((word - 0x20 * kOnes) & ~word) | word |
                                anyZero(word ^ ('&' * kOnes)) |
                                anyZero((word | 2 * kOnes) ^ ('>' * kOnes));
  return (special & kHigh) == 0;
}

// The code point of the well-formed sequence of `length` bytes at `p`.
std::uint32_t CodePoint(const unsigned char* p, std::size_t length) {
  if (length == 1) return *p;
  std::uint32_t code = *p & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) code = code << 6 | (p[i] & 0x3Fu);
  return code;
}

// Whether the sequence of `length` bytes at `p` is U+FFFE or U+FFFF, the
// two characters past the controls that XML 1.0 cannot carry.
bool IsNonCharacter(const unsigned char* p, std::size_t length) {
  return length == 3 && p[0] == 0xEF && p[1] == 0xBF && (p[2] == 0xBE || p[2] == 0xBF);
}

// A code point as "U+XXXX" (at least four hex digits), appended to `out`.
void AppendCodePoint(std::string& out, const char* prefix, std::uint32_t code) {
  char digits[16];
  const std::to_chars_result hex = std::to_chars(digits, digits + sizeof(digits), code, 16);
  out += prefix;
  for (std::ptrdiff_t i = hex.ptr - digits; i < 4; ++i) out += '0';
  for (const char* d = digits; d != hex.ptr; ++d) {
    out += *d >= 'a' ? static_cast<char>(*d - 'a' + 'A') : *d;
  }
}

// Appends `text` to a message: characters XML cannot carry as "\uXXXX",
// bytes that are no UTF-8 as "\xNN".
void AppendShown(std::string& out, const std::string& text) {
  static const char kHex[] = "0123456789ABCDEF";
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = p + text.size();
  while (p < end) {
    const ByteClass kind = kByteClasses.of[*p];
    const std::size_t length = kind == kLead ? UTF8SequenceLength(p, end) : 1;
    if (length == 0) {
      out += "\\x";
      out += kHex[*p >> 4];
      out += kHex[*p & 0xF];
      ++p;
      continue;
    }
    if (kind == kForbidden || IsNonCharacter(p, length)) {
      AppendCodePoint(out, "\\u", CodePoint(p, length));
    } else {
      out.append(reinterpret_cast<const char*>(p), length);
    }
    p += length;
  }
}

// The text being written: one buffer, written through a cursor, grown by
// doubling with realloc (which moves the pages of large buffers instead of
// copying their bytes, and leaves new room unset), and copied into the
// result once at the end. Room() makes sure that so many bytes fit before
// they are put.
class Output {
 public:
  Output()
      : m_buffer(static_cast<char*>(std::malloc(4096))),
        m_cursor(m_buffer),
        m_limit(m_buffer + 4096) {
    if (m_buffer == nullptr) throw std::bad_alloc();
  }
  ~Output() { std::free(m_buffer); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void Room(std::size_t bytes) {
    if (static_cast<std::size_t>(m_limit - m_cursor) < bytes) Grow(bytes);
  }
  char* Cursor() { return m_cursor; }
  void Advance(char* to) { m_cursor = to; }

  // Puts the bytes of a string literal (without its final NUL).
  template <std::size_t N>
  void Put(const char (&literal)[N]) {
    Put(literal, N - 1);
  }
  void Put(const char* bytes, std::size_t size) {
    Room(size);
    std::memcpy(m_cursor, bytes, size);
    m_cursor += size;
  }
  // Puts `level` tabs, sixteen at a time (whole blocks of fixed size are
  // copied faster than a run of any length is set).
  void Indent(std::size_t level) {
    static const char kTabs[17] = "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
    Room(level + 16);
    for (std::size_t done = 0; done < level; done += 16) std::memcpy(m_cursor + done, kTabs, 16);
    m_cursor += level;
  }

  std::size_t Size() const { return static_cast<std::size_t>(m_cursor - m_buffer); }

  // Copies the text written into `text`.
  void Finish(std::string& text) { text.assign(m_buffer, Size()); }

 private:
  void Grow(std::size_t bytes) {
    const std::size_t used = Size();
    std::size_t size = 2 * static_cast<std::size_t>(m_limit - m_buffer);
    while (size - used < bytes) size *= 2;
    char* grown = static_cast<char*>(std::realloc(m_buffer, size));
    if (grown == nullptr) throw std::bad_alloc();
    m_buffer = grown;
    m_cursor = grown + used;
    m_limit = grown + size;
  }

  char* m_buffer;
  char* m_cursor;
  char* m_limit;
};

class Writer {
 public:
  Status Write(const PListDictionary& root, std::string& text) {
    m_out.Put(kHeader);
    if (!OpenDictionary(root, 0)) return m_refusal;
    while (!m_frames.empty()) {
      Frame& frame = m_frames.back();
      const std::size_t level = m_frames.size();
      const PListValue* value;
      if (frame.IsDictionary()) {
        if (frame.entry == frame.entriesEnd) {
          Close("</dict>\n");
          continue;
        }
        const PListEntries::Entry& entry = *frame.entry++;
        m_out.Indent(level);
        m_out.Put("<key>");
        if (!PutText(entry.first, "key")) return m_refusal;
        m_out.Put("</key>\n");
        value = &entry.second;
      } else {
        if (frame.item == frame.itemsEnd) {
          Close("</array>\n");
          continue;
        }
        value = frame.item++;
      }
      // (`frame` is not used past here: opening a container may move it.)
      m_out.Indent(level);
      if (!std::visit(ValueWriter{*this, level}, *value)) return m_refusal;
    }
    m_out.Put(kFooter);
    if (m_out.Size() > kMaxSettingsFileSize) {
      return Status::Refused(Status::Code::kTooLarge, Status::Operation::kSerialise,
                             "the XML text would be larger than the " +
                                 std::to_string(kMaxSettingsFileSize >> 20) + " MiB that is read");
    }
    m_out.Finish(text);
    return Status::OK();
  }

 private:
  // An open container: where its walk stands. A dictionary's frame has
  // `entriesEnd` set, an array's `itemsEnd`.
  struct Frame {
    const PListEntries::Entry* entry;  // the next entry of a dictionary
    const PListEntries::Entry* entriesEnd;
    const PListValue* items;  // the first item of an array (for paths)
    const PListValue* item;   // the next item
    const PListValue* itemsEnd;

    bool IsDictionary() const { return entriesEnd != nullptr; }
  };

  // Writes one value after its indentation; false when it is refused.
  struct ValueWriter {
    Writer& writer;
    std::size_t level;  // the value's own indentation

    bool operator()(const PListDictionaryRef& dictionary) const {
      return writer.OpenDictionary(*dictionary, level);
    }
    bool operator()(const PListArrayRef& array) const {
      return writer.OpenArray(array->items, level);
    }
    bool operator()(const PListInteger& integer) const {
      Output& out = writer.m_out;
      out.Room(64);
      out.Put("<integer>");
      char* cursor = out.Cursor();
      cursor =
          integer.wide
              ? std::to_chars(cursor, cursor + 24, static_cast<std::uint64_t>(integer.bits)).ptr
              : std::to_chars(cursor, cursor + 24, integer.bits).ptr;
      out.Advance(cursor);
      out.Put("</integer>\n");
      return true;
    }
    bool operator()(const PListReal& real) const {
      Output& out = writer.m_out;
      out.Room(64);
      out.Put("<real>");
      out.Advance(PutReal(out.Cursor(), real.value));
      out.Put("</real>\n");
      return true;
    }
    bool operator()(bool boolean) const {
      if (boolean) {
        writer.m_out.Put("<true/>\n");
      } else {
        writer.m_out.Put("<false/>\n");
      }
      return true;
    }
    bool operator()(const std::string& text) const {
      writer.m_out.Put("<string>");
      if (!writer.PutText(text, "string")) return false;
      writer.m_out.Put("</string>\n");
      return true;
    }
    bool operator()(const PListData& data) const {
      writer.PutData(data, level);
      return true;
    }
    bool operator()(const PListDate& date) const { return writer.PutDate(date.seconds); }
    bool operator()(const PListUid& uid) const {
      if (!writer.CheckDepth(level + 1)) return false;
      Output& out = writer.m_out;
      out.Put("<dict>\n");
      out.Indent(level + 1);
      out.Put("<key>CF$UID</key>\n");
      out.Indent(level + 1);
      (*this)(PListInteger{static_cast<long long>(uid.value), true});
      out.Indent(level);
      out.Put("</dict>\n");
      return true;
    }
  };

  // Ends the innermost container with `tag`, at its parent's indentation.
  template <std::size_t N>
  void Close(const char (&tag)[N]) {
    m_frames.pop_back();
    m_out.Indent(m_frames.size());
    m_out.Put(tag);
  }

  // Whether a container may open with `depth` levels above it (the root
  // counted as 1); refuses it otherwise.
  bool CheckDepth(std::size_t depth) {
    if (depth <= kMaxNesting) return true;
    std::string message = "the ";
    message += m_frames.empty() ? "root" : "value at \"" + Path() + "\"";
    message += " nests containers deeper than " + std::to_string(kMaxNesting) + " levels";
    m_refusal = Status::Refused(Status::Code::kTooDeep, Status::Operation::kSerialise, message);
    return false;
  }

  // Opens a dictionary written at indentation `level` (its entries at
  // `level` + 1, which is also its depth).
  bool OpenDictionary(const PListDictionary& dictionary, std::size_t level) {
    if (!CheckDepth(level + 1)) return false;
    const PListEntries& entries = dictionary.GetEntries();
    if (entries.empty()) {
      m_out.Put("<dict/>\n");
      return true;
    }
    m_out.Put("<dict>\n");
    const PListEntries::Entry* first = &*entries.begin();  // (sorts the entries first)
    m_frames.push_back({first, first + entries.size(), nullptr, nullptr, nullptr});
    return true;
  }

  bool OpenArray(const std::vector<PListValue>& items, std::size_t level) {
    if (!CheckDepth(level + 1)) return false;
    if (items.empty()) {
      m_out.Put("<array/>\n");
      return true;
    }
    m_out.Put("<array>\n");
    const PListValue* first = items.data();
    m_frames.push_back({nullptr, nullptr, first, first, first + items.size()});
    return true;
  }

  // Writes a key or string (`what`), escaped; refuses what XML cannot carry.
  bool PutText(const std::string& text, const char* what) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = p + text.size();
    // Room for the text as it is and the closing tag; every reference
    // makes sure of its own room.
    m_out.Room(text.size() + 16);
    for (;;) {
      const unsigned char* const run = p;
      while (end - p >= 8 && IsPlainWord(p)) p += 8;
      ByteClass kind = kPlain;
      while (p < end) {
        kind = kByteClasses.of[*p];
        if (kind == kPlain) {
          ++p;
        } else if (kind == kLead) {
          const std::size_t length = UTF8SequenceLength(p, end);
          if (length == 0) return RefuseText(what, "is not well-formed UTF-8");
          if (IsNonCharacter(p, length)) return RefuseCharacter(what, CodePoint(p, length));
          p += length;
        } else {
          break;
        }
      }
      m_out.Put(reinterpret_cast<const char*>(run), static_cast<std::size_t>(p - run));
      if (p == end) return true;
      if (kind == kForbidden) return RefuseCharacter(what, *p);
      m_out.Room(static_cast<std::size_t>(end - p) + 16);
      switch (*p++) {
        case '&':
          m_out.Put("&amp;");
          break;
        case '<':
          m_out.Put("&lt;");
          break;
        case '>':
          m_out.Put("&gt;");
          break;
        default:
          m_out.Put("&#13;");
          break;
      }
    }
  }

  bool RefuseCharacter(const char* what, std::uint32_t code) {
    std::string problem;
    AppendCodePoint(problem, "holds U+", code);
    problem += ", which XML cannot carry";
    return RefuseText(what, problem.c_str());
  }

  bool RefuseText(const char* what, const char* problem) {
    m_refusal = Status::Refused(Status::Code::kBadText, Status::Operation::kSerialise,
                                std::string("the ") + what + " at \"" + Path() + "\" " + problem);
    return false;
  }

  // Base64 on lines of their own at `level`, each of at most 76 columns
  // (a tab counted as 8) but at least 16 characters, as plistlib wraps it.
  void PutData(const PListData& data, std::size_t level) {
    static const char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t columns = 8 * level + 16 > 76 ? 16 : 76 - 8 * level;
    const std::size_t perLine = columns / 4 * 3;  // bytes a line
    const std::size_t size = data.size();
    const std::size_t lines = (size + perLine - 1) / perLine;
    m_out.Room(sizeof("<data>\n") + (size + 2) / 3 * 4 + lines * (level + 1) + level +
               sizeof("</data>\n"));
    m_out.Put("<data>\n");
    const unsigned char* p = data.data();
    char* out = m_out.Cursor();
    for (std::size_t done = 0; done < size; done += perLine) {
      std::memset(out, '\t', level);
      out += level;
      const unsigned char* const lineEnd = p + (size - done < perLine ? size - done : perLine);
      for (; lineEnd - p >= 3; p += 3) {
        const std::uint32_t group = std::uint32_t{p[0]} << 16 | std::uint32_t{p[1]} << 8 | p[2];
        out[0] = kDigits[group >> 18];
        out[1] = kDigits[group >> 12 & 0x3F];
        out[2] = kDigits[group >> 6 & 0x3F];
        out[3] = kDigits[group & 0x3F];
        out += 4;
      }
      if (p != lineEnd) {  // one or two bytes left, padded with '='
        const std::uint32_t group =
            std::uint32_t{p[0]} << 16 | (lineEnd - p == 2 ? std::uint32_t{p[1]} << 8 : 0);
        out[0] = kDigits[group >> 18];
        out[1] = kDigits[group >> 12 & 0x3F];
        out[2] = lineEnd - p == 2 ? kDigits[group >> 6 & 0x3F] : '=';
        out[3] = '=';
        out += 4;
        p = lineEnd;
      }
      *out++ = '\n';
    }
    std::memset(out, '\t', level);
    out += level;
    m_out.Advance(out);
    m_out.Put("</data>\n");
  }

  // A real in the form of Python's repr(): the shortest digits that read
  // back to the same double, in positional notation for exponents from -4
  // to 15 (with at least one digit after the point), else as d.ddde+XX.
  static char* PutReal(char* out, double value) {
    if (std::isnan(value)) {
      if (std::signbit(value)) *out++ = '-';
      std::memcpy(out, "nan", 3);
      return out + 3;
    }
    if (std::isinf(value)) {
      if (value < 0) *out++ = '-';
      std::memcpy(out, "inf", 3);
      return out + 3;
    }
    char scientific[32];
    const char* const end = std::to_chars(scientific, scientific + sizeof(scientific), value,
                                          std::chars_format::scientific)
                                .ptr;
    const char* p = scientific;
    if (*p == '-') *out++ = *p++;
    // The digits, without the point, and the exponent.
    char digits[20];
    int count = 0;
    for (; *p != 'e'; ++p) {
      if (*p != '.') digits[count++] = *p;
    }
    const char* const exponentText = p;  // "e+XX"
    int exponent = 0;
    std::from_chars(exponentText + 2, end, exponent);  // past "e" and the sign
    if (exponentText[1] == '-') exponent = -exponent;
    if (exponent < -4 || exponent > 15) {
      *out++ = digits[0];
      if (count > 1) {
        *out++ = '.';
        std::memcpy(out, digits + 1, count - 1);
        out += count - 1;
      }
      std::memcpy(out, exponentText, end - exponentText);
      return out + (end - exponentText);
    }
    if (exponent < 0) {  // 0.000ddd
      *out++ = '0';
      *out++ = '.';
      std::memset(out, '0', -exponent - 1);
      out += -exponent - 1;
      std::memcpy(out, digits, count);
      return out + count;
    }
    const int whole = exponent + 1;  // digits before the point
    for (int i = 0; i < whole; ++i) *out++ = i < count ? digits[i] : '0';
    *out++ = '.';
    if (count <= whole) {
      *out++ = '0';
      return out;
    }
    std::memcpy(out, digits + whole, count - whole);
    return out + (count - whole);
  }

  // A date in whole seconds, rounded down; refused outside years 1..9999.
  bool PutDate(double seconds) {
    const double floored = std::floor(seconds);
    // Years 1 to 9999 lie well within +-1e12 seconds of 2001 (and NaN
    // fails both comparisons).
    if (!(floored > -1e12 && floored < 1e12)) return RefuseDate(seconds);
    const long long whole = static_cast<long long>(floored) + kReferenceDateUnixSeconds;
    const long long days = (whole >= 0 ? whole : whole - 86399) / 86400;  // since 1970
    const long long inDay = whole - days * 86400;
    std::int64_t year;
    unsigned month, day;
    CivilFromDays(days, year, month, day);
    if (year < 1 || year > 9999) return RefuseDate(seconds);
    m_out.Room(sizeof("<date>YYYY-MM-DDTHH:MM:SSZ</date>\n"));
    char* out = m_out.Cursor();
    std::memcpy(out, "<date>0000-00-00T00:00:00Z</date>\n", 34);
    auto digits = [](char* at, long long value, int width) {
      for (int i = width - 1; i >= 0; --i, value /= 10) at[i] = static_cast<char>('0' + value % 10);
    };
    digits(out + 6, year, 4);
    digits(out + 11, month, 2);
    digits(out + 14, day, 2);
    digits(out + 17, inDay / 3600, 2);
    digits(out + 20, inDay / 60 % 60, 2);
    digits(out + 23, inDay % 60, 2);
    m_out.Advance(out + 34);
    return true;
  }

  bool RefuseDate(double seconds) {
    const char* problem = std::isnan(seconds) ? "is not a number"
                                              : "lies outside the years 1 to 9999 that XML "
                                                "dates can carry";
    m_refusal = Status::Refused(Status::Code::kNotAPropertyList, Status::Operation::kSerialise,
                                "the date at \"" + Path() + "\" " + problem);
    return false;
  }

  // The key path of the entry that the innermost frame last went to.
  std::string Path() const {
    std::string path;
    for (const Frame& frame : m_frames) {
      if (!path.empty()) path += '/';
      if (frame.IsDictionary()) {
        AppendShown(path, (frame.entry - 1)->first);
      } else {
        path += '[' + std::to_string(frame.item - 1 - frame.items) + ']';
      }
    }
    return path;
  }

  Output m_out;
  std::vector<Frame> m_frames;
  Status m_refusal;
};

}  // namespace

Status WriteXmlPList(const PListDictionary& root, std::string& text) {
  return Writer().Write(root, text);
}

}  // namespace mvcs
