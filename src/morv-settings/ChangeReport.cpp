// How morv-settings reports a change to an entry (see ChangeReport.h).

#include "ChangeReport.h"

#include <string>

#include "JsonValues.h"
#include "ValueTypes.h"

namespace morv_tool {

namespace {

// A value as the change lines show it: "(integer) 8080", "(string) \"x\"";
// without `withValue`, "(integer)".
std::string Shown(const mvcs::SettingsValue& value, bool withValue) {
  const std::string kind = "(" + std::string(KindName(value.kind)) + ")";
  if (!withValue) return kind;
  std::string text;
  switch (value.kind) {
    case mvcs::MORVVALUEKIND_INTEGER:
      text = std::to_string(value.integer);
      break;
    case mvcs::MORVVALUEKIND_UNSIGNED_INTEGER:
      text = std::to_string(static_cast<unsigned long long>(value.integer));
      break;
    case mvcs::MORVVALUEKIND_REAL:
      text = FormatQuoted(Value(value.real));
      break;
    case mvcs::MORVVALUEKIND_BOOLEAN:
      text = value.boolean ? "true" : "false";
      break;
    case mvcs::MORVVALUEKIND_STRING:
      text = FormatQuoted(Value(value.text));
      break;
    case mvcs::MORVVALUEKIND_DATA:
      text = FormatQuoted(Value(Bytes(value.data)));
      break;
    case mvcs::MORVVALUEKIND_DATE:
      // The calendar form, or the JSON of a date that has none.
      text = FormatDate(value.real);
      if (text.empty()) text = ToJson(value).dump();
      break;
    default:
      text = ToJson(value).dump();  // arrays, sets, UIDs, keys replaced by values
  }
  return kind + " " + text;
}

// The lines of an added or removed entry: a key as each value below it
// (an empty key as itself).
void PrintEach(const std::string& verb, const std::string& path, const mvcs::SettingsValue& value,
               bool values, std::ostream& out) {
  if (value.kind == mvcs::MORVVALUEKIND_DICTIONARY) {
    if (value.entries.empty()) out << verb << " " << path << "/ (key)\n";
    for (const mvcs::SettingsEntry& entry : value.entries) {
      PrintEach(verb, path + "/" + entry.name, entry.value, values, out);
    }
    return;
  }
  out << verb << " " << path << " " << Shown(value, values) << "\n";
}

}  // namespace

void PrintChangeLines(const mvcs::SettingsChange& change, bool values, std::ostream& out) {
  switch (change.type) {
    case mvcs::SettingsChange::ADDED:
      PrintEach("added", change.path, change.newValue, values, out);
      break;
    case mvcs::SettingsChange::REMOVED:
      PrintEach("removed", change.path, change.oldValue, values, out);
      break;
    default:
      out << "changed " << change.path << ": " << Shown(change.oldValue, values) << " -> "
          << Shown(change.newValue, values) << "\n";
  }
}

nlohmann::json ChangeJson(const mvcs::SettingsChange& change) {
  nlohmann::json line = {{"path", change.path}};
  switch (change.type) {
    case mvcs::SettingsChange::ADDED:
      line["change"] = "added";
      line["new"] = ToJson(change.newValue);
      break;
    case mvcs::SettingsChange::REMOVED:
      line["change"] = "removed";
      line["old"] = ToJson(change.oldValue);
      break;
    default:
      line["change"] = "changed";
      line["old"] = ToJson(change.oldValue);
      line["new"] = ToJson(change.newValue);
  }
  return line;
}

}  // namespace morv_tool
