// What the record holds of each call.
#include "seam/seam_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <csetjmp>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using seamtest::fault;
using seamtest::outline;
using seamtest::SeamTest;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Recording : public SeamTest {
 protected:
  // The line of a trace for the last call, without number and time.
  static std::string lastLine() {
    seam::Call call = seam::calls().back();
    return seam::formatCall(call, false).substr(6);
  }
};

TEST_F(Recording, IsOffAtFirst) {
  seam_UtlFree(seam_UtlMalloc(8, 1));
  EXPECT_THAT(seam::calls(), IsEmpty());
}

TEST_F(Recording, NumbersFromOneAndFromOneAgainAfterClear) {
  seam::start();
  seam_UtlFree(seam_UtlMalloc(8, 1));
  ASSERT_THAT(outline(seam::calls()), ElementsAre("UtlMalloc=ptr", "UtlFree="));
  EXPECT_EQ(seam::calls()[0].number, 1);
  EXPECT_EQ(seam::calls()[1].number, 2);
  seam::clear();
  EXPECT_THAT(seam::calls(), IsEmpty());
  seam_UtlFree(nullptr);
  ASSERT_THAT(seam::calls(), SizeIs(1));
  EXPECT_EQ(seam::calls()[0].number, 1);
}

TEST_F(Recording, StopAnswersTheCallsAndRecordsNoMore) {
  seam::start();
  seam_UtlFree(nullptr);
  EXPECT_THAT(seam::stop(), SizeIs(1));
  seam_UtlFree(nullptr);
  EXPECT_THAT(seam::calls(), IsEmpty());
}

TEST_F(Recording, WritesArgumentsByTheirMeaning) {
  seam::start();
  seam_KciNewString("one \"two\"\n\x01\xff");
  EXPECT_EQ(lastLine().substr(0, lastLine().find(" = ")),
            R"(KciNewString("one \"two\"\n\x01\xff"))");
  seam_KciNewString(std::string(41, 'x').c_str());
  EXPECT_THAT(seam::calls().back().arguments, ElementsAre("\"" + std::string(40, 'x') + "\"..."));
  seam_KciNewString(std::string(40, 'x').c_str());
  EXPECT_THAT(seam::calls().back().arguments, ElementsAre("\"" + std::string(40, 'x') + "\""));
  int flag = 0;
  seam_KciOopToI64_(oopFromSmallInteger(-7), &flag);
  EXPECT_EQ(lastLine(), "KciOopToI64_(-7, ptr) = -7");
  for (const auto& [oop, text] :
       std::vector<std::pair<OopType, std::string>>{{OOP_NIL, "nil"},
                                                    {OOP_TRUE, "true"},
                                                    {OOP_FALSE, "false"},
                                                    {oopFromCharacter('a'), "$a"},
                                                    {oopFromCharacter('\n'), "$\\x0a"},
                                                    {OOP_CLASS_STRING, "oop:0x12401"}}) {
    seam_KciFetchSize_(oop);
    EXPECT_THAT(seam::calls().back().arguments, ElementsAre(text));
  }
}

TEST_F(Recording, ShowsAnArrayOfIdentifiers) {
  const OopType array = kvhost::newArray({OOP_NIL, OOP_NIL, OOP_NIL, OOP_NIL, OOP_NIL});
  const OopType values[] = {OOP_NIL, OOP_TRUE, oopFromSmallInteger(3), OOP_FALSE, OOP_NIL};
  seam::start();
  seam_KciStoreOops(array, 1, values, 2);
  EXPECT_THAT(seam::calls().back().arguments, ElementsAre(_, "1", "[nil, true]", "2"));
  seam_KciStoreOops(array, 1, values, 5);
  EXPECT_THAT(seam::calls().back().arguments,
              ElementsAre(_, "1", "[nil, true, 3, false, ...]", "5"));
}

TEST_F(Recording, ShowsDescriptorsStreamsAndPositions) {
  HostErrSType error;
  error.initialize();
  FILE* stream = HostOpenFile(path("f").c_str(), "w+", &error, 1);
  ASSERT_NE(stream, nullptr);
  seam::start();
  const int fd = seam_fileno(stream);
  const std::string number = std::to_string(fd);
  EXPECT_EQ(lastLine(), "fileno(fd " + number + ") = " + number);
  EXPECT_EQ(seam_HostWriteFile_(fd, "bytes", 3), 3);
  EXPECT_EQ(lastLine(), "HostWriteFile_(" + number + ", \"byt\", 3) = 3");
  EXPECT_EQ(seam_lseek(fd, -1, SEEK_END), 2);
  EXPECT_EQ(lastLine(), "lseek(" + number + ", -1, SEEK_END) = 2");
  seam_fflush(stdout);
  EXPECT_EQ(lastLine(), "fflush(stdout) = 0");
  EXPECT_EQ(seam_fclose(stream), 0);
  EXPECT_EQ(lastLine(), "fclose(fd " + number + ") = 0");
}

TEST_F(Recording, ShowsErrnoWhereTheResultTellsOfAFailure) {
  seam::start();
  errno = 0;
  EXPECT_EQ(seam_lseek(-1, 0, SEEK_SET), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(lastLine(), "lseek(-1, 0, SEEK_SET) = -1 EBADF (Bad file descriptor)");
  HostErrSType error;
  error.initialize();
  EXPECT_EQ(seam_HostOpenFile(path("none").c_str(), "r", &error, 1), nullptr);
  EXPECT_EQ(seam::calls().back().result, "null");
  EXPECT_EQ(seam::calls().back().errnoAfter, ENOENT);
  errno = EIO;
  seam_UtlFree(nullptr);
  EXPECT_EQ(seam::calls().back().errnoAfter, 0) << "an errno that was there before";
  EXPECT_EQ(errno, EIO);
}

TEST_F(Recording, ShowsNoErrnoThatTheCallDidNotSet) {
  seam::start();
  errno = EXDEV;
  EXPECT_EQ(seam_KciFetchSize_(kvhost::newString("")), 0);
  EXPECT_EQ(seam::calls().back().errnoAfter, 0);
  gzFile file = seam_gzopen(path("x.gz").c_str(), "wb");
  ASSERT_NE(file, nullptr);
  errno = EXDEV;
  char byte = 0;
  EXPECT_EQ(seam_gzread(file, &byte, 1), -1);  // the wrong direction, of which zlib stores no code
  EXPECT_EQ(seam::calls().back().errnoAfter, 0);
  EXPECT_EQ(errno, EXDEV) << "a call that leaves errno alone leaves the caller's";
  seam_gzclose(file);
}

TEST_F(Recording, ShowsTheErrorThatACallOfTheInterfaceLeaves) {
  seam::start();
  OopType elements[] = {OOP_NIL};
  seam_KciStoreOops(kvhost::newString("x"), 1, elements, 1);
  EXPECT_EQ(seam::calls().back().errorAfter, 2103);
  EXPECT_THAT(lastLine(),
              testing::EndsWith(" error 2103 (" + seam::calls().back().errorText + ")"));
  seam_KciFetchSize_(OOP_NIL);
  EXPECT_EQ(seam::calls().back().errorAfter, 0) << "an error that was pending is not this call's";
  KciErrSType error;
  error.initialize();
  EXPECT_TRUE(seam_KciErr(&error));
  EXPECT_EQ(seam::calls().back().errorAfter, 0);
  seam_KciFetchSize_(OOP_NIL);
  EXPECT_EQ(seam::calls().back().errorAfter, 0);
}

TEST_F(Recording, ShowsWhatPrintfPrints) {
  seam::start();
  seam_printf("%s", "");
  EXPECT_EQ(lastLine(), "printf(\"\") = 0");
  EXPECT_EQ(seam_printf("%s%s", "a\n", "b\n"), 4);
  EXPECT_EQ(lastLine(), "printf(\"a\\nb\\n\") = 4");
}

TEST_F(Recording, ShowsGzipHandlesAndFlushes) {
  seam::start();
  gzFile file = seam_gzopen(path("z").c_str(), "wb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(seam_gzwrite(file, "abc", 3), 3);
  EXPECT_EQ(lastLine(), "gzwrite(gz, \"abc\", 3) = 3");
  EXPECT_EQ(seam_gzflush(file, Z_FINISH), Z_OK);
  EXPECT_EQ(lastLine(), "gzflush(gz, Z_FINISH) = 0");
  EXPECT_EQ(seam_gzclose(file), Z_OK);
  EXPECT_EQ(lastLine(), "gzclose(gz) = 0");
}

TEST_F(Recording, GoesOnThroughTheLogger) {
  seam::start();
  FILE* sink = fopen(path("log").c_str(), "w");
  ASSERT_NE(sink, nullptr);
  kvhost::setLogStream(sink);
  seam_KciGetLogger()("a text\n");
  kvhost::setLogStream(stderr);
  fclose(sink);
  EXPECT_THAT(outline(seam::calls()), ElementsAre("KciGetLogger=ptr", "KciLogger="));
  EXPECT_THAT(seam::calls().back().arguments, ElementsAre("\"a text\\n\""));
  std::ifstream in(path("log"));
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "a text");
}

BoolType deleteEntry(KciOopMapEntryType* entry, int64*, int64*) {
  seam_KciOopMapEntryDelete(entry);
  return TRUE;
}

TEST_F(Recording, OrdersCallsOfACallbackByTheirStartAndTellsThemByTheirEnd) {
  std::vector<int64_t> ended;
  seam::start();
  seam::setListener([&ended](const seam::Call& call) { ended.push_back(call.number); });
  KciOopMapType* map = seam_KciOopMapCreate();
  int status = 0;
  seam_KciOopMapEntryAdd(map, OOP_TRUE, &status, &status);
  seam_KciOopMapForeach(map, deleteEntry, nullptr, nullptr);
  seam_KciOopMapDestroy(map);
  EXPECT_THAT(outline(seam::calls()),
              ElementsAre("KciOopMapCreate=ptr", "KciOopMapEntryAdd=", "KciOopMapForeach=",
                          "KciOopMapEntryDelete=", "KciOopMapDestroy="));
  EXPECT_THAT(ended, ElementsAre(1, 2, 4, 3, 5));
}

TEST_F(Recording, TheListenerHearsWithoutARecord) {
  std::vector<std::string> heard;
  seam::setListener([&heard](const seam::Call& call) { heard.push_back(call.name); });
  seam_UtlFree(nullptr);
  EXPECT_THAT(seam::calls(), IsEmpty());
  seam::setListener(nullptr);
  seam_UtlFree(nullptr);
  EXPECT_THAT(heard, ElementsAre("UtlFree"));
}

TEST_F(Recording, IsOneThreadsOwn) {
  seam::start();
  fault("UtlMalloc:1+:nomem");
  bool got = false;
  size_t count = 1;
  std::thread([&got, &count] {
    void* memory = seam_UtlMalloc(8, 1);
    got = memory != nullptr;
    seam_UtlFree(memory);
    count = seam::calls().size();
  }).join();
  EXPECT_TRUE(got);
  EXPECT_EQ(count, 0U);
  EXPECT_THAT(seam::calls(), IsEmpty());
}

// ---- calls that do not come back ----

// A failing call jumps to the frame; answers whether it did.
bool jumpsOutOf(void (*call)()) {
  KciErrJumpSType jump;
  seam_KciPushErrJump(&jump);
  if (setjmp(jump.buf) != 0) {
    seam_KciPopErrJump(&jump);
    return true;
  }
  call();
  seam_KciPopErrJump(&jump);
  return false;
}

TEST_F(Recording, MarksACallThatJumped) {
  seam::start();
  EXPECT_TRUE(jumpsOutOf([] { seam_KciFetchSize_(0x7777777701); }));
  EXPECT_THAT(outline(seam::calls()),
              ElementsAre("KciPushErrJump=", "KciFetchSize_=jumped", "KciPopErrJump="));
  KciErrSType error;
  EXPECT_TRUE(seam_KciErr(&error));
  EXPECT_EQ(seam::calls().back().result, "1");
}

BoolType failInEntry(const char*, const char*, const char*, HostDirClientDataType*) {
  seam_KciFetchSize_(0x7777777701);
  return TRUE;
}

void walkAndFail(const char* directory) {
  HostDirClientDataType data(nullptr, nullptr, OOP_NIL, FALSE, TRUE, FALSE);
  seam_HostDirectory(directory, failInEntry, &data, 0);
}

TEST_F(Recording, MarksTheWalkThatACallbackJumpedOutOf) {
  std::ofstream(path("entry")).put('x');
  const std::string walked = directory_;
  static const char* directory = nullptr;
  directory = walked.c_str();
  seam::start();
  EXPECT_TRUE(jumpsOutOf([] { walkAndFail(directory); }));
  EXPECT_THAT(outline(seam::calls()), ElementsAre("KciPushErrJump=", "HostDirectory=jumped",
                                                  "KciFetchSize_=jumped", "KciPopErrJump="));
}

OopType raise(void*) {
  KciErrSType error;
  error.initialize();
  error.number = 4711;
  snprintf(error.message, sizeof error.message, "a message");
  seam_KciRaiseException(&error);
  return OOP_NIL;
}

TEST_F(Recording, TellsOfARaiseAtOnce) {
  std::vector<std::string> heard;
  seam::start();
  seam::setListener([&heard](const seam::Call& call) { heard.push_back(call.result); });
  const kvhost::Outcome outcome = kvhost::protect(raise, nullptr);
  EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
  EXPECT_EQ(outcome.error.number, 4711);
  EXPECT_THAT(heard, ElementsAre("jumped"));
  ASSERT_THAT(seam::calls(), SizeIs(1));
  EXPECT_THAT(seam::calls()[0].arguments, ElementsAre("{4711, \"a message\"}"));
  seam_UtlFree(nullptr);
  EXPECT_THAT(outline(seam::calls()), ElementsAre("KciRaiseException=jumped", "UtlFree="));
}

// ---- lines ----

TEST(FormatCall, WritesColumns) {
  seam::Call call;
  call.number = 3;
  call.name = "HostReadFile_";
  call.arguments = {"5", "ptr", "4096"};
  call.result = "120";
  call.nanoseconds = 420;
  EXPECT_EQ(seam::formatCall(call, true), "   3  HostReadFile_(5, ptr, 4096) = 120  0.4 us");
  call.number = 12345;
  call.result = "-1";
  call.errnoAfter = ENOENT;
  call.injected = true;
  EXPECT_EQ(
      seam::formatCall(call, false),
      "12345  HostReadFile_(5, ptr, 4096) = -1 ENOENT (No such file or directory) [injected]");
  call.errnoAfter = 4000;
  EXPECT_EQ(seam::formatCall(call, false),
            "12345  HostReadFile_(5, ptr, 4096) = -1 4000 (unknown error) [injected]");
}

TEST(FormatCall, WritesNoResultWhereThereIsNone) {
  seam::Call call;
  call.number = 1;
  call.name = "UtlFree";
  call.arguments = {"null"};
  EXPECT_EQ(seam::formatCall(call, false), "   1  UtlFree(null)");
}

}  // namespace
