// Uses the installed headers and library; exits 0 when the results are right.
#include <cstdio>
#include <string>

#include "MorvString/ConvertUTF.h"
#include "MorvString/MorvString.h"
#include "mvtl/MemoryBuffer.h"
#include "mvtl/RefCountedPtr.h"

int main() {
  const std::wstring wide = mvcs::UTF8ToWide("caf\xC3\xA9");
  mvtl::MemoryBuffer<char> buffer;
  buffer.Reset(4, true);
  const bool ok = wide.size() == 4 && wide[3] == 0xE9 &&
                  mvcs::WideToUTF8(wide) == "caf\xC3\xA9" && mvcs::IsUTF8("abc") &&
                  getTrailingBytesForUTF8(0xE2) == 2 && buffer.GetCount() == 4;
  std::puts(ok ? "consumer ok" : "consumer FAILED");
  return ok ? 0 : 1;
}
