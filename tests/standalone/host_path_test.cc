// What the host answers about paths, and what it does to files by them.
#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>

#include "standalone/host_fixture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

using hosttest::readFile;
using hosttest::writeFile;

class HostPath : public hosttest::InDirectory {
 protected:
  HostErrSType err = {0};

  HostFileKindEType kind(const std::string& path) {
    err.initialize();
    return HostFileType(path.c_str(), &err);
  }
  FILE* open(const std::string& path, const char* mode) {
    err.initialize();
    return HostOpenFile(path.c_str(), mode, &err, 1);
  }
};

constexpr const char* ALL_MODES[] = {"r",  "w",   "a",   "r+",  "w+",  "a+",  "rb", "wb",
                                     "ab", "r+b", "w+b", "a+b", "rb+", "wb+", "ab+"};

// ---- opening ----

TEST_F(HostPath, opensInEveryModeAsTheCLibraryDoes) {
  for (const char* mode : ALL_MODES) {
    writeFile(in("f"), "content");
    FILE* stream = open(in("f"), mode);
    ASSERT_NE(stream, nullptr) << mode;
    FILE* expected = std::fopen(in("f").c_str(), mode);
    constexpr int COMPARED = O_ACCMODE | O_APPEND;
    EXPECT_EQ(fcntl(fileno(stream), F_GETFL) & COMPARED,
              fcntl(fileno(expected), F_GETFL) & COMPARED)
        << mode;
    EXPECT_EQ(std::filesystem::file_size(in("f")), mode[0] == 'w' ? 0U : 7U) << mode;
    EXPECT_NE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC, 0) << mode;
    std::fclose(stream);
    std::fclose(expected);
  }
}

TEST_F(HostPath, refusesADirectoryInEveryModeAndLeaksNoDescriptor) {
  const int before = dup(0);
  close(before);
  for (const char* mode : ALL_MODES) {
    EXPECT_EQ(open(directory, mode), nullptr) << mode;
    EXPECT_EQ(err.theErrno, EISDIR) << mode;
  }
  EXPECT_EQ(open("/proc", "r"), nullptr);
  EXPECT_EQ(err.theErrno, EISDIR);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(before, after);
}

TEST_F(HostPath, opensDevicesAndFifos) {
  ASSERT_EQ(mkfifo(in("fifo").c_str(), 0600), 0);
  FILE* fifo = open(in("fifo"), "r+");
  ASSERT_NE(fifo, nullptr);
  FILE* reader = open(in("fifo"), "r");
  ASSERT_NE(reader, nullptr);
  std::fclose(fifo);
  std::fclose(reader);
  FILE* null = open("/dev/null", "r");
  ASSERT_NE(null, nullptr);
  std::fclose(null);
}

TEST_F(HostPath, tellsWhyAnOpenFailed) {
  EXPECT_EQ(open(in("missing"), "r"), nullptr);
  EXPECT_EQ(err.theErrno, ENOENT);
  writeFile(in("f"), "");
  EXPECT_EQ(open(in("f/below"), "r"), nullptr);
  EXPECT_EQ(err.theErrno, ENOTDIR);
  EXPECT_EQ(open(in(std::string(300, 'n')), "w"), nullptr);
  EXPECT_EQ(err.theErrno, ENAMETOOLONG);
  EXPECT_EQ(open(in("f"), "z"), nullptr);
  EXPECT_EQ(err.theErrno, EINVAL);
  EXPECT_EQ(open(in("f"), ""), nullptr);
  EXPECT_EQ(err.theErrno, EINVAL);
}

TEST_F(HostPath, opensWithAModeLongerThanAnyAsTheCLibraryDoes) {
  writeFile(in("f"), "");
  FILE* stream = open(in("f"), "rbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb");
  ASSERT_NE(stream, nullptr);
  EXPECT_NE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC, 0);
  std::fclose(stream);
}

TEST_F(HostPath, takesTheNameAsItStands) {
  writeFile(in("$HOME"), "dollar");
  FILE* stream = open(in("$HOME"), "r");
  ASSERT_NE(stream, nullptr);
  std::fclose(stream);
}

// The child lists its descriptors above 2, but for the one that it lists them with.
TEST_F(HostPath, leavesNoDescriptorToAChild) {
  writeFile(in("f"), "x");
  FILE* stream = open(in("f"), "r+");
  ASSERT_NE(stream, nullptr);
  const std::string probe =
      "readlink /proc/self/fd/" + std::to_string(fileno(stream)) + " > " + in("seen") + "; true";
  ASSERT_EQ(std::system(probe.c_str()), 0);
  EXPECT_EQ(readFile(in("seen")).find(in("f")), std::string::npos);
  const int inherited = fcntl(fileno(stream), F_DUPFD, 3);
  const std::string control =
      "readlink /proc/self/fd/" + std::to_string(inherited) + " > " + in("seen") + "; true";
  ASSERT_EQ(std::system(control.c_str()), 0);
  EXPECT_NE(readFile(in("seen")).find(in("f")), std::string::npos) << "the probe sees nothing";
  close(inherited);
  std::fclose(stream);
}

// ---- kinds, sizes, times ----

TEST_F(HostPath, tellsEveryKind) {
  writeFile(in("f"), "x");
  ASSERT_EQ(symlink("f", in("link").c_str()), 0);
  ASSERT_EQ(mkfifo(in("fifo").c_str(), 0600), 0);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, in("s").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(kind(in("f")), HOST_FILE_KIND_FILE);
  EXPECT_EQ(kind(directory), HOST_FILE_KIND_DIR);
  EXPECT_EQ(kind("/dev/null"), HOST_FILE_KIND_CHRDEVICE);
  EXPECT_EQ(kind(in("link")), HOST_FILE_KIND_LNK);
  EXPECT_EQ(kind(in("s")), HOST_FILE_KIND_OTHER);
  EXPECT_EQ(kind(in("fifo")), HOST_FILE_KIND_FIFO);
  EXPECT_EQ(err.theErrno, 0);
  EXPECT_EQ(kind(in("missing")), HOST_FILE_KIND_ERROR);
  EXPECT_EQ(err.theErrno, ENOENT);
  close(listener);
}

TEST_F(HostPath, tellsThatABlockDeviceIsOne) {
  if (mknod(in("block").c_str(), S_IFBLK | 0600, makedev(7, 0)) != 0) {
    GTEST_SKIP() << "device nodes cannot be made here";
  }
  EXPECT_EQ(kind(in("block")), HOST_FILE_KIND_BLKDEVICE);
}

TEST_F(HostPath, answersSizesThroughLinks) {
  writeFile(in("f"), "12345");
  ASSERT_EQ(symlink("f", in("link").c_str()), 0);
  int64 size = 0;
  int exists = 0;
  EXPECT_TRUE(HostFileExistSize(in("f").c_str(), &size, &exists, &err, nullptr, 0));
  EXPECT_EQ(size, 5);
  EXPECT_TRUE(exists);
  EXPECT_TRUE(HostFileExistSize(in("link").c_str(), &size, &exists, &err, nullptr, 0));
  EXPECT_EQ(size, 5);
  ASSERT_EQ(truncate(in("f").c_str(), 5000000000), 0);
  EXPECT_TRUE(HostFileExistSize(in("f").c_str(), &size, &exists, &err, nullptr, 0));
  EXPECT_EQ(size, 5000000000);
}

TEST_F(HostPath, tellsAMissingFileFromOneThatCannotBeLookedAt) {
  ASSERT_EQ(symlink("loop", in("loop").c_str()), 0);
  writeFile(in("f"), "");
  struct Case {
    std::string path;
    int exists;
    int errNum;
  };
  const std::vector<Case> cases = {{in("missing"), 0, ENOENT},
                                   {in("f/below"), 0, ENOTDIR},
                                   {in("loop"), 1, ELOOP},
                                   {in(std::string(300, 'n')), 1, ENAMETOOLONG}};
  for (const Case& each : cases) {
    int64 size = 77;
    int exists = 55;
    char text[256] = "";
    err.initialize();
    EXPECT_FALSE(HostFileExistSize(each.path.c_str(), &size, &exists, &err, text, sizeof text));
    EXPECT_EQ(exists, each.exists) << each.path;
    EXPECT_EQ(err.theErrno, each.errNum) << each.path;
    EXPECT_EQ(size, 77);
    EXPECT_EQ(std::string(text).rfind("errno=" + std::to_string(each.errNum), 0), 0U) << text;
  }
}

TEST_F(HostPath, answersModificationTimesInSeconds) {
  writeFile(in("f"), "");
  ASSERT_EQ(symlink("f", in("link").c_str()), 0);
  const struct timespec times[2] = {{1, 0}, {1234567890, 999999999}};
  ASSERT_EQ(utimensat(AT_FDCWD, in("f").c_str(), times, 0), 0);
  int64 time = 0;
  SysErrorSType sysErr;
  sysErr.initialize();
  EXPECT_TRUE(UtlGetFileModTime(in("link").c_str(), &time, &sysErr));
  EXPECT_EQ(time, 1234567890);
}

TEST_F(HostPath, namesThePathWhoseTimeIsNotKnown) {
  int64 time = 7;
  SysErrorSType sysErr;
  sysErr.initialize();
  EXPECT_FALSE(UtlGetFileModTime("/no/such/path", &time, &sysErr));
  sysErr.finishMsg();
  EXPECT_STREQ(sysErr.errMsg, "errno=2,ENOENT, No such file or directory : /no/such/path");
  EXPECT_EQ(sysErr.errCode, ENOENT);
  EXPECT_EQ(time, 7);
  EXPECT_FALSE(UtlGetFileModTime("", &time, &sysErr));
  sysErr.finishMsg();
  EXPECT_STREQ(sysErr.errMsg,
               "errno=2,ENOENT, No such file or directory : the path is empty or names something "
               "unknown");
}

// ---- removing and creating ----

TEST_F(HostPath, removesFilesAndLinksButNoDirectory) {
  writeFile(in("f"), "");
  ASSERT_EQ(symlink("f", in("link").c_str()), 0);
  EXPECT_TRUE(HostRemoveSingleFile(in("link").c_str(), 1, &err));
  EXPECT_TRUE(std::filesystem::exists(in("f")));
  EXPECT_TRUE(HostRemoveSingleFile(in("f").c_str(), 1, &err));
  EXPECT_FALSE(HostRemoveSingleFile(in("f").c_str(), 1, &err));
  EXPECT_EQ(err.theErrno, ENOENT);
  EXPECT_FALSE(HostRemoveSingleFile(directory.c_str(), 1, &err));
  EXPECT_EQ(err.theErrno, EISDIR);
}

TEST_F(HostPath, createsDirectoriesWithTheirModeLessTheUmask) {
  struct Case {
    int mode;
    mode_t expected;
  };
  const mode_t former = umask(027);
  int number = 0;
  for (const Case& each :
       {Case{-1, 0750}, Case{0700, 0700}, Case{0777, 0750}, Case{01777, 01750}, Case{0, 0}}) {
    const std::string path = in("d" + std::to_string(number++));
    EXPECT_TRUE(HostCreateDirectory(path.c_str(), &err, each.mode));
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, each.expected) << each.mode;
  }
  umask(former);
  EXPECT_FALSE(HostCreateDirectory(in("d0").c_str(), &err, -1));
  EXPECT_EQ(err.theErrno, EEXIST);
  EXPECT_FALSE(HostCreateDirectory(in("no/d").c_str(), &err, -1));
  EXPECT_EQ(err.theErrno, ENOENT);
}

TEST_F(HostPath, removesEmptyDirectoriesOnly) {
  ASSERT_TRUE(HostCreateDirectory(in("d").c_str(), &err, -1));
  writeFile(in("d/f"), "");
  EXPECT_FALSE(HostRemoveDirectory(in("d").c_str(), &err));
  EXPECT_EQ(err.theErrno, ENOTEMPTY);
  EXPECT_FALSE(HostRemoveDirectory(in("d/f").c_str(), &err));
  EXPECT_EQ(err.theErrno, ENOTDIR);
  ASSERT_TRUE(HostRemoveSingleFile(in("d/f").c_str(), 1, &err));
  EXPECT_TRUE(HostRemoveDirectory(in("d").c_str(), &err));
  EXPECT_FALSE(std::filesystem::exists(in("d")));
}

TEST_F(HostPath, refusedByPermissionsIsToldAsSuch) {
  ASSERT_EQ(chmod(directory.c_str(), 0700), 0);
  ASSERT_TRUE(HostCreateDirectory(in("closed").c_str(), &err, 0700));
  writeFile(in("closed/f"), "x");
  if (geteuid() != 0) GTEST_SKIP() << "needs the right to become another user";
  hosttest::Helper other([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 10;
    int64 size = 0;
    int exists = 0;
    if (HostFileExistSize(in("closed/f").c_str(), &size, &exists, &err, nullptr, 0)) return 1;
    if (err.theErrno != EACCES || exists != 1) return 2;
    if (open(in("closed/f"), "r") != nullptr || err.theErrno != EACCES) return 3;
    return kind(in("closed/f")) == HOST_FILE_KIND_ERROR && err.theErrno == EACCES ? 0 : 4;
  });
  EXPECT_EQ(other.exitCode(), 0);
}

}  // namespace
