// One-call settings functions: each opens one product's settings node, does
// one operation and releases the node.
//
// A product's own settings are the node "Settings/<product id>" in its
// per-user file, with the shared file as read fallback; the installer's
// record of it ("Installer" functions) is the node "Install/<product id>" in
// the shared, machine-wide file. Every function exists for narrow (UTF-8)
// and wide (32-bit wchar_t) product ids and names.
//
// How each family opens the node:
//   Fetch*, the *Exists tests, Get*Names and Get*Count: never create
//     anything (scopes 5 and 6: mvcs::MORVSETTINGSTYPE_*_ALT);
//   Store*: create the file and node when missing (scopes 8 and 9);
//   Delete*: neither (scopes 2 and 3).
// The change a store or delete makes is saved when the node is released,
// before the function returns, but the result is the node operation's
// alone: a save that fails then (a folder that cannot be written, a full
// disk, another program holding the file's lock for longer than the save
// lock timeout) is not reported, the function still returns true, and the
// change is lost with the node. True from a Store* or Delete* means that the
// change was made in memory, not that it is on disk. A program that must
// know opens the node (CreateSimpleSettings), stores or deletes through it,
// and calls mvcs::SaveSettings (MorvSettingsUtility.h), whose result says
// whether the file was written and, if not, why.
//
// Every function returns false for an empty product id, for an empty name
// (where it takes one; nothing is then opened), when the node cannot be
// opened, and when the operation itself fails; outputs are filled only on
// success. See MorvSettings.h for the operations.

#ifndef MORVSETTINGS_MORVSETTINGSSIMPLE_H
#define MORVSETTINGS_MORVSETTINGSSIMPLE_H

#include <set>
#include <string>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsExport.h"
#include "mvtl/MemoryBuffer.h"

// "Install/" + productId when `installer` is true, else "Settings/" +
// productId; the id is appended as it is (an empty one is not refused here).
MORVSETTINGS_API std::string GetProductIDPath(const std::string& productId, bool installer);
MORVSETTINGS_API std::wstring GetProductIDPath(const std::wstring& productId, bool installer);

// Opens the settings node of a product, or of the installer's record of it,
// with the scope that the flags select:
//
//   installer  create  query  scope
//   false      true    any    8  MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE
//   false      false   true   5  MORVSETTINGSTYPE_USER_WITH_SHARED_ALT
//   false      false   false  2  MORVSETTINGSTYPE_USER_WITH_SHARED
//   true       true    any    9  MORVSETTINGSTYPE_SHARED_CREATE
//   true       false   true   6  MORVSETTINGSTYPE_SHARED_ALT
//   true       false   false  3  MORVSETTINGSTYPE_SHARED
//
// On success *settings (when not null) receives the node with one reference
// for the caller, and the result is true (also when `settings` is null).
// False, with *settings untouched, for an empty product id or a node that
// cannot be opened. Defined for std::string and std::wstring.
template <class StringT>
bool CreateSimpleSettings(const StringT& productId, bool installer, bool create, bool query,
                          mvcs::IMorvSettings** settings);

extern template MORVSETTINGS_API bool CreateSimpleSettings<std::string>(const std::string&, bool,
                                                                        bool, bool,
                                                                        mvcs::IMorvSettings**);
extern template MORVSETTINGS_API bool CreateSimpleSettings<std::wstring>(const std::wstring&, bool,
                                                                         bool, bool,
                                                                         mvcs::IMorvSettings**);

namespace mvcs {

// Fetches a value of the product's settings (reading the shared file when
// the per-user file has none), or of the installer's record. The UTF-8
// string value is UTF-8 in both overloads.
MORVSETTINGS_API bool FetchInteger(const std::string& productId, const std::string& name,
                                   long long& value);
MORVSETTINGS_API bool FetchInteger(const std::wstring& productId, const std::wstring& name,
                                   long long& value);
MORVSETTINGS_API bool FetchInstallerInteger(const std::string& productId, const std::string& name,
                                            long long& value);
MORVSETTINGS_API bool FetchInstallerInteger(const std::wstring& productId, const std::wstring& name,
                                            long long& value);
MORVSETTINGS_API bool FetchInt32(const std::string& productId, const std::string& name, int& value);
MORVSETTINGS_API bool FetchInt32(const std::wstring& productId, const std::wstring& name,
                                 int& value);
MORVSETTINGS_API bool FetchInstallerInt32(const std::string& productId, const std::string& name,
                                          int& value);
MORVSETTINGS_API bool FetchInstallerInt32(const std::wstring& productId, const std::wstring& name,
                                          int& value);
MORVSETTINGS_API bool FetchUint32(const std::string& productId, const std::string& name,
                                  unsigned int& value);
MORVSETTINGS_API bool FetchUint32(const std::wstring& productId, const std::wstring& name,
                                  unsigned int& value);
MORVSETTINGS_API bool FetchInstallerUint32(const std::string& productId, const std::string& name,
                                           unsigned int& value);
MORVSETTINGS_API bool FetchInstallerUint32(const std::wstring& productId, const std::wstring& name,
                                           unsigned int& value);
MORVSETTINGS_API bool FetchInt64(const std::string& productId, const std::string& name,
                                 long long& value);
MORVSETTINGS_API bool FetchInt64(const std::wstring& productId, const std::wstring& name,
                                 long long& value);
MORVSETTINGS_API bool FetchInstallerInt64(const std::string& productId, const std::string& name,
                                          long long& value);
MORVSETTINGS_API bool FetchInstallerInt64(const std::wstring& productId, const std::wstring& name,
                                          long long& value);
MORVSETTINGS_API bool FetchUint64(const std::string& productId, const std::string& name,
                                  unsigned long long& value);
MORVSETTINGS_API bool FetchUint64(const std::wstring& productId, const std::wstring& name,
                                  unsigned long long& value);
MORVSETTINGS_API bool FetchInstallerUint64(const std::string& productId, const std::string& name,
                                           unsigned long long& value);
MORVSETTINGS_API bool FetchInstallerUint64(const std::wstring& productId, const std::wstring& name,
                                           unsigned long long& value);
MORVSETTINGS_API bool FetchFloat(const std::string& productId, const std::string& name,
                                 float& value);
MORVSETTINGS_API bool FetchFloat(const std::wstring& productId, const std::wstring& name,
                                 float& value);
MORVSETTINGS_API bool FetchInstallerFloat(const std::string& productId, const std::string& name,
                                          float& value);
MORVSETTINGS_API bool FetchInstallerFloat(const std::wstring& productId, const std::wstring& name,
                                          float& value);
MORVSETTINGS_API bool FetchDouble(const std::string& productId, const std::string& name,
                                  double& value);
MORVSETTINGS_API bool FetchDouble(const std::wstring& productId, const std::wstring& name,
                                  double& value);
MORVSETTINGS_API bool FetchInstallerDouble(const std::string& productId, const std::string& name,
                                           double& value);
MORVSETTINGS_API bool FetchInstallerDouble(const std::wstring& productId, const std::wstring& name,
                                           double& value);
MORVSETTINGS_API bool FetchBoolean(const std::string& productId, const std::string& name,
                                   bool& value);
MORVSETTINGS_API bool FetchBoolean(const std::wstring& productId, const std::wstring& name,
                                   bool& value);
MORVSETTINGS_API bool FetchInstallerBoolean(const std::string& productId, const std::string& name,
                                            bool& value);
MORVSETTINGS_API bool FetchInstallerBoolean(const std::wstring& productId, const std::wstring& name,
                                            bool& value);
MORVSETTINGS_API bool FetchUTF8String(const std::string& productId, const std::string& name,
                                      std::string& value);
MORVSETTINGS_API bool FetchUTF8String(const std::wstring& productId, const std::wstring& name,
                                      std::string& value);
MORVSETTINGS_API bool FetchInstallerUTF8String(const std::string& productId,
                                               const std::string& name, std::string& value);
MORVSETTINGS_API bool FetchInstallerUTF8String(const std::wstring& productId,
                                               const std::wstring& name, std::string& value);
MORVSETTINGS_API bool FetchWideString(const std::string& productId, const std::string& name,
                                      std::wstring& value);
MORVSETTINGS_API bool FetchWideString(const std::wstring& productId, const std::wstring& name,
                                      std::wstring& value);
MORVSETTINGS_API bool FetchInstallerWideString(const std::string& productId,
                                               const std::string& name, std::wstring& value);
MORVSETTINGS_API bool FetchInstallerWideString(const std::wstring& productId,
                                               const std::wstring& name, std::wstring& value);
MORVSETTINGS_API bool FetchBuffer(const std::string& productId, const std::string& name,
                                  mvtl::MemoryBuffer<unsigned char>& value);
MORVSETTINGS_API bool FetchBuffer(const std::wstring& productId, const std::wstring& name,
                                  mvtl::MemoryBuffer<unsigned char>& value);
MORVSETTINGS_API bool FetchInstallerBuffer(const std::string& productId, const std::string& name,
                                           mvtl::MemoryBuffer<unsigned char>& value);
MORVSETTINGS_API bool FetchInstallerBuffer(const std::wstring& productId, const std::wstring& name,
                                           mvtl::MemoryBuffer<unsigned char>& value);

// Stores a value in the product's settings (its per-user file), or in the
// installer's record (the shared file), creating the file and node when
// missing. All integer widths are one 64-bit entry; Uint32 is zero-extended.
MORVSETTINGS_API bool StoreInteger(const std::string& productId, const std::string& name,
                                   long long value);
MORVSETTINGS_API bool StoreInteger(const std::wstring& productId, const std::wstring& name,
                                   long long value);
MORVSETTINGS_API bool StoreInstallerInteger(const std::string& productId, const std::string& name,
                                            long long value);
MORVSETTINGS_API bool StoreInstallerInteger(const std::wstring& productId, const std::wstring& name,
                                            long long value);
MORVSETTINGS_API bool StoreInt32(const std::string& productId, const std::string& name, int value);
MORVSETTINGS_API bool StoreInt32(const std::wstring& productId, const std::wstring& name,
                                 int value);
MORVSETTINGS_API bool StoreInstallerInt32(const std::string& productId, const std::string& name,
                                          int value);
MORVSETTINGS_API bool StoreInstallerInt32(const std::wstring& productId, const std::wstring& name,
                                          int value);
MORVSETTINGS_API bool StoreUint32(const std::string& productId, const std::string& name,
                                  unsigned int value);
MORVSETTINGS_API bool StoreUint32(const std::wstring& productId, const std::wstring& name,
                                  unsigned int value);
MORVSETTINGS_API bool StoreInstallerUint32(const std::string& productId, const std::string& name,
                                           unsigned int value);
MORVSETTINGS_API bool StoreInstallerUint32(const std::wstring& productId, const std::wstring& name,
                                           unsigned int value);
MORVSETTINGS_API bool StoreInt64(const std::string& productId, const std::string& name,
                                 long long value);
MORVSETTINGS_API bool StoreInt64(const std::wstring& productId, const std::wstring& name,
                                 long long value);
MORVSETTINGS_API bool StoreInstallerInt64(const std::string& productId, const std::string& name,
                                          long long value);
MORVSETTINGS_API bool StoreInstallerInt64(const std::wstring& productId, const std::wstring& name,
                                          long long value);
MORVSETTINGS_API bool StoreUint64(const std::string& productId, const std::string& name,
                                  unsigned long long value);
MORVSETTINGS_API bool StoreUint64(const std::wstring& productId, const std::wstring& name,
                                  unsigned long long value);
MORVSETTINGS_API bool StoreInstallerUint64(const std::string& productId, const std::string& name,
                                           unsigned long long value);
MORVSETTINGS_API bool StoreInstallerUint64(const std::wstring& productId, const std::wstring& name,
                                           unsigned long long value);
MORVSETTINGS_API bool StoreFloat(const std::string& productId, const std::string& name,
                                 float value);
MORVSETTINGS_API bool StoreFloat(const std::wstring& productId, const std::wstring& name,
                                 float value);
MORVSETTINGS_API bool StoreInstallerFloat(const std::string& productId, const std::string& name,
                                          float value);
MORVSETTINGS_API bool StoreInstallerFloat(const std::wstring& productId, const std::wstring& name,
                                          float value);
MORVSETTINGS_API bool StoreDouble(const std::string& productId, const std::string& name,
                                  double value);
MORVSETTINGS_API bool StoreDouble(const std::wstring& productId, const std::wstring& name,
                                  double value);
MORVSETTINGS_API bool StoreInstallerDouble(const std::string& productId, const std::string& name,
                                           double value);
MORVSETTINGS_API bool StoreInstallerDouble(const std::wstring& productId, const std::wstring& name,
                                           double value);
MORVSETTINGS_API bool StoreBoolean(const std::string& productId, const std::string& name,
                                   bool value);
MORVSETTINGS_API bool StoreBoolean(const std::wstring& productId, const std::wstring& name,
                                   bool value);
MORVSETTINGS_API bool StoreInstallerBoolean(const std::string& productId, const std::string& name,
                                            bool value);
MORVSETTINGS_API bool StoreInstallerBoolean(const std::wstring& productId, const std::wstring& name,
                                            bool value);
MORVSETTINGS_API bool StoreUTF8String(const std::string& productId, const std::string& name,
                                      const std::string& value);
MORVSETTINGS_API bool StoreUTF8String(const std::wstring& productId, const std::wstring& name,
                                      const std::string& value);
MORVSETTINGS_API bool StoreInstallerUTF8String(const std::string& productId,
                                               const std::string& name, const std::string& value);
MORVSETTINGS_API bool StoreInstallerUTF8String(const std::wstring& productId,
                                               const std::wstring& name, const std::string& value);
MORVSETTINGS_API bool StoreWideString(const std::string& productId, const std::string& name,
                                      const std::wstring& value);
MORVSETTINGS_API bool StoreWideString(const std::wstring& productId, const std::wstring& name,
                                      const std::wstring& value);
MORVSETTINGS_API bool StoreInstallerWideString(const std::string& productId,
                                               const std::string& name, const std::wstring& value);
MORVSETTINGS_API bool StoreInstallerWideString(const std::wstring& productId,
                                               const std::wstring& name, const std::wstring& value);
MORVSETTINGS_API bool StoreBuffer(const std::string& productId, const std::string& name,
                                  const void* data, unsigned long size);
MORVSETTINGS_API bool StoreBuffer(const std::wstring& productId, const std::wstring& name,
                                  const void* data, unsigned long size);
MORVSETTINGS_API bool StoreInstallerBuffer(const std::string& productId, const std::string& name,
                                           const void* data, unsigned long size);
MORVSETTINGS_API bool StoreInstallerBuffer(const std::wstring& productId, const std::wstring& name,
                                           const void* data, unsigned long size);

// Deletes the value or child key `name` directly under the product's node
// (true also when there is none), or, without a name, the product's node
// itself. Product and installer variants touch only their own node.
MORVSETTINGS_API bool DeleteSetting(const std::string& productId, const std::string& name);
MORVSETTINGS_API bool DeleteSetting(const std::wstring& productId, const std::wstring& name);
MORVSETTINGS_API bool DeleteInstallerSetting(const std::string& productId, const std::string& name);
MORVSETTINGS_API bool DeleteInstallerSetting(const std::wstring& productId,
                                             const std::wstring& name);
MORVSETTINGS_API bool DeleteSetting(const std::string& productId);
MORVSETTINGS_API bool DeleteSetting(const std::wstring& productId);
MORVSETTINGS_API bool DeleteInstallerSetting(const std::string& productId);
MORVSETTINGS_API bool DeleteInstallerSetting(const std::wstring& productId);

// Whether the product's node (or the installer's record) exists: true
// exactly when it can be opened without creating anything.
MORVSETTINGS_API bool ProductSettingsExists(const std::string& productId);
MORVSETTINGS_API bool ProductSettingsExists(const std::wstring& productId);
MORVSETTINGS_API bool ProductInstallerSettingsExists(const std::string& productId);
MORVSETTINGS_API bool ProductInstallerSettingsExists(const std::wstring& productId);

// The names and the number of the values, and of the child keys, of the
// product's node (with the shared file's) or of the installer's record.
MORVSETTINGS_API bool GetValueNames(const std::string& productId, std::set<std::string>& names);
MORVSETTINGS_API bool GetValueNames(const std::wstring& productId, std::set<std::wstring>& names);
MORVSETTINGS_API bool GetInstallerValueNames(const std::string& productId,
                                             std::set<std::string>& names);
MORVSETTINGS_API bool GetInstallerValueNames(const std::wstring& productId,
                                             std::set<std::wstring>& names);
MORVSETTINGS_API bool GetValueCount(const std::string& productId, unsigned long& count);
MORVSETTINGS_API bool GetValueCount(const std::wstring& productId, unsigned long& count);
MORVSETTINGS_API bool GetInstallerValueCount(const std::string& productId, unsigned long& count);
MORVSETTINGS_API bool GetInstallerValueCount(const std::wstring& productId, unsigned long& count);
MORVSETTINGS_API bool GetChildNames(const std::string& productId, std::set<std::string>& names);
MORVSETTINGS_API bool GetChildNames(const std::wstring& productId, std::set<std::wstring>& names);
MORVSETTINGS_API bool GetInstallerChildNames(const std::string& productId,
                                             std::set<std::string>& names);
MORVSETTINGS_API bool GetInstallerChildNames(const std::wstring& productId,
                                             std::set<std::wstring>& names);
MORVSETTINGS_API bool GetChildCount(const std::string& productId, unsigned long& count);
MORVSETTINGS_API bool GetChildCount(const std::wstring& productId, unsigned long& count);
MORVSETTINGS_API bool GetInstallerChildCount(const std::string& productId, unsigned long& count);
MORVSETTINGS_API bool GetInstallerChildCount(const std::wstring& productId, unsigned long& count);

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVSETTINGSSIMPLE_H
