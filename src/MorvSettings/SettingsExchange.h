// Conversions between the store's tree and the public SettingsValue (see
// MorvSettingsValue.h), shared by the exchange functions and watchers.

#ifndef MORVSETTINGS_SETTINGSEXCHANGE_H
#define MORVSETTINGS_SETTINGSEXCHANGE_H

#include "MorvSettings/MorvSettingsValue.h"
#include "format/PListTree.h"

namespace mvcs {

// The value (with everything below it) that the store's `value` holds. (The
// other way, SettingsValue to tree, is WriteSettingsTree's own.)
SettingsValue ToSettingsValue(const PListValue& value);

// Lays the dictionary `layer` under the DICTIONARY `view` (made one if it is
// anything else): `view` keeps its entries, takes the layer's where it has
// none, and its dictionaries take the layer's dictionaries' entries the same
// way. How fetches see a per-user key over the shared one. A null layer
// changes nothing.
void OverlayDictionary(const PListDictionary* layer, SettingsValue& view);

}  // namespace mvcs

#endif  // MORVSETTINGS_SETTINGSEXCHANGE_H
