// One-call settings functions and product paths (see MorvSettingsSimple.h).
//
// Every function is the same sequence: check the name, open the product's
// node with the family's flags (CreateSimpleSettings), run one node
// operation, release the node. WithNamedNode and WithNode are that
// sequence; the macros below only spell out, per row of the table, the
// narrow and wide signatures and which node operation they run.

#include "MorvSettings/MorvSettingsSimple.h"

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
  const mvcs::MORVSETTINGSTYPE scope =
      static_cast<mvcs::MORVSETTINGSTYPE>(product + (installer ? 1 : 0));
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

// How a family opens the node: (create, query).
struct Mode {
  bool create;
  bool query;
};
const Mode kQuery = {false, true};   // fetches, exists tests, names and counts
const Mode kCreate = {true, false};  // stores
const Mode kPlain = {false, false};  // deletes

// Opens the node of the product (or of its installer record) and runs
// `operation` on it; the node is released on return.
template <class StringT, class Operation>
bool WithNode(const StringT& productId, bool installer, Mode mode, Operation operation) {
  mvtl::RefCountedPtr<IMorvSettings> node;
  if (!CreateSimpleSettings(productId, installer, mode.create, mode.query, &node)) return false;
  return operation(node.Get());
}

// The same for an operation on one name: an empty name fails before
// anything is opened.
template <class StringT, class Operation>
bool WithNamedNode(const StringT& productId, const StringT& name, bool installer, Mode mode,
                   Operation operation) {
  if (name.empty()) return false;
  return WithNode(productId, installer, mode, operation);
}

}  // namespace

#define MORV_LIST(...) __VA_ARGS__

// A row on one name: Function(productId, name <Params>) runs
// node->Operation(name <Args>), narrow and wide.
#define MORV_NAMED_CALL(Function, Operation, installer, mode, Params, Args)                 \
  bool Function(const std::string& productId, const std::string& name MORV_LIST Params) {   \
    return WithNamedNode(productId, name, installer, mode, [&](IMorvSettings* node) {       \
      return node->Operation(name MORV_LIST Args);                                          \
    });                                                                                     \
  }                                                                                         \
  bool Function(const std::wstring& productId, const std::wstring& name MORV_LIST Params) { \
    return WithNamedNode(productId, name, installer, mode, [&](IMorvSettings* node) {       \
      return node->Operation(name MORV_LIST Args);                                          \
    });                                                                                     \
  }

// A row on the node itself: Function(productId <Params>) runs `Call` on
// `node`, narrow and wide (NarrowParams and WideParams differ in the set
// types).
#define MORV_NODE_CALL(Function, installer, mode, NarrowParams, WideParams, Call)           \
  bool Function(const std::string& productId MORV_LIST NarrowParams) {                      \
    return WithNode(productId, installer, mode, [&](IMorvSettings* node) { return Call; }); \
  }                                                                                         \
  bool Function(const std::wstring& productId MORV_LIST WideParams) {                       \
    return WithNode(productId, installer, mode, [&](IMorvSettings* node) { return Call; }); \
  }

MORV_NAMED_CALL(FetchInteger, FetchInteger, false, kQuery, (, long long& value), (, value))
MORV_NAMED_CALL(FetchInstallerInteger, FetchInteger, true, kQuery, (, long long& value), (, value))
MORV_NAMED_CALL(FetchInt32, FetchInt32, false, kQuery, (, int& value), (, value))
MORV_NAMED_CALL(FetchInstallerInt32, FetchInt32, true, kQuery, (, int& value), (, value))
MORV_NAMED_CALL(FetchUint32, FetchUint32, false, kQuery, (, unsigned int& value), (, value))
MORV_NAMED_CALL(FetchInstallerUint32, FetchUint32, true, kQuery, (, unsigned int& value), (, value))
MORV_NAMED_CALL(FetchInt64, FetchInt64, false, kQuery, (, long long& value), (, value))
MORV_NAMED_CALL(FetchInstallerInt64, FetchInt64, true, kQuery, (, long long& value), (, value))
MORV_NAMED_CALL(FetchUint64, FetchUint64, false, kQuery, (, unsigned long long& value), (, value))
MORV_NAMED_CALL(FetchInstallerUint64, FetchUint64, true, kQuery, (, unsigned long long& value),
                (, value))
MORV_NAMED_CALL(FetchFloat, FetchFloat, false, kQuery, (, float& value), (, value))
MORV_NAMED_CALL(FetchInstallerFloat, FetchFloat, true, kQuery, (, float& value), (, value))
MORV_NAMED_CALL(FetchDouble, FetchDouble, false, kQuery, (, double& value), (, value))
MORV_NAMED_CALL(FetchInstallerDouble, FetchDouble, true, kQuery, (, double& value), (, value))
MORV_NAMED_CALL(FetchBoolean, FetchBoolean, false, kQuery, (, bool& value), (, value))
MORV_NAMED_CALL(FetchInstallerBoolean, FetchBoolean, true, kQuery, (, bool& value), (, value))
MORV_NAMED_CALL(FetchUTF8String, FetchUTF8String, false, kQuery, (, std::string& value), (, value))
MORV_NAMED_CALL(FetchInstallerUTF8String, FetchUTF8String, true, kQuery, (, std::string& value),
                (, value))
MORV_NAMED_CALL(FetchWideString, FetchWideString, false, kQuery, (, std::wstring& value), (, value))
MORV_NAMED_CALL(FetchInstallerWideString, FetchWideString, true, kQuery, (, std::wstring& value),
                (, value))
MORV_NAMED_CALL(FetchBuffer, FetchBuffer, false, kQuery,
                (, mvtl::MemoryBuffer<unsigned char>& value), (, value))
MORV_NAMED_CALL(FetchInstallerBuffer, FetchBuffer, true, kQuery,
                (, mvtl::MemoryBuffer<unsigned char>& value), (, value))

MORV_NAMED_CALL(StoreInteger, StoreInteger, false, kCreate, (, long long value), (, value))
MORV_NAMED_CALL(StoreInstallerInteger, StoreInteger, true, kCreate, (, long long value), (, value))
MORV_NAMED_CALL(StoreInt32, StoreInt32, false, kCreate, (, int value), (, value))
MORV_NAMED_CALL(StoreInstallerInt32, StoreInt32, true, kCreate, (, int value), (, value))
MORV_NAMED_CALL(StoreUint32, StoreUint32, false, kCreate, (, unsigned int value), (, value))
MORV_NAMED_CALL(StoreInstallerUint32, StoreUint32, true, kCreate, (, unsigned int value), (, value))
MORV_NAMED_CALL(StoreInt64, StoreInt64, false, kCreate, (, long long value), (, value))
MORV_NAMED_CALL(StoreInstallerInt64, StoreInt64, true, kCreate, (, long long value), (, value))
MORV_NAMED_CALL(StoreUint64, StoreUint64, false, kCreate, (, unsigned long long value), (, value))
MORV_NAMED_CALL(StoreInstallerUint64, StoreUint64, true, kCreate, (, unsigned long long value),
                (, value))
MORV_NAMED_CALL(StoreFloat, StoreFloat, false, kCreate, (, float value), (, value))
MORV_NAMED_CALL(StoreInstallerFloat, StoreFloat, true, kCreate, (, float value), (, value))
MORV_NAMED_CALL(StoreDouble, StoreDouble, false, kCreate, (, double value), (, value))
MORV_NAMED_CALL(StoreInstallerDouble, StoreDouble, true, kCreate, (, double value), (, value))
MORV_NAMED_CALL(StoreBoolean, StoreBoolean, false, kCreate, (, bool value), (, value))
MORV_NAMED_CALL(StoreInstallerBoolean, StoreBoolean, true, kCreate, (, bool value), (, value))
MORV_NAMED_CALL(StoreUTF8String, StoreUTF8String, false, kCreate, (, const std::string& value),
                (, value))
MORV_NAMED_CALL(StoreInstallerUTF8String, StoreUTF8String, true, kCreate,
                (, const std::string& value), (, value))
MORV_NAMED_CALL(StoreWideString, StoreWideString, false, kCreate, (, const std::wstring& value),
                (, value))
MORV_NAMED_CALL(StoreInstallerWideString, StoreWideString, true, kCreate,
                (, const std::wstring& value), (, value))
MORV_NAMED_CALL(StoreBuffer, StoreBuffer, false, kCreate, (, const void* data, unsigned long size),
                (, data, size))
MORV_NAMED_CALL(StoreInstallerBuffer, StoreBuffer, true, kCreate,
                (, const void* data, unsigned long size), (, data, size))

MORV_NAMED_CALL(DeleteSetting, Delete, false, kPlain, (), ())
MORV_NAMED_CALL(DeleteInstallerSetting, Delete, true, kPlain, (), ())

MORV_NODE_CALL(DeleteSetting, false, kPlain, (), (), node->Delete())
MORV_NODE_CALL(DeleteInstallerSetting, true, kPlain, (), (), node->Delete())
MORV_NODE_CALL(ProductSettingsExists, false, kQuery, (), (), node != nullptr)
MORV_NODE_CALL(ProductInstallerSettingsExists, true, kQuery, (), (), node != nullptr)
MORV_NODE_CALL(GetValueNames, false, kQuery, (, std::set<std::string>& names),
               (, std::set<std::wstring>& names), node->GetValueNames(names))
MORV_NODE_CALL(GetInstallerValueNames, true, kQuery, (, std::set<std::string>& names),
               (, std::set<std::wstring>& names), node->GetValueNames(names))
MORV_NODE_CALL(GetValueCount, false, kQuery, (, unsigned long& count), (, unsigned long& count),
               node->GetValueCount(count))
MORV_NODE_CALL(GetInstallerValueCount, true, kQuery, (, unsigned long& count),
               (, unsigned long& count), node->GetValueCount(count))
MORV_NODE_CALL(GetChildNames, false, kQuery, (, std::set<std::string>& names),
               (, std::set<std::wstring>& names), node->GetChildNames(names))
MORV_NODE_CALL(GetInstallerChildNames, true, kQuery, (, std::set<std::string>& names),
               (, std::set<std::wstring>& names), node->GetChildNames(names))
MORV_NODE_CALL(GetChildCount, false, kQuery, (, unsigned long& count), (, unsigned long& count),
               node->GetChildCount(count))
MORV_NODE_CALL(GetInstallerChildCount, true, kQuery, (, unsigned long& count),
               (, unsigned long& count), node->GetChildCount(count))

#undef MORV_NODE_CALL
#undef MORV_NAMED_CALL
#undef MORV_LIST

}  // namespace mvcs
