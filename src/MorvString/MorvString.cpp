// Whole-string conversions between UTF-8, wide (UTF-32) and UTF-16 strings.
//
// The results are exactly those of the straightforward routine: a
// worst-case scratch buffer, one lenient reference conversion over the whole
// input, the result kept only on conversionOK and cut at the first U+0000.
// These versions get there faster. ASCII text, the common case, is
// converted in one pass straight into a result of its size; after the
// ASCII, they check and measure the rest in one pass, then convert it
// straight into the result. Results are never zero-filled before they are
// written (OverwriteString.h). FastUTF.h has the building blocks and why
// they agree with the reference, UTFKernels.h the choice of their
// implementation.

#include "MorvString/MorvString.h"

#include <cstring>
#include <cwchar>
#include <new>

#include "OverwriteString.h"
#include "UTFKernels.h"

namespace mvcs {

namespace fast_utf {

namespace {

// UnicodeToUTF8 converts inputs up to this many units into room for the
// worst case without measuring them first; from this size on, the
// conversions look at the start of an input before they try it as ASCII.
const std::size_t kShortInput = 256;

// A long input is tried as ASCII when its first kProbe units are: text that
// is not ASCII from its start (most text of other scripts) then costs no
// attempt. Short inputs are always tried.
const std::size_t kProbe = 64;

template <typename Unit>
bool WorthTryingAsAscii(const Unit* units, std::size_t n) {
  if (n < kShortInput) return true;
  unsigned long any = 0;
  for (std::size_t i = 0; i < kProbe; ++i) any |= static_cast<unsigned long>(units[i]);
  return any < 0x80;
}

// Decodes [p, p + n), which ValidateUTF8 accepted as `characters`
// characters, into `out`; returns how many of them the result keeps: those
// before the first U+0000. (A zero byte is U+0000 or, rarely, the second
// byte after ED or F4.)
std::size_t DecodeUpToZero(const Kernel& kernel, const unsigned char* p, std::size_t n,
                           std::size_t characters, wchar_t* out) {
  kernel.decodeValidUTF8(p, n, out);
  if (std::memchr(p, 0, n) == nullptr) return characters;
  const wchar_t* zero = std::wmemchr(out, L'\0', characters);
  return zero != nullptr ? static_cast<std::size_t>(zero - out) : characters;
}

// Narrows the ASCII prefix of units[0, n) straight into `result` (sized n,
// when the input is worth trying) with the kernel's `narrow`; returns the
// prefix's length (0 when not tried).
template <typename Unit>
std::size_t NarrowPrefix(const Unit* units, std::size_t n,
                         std::size_t (*narrow)(const Unit*, std::size_t, char*),
                         std::string& result) {
  std::size_t ascii = 0;
  if (WorthTryingAsAscii(units, n)) {
    OverwriteString(result, n, [&](char* out) { return ascii = narrow(units, n, out); });
  }
  return ascii;
}

// The result of `size` bytes, in room for `room`: the `ascii` bytes that
// `result` holds, then those that encode(out) writes from out = its start +
// `ascii`. In `result` when it has the room, which it rarely has (what
// follows the ASCII takes at least a byte a unit); otherwise in a string of
// that room.
template <typename Encode>
std::string AfterPrefix(std::string& result, std::size_t ascii, std::size_t size, std::size_t room,
                        Encode encode) {
  auto write = [&](char* out) {
    encode(out + ascii);
    return size;
  };
  if (room <= result.capacity()) {
    OverwriteString(result, room, write);
    return std::move(result);
  }
  std::string exact;
  OverwriteString(exact, room, [&](char* out) {
    std::memcpy(out, result.data(), ascii);
    return write(out);
  });
  return exact;
}

}  // namespace

// An input that starts with ASCII is converted into a result of one unit a
// byte, which is exactly its size when the whole input is ASCII. Where the
// ASCII ends, the rest is checked and measured: the characters after it
// are decoded in place when the result's room is not much larger than what
// it needs, and otherwise into a result of the exact size.
std::wstring UTF8ToWideWith(const Kernel& kernel, const std::string& utf8) {
  const std::size_t n = utf8.size();
  if (n == 0) return std::wstring();
  const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
  try {
    std::size_t ascii = 0, characters = 0;  // the ASCII prefix, and the characters after it
    bool measured = false;
    if (WorthTryingAsAscii(p, n)) {
      std::wstring result;
      bool finished = false;
      OverwriteString(result, n, [&](wchar_t* out) -> std::size_t {
        ascii = kernel.widenAscii(p, n, out);
        finished = ascii == n;
        if (finished) return n;
        measured = true;
        if (!kernel.validateUTF8(p + ascii, n - ascii, &characters)) {
          finished = true;
          return 0;
        }
        const std::size_t size = ascii + characters;
        if (n >= kShortInput && n - size > size / 8) return 0;  // too much room: see below
        finished = true;
        return ascii + DecodeUpToZero(kernel, p + ascii, n - ascii, characters, out + ascii);
      });
      if (finished) return result;
    }
    if (!measured) {
      ascii = 0;
      if (!kernel.validateUTF8(p, n, &characters)) return std::wstring();
    }
    std::wstring result;
    OverwriteString(result, ascii + characters, [&](wchar_t* out) {
      kernel.widenAscii(p, ascii, out);
      return ascii + DecodeUpToZero(kernel, p + ascii, n - ascii, characters, out + ascii);
    });
    return result;
  } catch (const std::bad_alloc&) {
    return std::wstring();
  }
}

// As UTF8ToWide: the ASCII prefix straight into a result of one byte a
// unit; then the rest is checked and measured, and its bytes written after
// the prefix.
std::string WideToUTF8With(const Kernel& kernel, const std::wstring& wide) {
  std::size_t units = wide.size();
  if (units == 0) return std::string();
  const wchar_t* w = wide.data();
  try {
    std::string result;
    const std::size_t ascii = NarrowPrefix(w, units, kernel.narrowAsciiWide, result);
    if (ascii == units) return result;
    std::size_t bytes = 0;
    bool hasZero = false;
    if (!kernel.scanWide(w + ascii, units - ascii, &bytes, &hasZero)) return std::string();
    if (hasZero) {
      units = ascii + std::wcslen(w + ascii);
      kernel.scanWide(w + ascii, units - ascii, &bytes, &hasZero);
    }
    return AfterPrefix(result, ascii, ascii + bytes, ascii + bytes,
                       [&](char* out) { kernel.encodeWide(w + ascii, units - ascii, out); });
  } catch (const std::bad_alloc&) {
    return std::string();
  }
}

// Short inputs: the ASCII prefix, then the rest, into room for the worst
// case (3 bytes a unit). Longer ones as WideToUTF8.
std::string UnicodeToUTF8With(const Kernel& kernel, const unsigned short* units,
                              unsigned long count) {
  if (units == nullptr || count == 0) return std::string();
  // A high surrogate as the last unit ends the conversion sourceExhausted.
  const unsigned short last = units[count - 1];
  if (last >= 0xD800 && last <= 0xDBFF) return std::string();
  std::size_t n = count;
  try {
    std::string result;
    if (n <= kShortInput) {
      // A zero byte in the output can only be U+0000, where the result ends.
      OverwriteString(result, 3 * n + kSlack, [&](char* out) -> std::size_t {
        const std::size_t ascii = kernel.narrowAsciiUTF16(units, n, out);
        if (ascii == n) return n;
        const std::size_t size = static_cast<std::size_t>(
            kernel.encodeUTF16(units + ascii, n - ascii, out + ascii) - out);
        const void* zero = std::memchr(out + ascii, 0, size - ascii);
        return zero != nullptr ? static_cast<std::size_t>(static_cast<const char*>(zero) - out)
                               : size;
      });
      return result;
    }
    const std::size_t ascii = NarrowPrefix(units, n, kernel.narrowAsciiUTF16, result);
    if (ascii == n) return result;
    bool hasZero = false;
    std::size_t bytes = kernel.scanUTF16(units + ascii, n - ascii, &hasZero);
    if (hasZero) {
      n = ascii;
      while (units[n] != 0) ++n;
      bytes = kernel.scanUTF16(units + ascii, n - ascii, &hasZero);
    }
    return AfterPrefix(result, ascii, ascii + bytes, ascii + bytes + kSlack,
                       [&](char* out) { kernel.encodeUTF16(units + ascii, n - ascii, out); });
  } catch (const std::bad_alloc&) {
    return std::string();
  }
}

bool IsUTF8With(const Kernel& kernel, const std::string& text) {
  return kernel.validateUTF8(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                             nullptr);
}

}  // namespace fast_utf

std::wstring UTF8ToWide(const std::string& utf8) {
  return fast_utf::UTF8ToWideWith(fast_utf::ActiveKernel(), utf8);
}

std::string WideToUTF8(const std::wstring& wide) {
  return fast_utf::WideToUTF8With(fast_utf::ActiveKernel(), wide);
}

std::string UnicodeToUTF8(unsigned short* units, unsigned long count) {
  return fast_utf::UnicodeToUTF8With(fast_utf::ActiveKernel(), units, count);
}

bool IsUTF8(const std::string& text) {
  return fast_utf::IsUTF8With(fast_utf::ActiveKernel(), text);
}

std::string UTF8ToNative(const std::string& utf8) { return utf8; }

std::string WideToNative(const std::wstring& wide) { return WideToUTF8(wide); }

}  // namespace mvcs
