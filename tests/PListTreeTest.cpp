// The in-memory tree of a property list: dictionaries keep their entries in
// key order whatever order keys are added in, find, replace and remove
// them, and adding many keys out of order is not quadratic.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "format/PListTree.h"

namespace {

using mvcs::PListDictionary;
using mvcs::PListInteger;

typedef mvtl::RefCountedPtr<PListDictionary> Tree;

long long IntAt(const PListDictionary& dictionary, const std::string& key) {
  const mvcs::PListValue* value = dictionary.Find(key);
  return value != nullptr ? std::get<PListInteger>(*value).bits : -1;
}

TEST(PListTree, EntriesBehaveAsAnOrderedMapWhateverTheOrderOfChanges) {
  std::mt19937 random(5);
  Tree tree(new PListDictionary);
  std::map<std::string, long long> oracle;
  for (int step = 0; step < 20000; ++step) {
    const std::string key = "k" + std::to_string(random() % 3000);
    switch (random() % 4) {
      case 0:
        tree->Remove(key);
        oracle.erase(key);
        break;
      case 1:
        ASSERT_EQ(IntAt(*tree, key), oracle.count(key) ? oracle[key] : -1) << step;
        break;
      default:
        tree->Set(key, PListInteger{step, false});
        oracle[key] = step;
    }
    if (step % 997 == 0) {
      std::vector<std::pair<std::string, long long>> walked;
      for (const auto& entry : tree->GetEntries()) {
        walked.emplace_back(entry.first, std::get<PListInteger>(entry.second).bits);
      }
      const std::vector<std::pair<std::string, long long>> expected(oracle.begin(), oracle.end());
      ASSERT_EQ(walked, expected);
    }
  }
  EXPECT_EQ(tree->GetEntries().size(), oracle.size());
}

TEST(PListTree, ManyKeysAddedOutOfOrderAreNotQuadratic) {
  // 200,000 keys in a shuffled order: quadratic moving would take many
  // minutes (and the test would time out); this takes about a second.
  std::vector<int> order(200000);
  for (int i = 0; i < 200000; ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(9));
  Tree tree(new PListDictionary);
  for (int i : order) tree->Set("key" + std::to_string(i), PListInteger{i, false});
  EXPECT_EQ(tree->GetEntries().size(), 200000u);
  EXPECT_EQ(IntAt(*tree, "key123456"), 123456);
  std::string previous;
  for (const auto& entry : tree->GetEntries()) {
    ASSERT_LT(previous, entry.first);
    previous = entry.first;
  }
}

}  // namespace
