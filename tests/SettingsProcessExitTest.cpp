// What happens to nodes that a program still holds when it exits: a node
// held by a global is released after main returns, and is saved then like
// any other node (the file cache outlives every holder).

#include <gtest/gtest.h>

#include <string>

#include "MorvSettings/MorvSettings.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

class SettingsProcessExit : public sandbox::SettingsSandbox {};

TEST_F(SettingsProcessExit, NodeHeldByAGlobalIsSavedAtExit) {
  const process::Result result =
      process::Run({MORV_SETTINGS_HELPER, "global-node", "Exiting", "Saved", "1234"});
  EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
  // A sanitizer would have reported a use after free here.
  EXPECT_EQ(result.errorOutput, "");
  fixtures::Node node = fixtures::Open("Settings/Exiting", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(node.Get(), nullptr) << "nothing was saved";
  long long saved = 0;
  EXPECT_TRUE(node->FetchInteger(std::string("Saved"), saved));
  EXPECT_EQ(saved, 1234);
}

}  // namespace
