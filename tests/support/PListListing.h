// Canonical listings of property lists, for comparing the store's reader
// and writer with plistlib (tests/plist_differential.py prints the same
// form) and with libplist: one line per object, "path<TAB>kind<TAB>value",
// containers before their contents, keys in order. See the script for the
// form of each kind.

#ifndef MORV_TESTS_PLISTLISTING_H
#define MORV_TESTS_PLISTLISTING_H

#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "format/PListTree.h"

namespace listing {

inline std::string Hex(const void* data, std::size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0xF];
  }
  return text;
}

inline std::string Hex(const std::string& text) { return Hex(text.data(), text.size()); }

// The 8 big-endian bytes of a double, in hex.
inline std::string RealHex(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, 8);
  unsigned char bytes[8];
  for (int i = 7; i >= 0; --i, bits >>= 8) bytes[i] = static_cast<unsigned char>(bits);
  return Hex(bytes, 8);
}

// Seconds as whole microseconds, rounded as Python's timedelta rounds them
// (whole seconds apart, the fraction to the nearest microsecond, ties to
// even), which is how plistlib reads dates.
inline long long Microseconds(double seconds) {
  double whole = 0;
  const double fraction = std::modf(seconds, &whole);
  return static_cast<long long>(whole) * 1000000 +
         static_cast<long long>(std::nearbyint(fraction * 1e6));
}

inline void Line(std::string& out, const std::string& path, const char* kind,
                 const std::string& value) {
  out += path + "\t" + kind + "\t" + value + "\n";
}

// Options for what a listing shows.
struct Options {
  bool dates = true;         // false: dates listed without a value (libplist keeps
                             // them in whole microseconds of 32-bit seconds)
  bool integerBits = false;  // true: integers as their 64 bits, unsigned (libplist
                             // does not tell 8-byte negatives from 16-byte values)
};

void ListValue(const mvcs::PListValue& value, const std::string& path, const Options& options,
               std::string& out);

inline void ListDictionary(const mvcs::PListDictionary& dictionary, const std::string& path,
                           const Options& options, std::string& out) {
  Line(out, path, "dict", std::to_string(dictionary.GetEntries().size()));
  for (const auto& entry : dictionary.GetEntries()) {
    ListValue(entry.second, path + "/" + Hex(entry.first), options, out);
  }
}

inline void ListValue(const mvcs::PListValue& value, const std::string& path,
                      const Options& options, std::string& out) {
  if (const mvcs::PListDictionary* dictionary = mvcs::AsDictionary(value)) {
    ListDictionary(*dictionary, path, options, out);
  } else if (const auto* array = std::get_if<mvcs::PListArrayRef>(&value)) {
    Line(out, path, (*array)->isSet ? "set" : "array", std::to_string((*array)->items.size()));
    for (std::size_t i = 0; i < (*array)->items.size(); ++i) {
      ListValue((*array)->items[i], path + "[" + std::to_string(i) + "]", options, out);
    }
  } else if (const auto* integer = std::get_if<mvcs::PListInteger>(&value)) {
    Line(out, path, "int",
         integer->wide || options.integerBits
             ? std::to_string(static_cast<unsigned long long>(integer->bits))
             : std::to_string(integer->bits));
  } else if (const auto* real = std::get_if<mvcs::PListReal>(&value)) {
    Line(out, path, "real", RealHex(real->value));
  } else if (const bool* boolean = std::get_if<bool>(&value)) {
    Line(out, path, "bool", *boolean ? "1" : "0");
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    Line(out, path, "str", Hex(*text));
  } else if (const auto* data = std::get_if<mvcs::PListData>(&value)) {
    Line(out, path, "data", Hex(data->data(), data->size()));
  } else if (const auto* date = std::get_if<mvcs::PListDate>(&value)) {
    Line(out, path, "date", options.dates ? std::to_string(Microseconds(date->seconds)) : "");
  } else if (const auto* uid = std::get_if<mvcs::PListUid>(&value)) {
    Line(out, path, "uid", std::to_string(uid->value));
  }
}

// The listing of a tree.
inline std::string Of(const mvcs::PListDictionary& root, const Options& options = Options()) {
  std::string out;
  ListDictionary(root, "", options, out);
  return out;
}

// The listing of libplist's reading of a property list (with
// Options{false, true}: dates without values, integers as bits).
inline void ListLibplist(plist_t node, const std::string& path, std::string& out) {
  switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
      std::map<std::string, plist_t> entries;  // libplist keeps the file's order
      plist_dict_iter iterator = nullptr;
      plist_dict_new_iter(node, &iterator);
      for (;;) {
        char* key = nullptr;
        plist_t child = nullptr;
        plist_dict_next_item(node, iterator, &key, &child);
        if (child == nullptr) {
          std::free(key);
          break;
        }
        entries[key] = child;
        std::free(key);
      }
      std::free(iterator);
      Line(out, path, "dict", std::to_string(entries.size()));
      for (const auto& entry : entries)
        ListLibplist(entry.second, path + "/" + Hex(entry.first), out);
      break;
    }
    case PLIST_ARRAY: {
      const uint32_t size = plist_array_get_size(node);
      Line(out, path, "array", std::to_string(size));
      for (uint32_t i = 0; i < size; ++i) {
        ListLibplist(plist_array_get_item(node, i), path + "[" + std::to_string(i) + "]", out);
      }
      break;
    }
    case PLIST_UINT: {
      uint64_t bits = 0;
      plist_get_uint_val(node, &bits);
      Line(out, path, "int", std::to_string(static_cast<unsigned long long>(bits)));
      break;
    }
    case PLIST_REAL: {
      double real = 0;
      plist_get_real_val(node, &real);
      Line(out, path, "real", RealHex(real));
      break;
    }
    case PLIST_BOOLEAN: {
      uint8_t boolean = 0;
      plist_get_bool_val(node, &boolean);
      Line(out, path, "bool", boolean ? "1" : "0");
      break;
    }
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      Line(out, path, "str", Hex(text, static_cast<std::size_t>(length)));
      break;
    }
    case PLIST_DATA: {
      uint64_t length = 0;
      const char* data = plist_get_data_ptr(node, &length);
      Line(out, path, "data", Hex(data, static_cast<std::size_t>(length)));
      break;
    }
    case PLIST_DATE:
      Line(out, path, "date", std::string());
      break;
    case PLIST_UID: {
      uint64_t uid = 0;
      plist_get_uid_val(node, &uid);
      Line(out, path, "uid", std::to_string(static_cast<unsigned long long>(uid)));
      break;
    }
    default:
      Line(out, path, "other", std::string());
  }
}

// libplist's listing of binary property-list bytes; empty when it refuses.
inline std::string OfLibplist(const std::string& bytes) {
  plist_t root = nullptr;
  plist_from_bin(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
  if (root == nullptr) return std::string();
  std::string out;
  ListLibplist(root, "", out);
  plist_free(root);
  return out;
}

// Where two listings first differ ("line N: <a> | <b>"), or empty when
// they are equal: what a failing comparison prints.
inline std::string FirstDifference(const std::string& a, const std::string& b) {
  if (a == b) return std::string();
  std::size_t line = 1, start = 0;
  for (;;) {
    const std::size_t endA = a.find('\n', start), endB = b.find('\n', start);
    const std::string lineA = a.substr(start, endA == std::string::npos ? endA : endA - start);
    const std::string lineB = b.substr(start, endB == std::string::npos ? endB : endB - start);
    if (lineA != lineB || endA == std::string::npos || endB == std::string::npos) {
      return "line " + std::to_string(line) + ": " + lineA.substr(0, 200) + " | " +
             lineB.substr(0, 200);
    }
    start = endA + 1;
    ++line;
  }
}

// What a listing for comparing with libplist is.
inline Options LibplistOptions() {
  Options options;
  options.dates = false;
  options.integerBits = true;
  return options;
}

}  // namespace listing

namespace mvcs {

// Whether a key or string of the tree, at any depth, holds U+0000 (which
// the binary format carries and XML cannot).
inline bool HoldsZeroText(const PListDictionary& root);

inline bool ValueHoldsZeroText(const PListValue& value) {
  if (const PListDictionary* dictionary = AsDictionary(value)) return HoldsZeroText(*dictionary);
  if (const PListArrayRef* array = std::get_if<PListArrayRef>(&value)) {
    for (const PListValue& item : (*array)->items) {
      if (ValueHoldsZeroText(item)) return true;
    }
    return false;
  }
  const std::string* text = std::get_if<std::string>(&value);
  return text != nullptr && text->find('\0') != std::string::npos;
}

inline bool HoldsZeroText(const PListDictionary& root) {
  for (const auto& entry : root.GetEntries()) {
    if (entry.first.find('\0') != std::string::npos || ValueHoldsZeroText(entry.second)) {
      return true;
    }
  }
  return false;
}

}  // namespace mvcs

#endif  // MORV_TESTS_PLISTLISTING_H
