// String conversion speed: UTF8ToWide, WideToUTF8, UnicodeToUTF8 and IsUTF8
// beside ICU's string API, iconv, the straightforward reference routine and
// the memory work alone, on setting names and on 1 MiB of ASCII, accented,
// CJK and emoji text.
//
// Names read Op/Implementation/Input. Throughput is bytes of input per
// second: UTF-8 bytes for UTF8ToWide and IsUTF8, 4 bytes a unit for
// WideToUTF8, 2 bytes a unit for UnicodeToUTF8.
//
// Implementations:
//   Morv       the library, with the kernel it chooses
//   Morv_K     the library with kernel K, for each kernel this processor can
//              run ("sse2" is the code from before the vector kernels)
//   Reference  the straightforward routine (scratch buffer, one reference
//              conversion, copy into the result)
//   ICU        ICU's string API behind the library's contract: a new result
//              string on every call, sized for the worst case
//   ICU_Reuse  ICU's string API into buffers allocated once and reused (no
//              allocation at all: a stricter bar than the library's contract)
//   iconv      glibc's iconv into a reused buffer
//   Floor      the memory work of the operation and nothing else: a result
//              string of the final size, allocated without zero-filling it,
//              written by a plain loop that casts (widens or narrows) each
//              input unit into the result unit at the same place; every
//              input unit is read once (MemoryFloor.h). On ASCII text this
//              is exactly the conversion's memory traffic; on other text
//              it leaves out the work that tells characters apart. For
//              IsUTF8, a plain read of every byte.

#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ustring.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "MemoryFloor.h"
#include "MorvString/MorvString.h"
#include "OverwriteString.h"
#include "ReferenceStringConversions.h"
#include "TextCorpus.h"
#include "UTFKernels.h"

namespace {

// One input in the three forms; `items` holds several strings for the
// setting names and one for each 1 MiB text.
struct Input {
  std::string name;
  std::vector<std::string> utf8;
  std::vector<std::wstring> wide;
  std::vector<std::u16string> utf16;
  std::size_t utf8Bytes = 0, wideBytes = 0, utf16Bytes = 0;
};

Input MakeInput(const std::string& name, const std::vector<std::string>& texts) {
  Input input;
  input.name = name;
  input.utf8 = texts;
  for (const std::string& text : texts) {
    const std::wstring wide = reference::UTF8ToWide(text);
    std::u16string utf16(text.size() + 1, u'\0');
    int32_t length = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(reinterpret_cast<UChar*>(&utf16[0]), static_cast<int32_t>(utf16.size()), &length,
                  text.data(), static_cast<int32_t>(text.size()), &error);
    if (wide.empty() || U_FAILURE(error)) std::abort();
    utf16.resize(length);
    input.wide.push_back(wide);
    input.utf16.push_back(utf16);
    input.utf8Bytes += text.size();
    input.wideBytes += wide.size() * sizeof(wchar_t);
    input.utf16Bytes += utf16.size() * 2;
  }
  return input;
}

// Reusable peer buffers, sized for the largest input.
struct Scratch {
  std::vector<UChar> utf16 = std::vector<UChar>(4 << 20);
  std::vector<UChar32> utf32 = std::vector<UChar32>(4 << 20);
  std::vector<char> utf8 = std::vector<char>(8 << 20);
};
Scratch& Buffers() {
  static Scratch scratch;
  return scratch;
}

// Converts with iconv into the scratch buffer; returns the bytes written.
std::size_t Iconv(iconv_t cd, const void* data, std::size_t bytes) {
  char* in = const_cast<char*>(static_cast<const char*>(data));
  char* out = Buffers().utf8.data();
  std::size_t inLeft = bytes, outLeft = Buffers().utf8.size();
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  iconv(cd, &in, &inLeft, &out, &outLeft);
  return Buffers().utf8.size() - outLeft;
}

iconv_t Open(const char* to, const char* from) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) std::abort();
  return cd;
}

// A result of `size` units, not zero-filled, written from `input`.
template <typename Result, typename In>
Result Floor(const In* input, std::size_t count, std::size_t size) {
  Result result;
  mvcs::OverwriteString(result, size, [&](typename Result::value_type* out) {
    benchmark::DoNotOptimize(floor_work::CastEach(input, count, out, size));
    return size;
  });
  return result;
}

using Work = std::function<void(const Input&)>;

// The Floor rows: each string of the form `from` (its units read as `In`)
// to a result of the size of the same string in the form `to`.
template <typename In, typename From, typename To>
Work FloorWork(std::vector<From> Input::*from, std::vector<To> Input::*to) {
  return [from, to](const Input& in) {
    for (std::size_t k = 0; k < (in.*from).size(); ++k) {
      const From& s = (in.*from)[k];
      benchmark::DoNotOptimize(
          Floor<To>(reinterpret_cast<const In*>(s.data()), s.size(), (in.*to)[k].size()));
    }
  };
}

struct Implementation {
  const char* op;
  std::string name;
  std::size_t Input::*bytes;
  Work work;
};

std::vector<Implementation> Implementations() {
  static iconv_t utf8ToWide = Open("WCHAR_T", "UTF-8");
  static iconv_t wideToUtf8 = Open("UTF-8", "WCHAR_T");
  static iconv_t utf16ToUtf8 = Open("UTF-8", "UTF-16LE");
  static iconv_t utf8ToUtf16 = Open("UTF-16LE", "UTF-8");
  std::vector<Implementation> list;

  list.push_back({"UTF8ToWide", "Morv", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8)
                      benchmark::DoNotOptimize(mvcs::UTF8ToWide(s));
                  }});
  list.push_back({"UTF8ToWide", "Reference", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8)
                      benchmark::DoNotOptimize(reference::UTF8ToWide(s));
                  }});
  list.push_back({"UTF8ToWide", "ICU_Reuse", &Input::utf8Bytes, [](const Input& in) {
                    // u_strFromUTF8 then u_strToUTF32: ICU has no direct UTF-8 to UTF-32.
                    Scratch& b = Buffers();
                    for (const std::string& s : in.utf8) {
                      UErrorCode error = U_ZERO_ERROR;
                      int32_t units = 0, points = 0;
                      u_strFromUTF8(b.utf16.data(), static_cast<int32_t>(b.utf16.size()), &units,
                                    s.data(), static_cast<int32_t>(s.size()), &error);
                      u_strToUTF32(b.utf32.data(), static_cast<int32_t>(b.utf32.size()), &points,
                                   b.utf16.data(), units, &error);
                      benchmark::DoNotOptimize(points);
                    }
                  }});
  list.push_back(
      {"UTF8ToWide", "ICU", &Input::utf8Bytes, [](const Input& in) {
         for (const std::string& s : in.utf8) {
           UErrorCode error = U_ZERO_ERROR;
           int32_t units = 0, points = 0;
           std::u16string utf16(s.size(), u'\0');
           u_strFromUTF8(reinterpret_cast<UChar*>(&utf16[0]), static_cast<int32_t>(utf16.size()),
                         &units, s.data(), static_cast<int32_t>(s.size()), &error);
           std::wstring wide(units, L'\0');
           u_strToUTF32(reinterpret_cast<UChar32*>(&wide[0]), static_cast<int32_t>(wide.size()),
                        &points, reinterpret_cast<const UChar*>(utf16.data()), units, &error);
           wide.resize(U_SUCCESS(error) ? points : 0);
           benchmark::DoNotOptimize(wide);
         }
       }});
  list.push_back({"UTF8ToWide", "Floor", &Input::utf8Bytes,
                  FloorWork<unsigned char>(&Input::utf8, &Input::wide)});
  list.push_back({"UTF8ToWide", "iconv", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8) {
                      benchmark::DoNotOptimize(Iconv(utf8ToWide, s.data(), s.size()));
                    }
                  }});

  list.push_back({"WideToUTF8", "Morv", &Input::wideBytes, [](const Input& in) {
                    for (const std::wstring& s : in.wide)
                      benchmark::DoNotOptimize(mvcs::WideToUTF8(s));
                  }});
  list.push_back({"WideToUTF8", "Reference", &Input::wideBytes, [](const Input& in) {
                    for (const std::wstring& s : in.wide)
                      benchmark::DoNotOptimize(reference::WideToUTF8(s));
                  }});
  list.push_back({"WideToUTF8", "ICU", &Input::wideBytes, [](const Input& in) {
                    for (const std::wstring& s : in.wide) {
                      UErrorCode error = U_ZERO_ERROR;
                      int32_t units = 0, bytes = 0;
                      std::u16string utf16(2 * s.size(), u'\0');
                      u_strFromUTF32(reinterpret_cast<UChar*>(&utf16[0]),
                                     static_cast<int32_t>(utf16.size()), &units,
                                     reinterpret_cast<const UChar32*>(s.data()),
                                     static_cast<int32_t>(s.size()), &error);
                      std::string utf8(3 * static_cast<std::size_t>(units), '\0');
                      u_strToUTF8(&utf8[0], static_cast<int32_t>(utf8.size()), &bytes,
                                  reinterpret_cast<const UChar*>(utf16.data()), units, &error);
                      utf8.resize(U_SUCCESS(error) ? bytes : 0);
                      benchmark::DoNotOptimize(utf8);
                    }
                  }});
  list.push_back({"WideToUTF8", "ICU_Reuse", &Input::wideBytes, [](const Input& in) {
                    // u_strFromUTF32 then u_strToUTF8: ICU has no direct UTF-32 to UTF-8.
                    Scratch& b = Buffers();
                    for (const std::wstring& s : in.wide) {
                      UErrorCode error = U_ZERO_ERROR;
                      int32_t units = 0, bytes = 0;
                      u_strFromUTF32(b.utf16.data(), static_cast<int32_t>(b.utf16.size()), &units,
                                     reinterpret_cast<const UChar32*>(s.data()),
                                     static_cast<int32_t>(s.size()), &error);
                      u_strToUTF8(b.utf8.data(), static_cast<int32_t>(b.utf8.size()), &bytes,
                                  b.utf16.data(), units, &error);
                      benchmark::DoNotOptimize(bytes);
                    }
                  }});
  list.push_back(
      {"WideToUTF8", "Floor", &Input::wideBytes, FloorWork<wchar_t>(&Input::wide, &Input::utf8)});
  list.push_back({"WideToUTF8", "iconv", &Input::wideBytes, [](const Input& in) {
                    for (const std::wstring& s : in.wide) {
                      benchmark::DoNotOptimize(
                          Iconv(wideToUtf8, s.data(), s.size() * sizeof(wchar_t)));
                    }
                  }});

  list.push_back(
      {"UnicodeToUTF8", "Morv", &Input::utf16Bytes, [](const Input& in) {
         for (const std::u16string& s : in.utf16) {
           benchmark::DoNotOptimize(mvcs::UnicodeToUTF8(
               reinterpret_cast<unsigned short*>(const_cast<char16_t*>(s.data())), s.size()));
         }
       }});
  list.push_back({"UnicodeToUTF8", "Reference", &Input::utf16Bytes, [](const Input& in) {
                    for (const std::u16string& s : in.utf16) {
                      benchmark::DoNotOptimize(reference::UnicodeToUTF8(
                          reinterpret_cast<const unsigned short*>(s.data()), s.size()));
                    }
                  }});
  list.push_back({"UnicodeToUTF8", "ICU", &Input::utf16Bytes, [](const Input& in) {
                    for (const std::u16string& s : in.utf16) {
                      UErrorCode error = U_ZERO_ERROR;
                      int32_t bytes = 0;
                      std::string utf8(3 * s.size(), '\0');
                      u_strToUTF8(&utf8[0], static_cast<int32_t>(utf8.size()), &bytes,
                                  reinterpret_cast<const UChar*>(s.data()),
                                  static_cast<int32_t>(s.size()), &error);
                      utf8.resize(U_SUCCESS(error) ? bytes : 0);
                      benchmark::DoNotOptimize(utf8);
                    }
                  }});
  list.push_back({"UnicodeToUTF8", "ICU_Reuse", &Input::utf16Bytes, [](const Input& in) {
                    Scratch& b = Buffers();
                    for (const std::u16string& s : in.utf16) {
                      UErrorCode error = U_ZERO_ERROR;
                      int32_t bytes = 0;
                      u_strToUTF8(b.utf8.data(), static_cast<int32_t>(b.utf8.size()), &bytes,
                                  reinterpret_cast<const UChar*>(s.data()),
                                  static_cast<int32_t>(s.size()), &error);
                      benchmark::DoNotOptimize(bytes);
                    }
                  }});
  list.push_back({"UnicodeToUTF8", "Floor", &Input::utf16Bytes,
                  FloorWork<char16_t>(&Input::utf16, &Input::utf8)});
  list.push_back({"UnicodeToUTF8", "iconv", &Input::utf16Bytes, [](const Input& in) {
                    for (const std::u16string& s : in.utf16) {
                      benchmark::DoNotOptimize(Iconv(utf16ToUtf8, s.data(), s.size() * 2));
                    }
                  }});

  list.push_back({"IsUTF8", "Morv", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8) benchmark::DoNotOptimize(mvcs::IsUTF8(s));
                  }});
  list.push_back({"IsUTF8", "Reference", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8)
                      benchmark::DoNotOptimize(reference::IsUTF8(s));
                  }});
  list.push_back(
      {"IsUTF8", "ICU", &Input::utf8Bytes, [](const Input& in) {
         // Pre-flighting u_strFromUTF8 (no destination) validates and measures.
         for (const std::string& s : in.utf8) {
           UErrorCode error = U_ZERO_ERROR;
           int32_t units = 0;
           u_strFromUTF8(nullptr, 0, &units, s.data(), static_cast<int32_t>(s.size()), &error);
           benchmark::DoNotOptimize(error == U_BUFFER_OVERFLOW_ERROR || U_SUCCESS(error));
         }
       }});
  list.push_back({"IsUTF8", "Floor", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8) {
                      benchmark::DoNotOptimize(floor_work::OrEach(
                          reinterpret_cast<const unsigned char*>(s.data()), s.size()));
                    }
                  }});
  list.push_back({"IsUTF8", "iconv", &Input::utf8Bytes, [](const Input& in) {
                    for (const std::string& s : in.utf8) {
                      benchmark::DoNotOptimize(Iconv(utf8ToUtf16, s.data(), s.size()));
                    }
                  }});
  // Each kernel, through the same whole-string functions as the library's.
  for (const mvcs::fast_utf::Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    const std::string name = std::string("Morv_") + kernel->name;
    const mvcs::fast_utf::Kernel& k = *kernel;
    list.push_back({"UTF8ToWide", name, &Input::utf8Bytes, [&k](const Input& in) {
                      for (const std::string& s : in.utf8)
                        benchmark::DoNotOptimize(mvcs::fast_utf::UTF8ToWideWith(k, s));
                    }});
    list.push_back({"WideToUTF8", name, &Input::wideBytes, [&k](const Input& in) {
                      for (const std::wstring& s : in.wide)
                        benchmark::DoNotOptimize(mvcs::fast_utf::WideToUTF8With(k, s));
                    }});
    list.push_back({"UnicodeToUTF8", name, &Input::utf16Bytes, [&k](const Input& in) {
                      for (const std::u16string& s : in.utf16) {
                        benchmark::DoNotOptimize(mvcs::fast_utf::UnicodeToUTF8With(
                            k, reinterpret_cast<const unsigned short*>(s.data()), s.size()));
                      }
                    }});
    list.push_back({"IsUTF8", name, &Input::utf8Bytes, [&k](const Input& in) {
                      for (const std::string& s : in.utf8)
                        benchmark::DoNotOptimize(mvcs::fast_utf::IsUTF8With(k, s));
                    }});
  }
  return list;
}

void RegisterAll() {
  static const std::vector<Input> inputs = {
      MakeInput("names", corpus::SettingNames()),
      MakeInput("ascii_1MiB", {corpus::Ascii(1 << 20)}),
      MakeInput("accented_1MiB", {corpus::Accented(1 << 20)}),
      MakeInput("cjk_1MiB", {corpus::Cjk(1 << 20)}),
      MakeInput("emoji_1MiB", {corpus::Emoji(1 << 20)}),
  };
  static const std::vector<Implementation> implementations = Implementations();
  for (const Implementation& impl : implementations) {
    for (const Input& input : inputs) {
      const std::string name = std::string(impl.op) + "/" + impl.name + "/" + input.name;
      benchmark::RegisterBenchmark(name.c_str(), [&impl, &input](benchmark::State& state) {
        for (auto _ : state) impl.work(input);
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                                static_cast<int64_t>(input.*impl.bytes));
      });
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
