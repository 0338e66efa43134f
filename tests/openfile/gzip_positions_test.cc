// Positions and flushes of gzip files: what zlib allows, and where its members end.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class GzipPositions : public OpenFileTest {};

// The texts of the members that a gzip file consists of; "cut" in the place of an unfinished one.
std::vector<std::string> membersOf(const std::string& path) {
  const std::string raw = readFile(path);
  std::vector<std::string> members;
  z_stream stream{};
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(raw.data()));
  stream.avail_in = static_cast<uInt>(raw.size());
  while (stream.avail_in > 0) {
    if (inflateInit2(&stream, 15 + 16) != Z_OK) break;
    std::string text(100000, '\0');
    stream.next_out = reinterpret_cast<Bytef*>(text.data());
    stream.avail_out = static_cast<uInt>(text.size());
    const int status = inflate(&stream, Z_FINISH);
    text.resize(stream.total_out);
    members.push_back(status == Z_STREAM_END ? text : "cut");
    inflateEnd(&stream);
    if (status != Z_STREAM_END) break;
  }
  return members;
}

TEST_F(GzipPositions, EachFlushEndsAMember) {
  const OopType file = openFile("out.gz", "w", true);
  write(file, "abc");
  EXPECT_EQ(call("KvfFlush", {file}), file);
  EXPECT_THAT(membersOf("out.gz"), ::testing::ElementsAre("abc"));
  write(file, "defg");
  EXPECT_EQ(call("KvfSync", {file}), file);
  EXPECT_THAT(membersOf("out.gz"), ::testing::ElementsAre("abc", "defg"));
  write(file, "h");
  EXPECT_EQ(call("KvfClose", {file}), file);
  EXPECT_THAT(membersOf("out.gz"), ::testing::ElementsAre("abc", "defg", "h"));
  EXPECT_EQ(readGzip("out.gz"), "abcdefgh");
}

TEST_F(GzipPositions, AFlushIsFinishAndSyncAddsNothing) {
  const OopType file = openFile("out.gz", "w", true);
  write(file, "abc");
  const auto calls = callsNamed("gzflush", [&] { call("KvfFlush", {file}); });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(lastArgumentOf(calls[0]), "Z_FINISH");
  EXPECT_THAT(fileCallsDuring([&] { call("KvfSync", {file}); }),
              ::testing::ElementsAre("gzflush=0"));
}

TEST_F(GzipPositions, AFlushOfAReadingHandleIsNilAndLeavesNoTrace) {
  const OopType file = openGzipWith("abc");
  EXPECT_EQ(call("KvfFlush", {file}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
}

TEST_F(GzipPositions, PositionsCountTheText) {
  const std::string content = patternBytes(10000);
  const OopType file = openGzipWith(content);
  EXPECT_EQ(position(file), "0");
  readBytes(file, 5);
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(position(file), "5"); }).empty());
  EXPECT_EQ(show(seek(file, 100)), "100");
  EXPECT_EQ(readBytes(file, 10), content.substr(100, 10));
  EXPECT_EQ(show(seek(file, 9000)), "9000");
  EXPECT_EQ(readBytes(file, 10), content.substr(9000, 10));
  EXPECT_EQ(show(seek(file, 7)), "7");
  EXPECT_EQ(readBytes(file, 10), content.substr(7, 10));
  EXPECT_EQ(show(seek(file, -10, 1)), "7");
}

TEST_F(GzipPositions, MovingInsideTheBufferAsksNobody) {
  const OopType file = openGzipWith(patternBytes(10000));
  readBytes(file, 5);
  EXPECT_TRUE(fileCallsDuring([&] { EXPECT_EQ(show(seek(file, 4000)), "4000"); }).empty());
  EXPECT_THAT(fileCallsDuring([&] { EXPECT_EQ(show(seek(file, 4096)), "4096"); }),
              ::testing::ElementsAre("gzseek=4096"));
}

TEST_F(GzipPositions, ASeekFromTheEndIsNilAndLeavesNoTrace) {
  const OopType file = openGzipWith("abc");
  EXPECT_EQ(seek(file, 0, 2), OOP_NIL);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(takeError(file), "nil");
  EXPECT_EQ(readBytes(file, 9), "abc");
}

TEST_F(GzipPositions, AnAppendingFileSeeksAsZlibAllows) {
  const OopType file = openGzipWith("abc", "a");
  EXPECT_EQ(show(seek(file, 2)), "2");
  write(file, "X");
  EXPECT_EQ(position(file), "3");
  EXPECT_EQ(seek(file, 0), OOP_NIL);
  EXPECT_EQ(errorCode(file), "0");
  call("KvfClose", {file});
  EXPECT_EQ(readGzip("data.gz"), std::string("abc\0\0X", 6));
}

TEST_F(GzipPositions, WrittenTextIsCounted) {
  const OopType file = openFile("out.gz", "w", true);
  write(file, "abc");
  EXPECT_EQ(position(file), "3");
  call("KvfPutC", {file, smallInt('d')});
  EXPECT_EQ(position(file), "4");
}

}  // namespace
}  // namespace kvtest
