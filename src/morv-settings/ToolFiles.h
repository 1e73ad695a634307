// The files morv-settings reads and writes itself (values from files,
// imports, exports), standard input and output included: the tool's only
// file-system code.

#ifndef MORV_SETTINGS_TOOL_TOOLFILES_H
#define MORV_SETTINGS_TOOL_TOOLFILES_H

#include <cstddef>
#include <string>

namespace morv_tool {

// The largest file the tool reads: as large as a settings file may be.
constexpr std::size_t kMaxInputSize = 64u << 20;

// The bytes of the file at `path` ("-" for standard input). Throws a
// failure naming the file when it cannot be read, is not a regular file
// (or standard input), or is larger than kMaxInputSize.
std::string ReadInput(const std::string& path);

// Writes `bytes` to the file at `path` ("-" for standard output). A regular
// file is replaced atomically (a temporary file beside it, then a rename),
// so that a failed write leaves the old one whole. Throws a failure naming
// the file.
void WriteOutput(const std::string& path, const std::string& bytes);

// Whether something exists at `path` (false also when its folder cannot
// be searched).
bool Exists(const std::string& path);

// Whether this process may add and rename files in the folder of `path`.
bool FolderIsWritable(const std::string& path);

// The text of the current errno ("Permission denied").
std::string ErrnoText();

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_TOOLFILES_H
