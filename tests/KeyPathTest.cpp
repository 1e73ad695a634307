// Key paths split by each rule: the node's lenient tokenize, a watcher's
// rule, and the tool's rule as SettingsTarget builds it (a watcher's checks
// with the decoders' UTF-8 test, and an empty path only where a command
// allows it).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KeyPath.h"
#include "MorvString/MorvString.h"

namespace {

using morv_common::KeyPathError;
using morv_common::KeyPathRule;
using Components = std::vector<std::string>;

const KeyPathRule kToolKey = {false, mvcs::IsUTF8};
const KeyPathRule kToolKeyOrNone = {true, mvcs::IsUTF8};

// Splits `text` by `rule` into a list that starts as {"untouched"}, and
// returns the outcome; `components` receives the list.
KeyPathError Split(const std::string& text, const KeyPathRule& rule, Components& components) {
  components = {"untouched"};
  return morv_common::SplitKeyPath(text, rule, components);
}

TEST(KeyPath, TokenizeKeepsEveryEmptyPieceAndSplitsAtBothSeparators) {
  EXPECT_EQ(mvcs::tokenize("", "/\\"), Components());
  EXPECT_EQ(mvcs::tokenize("a", "/\\"), Components({"a"}));
  EXPECT_EQ(mvcs::tokenize("a/b\\c", "/\\"), Components({"a", "b", "c"}));
  EXPECT_EQ(mvcs::tokenize("/a", "/\\"), Components({"", "a"}));
  EXPECT_EQ(mvcs::tokenize("a/", "/\\"), Components({"a", ""}));
  EXPECT_EQ(mvcs::tokenize("a//b", "/\\"), Components({"a", "", "b"}));
  EXPECT_EQ(mvcs::tokenize("/", "/\\"), Components({"", ""}));
  EXPECT_EQ(mvcs::tokenize("./..", "/\\"), Components({".", ".."}));
  EXPECT_EQ(mvcs::tokenize("a\\b", "/"), Components({"a\\b"}));
}

TEST(KeyPath, WatchedKeySplitsAtSlashes) {
  Components components;
  EXPECT_EQ(Split("a", mvcs::kWatchedKeyPath, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({"a"}));
  EXPECT_EQ(Split("Net/Proxy/Port", mvcs::kWatchedKeyPath, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({"Net", "Proxy", "Port"}));
  EXPECT_EQ(Split("caf\xC3\xA9/\xE2\x82\xAC", mvcs::kWatchedKeyPath, components),
            KeyPathError::kNone);
  EXPECT_EQ(components, Components({"caf\xC3\xA9", "\xE2\x82\xAC"}));
  // "." and ".." are names like any other.
  EXPECT_EQ(Split("./..", mvcs::kWatchedKeyPath, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({".", ".."}));
}

TEST(KeyPath, WatchedKeyMayBeEmpty) {
  Components components;
  EXPECT_EQ(Split("", mvcs::kWatchedKeyPath, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components());
}

TEST(KeyPath, WatchedKeyRefusesEmptyComponentsAndBackslashes) {
  Components components;
  for (const char* text : {"/", "/a", "a/", "a//b", "//"}) {
    EXPECT_EQ(Split(text, mvcs::kWatchedKeyPath, components), KeyPathError::kEmptyComponent)
        << text;
    EXPECT_EQ(components, Components({"untouched"})) << text;
  }
  for (const char* text : {"\\", "a\\b", "a/b\\", "\\/a"}) {
    EXPECT_EQ(Split(text, mvcs::kWatchedKeyPath, components), KeyPathError::kBackslash) << text;
    EXPECT_EQ(components, Components({"untouched"})) << text;
  }
}

TEST(KeyPath, WatchedKeyMustBeTheStoresText) {
  Components components;
  for (const std::string& text :
       {std::string("a\xFF"), std::string("a/\xC0\x80"), std::string("\xED\x41\x80"),
        std::string("\xED\xA0\x80"), std::string("a\0b", 3), std::string("a/b\xE2\x82")}) {
    EXPECT_EQ(Split(text, mvcs::kWatchedKeyPath, components), KeyPathError::kBadText);
    EXPECT_EQ(components, Components({"untouched"}));
  }
}

TEST(KeyPath, TextIsCheckedFirstThenBackslashThenEmptyComponents) {
  Components components;
  EXPECT_EQ(Split("\xFF//a\\", mvcs::kWatchedKeyPath, components), KeyPathError::kBadText);
  EXPECT_EQ(Split("a\\//b", mvcs::kWatchedKeyPath, components), KeyPathError::kBackslash);
  EXPECT_EQ(Split("\xFF//a\\", kToolKey, components), KeyPathError::kBadText);
  EXPECT_EQ(Split("a\\//b", kToolKey, components), KeyPathError::kBackslash);
}

TEST(KeyPath, ToolKeyIsEmptyOnlyWhereTheCommandAllowsIt) {
  Components components;
  EXPECT_EQ(Split("", kToolKey, components), KeyPathError::kEmpty);
  EXPECT_EQ(components, Components({"untouched"}));
  EXPECT_EQ(Split("", kToolKeyOrNone, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components());
}

TEST(KeyPath, ToolKeySplitsAndRefusesLikeAWatchedKey) {
  Components components;
  EXPECT_EQ(Split("a/b/c", kToolKey, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({"a", "b", "c"}));
  EXPECT_EQ(Split("./..", kToolKeyOrNone, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({".", ".."}));
  EXPECT_EQ(Split("a//b", kToolKey, components), KeyPathError::kEmptyComponent);
  EXPECT_EQ(Split("a/", kToolKeyOrNone, components), KeyPathError::kEmptyComponent);
  EXPECT_EQ(Split("/a", kToolKey, components), KeyPathError::kEmptyComponent);
  EXPECT_EQ(Split("a\\b", kToolKey, components), KeyPathError::kBackslash);
  EXPECT_EQ(components, Components({"untouched"}));
}

TEST(KeyPath, ToolKeyTakesTheDecodersUTF8) {
  Components components;
  EXPECT_EQ(Split("N\xFF", kToolKey, components), KeyPathError::kBadText);
  EXPECT_EQ(Split("a/\xC0\x80", kToolKey, components), KeyPathError::kBadText);
  // The decoders accept ED 41 80 and U+0000, which the store refuses later
  // with its own message; the tool's split lets them through.
  EXPECT_EQ(Split("a/\xED\x41\x80", kToolKey, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({"a", "\xED\x41\x80"}));
  EXPECT_EQ(Split(std::string("a\0b/c", 5), kToolKey, components), KeyPathError::kNone);
  EXPECT_EQ(components, Components({std::string("a\0b", 3), "c"}));
}

}  // namespace
