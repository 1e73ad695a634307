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

// A child process started by Start, until Finish collects it.
struct Child {
  pid_t pid = -1;
  int in = -1, out = -1, error = -1;  // our ends of its pipes (non-blocking)
  std::string input;                  // what is still to be written to it
  std::string outputSoFar;            // standard output read before Finish
  std::size_t written = 0;
  std::chrono::steady_clock::time_point start;
};

// Starts `arguments` (the program's path first) without waiting for it.
// Several children may run at once; each must be collected with Finish.
inline Child Start(const std::vector<std::string>& arguments, const Options& options = Options()) {
  Child child;
  int in[2], out[2], error[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(error, O_CLOEXEC) != 0) {
    return child;
  }
  child.start = std::chrono::steady_clock::now();
  child.pid = fork();
  if (child.pid == 0) detail::StartChild(arguments, options, in[0], out[1], error[1]);
  close(in[0]);
  close(out[1]);
  close(error[1]);
  child.in = in[1];
  child.out = out[0];
  child.error = error[0];
  for (int fd : {child.in, child.out, child.error}) fcntl(fd, F_SETFL, O_NONBLOCK);
  signal(SIGPIPE, SIG_IGN);  // a child that does not read its input
  child.input = options.input;
  if (child.input.empty()) {
    close(child.in);
    child.in = -1;
  }
  return child;
}

// What a started child has written on standard output so far (Finish
// returns it too).
inline const std::string& OutputSoFar(Child& child) {
  if (child.out >= 0) detail::Drain(child.out, child.outputSoFar);
  return child.outputSoFar;
}

// Waits for a started child to exit and returns what it did. Output is
// collected while it runs; once it has exited, what its pipes still hold is
// taken, without waiting for detached children that may keep them open.
inline Result Finish(Child& child) {
  Result result;
  if (child.pid <= 0) return result;
  result.output.swap(child.outputSoFar);
  int status = 0;
  bool exited = false;
  while (!exited) {
    pollfd fds[3] = {{child.out, POLLIN, 0}, {child.error, POLLIN, 0}, {child.in, POLLOUT, 0}};
    poll(fds, 3, 10);
    if (child.out >= 0) detail::Drain(child.out, result.output);
    if (child.error >= 0) detail::Drain(child.error, result.errorOutput);
    if (child.in >= 0) {
      const ssize_t wrote =
          write(child.in, child.input.data() + child.written, child.input.size() - child.written);
      if (wrote > 0) child.written += static_cast<std::size_t>(wrote);
      if ((wrote < 0 && errno != EAGAIN && errno != EINTR) || child.written == child.input.size()) {
        close(child.in);
        child.in = -1;
      }
    }
    exited = waitpid(child.pid, &status, WNOHANG) == child.pid;
  }
  result.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - child.start).count();
  if (child.in >= 0) close(child.in);
  for (int* fd : {&child.out, &child.error}) {
    if (*fd >= 0) detail::Drain(*fd, fd == &child.out ? result.output : result.errorOutput);
    if (*fd >= 0) close(*fd);
  }
  child.in = child.out = child.error = -1;
  child.pid = -1;
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

// Runs `arguments` (the program's path first) and waits for it to exit.
inline Result Run(const std::vector<std::string>& arguments, const Options& options = Options()) {
  Child child = Start(arguments, options);
  return Finish(child);
}

// Runs several programs at once and waits for all of them.
inline std::vector<Result> RunTogether(const std::vector<std::vector<std::string>>& programs,
                                       const Options& options = Options()) {
  std::vector<Child> children;
  for (const auto& arguments : programs) children.push_back(Start(arguments, options));
  std::vector<Result> results;
  for (Child& child : children) results.push_back(Finish(child));
  return results;
}

}  // namespace process

#endif  // MORV_TESTS_PROCESSRUNNER_H
