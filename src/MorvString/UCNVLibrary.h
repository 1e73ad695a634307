// UCNVLibrary: ICU's converter library, loaded at run time (never linked),
// with the four entry points the code-page conversions use.

#ifndef MORVSTRING_UCNVLIBRARY_H
#define MORVSTRING_UCNVLIBRARY_H

#include <unicode/ucnv_err.h>
#include <unicode/utypes.h>

namespace mvcs {

// The process-wide converter library: loaded by the first instance(),
// unloaded only by FreeCodePageResouces. When the library or any of the
// four entry points is missing, all four wrappers are disabled: UCNV_open
// returns null, the conversions convert nothing, and both set the error
// code to 5 (U_INTERNAL_PROGRAM_ERROR); UCNV_close does nothing.
class UCNVLibrary {
 public:
  // Loads the library (dlopen with RTLD_LAZY; RTLD_NODELETE too, so that
  // unloading does not strand ICU's caches) from the configured path and
  // looks up ucnv_open, ucnv_close, ucnv_toUnicode and ucnv_fromUnicode with
  // the configured version suffix (see SetCodePageLibrary).
  UCNVLibrary();

  // Unloads the library.
  virtual ~UCNVLibrary();

  // The one instance, made on first use; never null after it returns,
  // whether or not the library loaded.
  static UCNVLibrary* instance();

  // ICU's functions of the same names, with their arguments passed on as
  // they are (UChar is a 16-bit unit, UBool a signed char).
  UConverter* UCNV_open(const char* converterName, UErrorCode* err);
  void UCNV_close(UConverter* converter);
  void UCNV_toUnicode(UConverter* converter, unsigned short** target,
                      const unsigned short* targetLimit, const char** source,
                      const char* sourceLimit, int* offsets, signed char flush, UErrorCode* err);
  void UCNV_fromUnicode(UConverter* converter, char** target, const char* targetLimit,
                        const unsigned short** source, const unsigned short* sourceLimit,
                        int* offsets, signed char flush, UErrorCode* err);

  // The instance, or null before the first instance() and after
  // FreeCodePageResouces.
  static UCNVLibrary* s_ucnvLibrary;

  // Whether the library and all four entry points were found.
  bool IsUsable() const;

  // Whether the library is usable and opens its "utf8" converter (without
  // an error; warnings count as success). Asked once per instance, on the
  // first call, and remembered: the code-page conversions call it on every
  // conversion that could do its UTF-8 step without ICU.
  bool OpensUTF8();

 private:
  typedef UConverter* (*OpenFunction)(const char*, UErrorCode*);
  typedef void (*CloseFunction)(UConverter*);
  typedef void (*ToUnicodeFunction)(UConverter*, unsigned short**, const unsigned short*,
                                    const char**, const char*, int*, signed char, UErrorCode*);
  typedef void (*FromUnicodeFunction)(UConverter*, char**, const char*, const unsigned short**,
                                      const unsigned short*, int*, signed char, UErrorCode*);

  void* m_handle;
  OpenFunction m_open;
  CloseFunction m_close;
  ToUnicodeFunction m_toUnicode;
  FromUnicodeFunction m_fromUnicode;
  enum class Answer { kNotAsked, kYes, kNo } m_opensUTF8;
};

}  // namespace mvcs

#endif  // MORVSTRING_UCNVLIBRARY_H
