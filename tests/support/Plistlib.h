// Python's plistlib as an independent reader and writer of property lists
// for the tests (through tests/plist_interop.py).

#ifndef MORV_TESTS_PLISTLIB_H
#define MORV_TESTS_PLISTLIB_H

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "SettingsSandbox.h"

namespace plistlib {

inline const std::string& Script() {
  static const std::string script = MORV_TEST_SOURCE_DIR "/plist_interop.py";
  return script;
}

// plistlib's canonical listing of a file: one "path\ttype\tvalue" line per
// entry, keys sorted. `escaped`: keys and strings with every character
// outside printable ASCII (and the backslash) as \x{HEX}, strings unquoted,
// and a NaN with its sign bit set as -nan (see the script).
inline std::vector<std::string> Dump(const std::string& path, bool escaped = false) {
  std::string output;
  const int status = sandbox::Run(
      "python3 '" + Script() + "' dump " + (escaped ? "--escaped '" : "'") + path + "'", &output);
  EXPECT_EQ(status, 0) << "plistlib could not read " << path;
  std::vector<std::string> lines;
  std::istringstream in(output);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The XML that plistlib writes for what it reads from the file at `path`
// (empty when it cannot read it).
inline std::string XmlAgain(const std::string& path) {
  std::string output;
  const int status = sandbox::Run("python3 '" + Script() + "' xml-again '" + path + "'", &output);
  EXPECT_EQ(status, 0) << "plistlib could not read " << path;
  return status == 0 ? output : std::string();
}

// Writes plistlib's reference fixture (every kind of entry; see the
// script) to `path`, as "binary" or "xml".
inline int WriteFixture(const std::string& format, const std::string& path) {
  return sandbox::Run("python3 '" + Script() + "' write-fixture " + format + " '" + path + "'");
}

}  // namespace plistlib

#endif  // MORV_TESTS_PLISTLIB_H
