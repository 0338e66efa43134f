// The host reads and writes descriptors, whatever signals, pipes and terminals do.
#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/unixio.h>

#include "standalone/host_fixture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

using hosttest::AlarmStorm;
using hosttest::Pipe;

// Restores what enableInterrupts changes.
class Interrupts : public hosttest::InDirectory {
 protected:
  void SetUp() override {
    InDirectory::SetUp();
    sigaction(SIGINT, nullptr, &former_);
    kvhost::enableInterrupts();
    kvhost::takeInterrupt();
  }
  void TearDown() override {
    kvhost::disableInterrupts();
    sigaction(SIGINT, &former_, nullptr);
    InDirectory::TearDown();
  }

  // Sends SIGINT to the calling thread as soon as that is blocked.
  static std::thread interruptWhenBlocked() {
    const pthread_t target = pthread_self();
    return std::thread([target, thread = gettid()] {
      hosttest::waitUntilAsleep(thread);
      pthread_kill(target, SIGINT);
    });
  }

 private:
  struct sigaction former_ {};
};

void earlierHandler(int) {}
void laterHandler(int) {}

class InterruptHandler : public testing::Test {
 protected:
  void SetUp() override {
    struct sigaction earlier = {};
    earlier.sa_handler = earlierHandler;
    earlier.sa_flags = SA_RESTART;
    sigaddset(&earlier.sa_mask, SIGUSR1);
    sigaction(SIGINT, &earlier, &former_);
  }
  void TearDown() override {
    kvhost::disableInterrupts();
    sigaction(SIGINT, &former_, nullptr);
  }
  static struct sigaction current() {
    struct sigaction now = {};
    sigaction(SIGINT, nullptr, &now);
    return now;
  }

 private:
  struct sigaction former_ {};
};

TEST_F(InterruptHandler, thatWasThereBeforeComesBack) {
  kvhost::enableInterrupts();
  kvhost::enableInterrupts();
  EXPECT_NE(current().sa_handler, earlierHandler);
  raise(SIGINT);
  kvhost::disableInterrupts();
  EXPECT_EQ(current().sa_handler, earlierHandler);
  const struct sigaction restored = current();
  EXPECT_NE(restored.sa_flags & SA_RESTART, 0);
  EXPECT_EQ(sigismember(&restored.sa_mask, SIGUSR1), 1);
  EXPECT_FALSE(kvhost::takeInterrupt()) << "an old note would end a later read";
  kvhost::disableInterrupts();
  EXPECT_EQ(current().sa_handler, earlierHandler);
}

TEST_F(InterruptHandler, ofSomebodyElseIsLeftInPlace) {
  kvhost::enableInterrupts();
  std::signal(SIGINT, laterHandler);
  kvhost::disableInterrupts();
  EXPECT_EQ(current().sa_handler, laterHandler);
}

void setNonBlocking(int fd) { ASSERT_EQ(fcntl(fd, F_SETFL, O_NONBLOCK), 0); }

FILE* streamOn(Pipe* pipe) {
  FILE* stream = fdopen(pipe->ends[0], "r");
  pipe->ends[0] = -1;
  return stream;
}

// ---- reading ----

TEST(HostReadFile, answersCountEndAndFailure) {
  Pipe pipe;
  ASSERT_EQ(write(pipe.writeEnd(), "abc", 3), 3);
  char buf[8];
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), buf, sizeof buf), 3);
  pipe.closeWriteEnd();
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), buf, sizeof buf), 0);
  EXPECT_EQ(HostReadFile_(-1, buf, sizeof buf), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(HostReadFile, isRetriedAfterOtherSignals) {
  Pipe pipe;
  const AlarmStorm storm(2000);
  std::thread writer = hosttest::threadWithoutAlarms([&] {
    while (AlarmStorm::count <= 5) usleep(1000);
    EXPECT_EQ(write(pipe.writeEnd(), "x", 1), 1);
  });
  char byte = 0;
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
  writer.join();
}

TEST(HostReadFile, waitsOnANonBlockingDescriptor) {
  Pipe pipe;
  setNonBlocking(pipe.readEnd());
  std::thread writer = hosttest::threadWithoutAlarms([&, reading = gettid()] {
    hosttest::waitUntilAsleep(reading);
    EXPECT_EQ(write(pipe.writeEnd(), "x", 1), 1);
  });
  char byte = 0;
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), &byte, 1), 1);
  writer.join();
}

TEST_F(Interrupts, endABlockedReadWithMinusTwoAndAreCleared) {
  Pipe pipe;
  std::thread sender = interruptWhenBlocked();
  char byte = 0;
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), &byte, 1), -2);
  EXPECT_EQ(errno, EINTR);
  sender.join();
  EXPECT_FALSE(kvhost::takeInterrupt());
}

TEST_F(Interrupts, endAReadThatWaitsOnANonBlockingDescriptor) {
  Pipe pipe;
  setNonBlocking(pipe.readEnd());
  std::thread sender = interruptWhenBlocked();
  char byte = 0;
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), &byte, 1), -2);
  sender.join();
}

TEST_F(Interrupts, notedEarlierAreAnsweredByTheNextReadAndLoseNoByte) {
  Pipe pipe;
  ASSERT_EQ(write(pipe.writeEnd(), "x", 1), 1);
  raise(SIGINT);
  char byte = 0;
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), &byte, 1), -2);
  EXPECT_EQ(HostReadFile_(pipe.readEnd(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

TEST_F(Interrupts, areTakenOnce) {
  raise(SIGINT);
  raise(SIGINT);
  EXPECT_TRUE(kvhost::takeInterrupt());
  EXPECT_FALSE(kvhost::takeInterrupt());
}

// ---- writing ----

TEST(HostWriteFile, writesAllThroughAPipeThatTakesLittleAtATime) {
  Pipe pipe;
  setNonBlocking(pipe.writeEnd());
  std::string sent(1000000, '\0');
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 7 % 251);
  std::string received;
  std::thread reader = hosttest::threadWithoutAlarms([&] {
    char piece[777];
    ssize_t got = 0;
    while ((got = read(pipe.readEnd(), piece, sizeof piece)) > 0) {
      received.append(piece, static_cast<size_t>(got));
    }
  });
  {
    const AlarmStorm storm(500);
    EXPECT_EQ(HostWriteFile_(pipe.writeEnd(), sent.data(), sent.size()), 1000000);
  }
  pipe.closeWriteEnd();
  reader.join();
  EXPECT_TRUE(received == sent);
}

TEST(HostWriteFile, goesOnAfterAShortWriteToABlockingPipe) {
  Pipe pipe;
  std::atomic<size_t> received{0};
  std::thread reader = hosttest::threadWithoutAlarms([&] {
    char piece[4096];
    ssize_t got = 0;
    while ((got = read(pipe.readEnd(), piece, sizeof piece)) > 0) {
      received += static_cast<size_t>(got);
      usleep(200);
    }
  });
  {
    const AlarmStorm storm(300);
    const std::string sent(600000, 'w');
    EXPECT_EQ(HostWriteFile_(pipe.writeEnd(), sent.data(), sent.size()), 600000);
  }
  pipe.closeWriteEnd();
  reader.join();
  EXPECT_EQ(received.load(), 600000U);
}

TEST(HostWriteFile, tellsThatTheDiskIsFull) {
  const int fd = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  EXPECT_LT(HostWriteFile_(fd, "abc", 3), 0);
  EXPECT_EQ(errno, ENOSPC);
  close(fd);
}

TEST(HostWriteFile, ofNoBytesStillTellsThatTheDescriptorCannotBeWritten) {
  Pipe pipe;
  EXPECT_EQ(HostWriteFile_(pipe.writeEnd(), "", 0), 0);
  EXPECT_LT(HostWriteFile_(pipe.readEnd(), "", 0), 0);
  EXPECT_EQ(errno, EBADF);
  EXPECT_LT(HostWriteFile_(-1, "abc", 3), 0);
  EXPECT_EQ(errno, EBADF);
}

// ---- line fetch ----

int fgets(FILE* stream, size_t size, std::string* line) {
  std::string buf(size + 1, '#');
  const int status = UnixIoFgets_(buf.data(), size, stream);
  EXPECT_EQ(buf[size], '#');
  *line = buf.c_str();
  return status;
}

class LineFetch : public Interrupts {
 protected:
  void SetUp() override {
    Interrupts::SetUp();
    stream = streamOn(&pipe);
  }
  void TearDown() override {
    std::fclose(stream);
    Interrupts::TearDown();
  }
  void send(const std::string& bytes) {
    ASSERT_EQ(write(pipe.writeEnd(), bytes.data(), bytes.size()),
              static_cast<ssize_t>(bytes.size()));
  }

  Pipe pipe;
  FILE* stream = nullptr;
  std::string line;
};

TEST_F(LineFetch, deliversLinesPiecesAndTheEnd) {
  send("one\ntwo three\n\nlast");
  pipe.closeWriteEnd();
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "one\n");
  EXPECT_EQ(fgets(stream, 5, &line), 0);
  EXPECT_EQ(line, "two ");
  EXPECT_EQ(fgets(stream, 7, &line), 0);
  EXPECT_EQ(line, "three\n");
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "\n");
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "last");
  EXPECT_EQ(fgets(stream, 80, &line), -1);
  EXPECT_EQ(line, "");
  EXPECT_NE(feof(stream), 0);
}

TEST_F(LineFetch, reachesTheEndAgainAfterItsFlagWasCleared) {
  pipe.closeWriteEnd();
  EXPECT_EQ(fgets(stream, 80, &line), -1);
  clearerr(stream);
  EXPECT_EQ(fgets(stream, 80, &line), -1);
}

TEST_F(LineFetch, storesNulBytes) {
  send(std::string("a\0b\n", 4));
  char buf[8] = "#######";
  EXPECT_EQ(UnixIoFgets_(buf, sizeof buf, stream), 0);
  EXPECT_EQ(std::string(buf, 5), std::string("a\0b\n\0", 5));
}

TEST_F(LineFetch, ofNoRoomReadsNothing) {
  send("ab\n");
  EXPECT_EQ(fgets(stream, 1, &line), 0);
  EXPECT_EQ(line, "");
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "ab\n");
  char untouched = '#';
  EXPECT_GT(UnixIoFgets_(&untouched, 0, stream), 0);
  EXPECT_EQ(untouched, '#');
}

TEST_F(LineFetch, isRetriedAfterOtherSignalsWithinALineToo) {
  const AlarmStorm storm(2000);
  std::thread writer = hosttest::threadWithoutAlarms([&] {
    while (AlarmStorm::count <= 2) usleep(1000);
    send("ab");
    const auto before = AlarmStorm::count;
    while (AlarmStorm::count <= before + 2) usleep(1000);
    send("c\n");
  });
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "abc\n");
  writer.join();
}

TEST_F(LineFetch, isEndedByAnInterruptBeforeAnyByte) {
  std::thread sender = interruptWhenBlocked();
  EXPECT_EQ(fgets(stream, 80, &line), -2);
  EXPECT_EQ(errno, EINTR);
  sender.join();
  send("ok\n");
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "ok\n");
}

TEST_F(LineFetch, deliversWhatCameBeforeAnInterruptAndAnswersItNext) {
  send("ab");
  std::thread sender = interruptWhenBlocked();
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "ab");
  sender.join();
  EXPECT_EQ(fgets(stream, 80, &line), -2);
}

TEST_F(LineFetch, waitsOnANonBlockingDescriptor) {
  setNonBlocking(fileno(stream));
  std::thread writer = hosttest::threadWithoutAlarms([&, reading = gettid()] {
    hosttest::waitUntilAsleep(reading);
    send("x\n");
  });
  EXPECT_EQ(fgets(stream, 80, &line), 0);
  EXPECT_EQ(line, "x\n");
  writer.join();
}

TEST_F(LineFetch, failsWithTheErrorOfTheSystem) {
  FILE* writeOnly = std::fopen(in("w").c_str(), "w");
  EXPECT_EQ(fgets(writeOnly, 80, &line), 1);
  EXPECT_EQ(errno, EBADF);
  std::fclose(writeOnly);
}

// ---- status ----

TEST(UnixIoFstat, describesOrTells) {
  struct stat64 status = {};
  char text[256] = "";
  Pipe pipe;
  EXPECT_TRUE(UnixIoFstat(pipe.readEnd(), &status, text, sizeof text));
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
  EXPECT_FALSE(UnixIoFstat(-1, &status, text, sizeof text));
  EXPECT_STREQ(text, "errno=9,EBADF, Bad file descriptor");
}

}  // namespace
