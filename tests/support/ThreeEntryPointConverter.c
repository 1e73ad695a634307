/* A stand-in for ICU's converter library that exports only three of the
   four entry points the code-page conversions need (ucnv_fromUnicode is
   missing), under the symbol suffix "_three". Loading it must disable every
   conversion. The functions record that they were called, so a test can
   also prove that none of them ever runs. */

#define EXPORT __attribute__((visibility("default")))

EXPORT int threeEntryPointCalls = 0;

EXPORT void* ucnv_open_three(const char* name, int* err) {
  (void)name;
  (void)err;
  ++threeEntryPointCalls;
  return &threeEntryPointCalls;
}

EXPORT void ucnv_close_three(void* converter) {
  (void)converter;
  ++threeEntryPointCalls;
}

EXPORT void ucnv_toUnicode_three(void* converter, unsigned short** target,
                                 const unsigned short* targetLimit, const char** source,
                                 const char* sourceLimit, int* offsets, signed char flush,
                                 int* err) {
  (void)converter;
  (void)target;
  (void)targetLimit;
  (void)source;
  (void)sourceLimit;
  (void)offsets;
  (void)flush;
  (void)err;
  ++threeEntryPointCalls;
}
