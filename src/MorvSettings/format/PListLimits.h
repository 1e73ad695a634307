// The limits that settings files are read within: what makes a file too
// large, too deep or too costly to hold in memory. The reader refuses what
// goes beyond them, and the writer writes nothing that the reader would
// refuse.

#ifndef MORVSETTINGS_FORMAT_PLISTLIMITS_H
#define MORVSETTINGS_FORMAT_PLISTLIMITS_H

#include <cstddef>
#include <cstdint>

namespace mvcs {

// Property lists larger than this are not read.
constexpr std::size_t kMaxSettingsFileSize = 64u << 20;

// The deepest nesting of containers (dictionaries, arrays, sets) that a
// settings file may have, the root counted as 1.
constexpr std::size_t kMaxNesting = 128;

// A binary property list may reference one object from many places (its
// writer shares equal strings); the tree read from it holds a copy at each
// use. The tree is budgeted in modelled bytes: kNodeCost for every value,
// plus the bytes of its text or data. The budget is a floor plus a multiple
// of the file's size: well above what any written file needs (at most a
// few times its size, with shared keys), far below any exponential blow-up.
constexpr std::uint64_t kNodeCost = 64;
constexpr std::uint64_t kBudgetFloor = 1u << 20;
constexpr std::uint64_t kBudgetPerFileByte = 64;

// The budget of the tree read from a file of `fileSize` bytes.
constexpr std::uint64_t TreeBudget(std::uint64_t fileSize) {
  return kBudgetFloor + kBudgetPerFileByte * fileSize;
}

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_PLISTLIMITS_H
