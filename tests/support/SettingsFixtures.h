// Small helpers for settings tests: XML property lists written as text, and
// node handles.

#ifndef MORV_TESTS_SETTINGSFIXTURES_H
#define MORV_TESTS_SETTINGSFIXTURES_H

#include <string>

#include "MorvSettings/MorvSettings.h"
#include "mvtl/RefCountedPtr.h"

namespace fixtures {

// A complete XML property list around the entries of its root dictionary.
inline std::string Plist(const std::string& rootEntries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
         "<plist version=\"1.0\"><dict>" +
         rootEntries + "</dict></plist>\n";
}

// A dictionary entry of an XML property list.
inline std::string Key(const std::string& name, const std::string& value) {
  return "<key>" + name + "</key>" + value;
}
inline std::string Dict(const std::string& entries) { return "<dict>" + entries + "</dict>"; }
inline std::string Integer(long long value) {
  return "<integer>" + std::to_string(value) + "</integer>";
}
inline std::string String(const std::string& text) { return "<string>" + text + "</string>"; }

// The node for `path` and `scope`, or null (the test then fails on use).
typedef mvtl::RefCountedPtr<mvcs::IMorvSettings> Node;
inline Node Open(const std::string& path, mvcs::MORVSETTINGSTYPE scope) {
  Node node;
  mvcs::CreateMorvSettings(path, scope, &node);
  return node;
}

}  // namespace fixtures

#endif  // MORV_TESTS_SETTINGSFIXTURES_H
