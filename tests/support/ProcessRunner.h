// Runs a program as a child process for the tests that exercise built
// programs: standard input fed from a string, standard output and error
// captured, optionally without root's privileges or with a file-size limit
// (which makes writes fail as on a full disk).

#ifndef MORV_TESTS_PROCESSRUNNER_H
#define MORV_TESTS_PROCESSRUNNER_H

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace process {

// The user and group that tests give up root's privileges for.
constexpr uid_t kNobody = 65534;

struct Options {
  std::string directory = ".";                                   // working folder
  std::vector<std::pair<std::string, std::string>> environment;  // added to the test's
  std::vector<std::string> unset;  // variables removed from the environment
  std::string input;               // standard input
  bool dropPrivileges = false;     // run as nobody when the test runs as root
  long fileSizeLimit = -1;         // RLIMIT_FSIZE in bytes, or -1
};

struct Result {
  int exitStatus = -1;      // -1 when it did not exit normally
  std::string output;       // what it wrote on standard output
  std::string errorOutput;  // what it wrote on standard error
  double seconds = 0;       // from start to exit
};

namespace detail {

// Moves what is available on `fd` into `text`; false at end of file (or
// error), when the descriptor is closed and set to -1.
inline bool Drain(int& fd, std::string& text) {
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof(buffer));
    if (got > 0) {
      text.append(buffer, static_cast<std::size_t>(got));
      continue;
    }
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    close(fd);
    fd = -1;
    return false;
  }
}

[[noreturn]] inline void StartChild(const std::vector<std::string>& arguments,
                                    const Options& options, int in, int out, int error) {
  dup2(in, 0);
  dup2(out, 1);
  dup2(error, 2);
  if (chdir(options.directory.c_str()) != 0) _exit(126);
  for (const auto& variable : options.environment) {
    setenv(variable.first.c_str(), variable.second.c_str(), 1);
  }
  for (const std::string& name : options.unset) unsetenv(name.c_str());
  if (options.fileSizeLimit >= 0) {
    signal(SIGXFSZ, SIG_IGN);  // writes past the limit fail with EFBIG instead
    const rlimit limit = {static_cast<rlim_t>(options.fileSizeLimit),
                          static_cast<rlim_t>(options.fileSizeLimit)};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  if (options.dropPrivileges && geteuid() == 0 &&
      (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
    _exit(125);
  }
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  execv(argv[0], argv.data());
  _exit(127);
}

}  // namespace detail

// Runs `arguments` (the program's path first) and waits for it to exit.
// Output is collected while it runs; once it has exited, what its pipes
// still hold is taken, without waiting for detached children that may keep
// them open.
inline Result Run(const std::vector<std::string>& arguments, const Options& options = Options()) {
  Result result;
  int in[2], out[2], error[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(error, O_CLOEXEC) != 0) {
    return result;
  }
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) detail::StartChild(arguments, options, in[0], out[1], error[1]);
  close(in[0]);
  close(out[1]);
  close(error[1]);
  int inFd = in[1], outFd = out[0], errorFd = error[0];
  for (int fd : {inFd, outFd, errorFd}) fcntl(fd, F_SETFL, O_NONBLOCK);
  signal(SIGPIPE, SIG_IGN);  // a child that does not read its input
  std::size_t written = 0;
  if (options.input.empty()) {
    close(inFd);
    inFd = -1;
  }
  int status = 0;
  bool exited = false;
  while (!exited) {
    pollfd fds[3] = {{outFd, POLLIN, 0}, {errorFd, POLLIN, 0}, {inFd, POLLOUT, 0}};
    poll(fds, 3, 10);
    if (outFd >= 0) detail::Drain(outFd, result.output);
    if (errorFd >= 0) detail::Drain(errorFd, result.errorOutput);
    if (inFd >= 0) {
      const ssize_t wrote =
          write(inFd, options.input.data() + written, options.input.size() - written);
      if (wrote > 0) written += static_cast<std::size_t>(wrote);
      if ((wrote < 0 && errno != EAGAIN && errno != EINTR) || written == options.input.size()) {
        close(inFd);
        inFd = -1;
      }
    }
    exited = waitpid(child, &status, WNOHANG) == child;
  }
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (inFd >= 0) close(inFd);
  if (outFd >= 0) {
    detail::Drain(outFd, result.output);
    if (outFd >= 0) close(outFd);
  }
  if (errorFd >= 0) {
    detail::Drain(errorFd, result.errorOutput);
    if (errorFd >= 0) close(errorFd);
  }
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

}  // namespace process

#endif  // MORV_TESTS_PROCESSRUNNER_H
