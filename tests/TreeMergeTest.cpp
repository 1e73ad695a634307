// The merge that saves use when another process changed the file: the
// paths this process changed, taken from its tree into the disk's; entries
// replaced here (values stored, keys deleted) replace the disk's whole.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TreeMerge.h"
#include "format/PListTree.h"

namespace {

using mvcs::AsDictionary;
using mvcs::PListDictionary;
using mvcs::PListDictionaryRef;
using mvcs::PListInteger;
using mvcs::PListValue;

typedef mvtl::RefCountedPtr<PListDictionary> Tree;

Tree NewTree() { return Tree(new PListDictionary); }

PListValue Int(long long value) { return PListInteger{value, false}; }

// Adds (or finds) the child dictionary `name` of `parent`.
PListDictionary* Child(PListDictionary& parent, const std::string& name) {
  if (const PListValue* existing = parent.Find(name)) {
    if (PListDictionary* dictionary = AsDictionary(*existing)) return dictionary;
  }
  PListDictionaryRef child;
  child.Assign(new PListDictionary);
  parent.Set(name, child);
  return child.Get();
}

// One recorded change: its path, and whether the entry was replaced there.
struct Change {
  mvcs::KeyPath path;
  bool replaced;
};

// Applies `changes`, recorded in this order, with what `current` holds at
// their paths, to `disk`.
void Merge(const Tree& current, const std::vector<Change>& changes, const Tree& disk) {
  mvcs::ChangeLog log;
  std::uint64_t sequence = 0;
  for (const Change& change : changes) log[change.path] = {change.replaced, ++sequence};
  mvcs::ApplyChanges(mvcs::CaptureChanges(*current, log), *disk);
}

long long IntAt(const PListDictionary& dictionary, const std::string& name) {
  const PListValue* value = dictionary.Find(name);
  const PListInteger* integer = value != nullptr ? std::get_if<PListInteger>(value) : nullptr;
  return integer != nullptr ? integer->bits : -999;
}

// {a:1, b:1, c:1, d:{x:1, y:1}}
Tree Base() {
  Tree tree = NewTree();
  tree->Set("a", Int(1));
  tree->Set("b", Int(1));
  tree->Set("c", Int(1));
  PListDictionary* d = Child(*tree, "d");
  d->Set("x", Int(1));
  d->Set("y", Int(1));
  return tree;
}

TEST(TreeMerge, OwnChangesGoOnTopOfTheDisksAndOthersSurvive) {
  Tree current = Base();
  current->Set("a", Int(2));                 // changed here
  current->Remove("b");                      // deleted here
  Child(*current, "d")->Set("y", Int(2));    // changed inside a dictionary
  Child(*current, "e")->Set("new", Int(1));  // a dictionary made here
  const std::vector<Change> changed = {
      {{"a"}, true}, {{"b"}, true}, {{"d", "y"}, true}, {{"e"}, false}, {{"e", "new"}, true}};

  Tree disk = Base();
  disk->Set("a", Int(3));               // also changed there: this save is later
  disk->Set("c", Int(3));               // changed only there
  disk->Set("f", Int(3));               // added there
  Child(*disk, "d")->Set("z", Int(3));  // added inside the same dictionary
  Child(*disk, "e")->Set("theirs", Int(3));

  Merge(current, changed, disk);
  EXPECT_EQ(IntAt(*disk, "a"), 2);
  EXPECT_EQ(disk->Find("b"), nullptr);
  EXPECT_EQ(IntAt(*disk, "c"), 3);
  EXPECT_EQ(IntAt(*disk, "f"), 3);
  const PListDictionary* d = AsDictionary(*disk->Find("d"));
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(IntAt(*d, "x"), 1);
  EXPECT_EQ(IntAt(*d, "y"), 2);
  EXPECT_EQ(IntAt(*d, "z"), 3);
  const PListDictionary* e = AsDictionary(*disk->Find("e"));
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(IntAt(*e, "new"), 1);
  EXPECT_EQ(IntAt(*e, "theirs"), 3);
}

TEST(TreeMerge, ADictionaryRemovedThereComesBackOnlyForOwnChanges) {
  Tree disk = Base();
  disk->Remove("d");
  Merge(Base(), {}, disk);
  EXPECT_EQ(disk->Find("d"), nullptr);  // nothing changed here: stays removed

  Tree deletedInside = Base();
  Child(*deletedInside, "d")->Remove("x");
  Merge(deletedInside, {{{"d", "x"}, true}}, disk);
  EXPECT_EQ(disk->Find("d"), nullptr);  // a deletion inside agrees with the removal

  Tree changedInside = Base();
  Child(*changedInside, "d")->Set("y", Int(5));
  Merge(changedInside, {{{"d", "y"}, true}}, disk);
  const PListDictionary* d = AsDictionary(*disk->Find("d"));
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->GetEntries().size(), 1u);
  EXPECT_EQ(IntAt(*d, "y"), 5);
}

TEST(TreeMerge, KindChangesAreChanges) {
  Tree current = Base();
  current->Set("d", Int(7));               // a dictionary replaced by a value here
  Child(*current, "a")->Set("k", Int(1));  // a value replaced by a dictionary here
  Tree disk = Base();
  Merge(current, {{{"d"}, true}, {{"a"}, true}, {{"a", "k"}, true}}, disk);
  EXPECT_EQ(IntAt(*disk, "d"), 7);
  const PListDictionary* a = AsDictionary(*disk->Find("a"));
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(IntAt(*a, "k"), 1);
}

TEST(TreeMerge, ThePathsDecideNotTheValues) {
  // A path changed here whose value is the same as before still wins (the
  // store happened later); a path deleted here and made again holds this
  // process's value.
  Tree current = Base();
  Tree disk = Base();
  disk->Set("a", Int(9));
  disk->Set("c", Int(9));
  current->Remove("c");
  current->Set("c", Int(4));
  Merge(current, {{{"a"}, true}, {{"c"}, true}}, disk);
  EXPECT_EQ(IntAt(*disk, "a"), 1);
  EXPECT_EQ(IntAt(*disk, "c"), 4);
  // A node's key deleted here (its path) with a store below it before.
  Tree gone = Base();
  gone->Remove("d");
  Merge(gone, {{{"d"}, true}, {{"d", "x"}, true}}, disk);
  EXPECT_EQ(disk->Find("d"), nullptr);
}

TEST(TreeMerge, ADictionaryDeletedHereAndMadeAgainTakesNothingBack) {
  // Deleted here, then made again with one entry: the disk's old entries,
  // and one another process added meanwhile, stay out.
  Tree current = Base();
  current->Remove("d");
  Child(*current, "d")->Set("p", Int(5));
  Tree disk = Base();
  Child(*disk, "d")->Set("z", Int(3));
  disk->Set("f", Int(3));
  Merge(current, {{{"d"}, true}, {{"d", "p"}, true}}, disk);
  const PListDictionary* d = AsDictionary(*disk->Find("d"));
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->GetEntries().size(), 1u);
  EXPECT_EQ(IntAt(*d, "p"), 5);
  EXPECT_EQ(IntAt(*disk, "f"), 3);  // elsewhere the disk's changes stay

  // Only made here (not deleted): the disk's dictionary keeps its entries.
  Tree made = Base();
  Child(*made, "d")->Set("p", Int(5));
  Tree disk2 = Base();
  Child(*disk2, "d")->Set("z", Int(3));
  Merge(made, {{{"d"}, false}, {{"d", "p"}, true}}, disk2);
  const PListDictionary* d2 = AsDictionary(*disk2->Find("d"));
  ASSERT_NE(d2, nullptr);
  EXPECT_EQ(d2->GetEntries().size(), 4u);  // x, y, z and p
  EXPECT_EQ(IntAt(*d2, "z"), 3);
  EXPECT_EQ(IntAt(*d2, "p"), 5);
}

TEST(TreeMerge, CapturedChangesAreCopiesTakenWhenCaptured) {
  Tree current = Base();
  current->Remove("d");
  Child(*current, "d")->Set("p", Int(5));
  mvcs::ChangeLog log;
  log[{"a"}] = {true, 1};
  log[{"d"}] = {true, 2};
  mvcs::ChangeList changes = mvcs::CaptureChanges(*current, log);
  // Changed after the capture: the captured values stay as they were.
  current->Set("a", Int(8));
  Child(*current, "d")->Set("p", Int(8));
  Tree disk = Base();
  mvcs::ApplyChanges(std::move(changes), *disk);
  EXPECT_EQ(IntAt(*disk, "a"), 1);
  const PListDictionary* d = AsDictionary(*disk->Find("d"));
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(IntAt(*d, "p"), 5);
  EXPECT_NE(d, AsDictionary(*current->Find("d")));  // a copy, not shared
}

TEST(TreeMerge, CaptureTakesOnlyChangesAfterASequence) {
  Tree current = Base();
  current->Set("a", Int(2));
  current->Set("b", Int(2));
  mvcs::ChangeLog log;
  log[{"a"}] = {true, 4};
  log[{"b"}] = {true, 7};
  const mvcs::ChangeList changes = mvcs::CaptureChanges(*current, log, 4);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].path, mvcs::KeyPath({"b"}));
  EXPECT_EQ(changes[0].kind, mvcs::CapturedChange::kValue);
}

TEST(TreeMerge, CopyTreeCopiesEveryDictionary) {
  Tree tree = Base();
  Child(*Child(*tree, "d"), "deep")->Set("q", Int(1));
  const PListDictionaryRef copy = mvcs::CopyTree(*tree);
  EXPECT_TRUE(mvcs::SameTree(*copy, *tree));
  const PListDictionary* d = AsDictionary(*copy->Find("d"));
  ASSERT_NE(d, nullptr);
  EXPECT_NE(d, AsDictionary(*tree->Find("d")));
  Child(*Child(*tree, "d"), "deep")->Set("q", Int(2));
  EXPECT_EQ(IntAt(*AsDictionary(*AsDictionary(*copy->Find("d"))->Find("deep")), "q"), 1);
}

}  // namespace
