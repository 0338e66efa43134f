// How often and for how much the interface and the host are asked: one question more, or one for more
// bytes, changes no answer, and is seen here alone.
#include "openfile/openfile_fixture.h"
#include "support/record_fixture.h"

namespace kvtest {
namespace {

class CallsMade : public OpenFileTest {
 protected:
  static constexpr OopType CLASS = kvhost::CLASS_KV_FILE;

  // Where each call of `name` began and how much it asked for, "1+4096", while `body` ran; `start`
  // and `count` are the indexes of these arguments.
  template <typename Body>
  std::vector<std::string> ranges(const char* name, std::size_t start, std::size_t count,
                                  Body body) {
    std::vector<std::string> asked;
    for (const seam::Call& one : callsNamed(name, body))
      asked.push_back(argumentOf(one, start) + "+" + argumentOf(one, count));
    return asked;
  }
  template <typename Body>
  std::vector<std::string> bytesFetched(Body body) {
    return ranges("KciFetchBytes_", 1, 3, body);
  }
  template <typename Body>
  std::size_t sizesAsked(Body body) {
    return callsNamed("KciFetchSize_", body).size();
  }
  // The counts that the host was asked to read.
  template <typename Body>
  std::vector<std::string> readsAsked(Body body) {
    std::vector<std::string> asked;
    for (const seam::Call& one : callsNamed("HostReadFile_", body))
      asked.push_back(argumentOf(one, 2));
    return asked;
  }
};

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- questions to the interface ----

TEST_F(CallsMade, AWriteFetchesTheObjectOnceInPiecesOf4096) {
  const OopType file = openFile("out", "w");
  const OopType object = str(patternBytes(10000));
  const auto writing = [&] { call("KvfWrite", {file, object, smallInt(1), smallInt(10000)}); };
  EXPECT_THAT(bytesFetched(writing), ElementsAre("1+4096", "4097+4096", "8193+1808"));
  EXPECT_EQ(sizesAsked(writing), 1U);
  EXPECT_THAT(bytesFetched([&] {
                call("KvfWrite", {file, object, smallInt(1), smallInt(4096)});
              }),
              ElementsAre("1+4096"));
  EXPECT_THAT(bytesFetched([&] {
                call("KvfWrite", {file, object, smallInt(1), smallInt(0)});
              }),
              IsEmpty());
}

TEST_F(CallsMade, AReadAsksForNoSize) {
  const OopType file = openWith(patternBytes(10000));
  EXPECT_EQ(sizesAsked([&] { readBytes(file, 9000); }), 0U);
  EXPECT_THAT(bytesFetched([&] { readBytes(file, 100); }), IsEmpty());
}

TEST_F(CallsMade, APrintFetchesTheObjectOnceInPiecesOf1024) {
  const OopType file = openFile("out", "w");
  const auto printing = [&](std::size_t size) {
    return [this, file, object = str(patternBytes(size))] {
      call("KvfPrintBytes", {file, object});
    };
  };
  EXPECT_EQ(sizesAsked(printing(2500)), 1U);
  const auto pieces = callsNamed("KciFetchBytes_", printing(2500));
  std::vector<std::string> starts;
  for (const seam::Call& one : pieces) starts.push_back(argumentOf(one, 1));
  EXPECT_THAT(starts, ElementsAre("1", "1025", "2049"));
  EXPECT_THAT(bytesFetched(printing(2048)), ElementsAre("1+1024", "1025+1024"));
  EXPECT_THAT(bytesFetched(printing(0)), IsEmpty());
}

TEST_F(CallsMade, APassivePrintFetchesNoMoreThanIsLeft) {
  const auto printing = [&](std::size_t size) {
    return [this, object = str(patternBytes(size))] { call("KvfPassiveObjPrint", {object}); };
  };
  EXPECT_THAT(bytesFetched(printing(2500)), ElementsAre("1+1024", "1025+1024", "2049+452"));
  EXPECT_THAT(bytesFetched(printing(1024)), ElementsAre("1+1024"));
  EXPECT_THAT(bytesFetched(printing(0)), IsEmpty());
  EXPECT_EQ(sizesAsked(printing(2500)), 1U);
}

TEST_F(CallsMade, APassiveLoadFetchesNoMoreThanIsLeft) {
  std::string text;
  while (text.size() < 9000) text += "17 ";
  text.resize(9000);
  const OopType source = str(text);
  const auto loading = [&](int64 amount) {
    return [this, source, amount] {
      call("KvfPassiveObjLoadByteStrings", {str(""), smallInt(amount), source, smallInt(1)});
    };
  };
  EXPECT_THAT(bytesFetched(loading(3000)), ElementsAre("1+4096", "4097+4096", "8193+808"));
  EXPECT_THAT(bytesFetched(loading(10)), ElementsAre("1+4096"));
  EXPECT_THAT(bytesFetched(loading(0)), IsEmpty());
  EXPECT_EQ(sizesAsked(loading(3000)), 2U) << "once for the end, once for the stream";
}

TEST_F(CallsMade, ALineAsksForTheSizeOfItsStringWhereItStartsAndEnds) {
  const OopType file = openWith("ab\ncd\nef\n");
  EXPECT_EQ(sizesAsked([&] { getLine(file, str("12345")); }), 2U);
  EXPECT_EQ(sizesAsked([&] { getLine(file); }), 1U) << "a new String has no size to start with";
  EXPECT_EQ(sizesAsked([&] { readBytes(file, 3), getLine(file); }), 0U) << "no line, no String";
}

TEST_F(CallsMade, ALineFetchesItsEndAndItsPromptOnce) {
  const OopType file = openWith("ab\ncd\nef\n");
  EXPECT_THAT(bytesFetched([&] { getLine(file, OOP_NIL, 1, str("\n")); }), ElementsAre("0+129"));
  EXPECT_THAT(bytesFetched([&] { getLine(file); }), IsEmpty());
  EXPECT_THAT(
      ranges("KciFetchChars_", 1, 3, [&] { getLine(file, OOP_NIL, 1, smallInt(10), str("? ")); }),
      ElementsAre("1+1023"));
}

TEST_F(CallsMade, AnOpenFetchesPathAndModeOnceAndAsksForNoSize) {
  const auto opening = [&] {
    call("KvfOpen", {kvhost::newKvFile(), str("new"), str("w"), OOP_FALSE});
  };
  EXPECT_THAT(ranges("KciFetchUtf8Bytes_", 1, 3, opening), ElementsAre("1+4096"));
  EXPECT_THAT(ranges("KciFetchObjInfo", 1, 2, opening), ElementsAre("1+7"));
  EXPECT_EQ(sizesAsked(opening), 0U);
}

TEST_F(CallsMade, TextsAreFetchedForAsMuchAsTheirBufferHolds) {
  const OopType file = openWith("abc", "r+");
  EXPECT_THAT(
      ranges("KciFetchObjInfo", 1, 2,
             [&] {
               call("KvfLock", {file, str("readLock"), smallInt(0), smallInt(1), smallInt(0)});
             }),
      ElementsAre("1+15"));
  EXPECT_THAT(ranges("KciFetchObjInfo", 1, 2,
                     [&] {
                       call("KvfKciGetSocketBufSize", {CLASS, str("SO_SNDBUF")});
                     }),
              ElementsAre("1+31"));
  EXPECT_THAT(ranges("KciFetchChars_", 1, 3,
                     [&] {
                       call("KvfClassError", {CLASS, str("text")});
                     }),
              ElementsAre("1+2048"));
  takeClassError();
}

TEST_F(CallsMade, ALogFetchesUntilNothingComesAndAsksForTheSizeOfNothingOnly) {
  FILE* const log = fopen("log", "w");
  kvhost::setLogStream(log);
  const auto logging = [&](std::string_view text) {
    return [this, object = str(text)] { call("KvfKciLog", {CLASS, object}); };
  };
  EXPECT_THAT(ranges("KciFetchUtf8Bytes_", 1, 3, logging("abc")), ElementsAre("1+1023", "4+1023"));
  EXPECT_EQ(sizesAsked(logging("abc")), 0U);
  EXPECT_THAT(ranges("KciFetchUtf8Bytes_", 1, 3, logging("")), ElementsAre("1+1023"));
  EXPECT_EQ(sizesAsked(logging("")), 1U);
  kvhost::setLogStream(stderr);
  KciSetLoggerFlush(0);
  fclose(log);
}

TEST_F(CallsMade, DeadFilesAreFetched500AtATime) {
  const auto finalizing = [&](std::vector<OopType> ids) {
    return [this, dead = kvhost::newArray(ids)] { call("KvfClientFinalize", {dead}); };
  };
  EXPECT_THAT(ranges("KciFetchOops", 1, 3, finalizing({})), ElementsAre("1+500"));
  EXPECT_THAT(ranges("KciFetchOops", 1, 3, finalizing({OOP_NIL, OOP_NIL, OOP_NIL})),
              ElementsAre("1+500", "4+500"));
}

// ---- questions to the host ----

TEST_F(CallsMade, ARefillReadsWhatTheBufferHasRoomFor) {
  const OopType file = openWith(patternBytes(20000));
  EXPECT_THAT(readsAsked([&] { readBytes(file, 10); }), ElementsAre("4096"));
  EXPECT_THAT(readsAsked([&] { readBytes(file, 4086); }), IsEmpty());
  EXPECT_THAT(readsAsked([&] { readBytes(file, 4000); }), ElementsAre("4096"));
  EXPECT_THAT(readsAsked([&] { readBytes(file, 100); }), ElementsAre("4000"))
      << "96 bytes were kept";
  EXPECT_THAT(readsAsked([&] { atEnd(file); }), IsEmpty());
}

TEST_F(CallsMade, ADirectReadAsksForWhatTheBufferDidNotHold) {
  const OopType file = openWith(patternBytes(20000));
  readBytes(file, 4000);
  ByteType memory[500];
  EXPECT_THAT(readsAsked([&] { KvFileRead(file, memory, 50, 0); }), IsEmpty());
  EXPECT_THAT(readsAsked([&] { KvFileRead(file, memory, 500, 0); }), ElementsAre("454"));
  EXPECT_THAT(readsAsked([&] { KvFileRead(file, memory, 0, 0); }), IsEmpty());
}

TEST_F(CallsMade, ALoadReadsByteForByte) {
  const OopType file = openWith("1 22 3 ");
  EXPECT_THAT(readsAsked([&] {
                call("KvfLoadByteStrings", {file, str(""), smallInt(2)});
              }),
              ElementsAre("1", "1", "1", "1", "1"));
  EXPECT_EQ(position(file), "5");
}

TEST_F(CallsMade, AGzipRefillReadsWhatTheBufferHasRoomFor) {
  const OopType file = openGzipWith(patternBytes(20000));
  const auto asked = [&](int64 amount) {
    std::vector<std::string> counts;
    for (const seam::Call& one : callsNamed("gzread", [&] { readBytes(file, amount); }))
      counts.push_back(argumentOf(one, 2));
    return counts;
  };
  EXPECT_THAT(asked(10), ElementsAre("4096"));
  EXPECT_THAT(asked(4086), IsEmpty());
  EXPECT_THAT(asked(4000), ElementsAre("4096"));
  EXPECT_THAT(asked(100), ElementsAre("4000"));
}

}  // namespace
}  // namespace kvtest
