// Uses the installed headers and libraries; exits 0 when the results are
// right. Settings go to XDG_CONFIG_HOME, which the test points at a
// temporary folder.
#include <cstdio>
#include <string>

#include "MorvSettings/MorvSettings.h"
#include "MorvString/ConvertUTF.h"
#include "MorvString/MorvString.h"
#include "mvtl/MemoryBuffer.h"
#include "mvtl/RefCountedPtr.h"

int main() {
  const std::wstring wide = mvcs::UTF8ToWide("caf\xC3\xA9");
  mvtl::MemoryBuffer<char> buffer;
  buffer.Reset(4, true);
  bool ok = wide.size() == 4 && wide[3] == 0xE9 && mvcs::WideToUTF8(wide) == "caf\xC3\xA9" &&
            mvcs::IsUTF8("abc") && getTrailingBytesForUTF8(0xE2) == 2 && buffer.GetCount() == 4;
  {
    mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
    ok = ok &&
         mvcs::CreateMorvSettings(std::string("Settings/Consumer"),
                                  mvcs::MORVSETTINGSTYPE_USER_CREATE, &node) &&
         node->StoreInteger(std::string("answer"), 42);
  }
  mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
  long long answer = 0;
  ok = ok &&
       mvcs::CreateMorvSettings(std::string("Settings/Consumer"), mvcs::MORVSETTINGSTYPE_USER,
                                &node) &&
       node->FetchInteger(std::string("answer"), answer) && answer == 42;
  std::puts(ok ? "consumer ok" : "consumer FAILED");
  return ok ? 0 : 1;
}
