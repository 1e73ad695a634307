// A node's settings as a tree of values of every kind a settings file holds,
// out and in: for programs that show, compare or exchange whole trees (the
// settings tool's JSON, watchers' reports), where the typed operations of
// MorvSettings.h read one value of the kinds the store writes.

#ifndef MORVSETTINGS_MORVSETTINGSVALUE_H
#define MORVSETTINGS_MORVSETTINGSVALUE_H

#include <string>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsExport.h"
#include "MorvSettings/MorvSettingsUtility.h"

namespace mvcs {

struct SettingsEntry;

// One value, with everything below it. `kind` says which member holds it:
//   INTEGER           integer (signed 64 bits)
//   UNSIGNED_INTEGER  integer: the 64 bits of a value from 2^63 to 2^64 - 1
//   REAL              real
//   BOOLEAN           boolean
//   STRING            text (well-formed UTF-8; U+0000 may be part of it)
//   DATA              data
//   DATE              real: seconds after 2001-01-01T00:00:00Z
//   UID               uid
//   ARRAY, SET        items (a set's order means nothing)
//   DICTIONARY        entries, in key order (bytewise), each key once (keys
//                     are well-formed UTF-8, and may hold U+0000 too)
//   NONE              nothing (no entry)
struct SettingsValue {
  MORVVALUEKIND kind = MORVVALUEKIND_NONE;
  long long integer = 0;
  double real = 0;
  bool boolean = false;
  std::string text;
  std::vector<unsigned char> data;
  unsigned long long uid = 0;
  std::vector<SettingsValue> items;
  std::vector<SettingsEntry> entries;
};

struct SettingsEntry {
  std::string name;
  SettingsValue value;
};

// Whether two values are the same (reals and dates compared by their bits).
MORVSETTINGS_API bool SameSettingsValue(const SettingsValue& a, const SettingsValue& b);

// The node's entries as a DICTIONARY value: its own dictionary, or with
// `withFallback`, for the USER_WITH_SHARED scopes, what its fetches see (its own
// entries over the shared file's, dictionaries of both merged the same
// way). Every key and string is whole, U+0000 and what follows it included
// (unlike the C-string names and values of MorvSettings.h). Opens the node
// if needed. False, with `tree` untouched, when the node is not this
// library's or does not open.
MORVSETTINGS_API bool ReadSettingsTree(IMorvSettings* node, bool withFallback, SettingsValue& tree);

// Merges the DICTIONARY value `tree` into the node's own dictionary, as
// ImportSettings merges a property list: dictionaries into the child keys
// of their names, every other entry replacing the entry of its name,
// entries it does not name kept. A key it makes where there was none
// merges, at the save, with a key of that name that another process made
// meanwhile (as keys that a creating scope makes do). The change is
// written when the node closes (or by SaveSettings). Keys and strings may
// hold U+0000: the tree
// goes in whole, as ReadSettingsTree gives it. MORVIMPORT_NOT_A_SETTINGS_FILE
// when `tree` is not a dictionary or holds what a settings file cannot
// (a key or string that is not well-formed UTF-8, NONE values, a
// DICTIONARY with a key twice); MORVIMPORT_TOO_DEEP, MORVIMPORT_NO_NODE as
// for ImportSettings.
// On any result but MORVIMPORT_OK nothing has changed.
MORVSETTINGS_API MORVIMPORTRESULT WriteSettingsTree(IMorvSettings* node, const SettingsValue& tree);

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVSETTINGSVALUE_H
