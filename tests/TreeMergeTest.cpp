// The merge that saves use when another process changed the file: the
// paths this process changed, taken from its tree into the disk's, and the
// in-memory tree made the merged one in place.

#include <gtest/gtest.h>

#include <string>

#include "TreeMerge.h"
#include "format/PListTree.h"

namespace {

using mvcs::AsDictionary;
using mvcs::ChangedPaths;
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
  const ChangedPaths changed = {{"a"}, {"b"}, {"d", "y"}, {"e"}, {"e", "new"}};

  Tree disk = Base();
  disk->Set("a", Int(3));               // also changed there: this save is later
  disk->Set("c", Int(3));               // changed only there
  disk->Set("f", Int(3));               // added there
  Child(*disk, "d")->Set("z", Int(3));  // added inside the same dictionary
  Child(*disk, "e")->Set("theirs", Int(3));

  mvcs::ApplyChanges(*current, changed, *disk);
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
  mvcs::ApplyChanges(*Base(), {}, *disk);
  EXPECT_EQ(disk->Find("d"), nullptr);  // nothing changed here: stays removed

  Tree deletedInside = Base();
  Child(*deletedInside, "d")->Remove("x");
  mvcs::ApplyChanges(*deletedInside, {{"d", "x"}}, *disk);
  EXPECT_EQ(disk->Find("d"), nullptr);  // a deletion inside agrees with the removal

  Tree changedInside = Base();
  Child(*changedInside, "d")->Set("y", Int(5));
  mvcs::ApplyChanges(*changedInside, {{"d", "y"}}, *disk);
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
  mvcs::ApplyChanges(*current, {{"d"}, {"a"}, {"a", "k"}}, *disk);
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
  mvcs::ApplyChanges(*current, {{"a"}, {"c"}}, *disk);
  EXPECT_EQ(IntAt(*disk, "a"), 1);
  EXPECT_EQ(IntAt(*disk, "c"), 4);
  // A node's key deleted here (its path) with a store below it before.
  Tree gone = Base();
  gone->Remove("d");
  mvcs::ApplyChanges(*gone, {{"d"}, {"d", "x"}}, *disk);
  EXPECT_EQ(disk->Find("d"), nullptr);
}

TEST(TreeMerge, AdoptKeepsDictionaryObjectsAndDetachesRemovedOnes) {
  Tree current = Base();
  PListDictionary* d = Child(*current, "d");
  PListDictionary* gone = Child(*current, "gone");
  PListDictionary* goneInner = Child(*gone, "inner");
  PListDictionary* replaced = Child(*current, "replaced");
  // Held as nodes hold their keys: they outlive their removal.
  PListDictionaryRef holders[3];
  holders[0].Assign(gone);
  holders[1].Assign(goneInner);
  holders[2].Assign(replaced);

  Tree merged = Base();
  Child(*merged, "d")->Set("x", Int(8));
  Child(*merged, "d")->Remove("y");
  merged->Set("replaced", Int(4));
  merged->Set("a", Int(6));
  merged->Remove("b");
  Child(*merged, "fresh")->Set("q", Int(1));

  mvcs::Adopt(*current, *merged);
  EXPECT_EQ(AsDictionary(*current->Find("d")), d);  // the same object, updated
  EXPECT_EQ(IntAt(*d, "x"), 8);
  EXPECT_EQ(d->Find("y"), nullptr);
  EXPECT_FALSE(d->IsDetached());
  EXPECT_EQ(current->Find("gone"), nullptr);
  EXPECT_TRUE(gone->IsDetached());
  EXPECT_TRUE(goneInner->IsDetached());
  EXPECT_TRUE(replaced->IsDetached());
  EXPECT_EQ(IntAt(*current, "replaced"), 4);
  EXPECT_EQ(IntAt(*current, "a"), 6);
  EXPECT_EQ(current->Find("b"), nullptr);
  ASSERT_NE(current->Find("fresh"), nullptr);
  EXPECT_EQ(IntAt(*AsDictionary(*current->Find("fresh")), "q"), 1);
  EXPECT_TRUE(merged->GetEntries().empty());
}

}  // namespace
