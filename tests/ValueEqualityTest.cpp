// When two values are the same: the store's tree (SameValue, SameTree) and
// the public SettingsValue (SameSettingsValue), reals by their bits in
// both, and where the two tell kinds apart differently.

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "MorvSettings/MorvSettingsValue.h"
#include "format/PListTree.h"

namespace {

using mvcs::PListValue;
using mvcs::SettingsValue;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

PListValue Array(bool isSet, std::initializer_list<PListValue> items) {
  auto array = std::make_shared<mvcs::PListArray>();
  array->isSet = isSet;
  array->items = items;
  return mvcs::PListArrayRef(std::move(array));
}

PListValue Dictionary(const std::string& key, PListValue value) {
  mvcs::PListDictionaryRef dictionary;
  dictionary.Assign(new mvcs::PListDictionary);
  dictionary->Set(key, std::move(value));
  return dictionary;
}

SettingsValue Integer(mvcs::MORVVALUEKIND kind, long long integer) {
  SettingsValue value;
  value.kind = kind;
  value.integer = integer;
  return value;
}

SettingsValue Real(double real) {
  SettingsValue value;
  value.kind = mvcs::MORVVALUEKIND_REAL;
  value.real = real;
  return value;
}

SettingsValue Entries(const std::string& name, SettingsValue inner) {
  SettingsValue value;
  value.kind = mvcs::MORVVALUEKIND_DICTIONARY;
  value.entries.push_back({name, std::move(inner)});
  return value;
}

TEST(ValueEquality, RealsAreTheSameByTheirBits) {
  EXPECT_TRUE(mvcs::SameBits(kNaN, kNaN));
  EXPECT_FALSE(mvcs::SameBits(0.0, -0.0));
  EXPECT_TRUE(mvcs::SameBits(1.5, 1.5));
  EXPECT_TRUE(mvcs::SameValue(mvcs::PListReal{kNaN}, mvcs::PListReal{kNaN}));
  EXPECT_FALSE(mvcs::SameValue(mvcs::PListDate{0.0}, mvcs::PListDate{-0.0}));
  EXPECT_TRUE(mvcs::SameSettingsValue(Real(kNaN), Real(kNaN)));
  EXPECT_FALSE(mvcs::SameSettingsValue(Real(0.0), Real(-0.0)));
}

TEST(ValueEquality, TreeValuesCompareKindWidthSetnessAndContent) {
  EXPECT_TRUE(mvcs::SameValue(mvcs::PListInteger{5, false}, mvcs::PListInteger{5, false}));
  EXPECT_FALSE(mvcs::SameValue(mvcs::PListInteger{-1, false}, mvcs::PListInteger{-1, true}));
  EXPECT_FALSE(mvcs::SameValue(mvcs::PListInteger{1, false}, PListValue(true)));
  EXPECT_FALSE(mvcs::SameValue(mvcs::PListReal{2.0}, mvcs::PListDate{2.0}));
  EXPECT_TRUE(mvcs::SameValue(Array(false, {std::string("a"), PListValue(true)}),
                              Array(false, {std::string("a"), PListValue(true)})));
  EXPECT_FALSE(mvcs::SameValue(Array(false, {std::string("a")}), Array(true, {std::string("a")})));
  EXPECT_FALSE(mvcs::SameValue(Array(false, {std::string("a")}),
                               Array(false, {std::string("a"), std::string("a")})));
  EXPECT_TRUE(
      mvcs::SameValue(Dictionary("k", std::string("v")), Dictionary("k", std::string("v"))));
  EXPECT_FALSE(
      mvcs::SameValue(Dictionary("k", std::string("v")), Dictionary("j", std::string("v"))));
  EXPECT_FALSE(
      mvcs::SameValue(Dictionary("k", std::string("v")), Dictionary("k", std::string("w"))));
}

TEST(ValueEquality, SettingsValuesTellIntegerKindsApartByKind) {
  // Below 2^63 an UNSIGNED_INTEGER becomes the same tree integer as the
  // INTEGER of its value, but the two SettingsValues differ.
  EXPECT_FALSE(mvcs::SameSettingsValue(Integer(mvcs::MORVVALUEKIND_INTEGER, 5),
                                       Integer(mvcs::MORVVALUEKIND_UNSIGNED_INTEGER, 5)));
  EXPECT_TRUE(mvcs::SameSettingsValue(Integer(mvcs::MORVVALUEKIND_UNSIGNED_INTEGER, -1),
                                      Integer(mvcs::MORVVALUEKIND_UNSIGNED_INTEGER, -1)));
  EXPECT_TRUE(mvcs::SameSettingsValue(SettingsValue(), SettingsValue()));
  // Only the member of the kind counts.
  SettingsValue text;
  text.kind = mvcs::MORVVALUEKIND_STRING;
  text.text = "a";
  SettingsValue same = text;
  same.integer = 9;
  EXPECT_TRUE(mvcs::SameSettingsValue(text, same));
}

TEST(ValueEquality, SettingsValuesCompareItemsAndEntriesInOrder) {
  SettingsValue ab;
  ab.kind = mvcs::MORVVALUEKIND_ARRAY;
  ab.items = {Real(1), Real(2)};
  SettingsValue ba = ab;
  std::swap(ba.items[0], ba.items[1]);
  SettingsValue set = ab;
  set.kind = mvcs::MORVVALUEKIND_SET;
  EXPECT_TRUE(mvcs::SameSettingsValue(ab, SettingsValue(ab)));
  EXPECT_FALSE(mvcs::SameSettingsValue(ab, ba));
  EXPECT_FALSE(mvcs::SameSettingsValue(ab, set));
  EXPECT_TRUE(mvcs::SameSettingsValue(Entries("k", Real(1)), Entries("k", Real(1))));
  EXPECT_FALSE(mvcs::SameSettingsValue(Entries("k", Real(1)), Entries("j", Real(1))));
  EXPECT_FALSE(mvcs::SameSettingsValue(Entries("k", Real(1)), Entries("k", Real(2))));
  EXPECT_FALSE(mvcs::SameSettingsValue(Entries("k", Real(1)), Entries("k", Entries("k", Real(1)))));
}

}  // namespace
