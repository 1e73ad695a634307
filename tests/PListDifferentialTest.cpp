// The property-list readers against plistlib and libplist. Binary files:
// thousands of every object kind that plistlib reads (random trees, a
// quarter of them with U+0000 in keys and strings, written by plistlib and
// by tests/plist_differential.py's own writer with every reference, offset
// and integer width, and at the object counts where the widths change) read
// by the store to the same tree as plistlib reads them and, where libplist
// reads the kinds soundly, as libplist does; and what the store's writer
// writes of each, read by plistlib to that tree again. XML files:
// thousands of every value spelling and document shape, valid and not
// (tests/xml_differential.py), and libplist's own XML test files, read or
// refused by the store as plistlib reads or refuses them, but for the
// store's deliberate refusals, which the script marks.

#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "PListListing.h"
#include "SettingsSandbox.h"
#include "format/PListFormat.h"

namespace {

class PListDifferential : public sandbox::SettingsSandbox {
 protected:
  void SetUp() override {
    SettingsSandbox::SetUp();
    ASSERT_EQ(sandbox::Run("python3 '" MORV_TEST_SOURCE_DIR "/plist_differential.py' generate '" +
                           m_root + "/files' 2000 7"),
              0);
  }
};

TEST_F(PListDifferential, TheReaderReadsWhatPlistlibAndLibplistRead) {
  std::size_t files = 0, boundaries = 0, zeros = 0;
  for (const std::string& name : sandbox::List(m_root + "/files")) {
    if (name.size() < 7 || name.compare(name.size() - 6, 6, ".plist") != 0) continue;
    const std::string stem = m_root + "/files/" + name.substr(0, name.size() - 6);
    const std::string bytes = sandbox::ReadFile(stem + ".plist");
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    const mvcs::Status parsed = mvcs::ParsePropertyList(bytes, tree);
    ASSERT_TRUE(parsed.ok()) << name << ": " << parsed.ToString();
    ASSERT_EQ(listing::FirstDifference(listing::Of(*tree), sandbox::ReadFile(stem + ".txt")), "")
        << name;
    // libplist reads 16-byte integers and 4-byte reals soundly too; its
    // dates are whole microseconds of 32-bit seconds, so they are left out.
    // It keeps keys as C strings, so trees with U+0000 are plistlib's alone.
    if (mvcs::HoldsZeroText(*tree)) {
      ++zeros;
      ++files;
      continue;
    }
    const std::string libplist = listing::OfLibplist(bytes);
    if (!libplist.empty()) {
      ASSERT_EQ(listing::FirstDifference(listing::Of(*tree, listing::LibplistOptions()), libplist),
                "")
          << name;
    }
    ++files;
    if (name[0] == 'b') ++boundaries;
  }
  EXPECT_GE(files, 2000u);
  EXPECT_GE(boundaries, 20u);
  EXPECT_GE(zeros, 300u);
}

TEST_F(PListDifferential, PlistlibReadsWhatTheWriterWritesOfEachFile) {
  std::size_t files = 0;
  for (const std::string& name : sandbox::List(m_root + "/files")) {
    if (name.size() < 7 || name.compare(name.size() - 6, 6, ".plist") != 0) continue;
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    ASSERT_TRUE(mvcs::ParsePropertyList(sandbox::ReadFile(m_root + "/files/" + name), tree).ok())
        << name;
    std::string bytes;
    ASSERT_TRUE(mvcs::WriteBinaryPropertyList(*tree, bytes).ok()) << name;
    sandbox::WriteFile(m_root + "/written/" + name, bytes);
    ++files;
  }
  ASSERT_GE(files, 2000u);
  ASSERT_EQ(sandbox::Run("python3 '" MORV_TEST_SOURCE_DIR "/plist_differential.py' dump '" +
                         m_root + "/written'"),
            0);
  for (const std::string& name : sandbox::List(m_root + "/files")) {
    if (name.size() < 5 || name.compare(name.size() - 4, 4, ".txt") != 0) continue;
    ASSERT_FALSE(sandbox::Exists(m_root + "/written/" + name.substr(0, name.size() - 4) + ".error"))
        << name;
    ASSERT_EQ(listing::FirstDifference(sandbox::ReadFile(m_root + "/written/" + name),
                                       sandbox::ReadFile(m_root + "/files/" + name)),
              "")
        << name;
  }
}

// --- XML ---------------------------------------------------------------------

// The refusal that a name in a verdict file stands for.
bool CodeNamed(const std::string& name, mvcs::Status::Code& code) {
  static const struct {
    const char* name;
    mvcs::Status::Code code;
  } kCodes[] = {{"kNotAPropertyList", mvcs::Status::Code::kNotAPropertyList},
                {"kNotADictionary", mvcs::Status::Code::kNotADictionary},
                {"kTooDeep", mvcs::Status::Code::kTooDeep},
                {"kTooLarge", mvcs::Status::Code::kTooLarge},
                {"kBadText", mvcs::Status::Code::kBadText}};
  for (const auto& known : kCodes) {
    if (name == known.name) {
      code = known.code;
      return true;
    }
  }
  return false;
}

// The first `lines` lines of a listing, for a failure's message.
std::string Head(const std::string& text, std::size_t lines) {
  std::size_t end = 0;
  for (std::size_t i = 0; i < lines; ++i) {
    end = text.find('\n', end);
    if (end == std::string::npos) return text;
    ++end;
  }
  return end < text.size() ? text.substr(0, end) + "...\n" : text;
}

// plistlib's verdict on a file: "txt" (what it reads, listed), "error"
// (why it refuses) or "expect" (the store's deliberate refusal).
struct Verdict {
  std::string kind;
  std::string text;
};

// The verdicts file that tests/xml_differential.py writes: "@@ NAME KIND"
// lines, each followed by its verdict's text.
std::map<std::string, Verdict> ReadVerdicts(const std::string& path) {
  std::map<std::string, Verdict> verdicts;
  std::istringstream in(sandbox::ReadFile(path));
  Verdict* current = nullptr;
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, 3, "@@ ") == 0) {
      const std::size_t space = line.rfind(' ');
      current = &verdicts[line.substr(3, space - 3)];
      current->kind = line.substr(space + 1);
    } else if (current != nullptr) {
      current->text += line + "\n";
    }
  }
  return verdicts;
}

// Compares the store's reading of each SOURCE/<name>.plist with plistlib's
// verdict on it, and counts.
class XmlComparison {
 public:
  void CompareFolder(const std::string& source, const std::string& verdictsFile) {
    const std::map<std::string, Verdict> verdicts = ReadVerdicts(verdictsFile);
    for (const std::string& name : sandbox::List(source)) {
      if (name.size() < 7 || name.compare(name.size() - 6, 6, ".plist") != 0) continue;
      const auto verdict = verdicts.find(name.substr(0, name.size() - 6));
      Compare(name, sandbox::ReadFile(source + "/" + name),
              verdict != verdicts.end() ? verdict->second : Verdict{"none", "no verdict"});
    }
  }

  std::size_t Files() const { return m_files; }
  std::size_t Mismatches() const { return m_mismatches; }
  // How many files plistlib reads, how many it refuses, and how many the
  // store refuses on purpose although plistlib reads them.
  std::size_t PlistlibReads() const { return m_plistlibReads; }
  std::size_t PlistlibRefuses() const { return m_plistlibRefuses; }
  std::size_t DeliberateDifferences() const { return m_deliberateDifferences; }
  std::string Verdicts() const {
    return "plistlib reads " + std::to_string(m_plistlibReads) + ", refuses " +
           std::to_string(m_plistlibRefuses) + "; the store refuses " +
           std::to_string(m_deliberateDifferences) + " on purpose";
  }

  std::string Summary() const {
    std::ostringstream out;
    out << m_files << " files compared: " << m_files - m_mismatches << " agree (" << m_readAlike
        << " read alike, " << m_refusedAlike << " refused by both, " << m_deliberate
        << " deliberate differences refused as intended), " << m_mismatches << " mismatches";
    if (!m_groups.empty()) {
      out << " (by file group:";
      for (const auto& group : m_groups) out << " " << group.first << "=" << group.second;
      out << ")";
    }
    return out.str();
  }

  // The first few mismatches, each with both sides.
  const std::string& Reports() const { return m_reports; }

 private:
  void Compare(const std::string& name, const std::string& bytes, const Verdict& verdict) {
    ++m_files;
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    const mvcs::Status status = mvcs::ParsePropertyList(bytes, tree);
    const std::string ours = status.ok() ? listing::Of(*tree) : "refused: " + status.ToString();
    const std::string& theirs = verdict.text;
    if (verdict.kind == "txt") {
      ++m_plistlibReads;
      if (status.ok() && ours == theirs) {
        ++m_readAlike;
      } else {
        Mismatch(
            name, "plistlib reads:\n" + Head(theirs, 40),
            (status.ok() ? "the store reads (" + listing::FirstDifference(ours, theirs) + "):\n"
                         : std::string()) +
                Head(ours, 40));
      }
    } else if (verdict.kind == "error") {
      ++m_plistlibRefuses;
      if (!status.ok()) {
        ++m_refusedAlike;
      } else {
        Mismatch(name, "plistlib refuses it: " + theirs, "the store reads:\n" + Head(ours, 40));
      }
    } else {
      // "refuse CODE why": the store refuses on purpose what plistlib reads.
      ++m_deliberateDifferences;
      std::istringstream words(theirs);
      std::string verb, codeName;
      words >> verb >> codeName;
      mvcs::Status::Code code = mvcs::Status::Code::kOk;
      if (verdict.kind != "expect" || verb != "refuse" || !CodeNamed(codeName, code)) {
        Mismatch(name, "no verdict from plistlib: " + theirs, ours);
      } else if (status.code() == code) {
        ++m_deliberate;
      } else {
        Mismatch(name, "the store should refuse it (" + codeName + "): " + theirs,
                 status.ok() ? "the store reads:\n" + Head(ours, 40) : ours);
      }
    }
  }

  void Mismatch(const std::string& name, const std::string& theirs, const std::string& ours) {
    // The group: "e_int" of "e_int_012_array.plist", "random" of "r0042.plist".
    const std::size_t cut = name.find('_', name.find('_') + 1);
    ++m_groups[name[0] == 'e' ? name.substr(0, cut) : name[0] == 'r' ? "random" : name];
    if (++m_mismatches <= 5) {
      m_reports += "--- " + name + "\n" + theirs + (theirs.back() == '\n' ? "" : "\n") + ours +
                   (ours.empty() || ours.back() != '\n' ? "\n" : "");
    }
  }

  std::size_t m_files = 0, m_readAlike = 0, m_refusedAlike = 0, m_deliberate = 0, m_mismatches = 0;
  std::size_t m_plistlibReads = 0, m_plistlibRefuses = 0, m_deliberateDifferences = 0;
  std::map<std::string, std::size_t> m_groups;  // mismatches by group of files
  std::string m_reports;
};

const std::string kXmlScript = MORV_TEST_SOURCE_DIR "/xml_differential.py";

class XmlDifferential : public sandbox::SettingsSandbox {
 protected:
  // Runs tests/xml_differential.py with `arguments`, then compares the
  // files of `source` with the verdicts in `verdicts`; prints the summary.
  XmlComparison Compare(const std::string& arguments, const std::string& source,
                        const std::string& verdicts, const char* title) {
    XmlComparison comparison;
    EXPECT_EQ(sandbox::Run("python3 '" + kXmlScript + "' " + arguments), 0);
    comparison.CompareFolder(source, verdicts);
    std::cout << title << ": " << comparison.Summary() << std::endl;
    return comparison;
  }
};

TEST_F(XmlDifferential, XmlFilesReadAsPlistlibReadsThem) {
  const std::string folder = m_root + "/xml";
  const XmlComparison comparison = Compare("generate '" + folder + "' 1500 11", folder,
                                           folder + "/verdicts", "XML differential");
  // Edge files and random ones, of all three verdicts.
  EXPECT_GE(comparison.Files(), 2800u);
  EXPECT_GE(comparison.PlistlibReads(), 2000u);
  EXPECT_GE(comparison.PlistlibRefuses(), 500u);
  EXPECT_GE(comparison.DeliberateDifferences(), 75u);
  EXPECT_EQ(comparison.Mismatches(), 0u) << comparison.Reports();
}

// libplist's own XML test files (tests/data/libplist, see its README): five
// that plistlib reads, two that it refuses, one with a data root.
TEST_F(XmlDifferential, LibplistTestFilesReadAsPlistlibReadsThem) {
  const std::string source = MORV_TEST_SOURCE_DIR "/data/libplist";
  const std::string verdicts = m_root + "/verdicts";
  const XmlComparison comparison = Compare("list '" + source + "' '" + verdicts + "'", source,
                                           verdicts, "libplist's test files");
  EXPECT_EQ(comparison.Files(), 8u);
  EXPECT_EQ(comparison.Verdicts(), "plistlib reads 5, refuses 2; the store refuses 1 on purpose");
  EXPECT_EQ(comparison.Mismatches(), 0u) << comparison.Reports();
}

}  // namespace
