// UCNVLibrary: loading ICU's converter library at run time (see
// UCNVLibrary.h), and the settings of where to load it from.
//
// The default path and symbol suffix are the system ICU's, found when the
// project is configured (MORV_ICU_LIBRARY, e.g. "libicuuc.so.72", and
// MORV_ICU_SUFFIX, e.g. "_72": ICU versions its exported symbols).

#include "UCNVLibrary.h"

#include <dlfcn.h>

#include <string>

#include "MorvString/MorvString.h"

#ifndef MORV_ICU_LIBRARY
#error "MORV_ICU_LIBRARY (the converter library to load) must be defined by the build"
#endif
#ifndef MORV_ICU_SUFFIX
#error "MORV_ICU_SUFFIX (the converter library's symbol suffix) must be defined by the build"
#endif

namespace mvcs {

namespace {

// Where the next load looks (SetCodePageLibrary changes it).
std::string& LibraryPath() {
  static std::string path = MORV_ICU_LIBRARY;
  return path;
}

std::string& SymbolSuffix() {
  static std::string suffix = MORV_ICU_SUFFIX;
  return suffix;
}

template <class Function>
Function Lookup(void* handle, const char* name) {
  return reinterpret_cast<Function>(dlsym(handle, (name + SymbolSuffix()).c_str()));
}

const UErrorCode kDisabled = U_INTERNAL_PROGRAM_ERROR;  // 5

}  // namespace

UCNVLibrary* UCNVLibrary::s_ucnvLibrary = nullptr;

UCNVLibrary::UCNVLibrary()
    : m_handle(nullptr),
      m_open(nullptr),
      m_close(nullptr),
      m_toUnicode(nullptr),
      m_fromUnicode(nullptr),
      m_opensUTF8(Answer::kNotAsked) {
  // RTLD_NODELETE: ICU keeps its converter data in heap blocks reachable
  // only from its own globals. Unmapping the library at dlclose would lose
  // them, and every FreeCodePageResouces and reload would leak them anew;
  // kept mapped, a reload finds ICU's state as it was.
  m_handle = dlopen(LibraryPath().c_str(), RTLD_LAZY | RTLD_NODELETE);
  if (m_handle != nullptr) {
    m_open = Lookup<OpenFunction>(m_handle, "ucnv_open");
    m_close = Lookup<CloseFunction>(m_handle, "ucnv_close");
    m_toUnicode = Lookup<ToUnicodeFunction>(m_handle, "ucnv_toUnicode");
    m_fromUnicode = Lookup<FromUnicodeFunction>(m_handle, "ucnv_fromUnicode");
  }
}

UCNVLibrary::~UCNVLibrary() {
  if (m_handle != nullptr) {
    dlclose(m_handle);
    m_handle = nullptr;
  }
}

UCNVLibrary* UCNVLibrary::instance() {
  if (s_ucnvLibrary == nullptr) s_ucnvLibrary = new UCNVLibrary;
  return s_ucnvLibrary;
}

bool UCNVLibrary::IsUsable() const {
  return m_handle != nullptr && m_open != nullptr && m_close != nullptr && m_toUnicode != nullptr &&
         m_fromUnicode != nullptr;
}

bool UCNVLibrary::OpensUTF8() {
  if (m_opensUTF8 == Answer::kNotAsked) {
    UErrorCode error = U_ZERO_ERROR;
    UConverter* converter = UCNV_open("utf8", &error);
    m_opensUTF8 = converter != nullptr && error <= U_ZERO_ERROR ? Answer::kYes : Answer::kNo;
    if (converter != nullptr) UCNV_close(converter);
  }
  return m_opensUTF8 == Answer::kYes;
}

UConverter* UCNVLibrary::UCNV_open(const char* converterName, UErrorCode* err) {
  if (!IsUsable()) {
    if (err != nullptr) *err = kDisabled;
    return nullptr;
  }
  return m_open(converterName, err);
}

void UCNVLibrary::UCNV_close(UConverter* converter) {
  if (IsUsable()) m_close(converter);
}

void UCNVLibrary::UCNV_toUnicode(UConverter* converter, unsigned short** target,
                                 const unsigned short* targetLimit, const char** source,
                                 const char* sourceLimit, int* offsets, signed char flush,
                                 UErrorCode* err) {
  if (!IsUsable()) {
    if (err != nullptr) *err = kDisabled;
    return;
  }
  m_toUnicode(converter, target, targetLimit, source, sourceLimit, offsets, flush, err);
}

void UCNVLibrary::UCNV_fromUnicode(UConverter* converter, char** target, const char* targetLimit,
                                   const unsigned short** source, const unsigned short* sourceLimit,
                                   int* offsets, signed char flush, UErrorCode* err) {
  if (!IsUsable()) {
    if (err != nullptr) *err = kDisabled;
    return;
  }
  m_fromUnicode(converter, target, targetLimit, source, sourceLimit, offsets, flush, err);
}

void FreeCodePageResouces() {
  if (UCNVLibrary::s_ucnvLibrary != nullptr) {
    UCNVLibrary* old = UCNVLibrary::s_ucnvLibrary;
    UCNVLibrary::s_ucnvLibrary = nullptr;
    delete old;
  }
}

void SetCodePageLibrary(const char* path, const char* symbolSuffix) {
  LibraryPath() = path != nullptr ? path : MORV_ICU_LIBRARY;
  SymbolSuffix() = symbolSuffix != nullptr ? symbolSuffix : MORV_ICU_SUFFIX;
}

}  // namespace mvcs
