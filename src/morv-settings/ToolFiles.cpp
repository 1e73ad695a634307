// The files morv-settings reads and writes itself (see ToolFiles.h).

#include "ToolFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ToolError.h"
#include "common/FileDescriptor.h"
#include "common/Status.h"

namespace morv_tool {

namespace {

std::string NameOf(const std::string& path) {
  return path == "-" ? std::string("standard input") : path;
}

using morv_common::WriteAll;
typedef morv_common::FileDescriptor Descriptor;
typedef mvcs::Status::Operation Step;

// The failure of `step` on the file `name` with the current errno: "cannot
// read <name>: <errno's text>" (or write).
ToolError FileFailure(Step step, const std::string& name) {
  return Failure(mvcs::Status::IOError(step, name, errno).ToString());
}

// Reads `fd` to its end, at most kMaxInputSize bytes.
std::string ReadAll(int fd, const std::string& path) {
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof(buffer));
    if (got < 0) {
      if (errno == EINTR) continue;
      throw FileFailure(Step::kRead, NameOf(path));
    }
    if (got == 0) return bytes;
    if (bytes.size() + static_cast<std::size_t>(got) > kMaxInputSize) {
      throw Failure(NameOf(path) + " is larger than " + std::to_string(kMaxInputSize >> 20) +
                    " MiB, the most a settings file may hold");
    }
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
}

}  // namespace

std::string ErrnoText() { return std::strerror(errno); }

bool Exists(const std::string& path) {
  struct stat info;
  return !path.empty() && lstat(path.c_str(), &info) == 0;
}

bool FolderIsWritable(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  return access(folder.c_str(), W_OK | X_OK) == 0;
}

std::string ReadInput(const std::string& path) {
  if (path == "-") return ReadAll(0, path);
  Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (fd.Get() < 0) throw FileFailure(Step::kOpen, path);
  struct stat info;
  if (fstat(fd.Get(), &info) != 0) throw FileFailure(Step::kOpen, path);
  if (!S_ISREG(info.st_mode)) {
    throw Failure(mvcs::Status(mvcs::Status::Code::kNotAFile, Step::kOpen, path).ToString());
  }
  if (static_cast<std::size_t>(info.st_size) > kMaxInputSize) {
    throw Failure(path + " is larger than " + std::to_string(kMaxInputSize >> 20) +
                  " MiB, the most a settings file may hold");
  }
  return ReadAll(fd.Get(), path);
}

void WriteOutput(const std::string& path, const std::string& bytes) {
  if (path == "-") {
    if (!WriteAll(1, bytes.data(), bytes.size())) {
      throw FileFailure(Step::kWrite, "standard output");
    }
    return;
  }
  struct stat info;
  const bool exists = stat(path.c_str(), &info) == 0;
  if (exists && !S_ISREG(info.st_mode)) {
    // A device or a pipe: written in place.
    Descriptor fd(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (fd.Get() < 0 || !WriteAll(fd.Get(), bytes.data(), bytes.size()) || !fd.Close()) {
      throw FileFailure(Step::kWrite, path);
    }
    return;
  }
  std::string temporary = path + ".XXXXXX";
  Descriptor fd(mkostemp(&temporary[0], O_CLOEXEC));
  if (fd.Get() < 0) throw FileFailure(Step::kCreate, path);
  mode_t mode = exists ? (info.st_mode & 07777) : 0;
  if (!exists) {
    const mode_t mask = umask(0);  // reading the mask means setting it
    umask(mask);
    mode = 0666 & ~mask;
  }
  bool ok = fchmod(fd.Get(), mode) == 0 && WriteAll(fd.Get(), bytes.data(), bytes.size()) &&
            fsync(fd.Get()) == 0;
  ok = fd.Close() && ok;
  ok = ok && rename(temporary.c_str(), path.c_str()) == 0;
  if (!ok) {
    const ToolError failure = FileFailure(Step::kWrite, path);
    unlink(temporary.c_str());
    throw failure;
  }
}

}  // namespace morv_tool
