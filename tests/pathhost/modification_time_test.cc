// The modification time as a DateTime, and errors of the interface on the way to it.
#include "pathhost/path_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>

namespace kvtest {
namespace {

class ModTime : public PathTest {
 protected:
  void SetUp() override {
    PathTest::SetUp();
    writeFile("file", "x");
  }

  static void setTime(const char* path, time_t seconds, long nanoseconds = 0) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW), 0);
  }

  // Year, day of the year and milliseconds of a DateTime.
  static std::vector<int64> fieldsOf(OopType dateTime) {
    EXPECT_EQ(kvhost::classOf(dateTime), OOP_CLASS_DATE_TIME);
    std::vector<int64> fields;
    for (const OopType element : kvhost::elementsOf(dateTime))
      if (oopIsSmallInteger(element)) fields.push_back(oopSmallIntegerValue(element));
    fields.resize(3);
    return fields;
  }

  OopType ask(const char* path) { return call("KvfModTime", {KV_FILE, str(path)}); }
};

TEST_F(ModTime, IsTheFilesOwnInSeconds) {
  struct Row {
    time_t seconds;
    std::vector<int64> fields;
  };
  for (const auto& [seconds, fields] :
       std::vector<Row>{{0, {1970, 1, 0}},
                        {86399, {1970, 1, 86399000}},
                        {951782400, {2000, 60, 0}},             // 29 February 2000
                        {1234567890, {2009, 44, 84690000}},     // 13 February, 23:31:30
                        {1735689599, {2024, 366, 86399000}},    // the last second of a leap year
                        {2147483648, {2038, 19, 11648000}}}) {  // past 31 bits
    setTime("file", seconds, 999999999);
    EXPECT_EQ(fieldsOf(ask("file")), fields) << seconds;
  }
}

TEST_F(ModTime, FollowsLinks) {
  ASSERT_EQ(symlink("file", "link"), 0);
  setTime("file", 1000000000);
  setTime("link", 1100000000);
  EXPECT_EQ(fieldsOf(ask("link")), fieldsOf(ask("file")));
}

TEST_F(ModTime, OfADirectoryIsAnsweredToo) {
  std::filesystem::create_directory("dir");
  setTime("dir", 86400);
  EXPECT_EQ(fieldsOf(ask("dir")), (std::vector<int64>{1970, 2, 0}));
}

TEST_F(ModTime, AnswersANewObjectEachTime) { EXPECT_NE(ask("file"), ask("file")); }

TEST_F(ModTime, ConvertsTheSecondsThatTheHostGave) {
  setTime("file", 1234567890);
  const auto calls = callsDuring([&] { ask("file"); });
  const auto conversions = callsOf(calls, "KciCTimeToDateTime");
  ASSERT_EQ(conversions.size(), 1U);
  EXPECT_EQ(conversions[0].arguments.front(), "1234567890");
  EXPECT_EQ(callsOf(calls, "KciNewDateTime").size(), 1U);
  EXPECT_EQ(callsOf(calls, "KciErr").size(), 2U) << "asked after either call";
}

class ModTimeInterfaceError : public ModTime, public ::testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Either, ModTimeInterfaceError,
                         ::testing::Values("KciCTimeToDateTime", "KciNewDateTime"));

TEST_P(ModTimeInterfaceError, IsPostedWithItsNumberAndMessage) {
  seedSlot();
  fault(std::string(GetParam()) + ":1:raise=2101");
  const auto calls = callsDuring([&] { EXPECT_EQ(ask("file"), OOP_NIL); });
  const ClassError error = takeSlot();
  EXPECT_EQ(error, (ClassError{2101, "Kestrova KCI error 2101, message: raised by a fault"}));
  const size_t made = GetParam() == std::string("KciNewDateTime") ? 1 : 0;
  EXPECT_EQ(callsOf(calls, "KciNewDateTime").size(), made) << "nothing is made after a failure";
  KciErrSType pending;
  EXPECT_FALSE(KciErr(&pending)) << "the error was taken";
}

TEST_F(ModTime, TooFarForAYearIsTheInterfacesError) {
  // A time whose year does not fit in an int; not every file system keeps it.
  const int64 time = INT64_MAX;
  KciDateTimeSType date{};
  KciCTimeToDateTime(time, &date);
  KciErrSType expected;
  expected.initialize();
  ASSERT_TRUE(KciErr(&expected));
  const MemoryDirectory memory;
  const std::string path = memory.path() + "/file";
  writeFile(path, "");
  setTime(path.c_str(), time);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  if (status.st_mtime != time) GTEST_SKIP() << "no file system here keeps such a time";
  EXPECT_EQ(ask(path.c_str()), OOP_NIL);
  EXPECT_EQ(takeSlot(),
            (ClassError{expected.number, "Kestrova KCI error " + std::to_string(expected.number) +
                                             ", message: " + expected.message}));
}

}  // namespace
}  // namespace kvtest
