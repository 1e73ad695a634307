// A small program that the settings tests start as a separate process, to
// check what the store does across processes and at process exit.
//
//   SettingsHelper global-node PRODUCT NAME VALUE
//     keeps a node of PRODUCT's settings in a global smart pointer, stores
//     the integer VALUE under NAME through it and returns from main: the
//     node is released (and saved) while globals are destroyed.
//
// Exit status: 0 when every step worked, 1 when one failed, 2 for a usage
// error.

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "MorvSettings/MorvSettings.h"
#include "mvtl/RefCountedPtr.h"

namespace {

// Destroyed after main returns, after any static that the store made on
// first use.
mvtl::RefCountedPtr<mvcs::IMorvSettings> g_node;

int GlobalNode(int argc, char** argv) {
  if (argc != 5) return 2;
  if (!mvcs::CreateMorvSettings(std::string("Settings/") + argv[2],
                                mvcs::MORVSETTINGSTYPE_USER_CREATE, &g_node)) {
    return 1;
  }
  return g_node->StoreInteger(std::string(argv[3]), std::atoll(argv[4])) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "global-node") == 0) return GlobalNode(argc, argv);
  std::cerr << "usage: SettingsHelper global-node PRODUCT NAME VALUE\n";
  return 2;
}
