// Code-page conversion speed: CodePageToUTF8 and UTF8ToCodePage on 1 MiB of
// windows-1252, Shift_JIS and GB18030 text, beside ICU's ucnv_convert
// called directly on the same input.
//
// Names read Op/Implementation/CodePage. Throughput is bytes of input per
// second (code-page bytes for CodePageToUTF8, UTF-8 bytes for
// UTF8ToCodePage).
//
// Implementations:
//   Morv          the library: ICU loaded at run time for the code page,
//                 the library's own exact pivot between well-formed UTF-8
//                 and a whole-text UTF-16 array, a new result each call
//   ICU_convert   ucnv_convert (linked here only) into a new buffer of the
//                 same worst-case size each call; it opens its two
//                 converters on every call too, and pivots through UTF-16
//                 in small chunks
//   ICU_fromUnicode_floor  UTF8ToCodePage only: ucnv_open, ucnv_fromUnicode
//                 of the text already in UTF-16, ucnv_close, into a buffer
//                 sized as the library sizes its own: the ICU half of the
//                 library's route alone, with the UTF-8 step free

#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "MorvString/MorvString.h"
#include "TextCorpus.h"

namespace {

const std::size_t kTextBytes = 1 << 20;

// Words that windows-1252 holds: Western European text with its
// typographic marks.
std::string WesternText() {
  return corpus::Words(
      {"Ça",      "coûte",   "très",    "cher",    "à",      "Paris",      "où",      "l'été",
       "est",     "chaud",   "Größere", "Übungen", "für",    "Äpfel",      "und",     "Öfen",
       "in",      "München", "Señora",  "Núñez",   "añadió", "piñones",    "al",      "guiso",
       "São",     "Paulo",   "coração", "ação",    "Ærø",    "smørrebrød", "fjörður", "12,50 €",
       "„Zitat“", "‰",       "the",     "and",     "de",     "la",         "der",     "die",
       "el",      "y",       "et"},
      {" ", " ", " ", ", ", ". ", "; ", "\n"}, kTextBytes, 5);
}

// Words that Shift_JIS holds: Japanese with some ASCII.
std::string JapaneseText() {
  return corpus::Words(
      {"設定",     "ファイル", "は",   "ユーザー",     "ごと",   "に",   "保存",
       "されます", "東京",     "媒体", "サーバー",     "の",     "索引", "ライブラリ",
       "を",       "記録",     "製品", "インストール", "経路",   "値",   "整数",
       "文字列",   "MMS",      "2026", "HTTP",         "ポート", "8080"},
      {"", "", "、", "。", " ", "\n"}, kTextBytes, 6);
}

// Words that GB18030 holds: Chinese with some ASCII, and a few characters
// beyond the BMP (four bytes in GB18030, a surrogate pair in UTF-16).
std::string ChineseText() {
  return corpus::Words({"媒体", "服务器", "设置", "存储",   "中",   "保存", "库",   "索引",
                        "安装", "程序",   "为",   "每个",   "产品", "记录", "路径", "文件",
                        "用户", "端口",   "整数", "字符串", "MMS",  "2026", "HTTP", "😀"},
                       {"", "", "，", "。", "、", " ", "\n"}, kTextBytes, 7);
}

// The text in both forms.
struct Input {
  const char* codePage;
  std::string utf8;
  std::string bytes;
  std::vector<UChar> utf16;
};

// ucnv_convert into a new buffer of 4 bytes an input byte (the library's
// worst-case size), as a string of the bytes written.
std::string IcuConvert(const char* to, const char* from, const std::string& source) {
  const std::size_t capacity = 4 * source.size() + 1;
  std::unique_ptr<char[]> buffer(new char[capacity]);
  UErrorCode error = U_ZERO_ERROR;
  const int32_t length = ucnv_convert(to, from, buffer.get(), static_cast<int32_t>(capacity),
                                      source.data(), static_cast<int32_t>(source.size()), &error);
  if (U_FAILURE(error)) std::abort();
  return std::string(buffer.get(), length);
}

// The text as UTF-16, through ICU's own UTF-8 converter.
std::vector<UChar> IcuUTF16(const std::string& utf8) {
  std::vector<UChar> utf16(utf8.size() + 1);
  UErrorCode error = U_ZERO_ERROR;
  const int32_t length = ucnv_convert("UTF-16LE", "utf8", reinterpret_cast<char*>(utf16.data()),
                                      static_cast<int32_t>(utf16.size() * sizeof(UChar)),
                                      utf8.data(), static_cast<int32_t>(utf8.size()), &error);
  if (U_FAILURE(error)) std::abort();
  utf16.resize(static_cast<std::size_t>(length) / sizeof(UChar));
  return utf16;
}

Input MakeInput(const char* codePage, const std::string& utf8) {
  return Input{codePage, utf8, IcuConvert(codePage, "utf8", utf8), IcuUTF16(utf8)};
}

const Input& Western() {
  static const Input input = MakeInput("windows-1252", WesternText());
  return input;
}

const Input& Japanese() {
  static const Input input = MakeInput("Shift_JIS", JapaneseText());
  return input;
}

const Input& Chinese() {
  static const Input input = MakeInput("GB18030", ChineseText());
  return input;
}

// Both implementations must give the same result, or the timing means
// nothing.
void CheckAgreement(benchmark::State& state, const std::string& morv, const std::string& icu) {
  if (morv != icu) state.SkipWithError("the library and ICU disagree");
}

void CodePageToUTF8Morv(benchmark::State& state, const Input& (*input)()) {
  const Input& in = input();
  CheckAgreement(state, mvcs::CodePageToUTF8(in.codePage, in.bytes.data(), in.bytes.size()),
                 IcuConvert("utf8", in.codePage, in.bytes));
  for (auto _ : state) {
    std::string utf8 = mvcs::CodePageToUTF8(in.codePage, in.bytes.data(), in.bytes.size());
    benchmark::DoNotOptimize(utf8.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in.bytes.size()));
}

void CodePageToUTF8Icu(benchmark::State& state, const Input& (*input)()) {
  const Input& in = input();
  for (auto _ : state) {
    std::string utf8 = IcuConvert("utf8", in.codePage, in.bytes);
    benchmark::DoNotOptimize(utf8.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in.bytes.size()));
}

// UTF8ToCodePage's result as a string (and its array freed).
std::string MorvToCodePage(const Input& in) {
  char* out = nullptr;
  unsigned long length = 0;
  mvcs::UTF8ToCodePage(in.codePage, in.utf8, &out, &length);
  std::string bytes = out != nullptr ? std::string(out, length) : std::string();
  delete[] out;
  return bytes;
}

void UTF8ToCodePageMorv(benchmark::State& state, const Input& (*input)()) {
  const Input& in = input();
  CheckAgreement(state, MorvToCodePage(in), in.bytes);
  for (auto _ : state) {
    char* out = nullptr;
    unsigned long length = 0;
    mvcs::UTF8ToCodePage(in.codePage, in.utf8, &out, &length);
    benchmark::DoNotOptimize(out);
    delete[] out;
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in.utf8.size()));
}

void UTF8ToCodePageIcu(benchmark::State& state, const Input& (*input)()) {
  const Input& in = input();
  for (auto _ : state) {
    const std::size_t capacity = 4 * in.utf8.size() + 1;
    std::unique_ptr<char[]> out(new char[capacity]);
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = ucnv_convert(in.codePage, "utf8", out.get(), static_cast<int32_t>(capacity),
                                  in.utf8.data(), static_cast<int32_t>(in.utf8.size()), &error);
    benchmark::DoNotOptimize(length);
    benchmark::DoNotOptimize(out.get());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in.utf8.size()));
}

void UTF8ToCodePageFromUnicodeFloor(benchmark::State& state, const Input& (*input)()) {
  const Input& in = input();
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(in.codePage, &error);
    const std::size_t capacity =
        in.utf16.size() * static_cast<std::size_t>(ucnv_getMaxCharSize(converter)) + 1;
    std::unique_ptr<char[]> out(new char[capacity]);
    char* target = out.get();
    const UChar* source = in.utf16.data();
    ucnv_fromUnicode(converter, &target, out.get() + capacity, &source,
                     in.utf16.data() + in.utf16.size(), nullptr, true, &error);
    ucnv_close(converter);
    if (U_FAILURE(error)) state.SkipWithError("ucnv_fromUnicode failed");
    benchmark::DoNotOptimize(target);
    benchmark::DoNotOptimize(out.get());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in.utf8.size()));
}

}  // namespace

int main(int argc, char** argv) {
  typedef void (*Run)(benchmark::State&, const Input& (*)());
  const struct {
    const char* op;
    const char* implementation;
    Run run;
  } runs[] = {
      {"CodePageToUTF8", "Morv", CodePageToUTF8Morv},
      {"CodePageToUTF8", "ICU_convert", CodePageToUTF8Icu},
      {"UTF8ToCodePage", "Morv", UTF8ToCodePageMorv},
      {"UTF8ToCodePage", "ICU_convert", UTF8ToCodePageIcu},
      {"UTF8ToCodePage", "ICU_fromUnicode_floor", UTF8ToCodePageFromUnicodeFloor},
  };
  const struct {
    const char* name;
    const Input& (*input)();
  } inputs[] = {{"windows-1252", Western}, {"Shift_JIS", Japanese}, {"GB18030", Chinese}};
  for (const auto& input : inputs) {
    for (const auto& run : runs) {
      const std::string name = std::string(run.op) + "/" + run.implementation + "/" + input.name;
      benchmark::RegisterBenchmark(name.c_str(), run.run, input.input);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
