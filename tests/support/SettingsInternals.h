// Reaching the implementation behind a settings node handle, for tests that
// check the store's internal state (its files, parents and counts).

#ifndef MORV_TESTS_SETTINGSINTERNALS_H
#define MORV_TESTS_SETTINGSINTERNALS_H

#include "MorvSettingsNode.h"

namespace fixtures {

// The node object behind `node` (either pointer kind), or null for a null handle.
template <class Handle>
mvcs::MorvSettings* Impl(const Handle& node) {
  return dynamic_cast<mvcs::MorvSettings*>(node.Get());
}

}  // namespace fixtures

#endif  // MORV_TESTS_SETTINGSINTERNALS_H
