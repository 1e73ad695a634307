// What a morv-settings command works on (see SettingsTarget.h).

#include "SettingsTarget.h"

#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvString/MorvString.h"
#include "ToolError.h"
#include "common/KeyPathSplitter.h"

namespace morv_tool {

namespace {

// The scope for each access: the product's settings, or the installer's
// record in the shared file.
mvcs::MORVSETTINGSTYPE ScopeOf(Access access, bool installer) {
  switch (access) {
    case Access::kRead:
      return installer ? mvcs::MORVSETTINGSTYPE_SHARED_ALT
                       : mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT;
    case Access::kWrite:
      return installer ? mvcs::MORVSETTINGSTYPE_SHARED_CREATE
                       : mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE;
    case Access::kOwn:
    default:
      return installer ? mvcs::MORVSETTINGSTYPE_SHARED_ALT : mvcs::MORVSETTINGSTYPE_USER_ALT;
  }
}

}  // namespace

SettingsTarget::SettingsTarget(const std::string& product, bool installer)
    : m_product(product), m_installer(installer) {
  if (product.empty()) throw UsageError("the product id is empty");
  if (!mvcs::IsUTF8(product)) throw UsageError("the product id is not valid UTF-8");
  if (product.find_first_of("/\\") != std::string::npos || product == "." || product == "..") {
    throw UsageError("the product id " + Quoted(product) +
                     " is not a name (it may not hold / or \\, nor be . or ..)");
  }
}

std::vector<std::string> SettingsTarget::SplitKeyPath(const std::string& keyPath, bool allowEmpty) {
  // The tool checks only what the decoders accept as UTF-8; the store
  // refuses, with its own message, what a settings file cannot hold.
  const morv_common::KeyPathRule rule = {allowEmpty, mvcs::IsUTF8};
  std::vector<std::string> components;
  switch (morv_common::SplitKeyPath(keyPath, rule, components)) {
    case morv_common::KeyPathError::kNone:
      return components;
    case morv_common::KeyPathError::kEmpty:
      throw UsageError("the key is empty");
    case morv_common::KeyPathError::kBadText:
      throw UsageError("the key " + Quoted(keyPath) + " is not valid UTF-8");
    case morv_common::KeyPathError::kBackslash:
      throw UsageError("the key " + Quoted(keyPath) +
                       " holds \\, which the settings store takes as a separator; use /");
    case morv_common::KeyPathError::kEmptyComponent:
    default:
      throw UsageError("the key " + Quoted(keyPath) + " has an empty name in it");
  }
}

std::string JoinKeyPath(const std::vector<std::string>& keyPath) {
  std::string joined;
  for (const std::string& component : keyPath) {
    if (!joined.empty()) joined += "/";
    joined += component;
  }
  return joined;
}

std::string SettingsTarget::NodePath(const std::vector<std::string>& keyPath) const {
  std::string path = GetProductIDPath(m_product, m_installer);
  for (const std::string& component : keyPath) path += "/" + component;
  return path;
}

Node SettingsTarget::Open(const std::vector<std::string>& keyPath, Access access) const {
  Node node;
  mvcs::CreateMorvSettings(NodePath(keyPath), ScopeOf(access, m_installer), &node);
  return node;
}

std::string SettingsTarget::Describe() const {
  return (m_installer ? "the installer record of product " : "the settings of product ") +
         Quoted(m_product);
}

std::string SettingsTarget::DescribeFiles() const {
  if (m_installer) return "(" + SharedFile() + ")";
  const std::string own = OwnFile();
  return "(" + (own.empty() ? "no per-user file: neither XDG_CONFIG_HOME nor HOME is set" : own) +
         ", with machine-wide defaults from " + SharedFile() + ")";
}

std::string SettingsTarget::OwnFile() const {
  return m_installer ? SharedFile() : mvcs::GetProductSettingsFile(m_product);
}

std::string SettingsTarget::SharedFile() const { return mvcs::GetSharedSettingsFile(); }

}  // namespace morv_tool
