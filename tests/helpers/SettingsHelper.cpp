// A small program that the settings tests start as separate processes, to
// check what the store does across processes and at process exit. Each
// mode is one command line:
//
//   global-node PRODUCT NAME VALUE
//     keeps a node of PRODUCT's settings in a global smart pointer, stores
//     the integer VALUE under NAME through it and returns from main: the
//     node is released (and saved) while globals are destroyed.
//   store PRODUCT NAME VALUE [--installer]
//   delete PRODUCT NAME [--installer]
//     one one-call store of an integer, or one one-call delete.
//   store-keys PRODUCT PREFIX COUNT [--installer]
//     COUNT one-call stores: PREFIX<i> = i for i from 0.
//   node-store-keys PRODUCT PREFIX COUNT [--installer]
//     the same through one node held open throughout, saved (SaveSettings)
//     after each store.
//   store-until-killed PRODUCT PREFIX PADDING
//     stores PADDING bytes of data once (to make saves take a while), then
//     PREFIX<i> = i for i = 0, 1, ... through one open node, saving after
//     each; prints i on standard output once the save of i has succeeded.
//     Runs until it is killed.
//   hold-lock SETTINGSFILE SECONDS
//     takes the lock that saves of SETTINGSFILE take, prints "locked",
//     holds it for SECONDS, then exits.
//
// Exit status: 0 when every step worked, 1 when one failed (a message on
// standard error says which), 2 for a usage error.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "mvtl/RefCountedPtr.h"

namespace {

typedef mvtl::RefCountedPtr<mvcs::IMorvSettings> Node;

// Destroyed after main returns, after any static that the store made on
// first use.
Node g_node;

int Fail(const std::string& what) {
  std::cerr << "SettingsHelper: " << what << "\n";
  return 1;
}

int GlobalNode(const std::vector<std::string>& args) {
  if (!mvcs::CreateMorvSettings("Settings/" + args[0], mvcs::MORVSETTINGSTYPE_USER_CREATE,
                                &g_node)) {
    return Fail("cannot open the node");
  }
  return g_node->StoreInteger(args[1], std::atoll(args[2].c_str())) ? 0 : Fail("store failed");
}

int Store(const std::vector<std::string>& args, bool installer) {
  const long long value = std::atoll(args[2].c_str());
  const bool ok = installer ? mvcs::StoreInstallerInteger(args[0], args[1], value)
                            : mvcs::StoreInteger(args[0], args[1], value);
  return ok ? 0 : Fail("store of " + args[1] + " failed");
}

int Delete(const std::vector<std::string>& args, bool installer) {
  const bool ok = installer ? mvcs::DeleteInstallerSetting(args[0], args[1])
                            : mvcs::DeleteSetting(args[0], args[1]);
  return ok ? 0 : Fail("delete of " + args[1] + " failed");
}

int StoreKeys(const std::vector<std::string>& args, bool installer) {
  const int count = std::atoi(args[2].c_str());
  for (int i = 0; i < count; ++i) {
    const std::string name = args[1] + std::to_string(i);
    const bool ok = installer ? mvcs::StoreInstallerInteger(args[0], name, i)
                              : mvcs::StoreInteger(args[0], name, i);
    if (!ok) return Fail("store of " + name + " failed");
  }
  return 0;
}

int NodeStoreKeys(const std::vector<std::string>& args, bool installer) {
  Node node;
  if (!CreateSimpleSettings(args[0], installer, true, false, &node)) {
    return Fail("cannot open the node");
  }
  const int count = std::atoi(args[2].c_str());
  for (int i = 0; i < count; ++i) {
    const std::string name = args[1] + std::to_string(i);
    if (!node->StoreInteger(name, i)) return Fail("store of " + name + " failed");
    const mvcs::SaveResult saved = mvcs::SaveSettings(node.Get());
    if (!saved) return Fail("save of " + name + " failed: " + std::strerror(saved.GetError()));
  }
  return 0;
}

int StoreUntilKilled(const std::vector<std::string>& args) {
  Node node;
  if (!CreateSimpleSettings(args[0], false, true, false, &node)) {
    return Fail("cannot open the node");
  }
  const std::vector<unsigned char> padding(std::strtoul(args[2].c_str(), nullptr, 10), 0x5A);
  if (!node->StoreBuffer(std::string("Padding"), padding.data(), padding.size())) {
    return Fail("store of the padding failed");
  }
  for (long long i = 0;; ++i) {
    const std::string name = args[1] + std::to_string(i);
    if (!node->StoreInteger(name, i)) return Fail("store of " + name + " failed");
    if (!mvcs::SaveSettings(node.Get())) return Fail("save of " + name + " failed");
    std::printf("%lld\n", i);
    std::fflush(stdout);
  }
}

int HoldLock(const std::vector<std::string>& args) {
  const std::string path = args[0] + ".lock";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0 || flock(fd, LOCK_EX) != 0) return Fail("cannot lock " + path);
  std::printf("locked\n");
  std::fflush(stdout);
  std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(args[1].c_str())));
  close(fd);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string mode = argv[1];
  std::vector<std::string> args(argv + 2, argv + argc);
  bool installer = false;
  if (!args.empty() && args.back() == "--installer") {
    installer = true;
    args.pop_back();
  }
  const std::size_t count = args.size();
  if (mode == "global-node" && count == 3) return GlobalNode(args);
  if (mode == "store" && count == 3) return Store(args, installer);
  if (mode == "delete" && count == 2) return Delete(args, installer);
  if (mode == "store-keys" && count == 3) return StoreKeys(args, installer);
  if (mode == "node-store-keys" && count == 3) return NodeStoreKeys(args, installer);
  if (mode == "store-until-killed" && count == 3) return StoreUntilKilled(args);
  if (mode == "hold-lock" && count == 2) return HoldLock(args);
  std::cerr << "SettingsHelper: unknown mode or wrong arguments (see its source)\n";
  return 2;
}
