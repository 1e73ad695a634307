// What a morv-settings command works on: a product's own settings, or the
// installer's record of it, and a key path inside; checking the names,
// opening the nodes, and naming the files in messages.

#ifndef MORV_SETTINGS_TOOL_SETTINGSTARGET_H
#define MORV_SETTINGS_TOOL_SETTINGSTARGET_H

#include <string>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "mvtl/RefCountedPtr.h"

namespace morv_tool {

typedef mvtl::RefCountedPtr<mvcs::IMorvSettings> Node;

// How a node is opened:
//   kRead   the product's settings with the machine-wide defaults as
//           fallback (the installer record: the shared file); creates nothing
//   kWrite  the file that changes go to, creating the file and keys
//   kOwn    the file that changes go to, creating nothing
enum class Access { kRead, kWrite, kOwn };

class SettingsTarget {
 public:
  // Checks the product id: not empty, valid UTF-8, no "/" or "\" (they
  // would make it a path), not "." or "..". Throws a usage error.
  SettingsTarget(const std::string& product, bool installer);

  // Splits "a/b/c" into its components. Throws a usage error for an empty
  // path (unless `allowEmpty`), an empty component ("a//b", "/a", "a/"),
  // invalid UTF-8, or "\" (which the store also takes as a separator).
  static std::vector<std::string> SplitKeyPath(const std::string& keyPath, bool allowEmpty);

  // The node at `keyPath` (components) below the product's node, or null
  // when it cannot be opened that way.
  Node Open(const std::vector<std::string>& keyPath, Access access) const;

  // The store's path of that node: "Settings/<product>/a/b".
  std::string NodePath(const std::vector<std::string>& keyPath) const;

  // For messages: `the settings of product "P"` or `the installer record of
  // product "P"`, and the files in parentheses.
  std::string Describe() const;
  std::string DescribeFiles() const;

  // The file that changes go to (per-user, or the shared file for the
  // installer record), and the shared file.
  std::string OwnFile() const;
  std::string SharedFile() const;

  const std::string& GetProduct() const { return m_product; }
  bool IsInstaller() const { return m_installer; }

 private:
  std::string m_product;
  bool m_installer;
};

// "a/b/c" from components.
std::string JoinKeyPath(const std::vector<std::string>& keyPath);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_SETTINGSTARGET_H
