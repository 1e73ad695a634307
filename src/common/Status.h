// Status: how an operation on a settings file ended. Success, or what went
// wrong: the kind of failure, the step that failed (opening, reading,
// writing, flushing, renaming, locking, parsing, serialising), the file, the
// errno and a message. The file functions of the store, the property-list
// format and the settings tool report through it; the public results
// (SaveResult, MORVFILESTATE, MORVIMPORTRESULT) are made from it.
//
// Header-only, so that every part of the project can use it: the format's
// folder, the store and the tool. A successful status is one null pointer;
// only a failure allocates.

#ifndef MORV_COMMON_STATUS_H
#define MORV_COMMON_STATUS_H

#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace mvcs {

class Status {
 public:
  // The kind of failure.
  enum class Code : unsigned char {
    kOk = 0,
    kNotFound,  // nothing at the path (open failed with ENOENT or ENOTDIR)
    kIOError,   // a system call failed; error() holds its errno
    kNotAFile,  // a folder, device, FIFO or socket where a regular file belongs
    // Refusals: the bytes were read completely (or the tree was given whole)
    // and the format refused them. A file refused so holds something the
    // store cannot use, however often it is read again; every other failure
    // may pass on another try. A file over the size limit counts as refused
    // without being read: the format refuses any larger bytes.
    kNotAPropertyList,  // neither format, or a damaged property list
    kNotADictionary,    // a property list without a dictionary at its root
    kTooLarge,          // over the size limit, or a tree far larger than its bytes
    kTooDeep,           // containers nested deeper than the limit
    kBadText,           // a key or string that is not well-formed text (ill-formed
                        // UTF-8, an unpaired UTF-16 surrogate, a byte above 0x7F
                        // in an ASCII string)
  };

  // The step that failed.
  enum class Operation : unsigned char {
    kNone = 0,
    kOpen,       // opening the file to read it (or checking what it is)
    kRead,       // reading its bytes
    kCreate,     // making a new file beside it (the temporary file of a write)
    kWrite,      // writing bytes (or setting the new file's mode)
    kSync,       // flushing it to disk (fsync)
    kRename,     // renaming the new file over it
    kLock,       // taking its lock
    kMoveAside,  // renaming an unreadable file out of the way
    kParse,      // turning bytes into a tree
    kSerialise,  // turning a tree into bytes
  };

  // Success.
  Status() noexcept = default;

  // A failure. `code` is not kOk. `path` may be empty (the format knows no
  // files), `error` is 0 when no system call failed, and `message`, when not
  // empty, replaces the errno's text and the code's description in
  // ToString().
  Status(Code code, Operation operation, std::string path, int error = 0,
         std::string message = std::string())
      : m_state(new State{code, operation, error, std::move(path), std::move(message)}) {}

  Status(const Status& other) : m_state(other.m_state ? new State(*other.m_state) : nullptr) {}
  Status& operator=(const Status& other) {
    if (this != &other) m_state.reset(other.m_state ? new State(*other.m_state) : nullptr);
    return *this;
  }
  // A moved-from status is success.
  Status(Status&&) noexcept = default;
  Status& operator=(Status&&) noexcept = default;

  static Status OK() { return Status(); }
  // A failed system call: kIOError with its errno.
  static Status IOError(Operation operation, std::string path, int error,
                        std::string message = std::string()) {
    return Status(Code::kIOError, operation, std::move(path), error, std::move(message));
  }
  // A refusal of the format (`code` is one of the refusals above).
  static Status Refused(Code code, Operation operation, std::string message = std::string()) {
    return Status(code, operation, std::string(), 0, std::move(message));
  }

  bool ok() const { return m_state == nullptr; }
  bool IsNotFound() const { return code() == Code::kNotFound; }
  // Whether the format refused the bytes (see Code): false for I/O failures.
  // (The refusals are the last codes.)
  bool IsRefused() const { return code() >= Code::kNotAPropertyList; }

  Code code() const { return m_state ? m_state->code : Code::kOk; }
  Operation operation() const { return m_state ? m_state->operation : Operation::kNone; }
  // The file; empty on success and when none was named.
  const std::string& path() const { return m_state ? m_state->path : Empty(); }
  // The errno of the failed system call; 0 on success and when none failed.
  int error() const { return m_state ? m_state->error : 0; }
  // The message given with the failure; empty when none was.
  const std::string& message() const { return m_state ? m_state->message : Empty(); }

  // The same failure with `path` as its file (success stays success), for
  // the caller who knows the file that the bytes came from.
  Status WithPath(std::string path) const {
    Status named(*this);
    if (named.m_state) named.m_state->path = std::move(path);
    return named;
  }

  // Why, in words: the message when there is one, else the errno's text
  // ("Permission denied"), else the code's description ("not a property
  // list (or a damaged one)"). Empty on success.
  std::string Reason() const;

  // For messages: "OK" on success; otherwise "cannot read <path>: <reason>"
  // for the steps of reading (open, read, parse), "cannot write <path>:
  // <reason>" for the others (all part of writing the file), "<path>:
  // <reason>" with no step, and the reason alone when there is no path.
  std::string ToString() const;

  // A short description of a code ("not a regular file").
  static const char* Describe(Code code);

 private:
  struct State {
    Code code;
    Operation operation;
    int error;
    std::string path;
    std::string message;
  };

  static const std::string& Empty() {
    static const std::string empty;
    return empty;
  }

  std::unique_ptr<State> m_state;  // null on success
};

inline const char* Status::Describe(Code code) {
  switch (code) {
    case Code::kOk:
      return "OK";
    case Code::kNotFound:
      return "no such file";
    case Code::kIOError:
      return "input/output error";
    case Code::kNotAFile:
      return "not a regular file";
    case Code::kNotAPropertyList:
      return "not a property list (or a damaged one)";
    case Code::kNotADictionary:
      return "a property list without a dictionary at its root";
    case Code::kTooLarge:
      return "too large";
    case Code::kTooDeep:
      return "nested too deep";
    case Code::kBadText:
      return "holding a key or string that is not well-formed text";
  }
  return "input/output error";
}

inline std::string Status::Reason() const {
  if (ok()) return std::string();
  if (!m_state->message.empty()) return m_state->message;
  if (m_state->error != 0) return std::strerror(m_state->error);
  return Describe(m_state->code);
}

inline std::string Status::ToString() const {
  if (ok()) return "OK";
  if (m_state->path.empty()) return Reason();
  const Operation step = m_state->operation;
  const char* what = "cannot write ";
  if (step == Operation::kNone) {
    what = "";
  } else if (step == Operation::kOpen || step == Operation::kRead || step == Operation::kParse) {
    what = "cannot read ";
  }
  return what + m_state->path + ": " + Reason();
}

}  // namespace mvcs

#endif  // MORV_COMMON_STATUS_H
