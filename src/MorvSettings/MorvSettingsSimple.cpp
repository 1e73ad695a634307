// One-call settings functions and product paths (see MorvSettingsSimple.h).
//
// Every function is the same sequence: check the name (where there is one),
// open the product's node, or its installer record's, with its family's
// flags (CreateSimpleSettings), run one node operation, release the node.
// WithProductNode is that sequence; CallNamed adds the name check and
// calls a named operation. The definitions below only say, for each
// function, which family it belongs to and which node operation it runs.

#include "MorvSettings/MorvSettingsSimple.h"

#include <utility>

#include "mvtl/RefCountedPtr.h"

std::string GetProductIDPath(const std::string& productId, bool installer) {
  return (installer ? "Install/" : "Settings/") + productId;
}

std::wstring GetProductIDPath(const std::wstring& productId, bool installer) {
  return (installer ? L"Install/" : L"Settings/") + productId;
}

template <class StringT>
bool CreateSimpleSettings(const StringT& productId, bool installer, bool create, bool query,
                          mvcs::IMorvSettings** settings) {
  if (productId.empty()) return false;
  // The installer's value is always the product's plus one.
  const int product = create  ? mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE
                      : query ? mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT
                              : mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED;
  const auto scope = static_cast<mvcs::MORVSETTINGSTYPE>(product + (installer ? 1 : 0));
  mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
  if (!mvcs::CreateMorvSettings(GetProductIDPath(productId, installer), scope, &node) ||
      node.Get() == nullptr) {
    return false;
  }
  if (settings != nullptr) {
    *settings = node.Get();
    node->AddRef();
  }
  return true;
}

template MORVSETTINGS_API bool CreateSimpleSettings<std::string>(const std::string&, bool, bool,
                                                                 bool, mvcs::IMorvSettings**);
template MORVSETTINGS_API bool CreateSimpleSettings<std::wstring>(const std::wstring&, bool, bool,
                                                                  bool, mvcs::IMorvSettings**);

namespace mvcs {

namespace {

// Which node a function opens, and how: the installer's record or the
// product's own settings; creating (stores), querying (fetches, exists
// tests, names and counts) or neither (deletes).
struct Family {
  bool installer;
  bool create;
  bool query;
};
constexpr Family kProductQuery = {false, false, true};
constexpr Family kInstallerQuery = {true, false, true};
constexpr Family kProductCreate = {false, true, false};
constexpr Family kInstallerCreate = {true, true, false};
constexpr Family kProductPlain = {false, false, false};
constexpr Family kInstallerPlain = {true, false, false};

// Opens the node of `productId` as `family` says and returns what
// operation(node) returns; false when the node does not open. The node is
// released on return.
template <class StringT, class Operation>
bool WithProductNode(const StringT& productId, Family family, Operation operation) {
  mvtl::RefCountedPtr<IMorvSettings> node;
  if (!CreateSimpleSettings(productId, family.installer, family.create, family.query, &node)) {
    return false;
  }
  return operation(*node.Get());
}

// Runs node.*operation(name, args...) on the node of `productId`; an empty
// name fails before anything is opened. StringT is given explicitly, which
// picks the narrow or wide overload of `operation`.
template <class StringT, class... Params, class... Args>
bool CallNamed(const StringT& productId, Family family,
               bool (IMorvSettings::*operation)(const StringT&, Params...), const StringT& name,
               Args&&... args) {
  if (name.empty()) return false;
  return WithProductNode(productId, family, [&](IMorvSettings& node) {
    return (node.*operation)(name, std::forward<Args>(args)...);
  });
}

}  // namespace

bool FetchInteger(const std::string& productId, const std::string& name, long long& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchInteger, name,
                                value);
}

bool FetchInteger(const std::wstring& productId, const std::wstring& name, long long& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchInteger, name,
                                 value);
}

bool FetchInstallerInteger(const std::string& productId, const std::string& name,
                           long long& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchInteger, name,
                                value);
}

bool FetchInstallerInteger(const std::wstring& productId, const std::wstring& name,
                           long long& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchInteger, name,
                                 value);
}

bool FetchInt32(const std::string& productId, const std::string& name, int& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchInt32, name, value);
}

bool FetchInt32(const std::wstring& productId, const std::wstring& name, int& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchInt32, name, value);
}

bool FetchInstallerInt32(const std::string& productId, const std::string& name, int& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchInt32, name,
                                value);
}

bool FetchInstallerInt32(const std::wstring& productId, const std::wstring& name, int& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchInt32, name,
                                 value);
}

bool FetchUint32(const std::string& productId, const std::string& name, unsigned int& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchUint32, name, value);
}

bool FetchUint32(const std::wstring& productId, const std::wstring& name, unsigned int& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchUint32, name,
                                 value);
}

bool FetchInstallerUint32(const std::string& productId, const std::string& name,
                          unsigned int& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchUint32, name,
                                value);
}

bool FetchInstallerUint32(const std::wstring& productId, const std::wstring& name,
                          unsigned int& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchUint32, name,
                                 value);
}

bool FetchInt64(const std::string& productId, const std::string& name, long long& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchInt64, name, value);
}

bool FetchInt64(const std::wstring& productId, const std::wstring& name, long long& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchInt64, name, value);
}

bool FetchInstallerInt64(const std::string& productId, const std::string& name, long long& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchInt64, name,
                                value);
}

bool FetchInstallerInt64(const std::wstring& productId, const std::wstring& name,
                         long long& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchInt64, name,
                                 value);
}

bool FetchUint64(const std::string& productId, const std::string& name, unsigned long long& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchUint64, name, value);
}

bool FetchUint64(const std::wstring& productId, const std::wstring& name,
                 unsigned long long& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchUint64, name,
                                 value);
}

bool FetchInstallerUint64(const std::string& productId, const std::string& name,
                          unsigned long long& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchUint64, name,
                                value);
}

bool FetchInstallerUint64(const std::wstring& productId, const std::wstring& name,
                          unsigned long long& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchUint64, name,
                                 value);
}

bool FetchFloat(const std::string& productId, const std::string& name, float& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchFloat, name, value);
}

bool FetchFloat(const std::wstring& productId, const std::wstring& name, float& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchFloat, name, value);
}

bool FetchInstallerFloat(const std::string& productId, const std::string& name, float& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchFloat, name,
                                value);
}

bool FetchInstallerFloat(const std::wstring& productId, const std::wstring& name, float& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchFloat, name,
                                 value);
}

bool FetchDouble(const std::string& productId, const std::string& name, double& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchDouble, name, value);
}

bool FetchDouble(const std::wstring& productId, const std::wstring& name, double& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchDouble, name,
                                 value);
}

bool FetchInstallerDouble(const std::string& productId, const std::string& name, double& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchDouble, name,
                                value);
}

bool FetchInstallerDouble(const std::wstring& productId, const std::wstring& name, double& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchDouble, name,
                                 value);
}

bool FetchBoolean(const std::string& productId, const std::string& name, bool& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchBoolean, name,
                                value);
}

bool FetchBoolean(const std::wstring& productId, const std::wstring& name, bool& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchBoolean, name,
                                 value);
}

bool FetchInstallerBoolean(const std::string& productId, const std::string& name, bool& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchBoolean, name,
                                value);
}

bool FetchInstallerBoolean(const std::wstring& productId, const std::wstring& name, bool& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchBoolean, name,
                                 value);
}

bool FetchUTF8String(const std::string& productId, const std::string& name, std::string& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchUTF8String, name,
                                value);
}

bool FetchUTF8String(const std::wstring& productId, const std::wstring& name, std::string& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchUTF8String, name,
                                 value);
}

bool FetchInstallerUTF8String(const std::string& productId, const std::string& name,
                              std::string& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchUTF8String, name,
                                value);
}

bool FetchInstallerUTF8String(const std::wstring& productId, const std::wstring& name,
                              std::string& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchUTF8String, name,
                                 value);
}

bool FetchWideString(const std::string& productId, const std::string& name, std::wstring& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchWideString, name,
                                value);
}

bool FetchWideString(const std::wstring& productId, const std::wstring& name, std::wstring& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchWideString, name,
                                 value);
}

bool FetchInstallerWideString(const std::string& productId, const std::string& name,
                              std::wstring& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchWideString, name,
                                value);
}

bool FetchInstallerWideString(const std::wstring& productId, const std::wstring& name,
                              std::wstring& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchWideString, name,
                                 value);
}

bool FetchBuffer(const std::string& productId, const std::string& name,
                 mvtl::MemoryBuffer<unsigned char>& value) {
  return CallNamed<std::string>(productId, kProductQuery, &IMorvSettings::FetchBuffer, name, value);
}

bool FetchBuffer(const std::wstring& productId, const std::wstring& name,
                 mvtl::MemoryBuffer<unsigned char>& value) {
  return CallNamed<std::wstring>(productId, kProductQuery, &IMorvSettings::FetchBuffer, name,
                                 value);
}

bool FetchInstallerBuffer(const std::string& productId, const std::string& name,
                          mvtl::MemoryBuffer<unsigned char>& value) {
  return CallNamed<std::string>(productId, kInstallerQuery, &IMorvSettings::FetchBuffer, name,
                                value);
}

bool FetchInstallerBuffer(const std::wstring& productId, const std::wstring& name,
                          mvtl::MemoryBuffer<unsigned char>& value) {
  return CallNamed<std::wstring>(productId, kInstallerQuery, &IMorvSettings::FetchBuffer, name,
                                 value);
}

bool StoreInteger(const std::string& productId, const std::string& name, long long value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreInteger, name,
                                value);
}

bool StoreInteger(const std::wstring& productId, const std::wstring& name, long long value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreInteger, name,
                                 value);
}

bool StoreInstallerInteger(const std::string& productId, const std::string& name, long long value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreInteger, name,
                                value);
}

bool StoreInstallerInteger(const std::wstring& productId, const std::wstring& name,
                           long long value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreInteger, name,
                                 value);
}

bool StoreInt32(const std::string& productId, const std::string& name, int value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreInt32, name, value);
}

bool StoreInt32(const std::wstring& productId, const std::wstring& name, int value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreInt32, name,
                                 value);
}

bool StoreInstallerInt32(const std::string& productId, const std::string& name, int value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreInt32, name,
                                value);
}

bool StoreInstallerInt32(const std::wstring& productId, const std::wstring& name, int value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreInt32, name,
                                 value);
}

bool StoreUint32(const std::string& productId, const std::string& name, unsigned int value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreUint32, name,
                                value);
}

bool StoreUint32(const std::wstring& productId, const std::wstring& name, unsigned int value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreUint32, name,
                                 value);
}

bool StoreInstallerUint32(const std::string& productId, const std::string& name,
                          unsigned int value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreUint32, name,
                                value);
}

bool StoreInstallerUint32(const std::wstring& productId, const std::wstring& name,
                          unsigned int value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreUint32, name,
                                 value);
}

bool StoreInt64(const std::string& productId, const std::string& name, long long value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreInt64, name, value);
}

bool StoreInt64(const std::wstring& productId, const std::wstring& name, long long value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreInt64, name,
                                 value);
}

bool StoreInstallerInt64(const std::string& productId, const std::string& name, long long value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreInt64, name,
                                value);
}

bool StoreInstallerInt64(const std::wstring& productId, const std::wstring& name, long long value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreInt64, name,
                                 value);
}

bool StoreUint64(const std::string& productId, const std::string& name, unsigned long long value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreUint64, name,
                                value);
}

bool StoreUint64(const std::wstring& productId, const std::wstring& name,
                 unsigned long long value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreUint64, name,
                                 value);
}

bool StoreInstallerUint64(const std::string& productId, const std::string& name,
                          unsigned long long value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreUint64, name,
                                value);
}

bool StoreInstallerUint64(const std::wstring& productId, const std::wstring& name,
                          unsigned long long value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreUint64, name,
                                 value);
}

bool StoreFloat(const std::string& productId, const std::string& name, float value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreFloat, name, value);
}

bool StoreFloat(const std::wstring& productId, const std::wstring& name, float value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreFloat, name,
                                 value);
}

bool StoreInstallerFloat(const std::string& productId, const std::string& name, float value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreFloat, name,
                                value);
}

bool StoreInstallerFloat(const std::wstring& productId, const std::wstring& name, float value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreFloat, name,
                                 value);
}

bool StoreDouble(const std::string& productId, const std::string& name, double value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreDouble, name,
                                value);
}

bool StoreDouble(const std::wstring& productId, const std::wstring& name, double value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreDouble, name,
                                 value);
}

bool StoreInstallerDouble(const std::string& productId, const std::string& name, double value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreDouble, name,
                                value);
}

bool StoreInstallerDouble(const std::wstring& productId, const std::wstring& name, double value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreDouble, name,
                                 value);
}

bool StoreBoolean(const std::string& productId, const std::string& name, bool value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreBoolean, name,
                                value);
}

bool StoreBoolean(const std::wstring& productId, const std::wstring& name, bool value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreBoolean, name,
                                 value);
}

bool StoreInstallerBoolean(const std::string& productId, const std::string& name, bool value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreBoolean, name,
                                value);
}

bool StoreInstallerBoolean(const std::wstring& productId, const std::wstring& name, bool value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreBoolean, name,
                                 value);
}

bool StoreUTF8String(const std::string& productId, const std::string& name,
                     const std::string& value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreUTF8String, name,
                                value);
}

bool StoreUTF8String(const std::wstring& productId, const std::wstring& name,
                     const std::string& value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreUTF8String, name,
                                 value);
}

bool StoreInstallerUTF8String(const std::string& productId, const std::string& name,
                              const std::string& value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreUTF8String, name,
                                value);
}

bool StoreInstallerUTF8String(const std::wstring& productId, const std::wstring& name,
                              const std::string& value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreUTF8String, name,
                                 value);
}

bool StoreWideString(const std::string& productId, const std::string& name,
                     const std::wstring& value) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreWideString, name,
                                value);
}

bool StoreWideString(const std::wstring& productId, const std::wstring& name,
                     const std::wstring& value) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreWideString, name,
                                 value);
}

bool StoreInstallerWideString(const std::string& productId, const std::string& name,
                              const std::wstring& value) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreWideString, name,
                                value);
}

bool StoreInstallerWideString(const std::wstring& productId, const std::wstring& name,
                              const std::wstring& value) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreWideString, name,
                                 value);
}

bool StoreBuffer(const std::string& productId, const std::string& name, const void* data,
                 unsigned long size) {
  return CallNamed<std::string>(productId, kProductCreate, &IMorvSettings::StoreBuffer, name, data,
                                size);
}

bool StoreBuffer(const std::wstring& productId, const std::wstring& name, const void* data,
                 unsigned long size) {
  return CallNamed<std::wstring>(productId, kProductCreate, &IMorvSettings::StoreBuffer, name, data,
                                 size);
}

bool StoreInstallerBuffer(const std::string& productId, const std::string& name, const void* data,
                          unsigned long size) {
  return CallNamed<std::string>(productId, kInstallerCreate, &IMorvSettings::StoreBuffer, name,
                                data, size);
}

bool StoreInstallerBuffer(const std::wstring& productId, const std::wstring& name, const void* data,
                          unsigned long size) {
  return CallNamed<std::wstring>(productId, kInstallerCreate, &IMorvSettings::StoreBuffer, name,
                                 data, size);
}

bool DeleteSetting(const std::string& productId, const std::string& name) {
  return CallNamed<std::string>(productId, kProductPlain, &IMorvSettings::Delete, name);
}

bool DeleteSetting(const std::wstring& productId, const std::wstring& name) {
  return CallNamed<std::wstring>(productId, kProductPlain, &IMorvSettings::Delete, name);
}

bool DeleteInstallerSetting(const std::string& productId, const std::string& name) {
  return CallNamed<std::string>(productId, kInstallerPlain, &IMorvSettings::Delete, name);
}

bool DeleteInstallerSetting(const std::wstring& productId, const std::wstring& name) {
  return CallNamed<std::wstring>(productId, kInstallerPlain, &IMorvSettings::Delete, name);
}

bool DeleteSetting(const std::string& productId) {
  return WithProductNode(productId, kProductPlain,
                         [&](IMorvSettings& node) { return node.Delete(); });
}

bool DeleteSetting(const std::wstring& productId) {
  return WithProductNode(productId, kProductPlain,
                         [&](IMorvSettings& node) { return node.Delete(); });
}

bool DeleteInstallerSetting(const std::string& productId) {
  return WithProductNode(productId, kInstallerPlain,
                         [&](IMorvSettings& node) { return node.Delete(); });
}

bool DeleteInstallerSetting(const std::wstring& productId) {
  return WithProductNode(productId, kInstallerPlain,
                         [&](IMorvSettings& node) { return node.Delete(); });
}

bool ProductSettingsExists(const std::string& productId) {
  return WithProductNode(productId, kProductQuery, [](IMorvSettings&) { return true; });
}

bool ProductSettingsExists(const std::wstring& productId) {
  return WithProductNode(productId, kProductQuery, [](IMorvSettings&) { return true; });
}

bool ProductInstallerSettingsExists(const std::string& productId) {
  return WithProductNode(productId, kInstallerQuery, [](IMorvSettings&) { return true; });
}

bool ProductInstallerSettingsExists(const std::wstring& productId) {
  return WithProductNode(productId, kInstallerQuery, [](IMorvSettings&) { return true; });
}

bool GetValueNames(const std::string& productId, std::set<std::string>& names) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetValueNames(names); });
}

bool GetValueNames(const std::wstring& productId, std::set<std::wstring>& names) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetValueNames(names); });
}

bool GetInstallerValueNames(const std::string& productId, std::set<std::string>& names) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetValueNames(names); });
}

bool GetInstallerValueNames(const std::wstring& productId, std::set<std::wstring>& names) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetValueNames(names); });
}

bool GetValueCount(const std::string& productId, unsigned long& count) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetValueCount(count); });
}

bool GetValueCount(const std::wstring& productId, unsigned long& count) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetValueCount(count); });
}

bool GetInstallerValueCount(const std::string& productId, unsigned long& count) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetValueCount(count); });
}

bool GetInstallerValueCount(const std::wstring& productId, unsigned long& count) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetValueCount(count); });
}

bool GetChildNames(const std::string& productId, std::set<std::string>& names) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetChildNames(names); });
}

bool GetChildNames(const std::wstring& productId, std::set<std::wstring>& names) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetChildNames(names); });
}

bool GetInstallerChildNames(const std::string& productId, std::set<std::string>& names) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetChildNames(names); });
}

bool GetInstallerChildNames(const std::wstring& productId, std::set<std::wstring>& names) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetChildNames(names); });
}

bool GetChildCount(const std::string& productId, unsigned long& count) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetChildCount(count); });
}

bool GetChildCount(const std::wstring& productId, unsigned long& count) {
  return WithProductNode(productId, kProductQuery,
                         [&](IMorvSettings& node) { return node.GetChildCount(count); });
}

bool GetInstallerChildCount(const std::string& productId, unsigned long& count) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetChildCount(count); });
}

bool GetInstallerChildCount(const std::wstring& productId, unsigned long& count) {
  return WithProductNode(productId, kInstallerQuery,
                         [&](IMorvSettings& node) { return node.GetChildCount(count); });
}

}  // namespace mvcs
