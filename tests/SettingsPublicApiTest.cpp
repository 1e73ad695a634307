// The settings store as its users see it: only the public header and the
// shared library (Morv::MorvSettings), nothing internal.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "MorvSettings/MorvSettings.h"
#include "SettingsSandbox.h"

namespace {

class SettingsPublicApi : public sandbox::SettingsSandbox {};

TEST_F(SettingsPublicApi, StoreCloseReopenFetch) {
  {
    mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
    ASSERT_TRUE(mvcs::CreateMorvSettings(std::string("Settings/Api/Window"),
                                         mvcs::MORVSETTINGSTYPE_USER_CREATE, &node));
    ASSERT_TRUE(node->StoreInt32(std::string("Width"), 1280));
    ASSERT_TRUE(node->StoreWideString(std::wstring(L"Title"), std::wstring(L"M\u00f6rv")));
  }
  ASSERT_TRUE(sandbox::Exists(UserFile("Api")));
  mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
  ASSERT_TRUE(mvcs::CreateMorvSettings(std::wstring(L"Settings/Api/Window"),
                                       mvcs::MORVSETTINGSTYPE_USER, &node));
  int width = 0;
  std::wstring title;
  EXPECT_TRUE(node->FetchInt32(std::string("Width"), width));
  EXPECT_EQ(width, 1280);
  EXPECT_TRUE(node->FetchWideString(std::string("Title"), title));
  EXPECT_EQ(title, L"M\u00f6rv");
  std::set<std::string> names;
  EXPECT_TRUE(node->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"Title", "Width"}));
}

}  // namespace
