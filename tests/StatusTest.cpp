// The status that the store's file and format functions report: what a
// success costs, what a failure carries, and how it reads in a message.

#include "common/Status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <utility>

namespace {

using mvcs::Status;
typedef Status::Code Code;
typedef Status::Operation Step;

TEST(Status, SuccessIsOneNullPointer) {
  EXPECT_EQ(sizeof(Status), sizeof(void*));
  const Status ok;
  EXPECT_TRUE(ok.ok());
  EXPECT_TRUE(Status::OK().ok());
  EXPECT_EQ(ok.code(), Code::kOk);
  EXPECT_EQ(ok.operation(), Step::kNone);
  EXPECT_EQ(ok.path(), "");
  EXPECT_EQ(ok.error(), 0);
  EXPECT_EQ(ok.message(), "");
  EXPECT_FALSE(ok.IsNotFound());
  EXPECT_FALSE(ok.IsRefused());
  EXPECT_EQ(ok.Reason(), "");
  EXPECT_EQ(ok.ToString(), "OK");
}

TEST(Status, FailureCarriesStepFileErrnoAndMessage) {
  const Status failed = Status::IOError(Step::kSync, "/a/b.plist", EIO);
  EXPECT_FALSE(failed.ok());
  EXPECT_EQ(failed.code(), Code::kIOError);
  EXPECT_EQ(failed.operation(), Step::kSync);
  EXPECT_EQ(failed.path(), "/a/b.plist");
  EXPECT_EQ(failed.error(), EIO);
  EXPECT_EQ(failed.message(), "");
  EXPECT_EQ(failed.Reason(), std::strerror(EIO));
  EXPECT_EQ(failed.ToString(), std::string("cannot write /a/b.plist: ") + std::strerror(EIO));

  const Status told(Code::kIOError, Step::kLock, "/a/b.plist", EWOULDBLOCK, "held too long");
  EXPECT_EQ(told.error(), EWOULDBLOCK);
  EXPECT_EQ(told.message(), "held too long");
  EXPECT_EQ(told.ToString(), "cannot write /a/b.plist: held too long");  // no errno text
}

TEST(Status, MessagesSayReadOrWriteByTheStep) {
  for (Step step : {Step::kOpen, Step::kRead, Step::kParse}) {
    EXPECT_EQ(Status::IOError(step, "/f", EACCES).ToString(),
              std::string("cannot read /f: ") + std::strerror(EACCES));
  }
  for (Step step : {Step::kCreate, Step::kWrite, Step::kSync, Step::kRename, Step::kLock,
                    Step::kMoveAside, Step::kSerialise}) {
    EXPECT_EQ(Status::IOError(step, "/f", ENOSPC).ToString(),
              std::string("cannot write /f: ") + std::strerror(ENOSPC));
  }
  EXPECT_EQ(Status::IOError(Step::kNone, "/f", EIO).ToString(),
            std::string("/f: ") + std::strerror(EIO));
}

TEST(Status, WithoutErrnoOrMessageTheCodeIsTheReason) {
  EXPECT_EQ(Status(Code::kNotAFile, Step::kOpen, "/dir").ToString(),
            "cannot read /dir: not a regular file");
  const Status refused = Status::Refused(Code::kNotADictionary, Step::kParse);
  EXPECT_EQ(refused.path(), "");
  EXPECT_EQ(refused.error(), 0);
  EXPECT_EQ(refused.ToString(), "a property list without a dictionary at its root");
}

TEST(Status, OnlyTheFormatsRefusalsAreRefusals) {
  for (Code code : {Code::kNotAPropertyList, Code::kNotADictionary, Code::kTooLarge, Code::kTooDeep,
                    Code::kBadText}) {
    EXPECT_TRUE(Status::Refused(code, Step::kParse).IsRefused()) << Status::Describe(code);
  }
  EXPECT_FALSE(Status(Code::kNotFound, Step::kOpen, "/f", ENOENT).IsRefused());
  EXPECT_TRUE(Status(Code::kNotFound, Step::kOpen, "/f", ENOENT).IsNotFound());
  EXPECT_FALSE(Status::IOError(Step::kRead, "/f", EIO).IsRefused());
  EXPECT_FALSE(Status(Code::kNotAFile, Step::kOpen, "/f").IsRefused());
}

TEST(Status, EveryCodeHasItsOwnDescription) {
  std::set<std::string> descriptions;
  for (Code code :
       {Code::kOk, Code::kNotFound, Code::kIOError, Code::kNotAFile, Code::kNotAPropertyList,
        Code::kNotADictionary, Code::kTooLarge, Code::kTooDeep, Code::kBadText}) {
    descriptions.insert(Status::Describe(code));
  }
  EXPECT_EQ(descriptions.size(), 9u);
  EXPECT_STREQ(Status::Describe(Code::kTooDeep), "nested too deep");
  // Refused text may be UTF-16 or ASCII in a binary file: the reason names
  // no one encoding.
  EXPECT_STREQ(Status::Describe(Code::kBadText),
               "holding a key or string that is not well-formed text");
}

TEST(Status, WithPathNamesTheFileOfAFailureOnly) {
  const Status refused = Status::Refused(Code::kTooDeep, Step::kParse);
  const Status named = refused.WithPath("/x.plist");
  EXPECT_EQ(named.path(), "/x.plist");
  EXPECT_EQ(named.code(), Code::kTooDeep);
  EXPECT_EQ(named.ToString(), "cannot read /x.plist: nested too deep");
  EXPECT_EQ(refused.path(), "");  // the original is unchanged
  EXPECT_TRUE(Status::OK().WithPath("/x.plist").ok());
  EXPECT_EQ(Status::OK().WithPath("/x.plist").path(), "");
}

TEST(Status, CopiesAreDeepAndMovesLeaveSuccess) {
  Status original = Status::IOError(Step::kWrite, "/one", ENOSPC);
  Status copy(original);
  copy = copy.WithPath("/two");
  EXPECT_EQ(original.path(), "/one");
  EXPECT_EQ(copy.path(), "/two");
  copy = original;
  EXPECT_EQ(copy.path(), "/one");
  copy = Status();
  EXPECT_TRUE(copy.ok());
  EXPECT_FALSE(original.ok());

  Status moved(std::move(original));
  EXPECT_EQ(moved.error(), ENOSPC);
  EXPECT_TRUE(original.ok());  // as documented
  original = std::move(moved);
  EXPECT_EQ(original.path(), "/one");
}

}  // namespace
