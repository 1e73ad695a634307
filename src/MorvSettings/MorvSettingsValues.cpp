// The typed Store and Fetch operations of MorvSettings.
//
// Every value is one entry of the node's read-write key dictionary. All
// integer widths are one 64-bit integer entry; floats and doubles are reals;
// wide strings are stored as UTF-8 strings. The operations share one path
// each: StoreValue for stores, FetchValue with a dictionary-level reader for
// fetches, CallNarrow for the wide-name overloads (which convert the name
// and call the narrow overload through the interface, so an override of the
// narrow one reaches them), and FetchIntegerView for the integer widths.

#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "MorvSettingsNode.h"
#include "MorvString/MorvString.h"
#include "SettingsText.h"
#include "StoreLock.h"

namespace mvcs {

namespace {

// Conversions of the number-like entries (integer, real, boolean) and of
// string entries, by Foundation's rules, to each numeric result type.
struct ToInteger {
  long long operator()(const PListInteger& integer) const { return integer.bits; }
  long long operator()(const PListReal& real) const { return RealToInteger(real.value); }
  long long operator()(bool boolean) const { return boolean ? 1 : 0; }
  long long operator()(const std::string& text) const { return TextToInteger(text); }
};

struct ToDouble {
  double operator()(const PListInteger& integer) const {
    return integer.wide ? static_cast<double>(static_cast<unsigned long long>(integer.bits))
                        : static_cast<double>(integer.bits);
  }
  double operator()(const PListReal& real) const { return real.value; }
  double operator()(bool boolean) const { return boolean ? 1.0 : 0.0; }
  double operator()(const std::string& text) const { return TextToDouble(text); }
};

struct ToFloat {
  float operator()(const PListInteger& integer) const {
    return static_cast<float>(ToDouble()(integer));
  }
  float operator()(const PListReal& real) const { return static_cast<float>(real.value); }
  float operator()(bool boolean) const { return boolean ? 1.0f : 0.0f; }
  float operator()(const std::string& text) const { return TextToFloat(text); }
};

struct ToBoolean {
  bool operator()(const PListInteger& integer) const { return integer.bits != 0; }
  bool operator()(const PListReal& real) const { return real.value != 0; }  // NaN is not 0
  bool operator()(bool boolean) const { return boolean; }
  bool operator()(const std::string& text) const { return TextToBoolean(text); }
};

// The entry under `name`, or null (also for a null dictionary or an empty
// name).
const PListValue* Lookup(const PListDictionary* dictionary, const std::string& name) {
  if (dictionary == nullptr || name.empty()) return nullptr;
  return dictionary->Find(name);
}

// Reads a number or boolean from a number-like or string entry.
template <class T, class Convert>
bool ReadNumber(const PListDictionary* dictionary, const std::string& name, T& out,
                Convert convert) {
  const PListValue* entry = Lookup(dictionary, name);
  if (entry == nullptr) return false;
  if (const PListInteger* integer = std::get_if<PListInteger>(entry)) {
    out = convert(*integer);
  } else if (const PListReal* real = std::get_if<PListReal>(entry)) {
    out = convert(*real);
  } else if (const bool* boolean = std::get_if<bool>(entry)) {
    out = convert(*boolean);
  } else if (const std::string* text = std::get_if<std::string>(entry)) {
    out = convert(*text);
  } else {
    return false;
  }
  return true;
}

// UTF-8 text of a wide value: false when a unit is above 0x10FFFF (it has
// no UTF-8 form; the conversion would give an empty string). Surrogates
// pass here and are refused as invalid UTF-8 by the store.
bool WideValueToUTF8(const std::wstring& value, std::string& utf8) {
  for (wchar_t unit : value) {
    if (static_cast<unsigned int>(unit) > 0x10FFFF) return false;
  }
  utf8 = WideToUTF8(value);
  return true;
}

}  // namespace

// The dictionary-level reads: each returns false, with `out` untouched,
// for a null dictionary, an empty name, a missing entry or an entry of a
// kind it does not accept.
namespace dictionary_read {

bool FetchInteger(PListDictionary* dictionary, const std::string& name, long long& out) {
  return ReadNumber(dictionary, name, out, ToInteger());
}

bool FetchFloat(PListDictionary* dictionary, const std::string& name, float& out) {
  return ReadNumber(dictionary, name, out, ToFloat());
}

bool FetchDouble(PListDictionary* dictionary, const std::string& name, double& out) {
  return ReadNumber(dictionary, name, out, ToDouble());
}

bool FetchBoolean(PListDictionary* dictionary, const std::string& name, bool& out) {
  return ReadNumber(dictionary, name, out, ToBoolean());
}

// A string that holds U+0000 (from a file that another program wrote)
// reads as its text up to there, as a C string would: the same text that
// storing the whole string would keep, narrow and wide alike.
bool FetchUTF8String(PListDictionary* dictionary, const std::string& name, std::string& out) {
  const PListValue* entry = Lookup(dictionary, name);
  const std::string* text = entry != nullptr ? std::get_if<std::string>(entry) : nullptr;
  if (text == nullptr) return false;
  out = CStringPart(*text);
  return true;
}

bool FetchBuffer(PListDictionary* dictionary, const std::string& name,
                 mvtl::MemoryBuffer<unsigned char>& out) {
  const PListValue* entry = Lookup(dictionary, name);
  const PListData* data = entry != nullptr ? std::get_if<PListData>(entry) : nullptr;
  if (data == nullptr) return false;
  // Through a temporary, so that `out` ends holding exactly these bytes.
  mvtl::MemoryBuffer<unsigned char> temporary;
  temporary.Copy(data->data(), data->size(), 0, false);
  if (&out != &temporary) out.Copy(temporary, 0, false);
  return true;
}

}  // namespace dictionary_read

bool MorvSettings::StoreValue(const std::string& name, PListValue value) {
  StoreLock lock;
  std::string key;
  if (name.empty() || !StoredText(name, key) || !Open()) return false;
  // Scopes without a read-write dictionary store nothing, and succeed; a
  // key that another process removed (and the scope does not make again)
  // takes nothing.
  PListDictionary* target = GetReadWriteKey();
  if (target == nullptr && HasLostReadWriteKey()) return false;
  if (target != nullptr) target->Set(key, std::move(value));
  SetDirty(target);
  RecordChange(target, {key}, true);
  return true;
}

template <class T, class Reader>
bool MorvSettings::FetchValue(const std::string& name, T& value, Reader read) {
  {
    // The common case, an open node whose keys are where they were, reads
    // under a shared hold: the fetches of many threads go on at once.
    StoreReadLock shared;
    PListDictionary* primary = nullptr;
    PListDictionary* fallback = nullptr;
    if (FindKeysToRead(primary, fallback)) {
      std::string key;
      if (name.empty() || !StoredText(name, key)) return false;
      return read(primary, key, value) || read(fallback, key, value);
    }
  }
  StoreLock lock;
  std::string key;
  if (name.empty() || !StoredText(name, key) || !Open()) return false;
  if (read(GetReadWriteKey(), key, value)) return true;
  // Scopes 2, 5 and 8 fall back to the shared key; others read nothing.
  return read(GetReadKeyFallback(), key, value);
}

template <class Result, class... Params, class... Args>
Result MorvSettings::CallNarrow(Result (IMorvSettings::*narrow)(const std::string&, Params...),
                                const std::wstring& name, Args&&... args) {
  return (this->*narrow)(WideToUTF8(name), std::forward<Args>(args)...);
}

// Int32, Uint32 and Uint64 take the low bits of the 64-bit entry, without
// range checks: 4294967296 reads as Int32 0, -1 as Uint32 4294967295.
template <class Name, class T>
bool MorvSettings::FetchIntegerView(const Name& name, T& value) {
  long long bits = 0;
  if (!FetchInteger(name, bits)) return false;
  value = static_cast<T>(static_cast<unsigned long long>(bits));
  return true;
}

// Stores.

bool MorvSettings::StoreInteger(std::string const& name, long long value) {
  return StoreValue(name, PListInteger{value, false});
}
bool MorvSettings::StoreInteger(std::wstring const& name, long long value) {
  return CallNarrow(&IMorvSettings::StoreInteger, name, value);
}
bool MorvSettings::StoreInt32(std::string const& name, int value) {
  return StoreInteger(name, static_cast<long long>(value));  // sign-extended
}
bool MorvSettings::StoreInt32(std::wstring const& name, int value) {
  return StoreInteger(name, static_cast<long long>(value));
}
bool MorvSettings::StoreUint32(std::string const& name, unsigned int value) {
  return StoreInteger(
      name, static_cast<long long>(static_cast<unsigned long long>(value)));  // zero-extended
}
bool MorvSettings::StoreUint32(std::wstring const& name, unsigned int value) {
  return StoreInteger(name, static_cast<long long>(static_cast<unsigned long long>(value)));
}
bool MorvSettings::StoreInt64(std::string const& name, long long value) {
  return StoreInteger(name, value);
}
bool MorvSettings::StoreInt64(std::wstring const& name, long long value) {
  return StoreInteger(name, value);
}
bool MorvSettings::StoreUint64(std::string const& name, unsigned long long value) {
  return StoreInteger(name, static_cast<long long>(value));  // the same 64 bits
}
bool MorvSettings::StoreUint64(std::wstring const& name, unsigned long long value) {
  return StoreInteger(name, static_cast<long long>(value));
}
bool MorvSettings::StoreFloat(std::string const& name, float value) {
  return StoreValue(name, PListReal{value});
}
bool MorvSettings::StoreFloat(std::wstring const& name, float value) {
  return CallNarrow(&IMorvSettings::StoreFloat, name, value);
}
bool MorvSettings::StoreDouble(std::string const& name, double value) {
  return StoreValue(name, PListReal{value});
}
bool MorvSettings::StoreDouble(std::wstring const& name, double value) {
  return CallNarrow(&IMorvSettings::StoreDouble, name, value);
}
bool MorvSettings::StoreBoolean(std::string const& name, bool value) {
  return StoreValue(name, value);
}
bool MorvSettings::StoreBoolean(std::wstring const& name, bool value) {
  return CallNarrow(&IMorvSettings::StoreBoolean, name, value);
}
bool MorvSettings::StoreUTF8String(std::string const& name, std::string const& value) {
  std::string text;
  if (name.empty() || !StoredText(value, text)) return false;
  return StoreValue(name, std::move(text));
}
bool MorvSettings::StoreUTF8String(std::wstring const& name, std::string const& value) {
  return CallNarrow(&IMorvSettings::StoreUTF8String, name, value);
}
bool MorvSettings::StoreWideString(std::string const& name, std::wstring const& value) {
  std::string utf8;
  return WideValueToUTF8(value, utf8) && StoreUTF8String(name, utf8);
}
bool MorvSettings::StoreWideString(std::wstring const& name, std::wstring const& value) {
  std::string utf8;  // the value first, then the name
  return WideValueToUTF8(value, utf8) && StoreUTF8String(WideToUTF8(name), utf8);
}
bool MorvSettings::StoreBuffer(std::string const& name, void const* data, unsigned long length) {
  if (name.empty() || (data == nullptr && length != 0)) return false;
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  try {
    return StoreValue(name, length == 0 ? PListData() : PListData(bytes, bytes + length));
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
}
bool MorvSettings::StoreBuffer(std::wstring const& name, void const* data, unsigned long length) {
  return CallNarrow(&IMorvSettings::StoreBuffer, name, data, length);
}

// Fetches.

bool MorvSettings::FetchInteger(std::string const& name, long long& value) {
  return FetchValue(name, value, dictionary_read::FetchInteger);
}
bool MorvSettings::FetchInteger(std::wstring const& name, long long& value) {
  return CallNarrow(&IMorvSettings::FetchInteger, name, value);
}
bool MorvSettings::FetchInt32(std::string const& name, int& value) {
  return FetchIntegerView(name, value);
}
bool MorvSettings::FetchInt32(std::wstring const& name, int& value) {
  return FetchIntegerView(name, value);
}
bool MorvSettings::FetchUint32(std::string const& name, unsigned int& value) {
  return FetchIntegerView(name, value);
}
bool MorvSettings::FetchUint32(std::wstring const& name, unsigned int& value) {
  return FetchIntegerView(name, value);
}
bool MorvSettings::FetchInt64(std::string const& name, long long& value) {
  return FetchInteger(name, value);
}
bool MorvSettings::FetchInt64(std::wstring const& name, long long& value) {
  return FetchInteger(name, value);
}
bool MorvSettings::FetchUint64(std::string const& name, unsigned long long& value) {
  return FetchIntegerView(name, value);
}
bool MorvSettings::FetchUint64(std::wstring const& name, unsigned long long& value) {
  return FetchIntegerView(name, value);
}
bool MorvSettings::FetchFloat(std::string const& name, float& value) {
  return FetchValue(name, value, dictionary_read::FetchFloat);
}
bool MorvSettings::FetchFloat(std::wstring const& name, float& value) {
  return CallNarrow(&IMorvSettings::FetchFloat, name, value);
}
bool MorvSettings::FetchDouble(std::string const& name, double& value) {
  return FetchValue(name, value, dictionary_read::FetchDouble);
}
bool MorvSettings::FetchDouble(std::wstring const& name, double& value) {
  return CallNarrow(&IMorvSettings::FetchDouble, name, value);
}
bool MorvSettings::FetchBoolean(std::string const& name, bool& value) {
  return FetchValue(name, value, dictionary_read::FetchBoolean);
}
bool MorvSettings::FetchBoolean(std::wstring const& name, bool& value) {
  return CallNarrow(&IMorvSettings::FetchBoolean, name, value);
}
bool MorvSettings::FetchUTF8String(std::string const& name, std::string& value) {
  return FetchValue(name, value, dictionary_read::FetchUTF8String);
}
bool MorvSettings::FetchUTF8String(std::wstring const& name, std::string& value) {
  return CallNarrow(&IMorvSettings::FetchUTF8String, name, value);
}
bool MorvSettings::FetchWideString(std::string const& name, std::wstring& value) {
  std::string utf8;
  if (!FetchUTF8String(name, utf8)) return false;
  value = UTF8ToWide(utf8);
  return true;
}
bool MorvSettings::FetchWideString(std::wstring const& name, std::wstring& value) {
  std::string utf8;
  if (!FetchUTF8String(WideToUTF8(name), utf8)) return false;
  value = UTF8ToWide(utf8);
  return true;
}
bool MorvSettings::FetchBuffer(std::string const& name, mvtl::MemoryBuffer<unsigned char>& value) {
  return FetchValue(name, value, dictionary_read::FetchBuffer);
}
bool MorvSettings::FetchBuffer(std::wstring const& name, mvtl::MemoryBuffer<unsigned char>& value) {
  return CallNarrow(&IMorvSettings::FetchBuffer, name, value);
}

}  // namespace mvcs
