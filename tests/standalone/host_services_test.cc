// The log and the socket buffer sizes.
#include <kvfile/kvhost.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace {

// The descriptors of this process that are sockets.
std::vector<int> openSockets() {
  std::vector<int> result;
  for (int fd = 0; fd < 256; ++fd) {
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode)) result.push_back(fd);
  }
  return result;
}

class SocketBuffers : public testing::Test {
 protected:
  void SetUp() override {
    socketsBefore_ = openSockets();
    session_ = kvhost::sessionBegin();
  }
  void TearDown() override {
    kvhost::sessionEnd(session_);
    EXPECT_EQ(openSockets(), socketsBefore_);
  }

  int fetch(const char* name) { return KciSupFetchKciSocketBufSize(name, text_, sizeof text_); }
  bool set(const char* name, int size) {
    return KciSupSetKciSocketBufSize(name, size, text_, sizeof text_) != FALSE;
  }

  std::vector<int> socketsBefore_;
  int session_ = 0;
  char text_[256] = "";
};

TEST_F(SocketBuffers, WhatWasSetIsAnswered) {
  EXPECT_GT(fetch("SO_SNDBUF"), 0);
  EXPECT_GT(fetch("SO_RCVBUF"), 0);
  EXPECT_TRUE(set("SO_SNDBUF", 32768));
  EXPECT_TRUE(set("SO_RCVBUF", 16384));
  EXPECT_EQ(fetch("SO_SNDBUF"), 32768);
  EXPECT_EQ(fetch("SO_RCVBUF"), 16384);
  EXPECT_STREQ(text_, "");
}

TEST_F(SocketBuffers, AreThoseOfARealSocketThatChildrenDoNotGet) {
  ASSERT_TRUE(set("SO_SNDBUF", 65536));
  int found = 0;
  for (const int fd : openSockets()) {
    int size = 0;
    socklen_t length = sizeof size;
    if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &length) == 0 && size == 2 * 65536) {
      ++found;
      EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    }
  }
  EXPECT_EQ(found, 1);
}

TEST_F(SocketBuffers, SizesPastTheKernelsLimitsBecomeTheLimit) {
  EXPECT_TRUE(set("SO_SNDBUF", 2147483646));
  const int largest = fetch("SO_SNDBUF");
  EXPECT_GT(largest, 32768);
  EXPECT_TRUE(set("SO_SNDBUF", 2));
  EXPECT_GT(fetch("SO_SNDBUF"), 2);
  EXPECT_LT(fetch("SO_SNDBUF"), largest);
}

TEST_F(SocketBuffers, SessionsHaveTheirOwn) {
  ASSERT_TRUE(set("SO_RCVBUF", 20000));
  const int other = kvhost::sessionBegin();
  ASSERT_TRUE(set("SO_RCVBUF", 10000));
  kvhost::sessionSelect(session_);
  EXPECT_EQ(fetch("SO_RCVBUF"), 20000);
  kvhost::sessionEnd(other);
}

TEST_F(SocketBuffers, UnknownNamesAreToldTheValidOnes) {
  EXPECT_EQ(fetch("SNDBUF"), -1);
  EXPECT_STREQ(text_, "unknown socket buffer 'SNDBUF', must be SO_SNDBUF or SO_RCVBUF");
  text_[0] = '\0';
  EXPECT_FALSE(set("", 4096));
  EXPECT_STREQ(text_, "unknown socket buffer '', must be SO_SNDBUF or SO_RCVBUF");
  char tiny[8] = "#######";
  EXPECT_EQ(KciSupFetchKciSocketBufSize("x", tiny, 6), -1);
  EXPECT_STREQ(tiny, "unkno");
}

TEST_F(SocketBuffers, NeedASession) {
  kvhost::sessionSelect(0);
  EXPECT_EQ(fetch("SO_SNDBUF"), -1);
  EXPECT_STREQ(text_, "no session is current on this thread");
}

TEST_F(SocketBuffers, AFailingSystemCallIsNamed) {
  ASSERT_TRUE(set("SO_SNDBUF", 4096));
  const std::vector<int> sockets = openSockets();
  ASSERT_EQ(sockets.size(), socketsBefore_.size() + 2);
  const int stolen = *std::find_if(sockets.begin(), sockets.end(), [this](int fd) {
    return std::find(socketsBefore_.begin(), socketsBefore_.end(), fd) == socketsBefore_.end();
  });
  const int kept = dup(stolen);
  close(stolen);
  EXPECT_EQ(fetch("SO_SNDBUF"), -1);
  EXPECT_STREQ(text_, "cannot ask the socket buffer size: errno=9,EBADF, Bad file descriptor");
  EXPECT_FALSE(set("SO_SNDBUF", 4096));
  EXPECT_STREQ(text_, "cannot set the socket buffer size: errno=9,EBADF, Bad file descriptor");
  dup2(kept, stolen);
  close(kept);
}

class Log : public testing::Test {
 protected:
  void SetUp() override { stream_ = open_memstream(&text_, &size_); }
  void TearDown() override {
    kvhost::setLogStream(stderr);
    KciSetLoggerFlush(0);
    std::fclose(stream_);
    std::free(text_);
  }
  std::string seen() const { return {text_ != nullptr ? text_ : "", size_}; }

  FILE* stream_ = nullptr;
  char* text_ = nullptr;
  size_t size_ = 0;
};

TEST_F(Log, TextsAreWrittenAsTheyStand) {
  kvhost::setLogStream(stream_);
  KciSetLoggerFlush(1);
  KciGetLogger()("one ");
  EXPECT_EQ(seen(), "one ");
  KciGetLogger()("two\n%s");
  EXPECT_EQ(seen(), "one two\n%s");
}

TEST_F(Log, IsFlushedWhereTheFlagSaysSo) {
  kvhost::setLogStream(stream_);
  KciSetLoggerFlush(0);
  KciGetLogger()("later");
  EXPECT_EQ(seen(), "");
  KciSetLoggerFlush(5);
  EXPECT_EQ(KciGetLoggerFlush(), 1);
  KciGetLogger()(" now");
  EXPECT_EQ(seen(), "later now");
}

TEST_F(Log, TheFlagIsTheThreads) {
  KciSetLoggerFlush(1);
  std::thread([] { EXPECT_EQ(KciGetLoggerFlush(), 0); }).join();
  EXPECT_EQ(KciGetLoggerFlush(), 1);
}

}  // namespace
