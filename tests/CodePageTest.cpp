// Code-page conversions through the system ICU, loaded at run time: known
// byte sequences both ways, ICU's substitutions, argument checks and their
// untouched outputs, and every function's failure result when the converter
// library (or one of its entry points) is missing.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <string>

#include "MorvString/MorvString.h"
#include "UCNVLibrary.h"

namespace {

std::string Bytes(std::initializer_list<unsigned char> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

const unsigned short* Units(const std::u16string& text) {
  return reinterpret_cast<const unsigned short*>(text.data());
}

// The outputs of UnicodeToCodePage / CodePageToUnicode, freed with delete[].
template <class Unit>
struct Output {
  bool ok = false;
  Unit* out = nullptr;
  unsigned long length = 0;
  ~Output() { delete[] out; }
};

// UnicodeToCodePage, with the bytes and the terminator checked.
std::string ToCodePage(const char* name, const std::u16string& text) {
  Output<char> result;
  result.ok = mvcs::UnicodeToCodePage(name, Units(text), text.size(), &result.out, &result.length);
  EXPECT_TRUE(result.ok) << name;
  if (!result.ok || result.out == nullptr) return std::string();
  EXPECT_EQ(result.out[result.length], '\0');
  return std::string(result.out, result.length);
}

// CodePageToUnicode, with the units and the terminator checked.
std::u16string FromCodePage(const char* name, const std::string& bytes) {
  Output<unsigned short> result;
  result.ok =
      mvcs::CodePageToUnicode(name, bytes.data(), bytes.size(), &result.out, &result.length);
  EXPECT_TRUE(result.ok) << name;
  if (!result.ok || result.out == nullptr) return std::u16string();
  EXPECT_EQ(result.out[result.length], 0);
  return std::u16string(reinterpret_cast<const char16_t*>(result.out), result.length);
}

// UTF8ToCodePage / WideToCodePage into a fresh null pointer.
template <class Text>
std::string TextToCodePage(void (*convert)(const char*, const Text&, char**, unsigned long*),
                           const char* name, const Text& text) {
  char* out = nullptr;
  unsigned long length = 0;
  convert(name, text, &out, &length);
  std::string result = out != nullptr ? std::string(out, length) : std::string();
  delete[] out;
  return result;
}

// Every test starts and ends with the system ICU configured and nothing
// loaded, whatever the test pointed the converter at.
class CodePage : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }

  static void Reset() {
    mvcs::SetCodePageLibrary(nullptr, nullptr);
    mvcs::FreeCodePageResouces();
  }

  static void UseLibrary(const char* path, const char* suffix) {
    mvcs::SetCodePageLibrary(path, suffix);
    mvcs::FreeCodePageResouces();
  }
};

// Known encodings of the same texts, as both directions must produce them.
struct KnownEncoding {
  const char* name;
  std::u16string text;
  std::string bytes;
};

void PrintTo(const KnownEncoding& known, std::ostream* os) { *os << known.name; }

class KnownEncodings : public CodePage, public ::testing::WithParamInterface<KnownEncoding> {};

TEST_P(KnownEncodings, UnicodeToCodePageGivesKnownBytes) {
  EXPECT_EQ(ToCodePage(GetParam().name, GetParam().text), GetParam().bytes);
}

TEST_P(KnownEncodings, CodePageToUnicodeGivesKnownUnits) {
  EXPECT_EQ(FromCodePage(GetParam().name, GetParam().bytes), GetParam().text);
}

TEST_P(KnownEncodings, RoundTripThroughUTF8AndWide) {
  const KnownEncoding& known = GetParam();
  const std::string utf8 =
      mvcs::UnicodeToUTF8(const_cast<unsigned short*>(Units(known.text)), known.text.size());
  const std::wstring wide = mvcs::UTF8ToWide(utf8);
  ASSERT_FALSE(utf8.empty());
  EXPECT_EQ(mvcs::CodePageToUTF8(known.name, known.bytes.data(), known.bytes.size()), utf8);
  EXPECT_EQ(mvcs::CodePageToWide(known.name, known.bytes.data(), known.bytes.size()), wide);
  EXPECT_EQ(TextToCodePage(mvcs::UTF8ToCodePage, known.name, utf8), known.bytes);
  EXPECT_EQ(TextToCodePage(mvcs::WideToCodePage, known.name, wide), known.bytes);
}

INSTANTIATE_TEST_SUITE_P(
    SystemICU, KnownEncodings,
    ::testing::Values(KnownEncoding{"ISO-8859-1", u"caf\u00E9", Bytes({0x63, 0x61, 0x66, 0xE9})},
                      KnownEncoding{"windows-1252", u"\u20AC\u201E\u2030",
                                    Bytes({0x80, 0x84, 0x89})},
                      KnownEncoding{"ISO-8859-5", u"\u041F\u0440\u0438\u0432\u0435\u0442",
                                    Bytes({0xBF, 0xE0, 0xD8, 0xD2, 0xD5, 0xE2})},
                      KnownEncoding{"Shift_JIS", u"\u65E5\u672C\u8A9E",
                                    Bytes({0x93, 0xFA, 0x96, 0x7B, 0x8C, 0xEA})},
                      KnownEncoding{"GB18030", u"\u4E2D\u6587\U0001F600",
                                    Bytes({0xD6, 0xD0, 0xCE, 0xC4, 0x94, 0x39, 0xFC, 0x36})},
                      KnownEncoding{"UTF-16LE", u"A\u20AC\U0001F600",
                                    Bytes({0x41, 0x00, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE})}),
    [](const ::testing::TestParamInfo<KnownEncoding>& info) {
      std::string name = info.param.name;
      for (char& c : name) {
        if (c == '-') c = '_';
      }
      return name;
    });

// --- Availability -----------------------------------------------------------

TEST_F(CodePage, KnownConvertersAreAvailable) {
  EXPECT_TRUE(mvcs::IsCodePageAvailable("utf8"));
  EXPECT_TRUE(mvcs::IsCodePageAvailable("windows-1252"));
  EXPECT_TRUE(mvcs::IsCodePageAvailable("shift_jis"));
  EXPECT_TRUE(mvcs::IsCodePageAvailable("gb18030"));
}

TEST_F(CodePage, UnknownConverterIsNotAvailable) {
  EXPECT_FALSE(mvcs::IsCodePageAvailable("no-such-code-page-1234"));
}

TEST_F(CodePage, NullNameIsAvailable) { EXPECT_TRUE(mvcs::IsCodePageAvailable(nullptr)); }

// --- Substitutions, zero characters and full buffers --------------------------

TEST_F(CodePage, UnmappableCharacterIsSubstitutedAndStillSucceeds) {
  // windows-1252 has no 日: ICU writes its substitution byte, 0x1A.
  EXPECT_EQ(ToCodePage("windows-1252", u"a\u65E5b"), Bytes({'a', 0x1A, 'b'}));
  EXPECT_EQ(ToCodePage("ISO-8859-1", u"\u20AC"), Bytes({0x1A}));
}

TEST_F(CodePage, LoneSurrogateIsSubstituted) {
  EXPECT_EQ(ToCodePage("windows-1252", std::u16string({u'x', char16_t(0xD800), u'y'})),
            Bytes({'x', 0x1A, 'y'}));
}

TEST_F(CodePage, IllegalBytesBecomeReplacementCharacter) {
  // ICU substitutes U+FFFD for a byte that cannot start UTF-8, and the
  // table converters' U+001A for a double-byte character cut off by the end
  // of the input.
  EXPECT_EQ(FromCodePage("utf8", Bytes({'a', 0xFF, 'b'})), u"a\uFFFDb");
  EXPECT_EQ(FromCodePage("Shift_JIS", Bytes({'a', 0x93})), u"a\u001A");
}

TEST_F(CodePage, CodePageToWideKeepsZeroCharacter) {
  const std::string bytes("a\0\xE9z", 4);
  EXPECT_EQ(mvcs::CodePageToWide("windows-1252", bytes.data(), bytes.size()),
            std::wstring({L'a', L'\0', static_cast<wchar_t>(0xE9), L'z'}));
}

TEST_F(CodePage, CodePageToUTF8KeepsZeroCharacter) {
  const std::string bytes("a\0\xE9z", 4);
  EXPECT_EQ(mvcs::CodePageToUTF8("windows-1252", bytes.data(), bytes.size()),
            Bytes({'a', 0x00, 0xC3, 0xA9, 'z'}));
}

TEST_F(CodePage, CodePageToUnicodeKeepsZeroUnit) {
  EXPECT_EQ(FromCodePage("ISO-8859-1", std::string("x\0y", 3)), std::u16string(u"x\0y", 3));
}

TEST_F(CodePage, OutputLargerThanRoomIsCutAtTheRoomAndStillSucceeds) {
  // ISO-2022-JP switches character sets with 3-byte escapes: alternating
  // ASCII and kanji needs 9 bytes for 2 units, more than the 4 bytes a unit
  // of room. What fits is kept, and the result is still true.
  std::u16string text;
  for (int i = 0; i < 8; ++i) text += u"a\u65E5";
  Output<char> result;
  result.ok =
      mvcs::UnicodeToCodePage("ISO-2022-JP", Units(text), text.size(), &result.out, &result.length);
  ASSERT_TRUE(result.ok);
  EXPECT_EQ(result.length, 4 * text.size());
  EXPECT_EQ(result.out[result.length], '\0');
  // The first pair as ICU writes it: ESC ( B would not be needed for the
  // leading ASCII; the kanji is ESC $ B 46 7C.
  EXPECT_EQ(std::string(result.out, 6), Bytes({'a', 0x1B, 0x24, 0x42, 0x46, 0x7C}));
}

TEST_F(CodePage, ByteOrderMarkAloneGivesNoUnits) {
  // "UTF-16" reads the byte order mark and writes nothing for it.
  Output<unsigned short> result;
  const std::string bom = Bytes({0xFF, 0xFE});
  result.ok =
      mvcs::CodePageToUnicode("UTF-16", bom.data(), bom.size(), &result.out, &result.length);
  ASSERT_TRUE(result.ok);
  ASSERT_NE(result.out, nullptr);
  EXPECT_EQ(result.length, 0u);
  EXPECT_EQ(result.out[0], 0);
  // With nothing to convert further, both composite conversions are empty.
  EXPECT_EQ(mvcs::CodePageToUTF8("UTF-16", bom.data(), bom.size()), "");
  EXPECT_EQ(mvcs::CodePageToWide("UTF-16", bom.data(), bom.size()), L"");
}

TEST_F(CodePage, NullNameIsHandedToICUAsItsDefaultConverter) {
  // ICU opens its default converter for a null name; ASCII is the same in
  // every default it can have here.
  EXPECT_EQ(ToCodePage(nullptr, u"abc"), "abc");
}

// --- Argument checks ------------------------------------------------------------

TEST_F(CodePage, UnicodeToCodePageWithZeroCountTouchesNothing) {
  char sentinel = 'S';
  char* out = &sentinel;
  unsigned long length = 77;
  EXPECT_FALSE(mvcs::UnicodeToCodePage("utf8", Units(u"abc"), 0, &out, &length));
  EXPECT_EQ(out, &sentinel);
  EXPECT_EQ(length, 77u);
}

TEST_F(CodePage, UnicodeToCodePageWithNullArgumentsTouchesNothing) {
  char sentinel = 'S';
  char* out = &sentinel;
  unsigned long length = 77;
  EXPECT_FALSE(mvcs::UnicodeToCodePage("utf8", nullptr, 3, &out, &length));
  EXPECT_FALSE(mvcs::UnicodeToCodePage("utf8", Units(u"abc"), 3, nullptr, &length));
  EXPECT_FALSE(mvcs::UnicodeToCodePage("utf8", Units(u"abc"), 3, &out, nullptr));
  EXPECT_EQ(out, &sentinel);
  EXPECT_EQ(length, 77u);
}

TEST_F(CodePage, CodePageToUnicodeWithZeroCountOrNullArgumentsTouchesNothing) {
  unsigned short sentinel = 1;
  unsigned short* out = &sentinel;
  unsigned long length = 77;
  EXPECT_FALSE(mvcs::CodePageToUnicode("utf8", "abc", 0, &out, &length));
  EXPECT_FALSE(mvcs::CodePageToUnicode("utf8", nullptr, 3, &out, &length));
  EXPECT_FALSE(mvcs::CodePageToUnicode("utf8", "abc", 3, nullptr, &length));
  EXPECT_FALSE(mvcs::CodePageToUnicode("utf8", "abc", 3, &out, nullptr));
  EXPECT_EQ(out, &sentinel);
  EXPECT_EQ(length, 77u);
}

TEST_F(CodePage, CountTooLargeToSizeTheOutputIsRefused) {
  char* out = nullptr;
  unsigned long length = 77;
  EXPECT_FALSE(mvcs::UnicodeToCodePage("utf8", Units(u"abc"), ~0ul / 2, &out, &length));
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 77u);
}

// UnicodeToCodePage and CodePageToUnicode through converter `name` fail
// with a null array and a length of 0, whatever the outputs held before.
void ExpectBothDirectionsFail(const char* name) {
  char* out = reinterpret_cast<char*>(1);
  unsigned long length = 77;
  EXPECT_FALSE(mvcs::UnicodeToCodePage(name, Units(u"abc"), 3, &out, &length));
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
  unsigned short* units = reinterpret_cast<unsigned short*>(2);
  length = 77;
  EXPECT_FALSE(mvcs::CodePageToUnicode(name, "abc", 3, &units, &length));
  EXPECT_EQ(units, nullptr);
  EXPECT_EQ(length, 0u);
}

TEST_F(CodePage, UnknownConverterFailsWithNullOutput) {
  ExpectBothDirectionsFail("no-such-code-page");
  EXPECT_EQ(mvcs::CodePageToUTF8("no-such-code-page", "abc", 3), "");
  EXPECT_EQ(mvcs::CodePageToWide("no-such-code-page", "abc", 3), L"");
}

TEST_F(CodePage, WideToCodePageWithOutAlreadySetDoesNothing) {
  char sentinel = 'S';
  char* out = &sentinel;
  unsigned long length = 77;
  mvcs::WideToCodePage("windows-1252", L"abc", &out, &length);
  EXPECT_EQ(out, &sentinel);
  EXPECT_EQ(length, 77u);
  mvcs::UTF8ToCodePage("windows-1252", "abc", &out, &length);
  EXPECT_EQ(out, &sentinel);
  EXPECT_EQ(length, 77u);
}

TEST_F(CodePage, TextToCodePageWithoutUsableArgumentsDoesNothing) {
  char* out = nullptr;
  unsigned long length = 77;
  mvcs::WideToCodePage(nullptr, L"abc", &out, &length);
  mvcs::WideToCodePage("windows-1252", L"", &out, &length);
  mvcs::UTF8ToCodePage(nullptr, "abc", &out, &length);
  mvcs::UTF8ToCodePage("windows-1252", "", &out, &length);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 77u);
  mvcs::WideToCodePage("windows-1252", L"abc", nullptr, &length);
  mvcs::UTF8ToCodePage("windows-1252", "abc", &out, nullptr);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 77u);
}

TEST_F(CodePage, TextToUnknownCodePageGivesNullAndZeroLength) {
  char* out = nullptr;
  unsigned long length = 77;
  mvcs::UTF8ToCodePage("no-such-code-page", "abc", &out, &length);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
  length = 77;
  mvcs::WideToCodePage("no-such-code-page", L"abc", &out, &length);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 0u);
}

TEST_F(CodePage, CompositeConversionsWithoutUsableArgumentsAreEmpty) {
  EXPECT_EQ(mvcs::CodePageToUTF8(nullptr, "abc", 3), "");
  EXPECT_EQ(mvcs::CodePageToUTF8("utf8", nullptr, 3), "");
  EXPECT_EQ(mvcs::CodePageToUTF8("utf8", "abc", 0), "");
  EXPECT_EQ(mvcs::CodePageToWide(nullptr, "abc", 3), L"");
  EXPECT_EQ(mvcs::CodePageToWide("utf8", nullptr, 3), L"");
  EXPECT_EQ(mvcs::CodePageToWide("utf8", "abc", 0), L"");
}

TEST_F(CodePage, InvalidUTF8IsSubstitutedOnTheWayIn) {
  // ICU's UTF-8 reader replaces the stray byte with U+FFFD, which
  // windows-1252 cannot hold: the substitution byte comes out.
  EXPECT_EQ(TextToCodePage(mvcs::UTF8ToCodePage, "windows-1252", Bytes({'a', 0xFF, 'b'})),
            Bytes({'a', 0x1A, 'b'}));
}

// --- Loading and unloading ----------------------------------------------------

TEST_F(CodePage, InstanceIsMadeOnFirstUseAndDiscardedByFree) {
  EXPECT_EQ(mvcs::UCNVLibrary::s_ucnvLibrary, nullptr);
  mvcs::UCNVLibrary* library = mvcs::UCNVLibrary::instance();
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(mvcs::UCNVLibrary::s_ucnvLibrary, library);
  EXPECT_EQ(mvcs::UCNVLibrary::instance(), library);
  EXPECT_TRUE(library->IsUsable());
  EXPECT_TRUE(library->OpensUTF8());
  EXPECT_TRUE(library->OpensUTF8());  // the remembered answer
  mvcs::FreeCodePageResouces();
  EXPECT_EQ(mvcs::UCNVLibrary::s_ucnvLibrary, nullptr);
}

TEST_F(CodePage, FreeTwiceIsHarmlessAndTheNextConversionLoadsAgain) {
  EXPECT_EQ(mvcs::CodePageToUTF8("windows-1252", "\x80", 1), "\xE2\x82\xAC");
  mvcs::FreeCodePageResouces();
  mvcs::FreeCodePageResouces();
  EXPECT_EQ(mvcs::UCNVLibrary::s_ucnvLibrary, nullptr);
  EXPECT_EQ(mvcs::CodePageToUTF8("windows-1252", "\x80", 1), "\xE2\x82\xAC");
  EXPECT_NE(mvcs::UCNVLibrary::s_ucnvLibrary, nullptr);
}

TEST_F(CodePage, UnloadingAndReloadingDoesNotGrowMemory) {
  // ICU caches converter data; unloading must not strand that cache, or
  // every reload would leak it again. (Under AddressSanitizer mallinfo2
  // reports nothing, and the leak checker at exit does this job.)
  auto cycle = [] {
    EXPECT_EQ(mvcs::CodePageToUTF8("Shift_JIS", "\x93\xFA", 2), "\xE6\x97\xA5");
    mvcs::FreeCodePageResouces();
  };
  for (int i = 0; i < 5; ++i) cycle();
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 200; ++i) cycle();
  const size_t after = mallinfo2().uordblks;
  EXPECT_LT(after, before + 64 * 1024) << "grew by " << (after - before) << " bytes";
}

TEST_F(CodePage, NewLibraryPathTakesEffectOnlyAfterFree) {
  EXPECT_TRUE(mvcs::IsCodePageAvailable("utf8"));
  mvcs::SetCodePageLibrary("/no/such/libicuuc.so", nullptr);
  EXPECT_TRUE(mvcs::IsCodePageAvailable("utf8"));
  mvcs::FreeCodePageResouces();
  EXPECT_FALSE(mvcs::IsCodePageAvailable("utf8"));
  // A failed load is kept until the next Free, even with a good path.
  mvcs::SetCodePageLibrary(nullptr, nullptr);
  EXPECT_FALSE(mvcs::IsCodePageAvailable("utf8"));
  mvcs::FreeCodePageResouces();
  EXPECT_TRUE(mvcs::IsCodePageAvailable("utf8"));
}

TEST_F(CodePage, WrappersForwardToICU) {
  mvcs::UCNVLibrary* library = mvcs::UCNVLibrary::instance();
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = library->UCNV_open("ISO-8859-1", &error);
  ASSERT_NE(converter, nullptr);
  EXPECT_EQ(error, U_ZERO_ERROR);
  const std::string bytes = Bytes({'o', 0xFC});
  const char* source = bytes.data();
  unsigned short units[4] = {0, 0, 0, 0};
  unsigned short* target = units;
  int offsets[4] = {-1, -1, -1, -1};
  library->UCNV_toUnicode(converter, &target, units + 4, &source, source + 2, offsets, 1, &error);
  EXPECT_EQ(error, U_ZERO_ERROR);
  EXPECT_EQ(target, units + 2);
  EXPECT_EQ(source, bytes.data() + 2);
  EXPECT_EQ(units[0], u'o');
  EXPECT_EQ(units[1], 0xFC);
  EXPECT_EQ(offsets[0], 0);
  EXPECT_EQ(offsets[1], 1);

  char back[2] = {0, 0};
  char* backTarget = back;
  const unsigned short* unitSource = units;
  // One byte of room for two units: ICU reports the overflow, as it stands.
  library->UCNV_fromUnicode(converter, &backTarget, back + 1, &unitSource, units + 2, nullptr, 1,
                            &error);
  EXPECT_EQ(error, U_BUFFER_OVERFLOW_ERROR);
  EXPECT_EQ(back[0], 'o');
  library->UCNV_close(converter);
}

// --- Without the converter library -------------------------------------------

// Every function's failure result, for a library that cannot be used.
void ExpectEveryConversionFails() {
  EXPECT_FALSE(mvcs::IsCodePageAvailable("utf8"));
  EXPECT_FALSE(mvcs::IsCodePageAvailable("windows-1252"));
  EXPECT_TRUE(mvcs::IsCodePageAvailable(nullptr));
  ExpectBothDirectionsFail("utf8");

  // The first step fails: both outputs stay as they were.
  char* out = nullptr;
  unsigned long length = 77;
  mvcs::WideToCodePage("utf8", L"abc", &out, &length);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 77u);
  mvcs::UTF8ToCodePage("utf8", "abc", &out, &length);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(length, 77u);

  EXPECT_EQ(mvcs::CodePageToUTF8("utf8", "abc", 3), "");
  EXPECT_EQ(mvcs::CodePageToUTF8("windows-1252", "abc", 3), "");
  EXPECT_EQ(mvcs::CodePageToWide("utf8", "abc", 3), L"");
}

// The four wrappers of a library that cannot be used: error 5, nothing done.
void ExpectWrappersDisabled() {
  mvcs::UCNVLibrary* library = mvcs::UCNVLibrary::instance();
  ASSERT_NE(library, nullptr);
  EXPECT_FALSE(library->IsUsable());
  EXPECT_FALSE(library->OpensUTF8());

  UErrorCode error = U_ZERO_ERROR;
  EXPECT_EQ(library->UCNV_open("utf8", &error), nullptr);
  EXPECT_EQ(error, 5);
  EXPECT_EQ(library->UCNV_open("utf8", nullptr), nullptr);

  const char bytes[] = "abc";
  const char* source = bytes;
  unsigned short units[4] = {9, 9, 9, 9};
  unsigned short* target = units;
  error = U_ZERO_ERROR;
  library->UCNV_toUnicode(nullptr, &target, units + 4, &source, bytes + 3, nullptr, 1, &error);
  EXPECT_EQ(error, 5);
  EXPECT_EQ(target, units);
  EXPECT_EQ(source, bytes);
  EXPECT_EQ(units[0], 9);
  library->UCNV_toUnicode(nullptr, &target, units + 4, &source, bytes + 3, nullptr, 1, nullptr);

  const unsigned short* unitSource = units;
  char out[4] = {'x', 'x', 'x', 'x'};
  char* outTarget = out;
  error = U_ZERO_ERROR;
  library->UCNV_fromUnicode(nullptr, &outTarget, out + 4, &unitSource, units + 4, nullptr, 1,
                            &error);
  EXPECT_EQ(error, 5);
  EXPECT_EQ(outTarget, out);
  EXPECT_EQ(unitSource, units);
  EXPECT_EQ(out[0], 'x');
  library->UCNV_fromUnicode(nullptr, &outTarget, out + 4, &unitSource, units + 4, nullptr, 1,
                            nullptr);

  library->UCNV_close(nullptr);  // does nothing
}

TEST_F(CodePage, NoLibraryAtThePath) {
  UseLibrary("/no/such/folder/libicuuc.so.72", nullptr);
  ExpectEveryConversionFails();
  ExpectWrappersDisabled();
  EXPECT_EQ(mvcs::CodePageToUTF8("ISO-8859-1", "\xE9\xE8\xEA", 3), "");
}

TEST_F(CodePage, LibraryWithOtherSymbolSuffix) {
  // The system ICU, asked for entry points of a version it does not have.
  UseLibrary(nullptr, "_1");
  ExpectEveryConversionFails();
  ExpectWrappersDisabled();
}

TEST_F(CodePage, LibraryMissingOneEntryPoint) {
  UseLibrary(MORV_THREE_ENTRY_POINT_LIBRARY, "_three");
  ExpectEveryConversionFails();
  ExpectWrappersDisabled();
  // The three entry points it has were found, and never called.
  void* handle = dlopen(MORV_THREE_ENTRY_POINT_LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr) << "the converter library should be loaded";
  const int* calls = static_cast<const int*>(dlsym(handle, "threeEntryPointCalls"));
  ASSERT_NE(calls, nullptr);
  EXPECT_EQ(*calls, 0);
  dlclose(handle);
}

TEST_F(CodePage, WorksAgainAfterTheDefaultsAreRestored) {
  UseLibrary("/no/such/folder/libicuuc.so.72", nullptr);
  EXPECT_EQ(mvcs::CodePageToUTF8("ISO-8859-1", "\xE9", 1), "");
  UseLibrary(nullptr, nullptr);
  EXPECT_EQ(mvcs::CodePageToUTF8("ISO-8859-1", "\xE9", 1), "\xC3\xA9");
}

}  // namespace
