// Faults befall the call that they name, and look like real ones.
#include "seam/seam_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <csetjmp>
#include <fstream>
#include <string>

namespace {

using seamtest::fault;
using seamtest::SeamTest;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class Faults : public SeamTest {
 protected:
  void SetUp() override {
    SeamTest::SetUp();
    std::ofstream(path("file")) << "0123456789\nabc\n";
    stream_ = fopen(path("file").c_str(), "r+");
    ASSERT_NE(stream_, nullptr);
    fd_ = fileno(stream_);
  }

  void TearDown() override {
    if (stream_ != nullptr) fclose(stream_);
    SeamTest::TearDown();
  }

  FILE* stream_ = nullptr;
  int fd_ = -1;
  std::array<char, 64> buffer_{};
};

TEST_F(Faults, BefallTheNthCallOfTheName) {
  fault("lseek:2:EIO");
  EXPECT_EQ(seam_lseek(fd_, 1, SEEK_SET), 1);
  EXPECT_EQ(seam_HostReadFile_(fd_, buffer_.data(), 1), 1);
  errno = 0;
  EXPECT_EQ(seam_lseek(fd_, 5, SEEK_SET), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(lseek(fd_, 0, SEEK_CUR), 2) << "the call was made";
  EXPECT_EQ(seam_lseek(fd_, 5, SEEK_SET), 5);
  EXPECT_EQ(seam::faultsFired(), 1);
}

TEST_F(Faults, BefallEveryLaterCallWithAPlus) {
  fault("lseek:2+:ESPIPE");
  EXPECT_EQ(seam_lseek(fd_, 1, SEEK_SET), 1);
  for (int i = 0; i < 3; i++) EXPECT_EQ(seam_lseek(fd_, 1, SEEK_SET), -1);
  EXPECT_EQ(seam::faultsFired(), 3);
  seam::clearFaults();
  EXPECT_EQ(seam_lseek(fd_, 1, SEEK_SET), 1);
  EXPECT_EQ(seam::faultsFired(), 3) << "the count stays until the next schedule";
  fault("lseek:1:EIO");
  EXPECT_EQ(seam::faultsFired(), 0);
}

TEST_F(Faults, OfAnyNameCountTheCallsThatTheyCanBefall) {
  fault("*:2:EIO");
  seam_UtlFree(nullptr);  // cannot fail
  EXPECT_EQ(seam_lseek(fd_, 1, SEEK_SET), 1);
  seam_UtlFree(nullptr);
  EXPECT_EQ(seam_HostReadFile_(fd_, buffer_.data(), 1), -1);
  EXPECT_EQ(errno, EIO);
}

TEST_F(Faults, SeveralCountEachForItself) {
  fault("lseek:1:EIO");
  fault("lseek:2:EBADF");
  EXPECT_EQ(seam_lseek(fd_, 0, SEEK_CUR), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(seam_lseek(fd_, 0, SEEK_CUR), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(seam_lseek(fd_, 0, SEEK_CUR), 0);
}

TEST_F(Faults, AreMarkedInTheRecord) {
  seam::start();
  fault("lseek:1:EIO");
  seam_lseek(fd_, 0, SEEK_CUR);
  seam_lseek(fd_, 0, SEEK_CUR);
  ASSERT_THAT(seam::calls(), SizeIs(2));
  EXPECT_THAT(seam::formatCall(seam::calls()[0], false),
              HasSubstr("SEEK_CUR) = -1 EIO (Input/output error) [injected]"));
  EXPECT_FALSE(seam::calls()[1].injected);
}

// ---- kinds ----

TEST_F(Faults, ShortTransfersMoveAtMostSoMuch) {
  seam::start();
  fault("HostReadFile_:1+:short=3");
  EXPECT_EQ(seam_HostReadFile_(fd_, buffer_.data(), 64), 3);
  EXPECT_EQ(std::string(buffer_.data(), 3), "012");
  EXPECT_TRUE(seam::calls().back().injected);
  EXPECT_EQ(seam_HostReadFile_(fd_, buffer_.data(), 2), 2);
  EXPECT_FALSE(seam::calls().back().injected) << "the call asked for less";
  fault("HostWriteFile_:1:short=1");
  EXPECT_EQ(seam_HostWriteFile_(fd_, "xyz", 3), 1);
}

TEST_F(Faults, ShortLinesHoldAtMostSoManyBytes) {
  fault("UnixIoFgets_:1:short=4");
  EXPECT_EQ(seam_UnixIoFgets_(buffer_.data(), buffer_.size(), stream_), 0);
  EXPECT_STREQ(buffer_.data(), "0123");
  EXPECT_EQ(seam_UnixIoFgets_(buffer_.data(), buffer_.size(), stream_), 0);
  EXPECT_STREQ(buffer_.data(), "456789\n");
}

TEST_F(Faults, InterruptsAnswerMinusTwo) {
  fault("HostReadFile_:1:interrupt");
  fault("UnixIoFgets_:1:interrupt");
  EXPECT_EQ(seam_HostReadFile_(fd_, buffer_.data(), 1), -2);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(seam_UnixIoFgets_(buffer_.data(), buffer_.size(), stream_), -2);
}

TEST_F(Faults, ResultsAreAnsweredAsTheyStand) {
  fault("HostReadFile_:1:result=4097");
  fault("HostLockFile:1:result=0");
  EXPECT_EQ(seam_HostReadFile_(fd_, buffer_.data(), 1), 4097);
  SysErrorSType error;
  error.initialize();
  EXPECT_EQ(seam_HostLockFile(stream_, 0, 0, 1, 0, &error), 0);
  EXPECT_STREQ(error.errMsg, "");
}

TEST_F(Faults, MemoryRunsOut) {
  fault("*:1+:nomem");
  EXPECT_EQ(seam_UtlMalloc(8, 1), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(seam_KciOopMapCreate(), nullptr);
  HostErrSType error;
  error.initialize();
  EXPECT_EQ(seam_HostOpenFile(path("file").c_str(), "r", &error, 1), nullptr);
  EXPECT_EQ(error.theErrno, ENOMEM);
  KciOopMapType* map = KciOopMapCreate();
  int status = 0;
  seam_KciOopMapEntryAdd(map, OOP_TRUE, nullptr, &status);
  EXPECT_NE(status, 0);
  EXPECT_EQ(KciOopMapEntryFind(map, OOP_TRUE), nullptr);
  KciOopMapDestroy(map);
}

TEST_F(Faults, ClosesAreMadeAllTheSame) {
  seam::start();
  fault("fclose:1:ENOSPC");
  EXPECT_EQ(seam_fclose(stream_), EOF);
  EXPECT_EQ(errno, ENOSPC);
  stream_ = nullptr;
  EXPECT_EQ(fcntl(fd_, F_GETFD), -1) << "the descriptor leaked";
  EXPECT_EQ(seam::calls().back().errnoAfter, ENOSPC);
}

// ---- what a failing function fills ----

TEST_F(Faults, FillTheHostsErrorRecord) {
  fault("*:1+:EACCES");
  HostErrSType error;
  error.initialize();
  EXPECT_FALSE(seam_HostRemoveSingleFile(path("file").c_str(), 1, &error));
  EXPECT_EQ(error.theErrno, EACCES);
  EXPECT_TRUE(std::filesystem::exists(path("file")));
  error.initialize();
  EXPECT_FALSE(seam_HostCreateDirectory(path("d").c_str(), &error, -1));
  EXPECT_EQ(error.theErrno, EACCES);
  error.initialize();
  EXPECT_EQ(seam_HostFileType(path("file").c_str(), &error), HOST_FILE_KIND_ERROR);
  EXPECT_EQ(error.theErrno, EACCES);
  error.initialize();
  int64 size = 0;
  int exists = -1;
  EXPECT_FALSE(seam_HostFileExistSize(path("file").c_str(), &size, &exists, &error, nullptr, 0));
  EXPECT_EQ(error.theErrno, EACCES);
  EXPECT_EQ(exists, 1);
}

TEST_F(Faults, TellThatAFileIsMissing) {
  fault("HostFileExistSize:1:ENOENT");
  HostErrSType error;
  error.initialize();
  int64 size = 0;
  int exists = -1;
  EXPECT_FALSE(seam_HostFileExistSize(path("file").c_str(), &size, &exists, &error, buffer_.data(),
                                      buffer_.size()));
  EXPECT_EQ(exists, 0);
  EXPECT_STRNE(buffer_.data(), "");
}

TEST_F(Faults, FillTheSystemLayersRecord) {
  fault("*:1+:EDEADLK");
  SysErrorSType error;
  error.initialize();
  const int result = seam_HostLockFile(stream_, 1, 0, 1, 0, &error);
  EXPECT_NE(result, 0);
  EXPECT_NE(result, 1);
  EXPECT_EQ(error.errCode, EDEADLK);
  EXPECT_EQ(error.categ, SYS_ERROR_CATEG_ERRNO);
  EXPECT_THAT(error.errMsg, HasSubstr("EDEADLK"));
  int64 time = 0;
  error.initialize();
  EXPECT_FALSE(seam_UtlGetFileModTime(path("file").c_str(), &time, &error));
  EXPECT_EQ(error.errCode, EDEADLK);
}

TEST_F(Faults, LeaveATextOfTheFailure) {
  fault("*:1+:EOVERFLOW");
  struct stat64 description;
  EXPECT_FALSE(seam_UnixIoFstat(fd_, &description, buffer_.data(), buffer_.size()));
  EXPECT_STRNE(buffer_.data(), "");
  buffer_.fill('\0');
  struct flock64 lock;
  const int result =
      seam_HostLockFileQuery(stream_, 1, 0, 1, &lock, buffer_.data(), buffer_.size());
  EXPECT_NE(result, 1);
  EXPECT_STRNE(buffer_.data(), "");
}

BoolType countEntry(const char*, const char*, const char*, HostDirClientDataType* data) {
  ++*static_cast<int*>(data->clientData);
  return TRUE;
}

TEST_F(Faults, StopAWalkBeforeItsFirstEntry) {
  fault("HostDirectory:1:EIO");
  int entries = 0;
  HostDirClientDataType data(nullptr, nullptr, OOP_NIL, FALSE, TRUE, FALSE);
  data.clientData = &entries;
  EXPECT_FALSE(seam_HostDirectory(directory_.c_str(), countEntry, &data, 0));
  EXPECT_EQ(data.errNum, EIO);
  EXPECT_EQ(entries, 0);
  EXPECT_TRUE(seam_HostDirectory(directory_.c_str(), countEntry, &data, 0));
  EXPECT_EQ(entries, 1);
}

TEST_F(Faults, SetTheFlagOfAConversion) {
  fault("KciOopToI64_:1:EINVAL");
  int failed = 0;
  EXPECT_EQ(seam_KciOopToI64_(oopFromSmallInteger(5), &failed), 0);
  EXPECT_NE(failed, 0);
}

// ---- gzip ----

TEST_F(Faults, StayInAGzipHandleUntilCleared) {
  gzFile file = gzopen(path("file").c_str(), "rb");
  ASSERT_NE(file, nullptr);
  fault("gzread:1:EIO");
  EXPECT_EQ(seam_gzread(file, buffer_.data(), 4), -1);
  EXPECT_EQ(errno, EIO);
  for (int i = 0; i < 2; i++) {
    int code = 0;
    errno = EINTR;
    EXPECT_STREQ(seam_gzerror(file, &code), "Input/output error");
    EXPECT_EQ(code, Z_ERRNO);
    EXPECT_EQ(seam_gzread(file, buffer_.data(), 4), -1) << "the handle has an error";
    EXPECT_EQ(errno, EINTR) << "which zlib tells with no errno";
  }
  EXPECT_EQ(seam::faultsFired(), 1);
  seam_gzclearerr(file);
  int code = -1;
  EXPECT_STREQ(seam_gzerror(file, &code), "");
  EXPECT_EQ(code, Z_OK);
  EXPECT_EQ(seam_gzread(file, buffer_.data(), 4), 4);
  EXPECT_EQ(seam_gzclose(file), Z_OK);
}

TEST_F(Faults, OfAGzipHandleEndWithIt) {
  gzFile file = gzopen(path("file").c_str(), "rb");
  fault("gzseek:1:EIO");
  EXPECT_EQ(seam_gzseek(file, 1, SEEK_SET), -1);
  EXPECT_EQ(seam_gzclose(file), Z_OK);
  // The allocator is likely to hand out the same place for the next handle.
  file = gzopen(path("file").c_str(), "rb");
  int code = -1;
  seam_gzerror(file, &code);
  EXPECT_EQ(code, Z_OK);
  EXPECT_EQ(gzclose(file), Z_OK);
}

// ---- errors of the interface ----

TEST_F(Faults, RaisesArePendingWithoutAFrame) {
  seam::start();
  fault("KciNewString:1:raise=2101");
  EXPECT_EQ(seam_KciNewString("text"), OOP_NIL);
  KciErrSType error;
  ASSERT_TRUE(seam_KciErr(&error));
  EXPECT_EQ(error.number, 2101);
  EXPECT_THAT(seamtest::outline(seam::calls()),
              testing::ElementsAre("KciNewString=nil", "KciErr=1"));
  EXPECT_TRUE(seam::calls()[0].injected);
  EXPECT_NE(seam_KciNewString("text"), OOP_NIL);
}

bool newStringJumps() {
  KciErrJumpSType jump;
  seam_KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    seam_KciPopErrJump(&jump);
    return true;
  }
  seam_KciNewString("text");
  seam_KciPopErrJump(&jump);
  return false;
}

TEST_F(Faults, RaisesJumpToTheFrame) {
  seam::start();
  fault("*:1:raise=9999");
  EXPECT_TRUE(newStringJumps());
  KciErrSType error;
  ASSERT_TRUE(KciErr(&error));
  EXPECT_EQ(error.number, 9999);
  EXPECT_THAT(seamtest::outline(seam::stop()),
              testing::ElementsAre("KciPushErrJump=", "KciNewString=jumped", "KciPopErrJump="));
  EXPECT_EQ(kvhost::errorJumpDepth(), 0);
  EXPECT_FALSE(newStringJumps());
}

TEST_F(Faults, FireWithoutARecord) {
  fault("*:1:raise=2101");
  EXPECT_TRUE(newStringJumps());
  EXPECT_FALSE(newStringJumps());
  EXPECT_THAT(seam::calls(), IsEmpty());
}

}  // namespace
