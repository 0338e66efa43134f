// The texts that the host has for failures of the operating system.
#include <kvfile/platform/host.h>
#include <kvfile/platform/syserror.h>

#include <gtest/gtest.h>

#include <netdb.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

std::string textOf(int errNum) {
  char text[256];
  HostStrerror(errNum, text, sizeof text);
  return text;
}

TEST(ErrorText, namesNumberNameAndMeaning) {
  EXPECT_EQ(textOf(ENOENT), "errno=2,ENOENT, No such file or directory");
  EXPECT_EQ(textOf(EINVAL), "errno=22,EINVAL, Invalid argument");
  EXPECT_EQ(textOf(ESPIPE), "errno=29,ESPIPE, Illegal seek");
}

TEST(ErrorText, hasTheSameFormForNoErrorAndForUnknownNumbers) {
  EXPECT_EQ(textOf(0), "errno=0,NONE, No error was reported");
  EXPECT_EQ(textOf(9999), "errno=9999,UNKNOWN, Unknown error");
  EXPECT_EQ(textOf(-1), "errno=-1,UNKNOWN, Unknown error");
}

TEST(ErrorText, hasANameAndAMeaningForEveryNumberOfTheSystem) {
  for (int errNum = 1; errNum < 134; ++errNum) {
    if (strerrorname_np(errNum) == nullptr) continue;
    const std::string expected = "errno=" + std::to_string(errNum) + "," + strerrorname_np(errNum) +
                                 ", " + strerrordesc_np(errNum);
    EXPECT_EQ(textOf(errNum), expected);
  }
}

TEST(ErrorText, isCutToTheBuffer) {
  char text[12];
  std::memset(text, 'x', sizeof text);
  HostStrerror(ENOENT, text, 8);
  EXPECT_STREQ(text, "errno=2");
  EXPECT_EQ(text[8], 'x');
  HostStrerror(ENOENT, text, 0);
  EXPECT_EQ(text[0], 'e');
}

TEST(ErrorText, ofAHostRecordIsThatOfItsNumber) {
  const HostErrSType err = {EACCES};
  char text[256];
  HostGetErrMsg(&err, text, sizeof text);
  EXPECT_STREQ(text, "errno=13,EACCES, Permission denied");
}

TEST(ErrorText, ofASystemRecordIsFinishedOnce) {
  SysErrorSType err;
  err.initialize();
  err.errCode = static_cast<SysErrorCodeEType>(ENOENT);
  err.categ = SYS_ERROR_CATEG_ERRNO;
  std::strcpy(err.errMsg, "notes.txt");
  err.finishMsg();
  EXPECT_STREQ(err.errMsg, "errno=2,ENOENT, No such file or directory : notes.txt");
  EXPECT_TRUE(err.errMsgFinished);
  err.finishMsg();
  EXPECT_STREQ(err.errMsg, "errno=2,ENOENT, No such file or directory : notes.txt");
}

TEST(ErrorText, ofAnEmptySystemRecordIsThatOfNoError) {
  SysErrorSType err;
  err.initialize();
  err.finishMsg();
  EXPECT_STREQ(err.errMsg, "errno=0,NONE, No error was reported");
}

TEST(ErrorText, ofAnAddressLookUpNamesItsNumber) {
  SysErrorSType err;
  err.initialize();
  err.eaiError = EAI_NONAME;
  err.categ = SYS_ERROR_CATEG_EAI;
  err.finishMsg();
  EXPECT_STREQ(err.errMsg, "eaiError=-2, Name or service not known");
}

TEST(ErrorText, ofASystemRecordWithALongSubjectStaysInItsBuffer) {
  SysErrorSType err;
  err.initialize();
  err.errCode = static_cast<SysErrorCodeEType>(ENOENT);
  std::memset(err.errMsg, 'p', sizeof err.errMsg - 1);
  err.errMsg[sizeof err.errMsg - 1] = '\0';
  err.finishMsg();
  EXPECT_EQ(std::strlen(err.errMsg), sizeof err.errMsg - 1);
  EXPECT_EQ(std::string(err.errMsg).rfind("errno=2,ENOENT, ", 0), 0U);
}

}  // namespace
