// The one way a morv-settings command fails: an exception carrying the exit
// status and the message, which main() prints as "morv-settings: <message>";
// and how messages show the names they mention.

#ifndef MORV_SETTINGS_TOOL_TOOLERROR_H
#define MORV_SETTINGS_TOOL_TOOLERROR_H

#include <stdexcept>
#include <string>

namespace morv_tool {

// Exit statuses.
constexpr int kSuccess = 0;
constexpr int kFailure = 1;     // not there, or the operation failed
constexpr int kUsageError = 2;  // the command line is wrong; nothing was done

class ToolError : public std::runtime_error {
 public:
  ToolError(int status, const std::string& message)
      : std::runtime_error(message), m_status(status) {}
  int GetStatus() const { return m_status; }

 private:
  int m_status;
};

// Shorthands for the two kinds.
inline ToolError Failure(const std::string& message) { return ToolError(kFailure, message); }
inline ToolError UsageError(const std::string& message) { return ToolError(kUsageError, message); }

// A name (product, key, type) or a word the user typed, as messages show
// it: between double quotes, unchanged. (Values read from the store are
// shown escaped, by FormatQuoted of ValueTypes.h.)
inline std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_TOOLERROR_H
