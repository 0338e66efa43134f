// File objects bound to the process's standard streams. What writes to or closes one of them runs
// in a child process whose stream is a file.
#include "openfile/openfile_fixture.h"

#include <fcntl.h>

namespace kvtest {
namespace {

constexpr const char* append_refusal = "'Cannot seek on a file opened with append mode'";

class StandardFiles : public OpenFileTest {
 protected:
  OopType bind(int64 id) {
    const OopType file = kvhost::newKvFile();
    EXPECT_EQ(show(call("KvfCreateStdFile", {file, smallInt(id)})), "1");
    return file;
  }
  std::string close(OopType file) { return show(call("KvfClose", {file})); }

  // Runs `body` with descriptor `id` open on a file and answers what `body` told; the file is then
  // read with readFile("stream").
  std::string withStream(int id, const std::function<std::string()>& body) {
    return inChild([&] {
      const int fd = ::open("stream", O_RDWR | O_CREAT | O_TRUNC, 0600);
      dup2(fd, id);
      std::string told = body();
      fflush(nullptr);
      return told;
    });
  }
};

TEST_F(StandardFiles, OnlyTheThreeIdsBind) {
  for (const OopType id :
       {smallInt(3), smallInt(-1), smallInt(int64{1} << 32), smallInt((int64{1} << 32) + 1),
        smallInt(-(int64{1} << 32)), kvhost::newInteger(int64{1} << 61), OOP_NIL, OOP_TRUE,
        str("0"), oopFromCharacter(0)}) {
    EXPECT_EQ(call("KvfCreateStdFile", {kvhost::newKvFile(), id}), OOP_NIL) << id;
  }
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "0");
  EXPECT_EQ(errorCode(OOP_NIL), "0");
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(StandardFiles, NilIsNotBoundEvenWithoutASession) {
  kvhost::sessionSelect(0);
  for (int64 id = 0; id < 3; ++id)
    EXPECT_EQ(call("KvfCreateStdFile", {OOP_NIL, smallInt(id)}), OOP_NIL);
}

TEST_F(StandardFiles, WithoutASessionTheRegistrationRaises) {
  const OopType file = kvhost::newKvFile();
  kvhost::sessionSelect(0);
  expectRaise(4100, {smallInt(0)}, "KvfCreateStdFile", {file, smallInt(1)});
  EXPECT_EQ(call("KvfCreateStdFile", {file, smallInt(3)}), OOP_NIL);
}

TEST_F(StandardFiles, EachHasItsDescriptor) {
  for (int64 id = 0; id < 3; ++id) {
    const OopType file = bind(id);
    EXPECT_EQ(show(call("KvfGetFileDesc", {file})), std::to_string(id));
    EXPECT_EQ(show(call("KvfIsOpen", {file})), "true");
    EXPECT_EQ(show(call("KvfIsCompressed", {file})), "false");
  }
}

TEST_F(StandardFiles, BindingAgainReusesTheRecord) {
  const OopType file = bind(0);
  EXPECT_EQ(show(call("KvfCreateStdFile", {file, smallInt(2)})), "2");
  EXPECT_EQ(show(call("KvfGetFileDesc", {file})), "2");
  writeFile("a", "abc");
  EXPECT_EQ(show(call("KvfOpen", {file, str("a"), str("r"), OOP_FALSE})), "2");
  EXPECT_EQ(readBytes(file, 9), "abc");
}

TEST_F(StandardFiles, OutputIsInAppendModeForSeeks) {
  for (const int id : {1, 2}) {
    EXPECT_EQ(withStream(id,
                         [&] {
                           const OopType file = bind(id);
                           return Transcript() << show(write(file, "abc\n"))
                                               << show(seek(file, 0, 2)) << show(seek(file, 0))
                                               << errorCode(file) << takeError(file) << close(file);
                         }),
              std::string("4 4 nil 9 ") + append_refusal + " aKvFile");
    EXPECT_EQ(readFile("stream"), "abc\n");
  }
}

TEST_F(StandardFiles, ClosingOutputWithinALineEndsItAndAnswersNil) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         return Transcript() << show(write(file, "abc")) << close(file)
                                             << show(call("KvfIsOpen", {file})) << close(file)
                                             << errorCode(file);
                       }),
            "3 nil false aKvFile 0");
  EXPECT_EQ(readFile("stream"), "abc\n");
}

TEST_F(StandardFiles, ClosingOutputBehindALineWritesNothing) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         return Transcript() << show(write(file, "abc\n")) << close(file);
                       }),
            "4 aKvFile");
  EXPECT_EQ(readFile("stream"), "abc\n");
}

TEST_F(StandardFiles, ClosingUntouchedOutputWritesNothing) {
  EXPECT_EQ(withStream(1, [&] { return close(bind(1)); }), "aKvFile");
  EXPECT_EQ(readFile("stream"), "");
}

TEST_F(StandardFiles, ANewlineThatIsPutEndsTheLine) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         return Transcript()
                                << show(write(file, "abc"))
                                << show(call("KvfPutC", {file, oopFromCharacter('\n')}))
                                << close(file);
                       }),
            "3 true aKvFile");
  EXPECT_EQ(readFile("stream"), "abc\n");
}

TEST_F(StandardFiles, APutOrPrintedByteLeavesTheLineOpen) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         write(file, "x\n");
                         call("KvfPutC", {file, smallInt('y')});
                         return close(file);
                       }),
            "nil");
  EXPECT_EQ(readFile("stream"), "x\ny\n");
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         call("KvfPrintBytes", {file, str("\n")});
                         return close(file);
                       }),
            "nil");
  EXPECT_EQ(readFile("stream"), "10 \n");
}

TEST_F(StandardFiles, AFailedNewlineAnswersTheFile) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         write(file, "abc");
                         fault("fwrite:1:result=0");
                         return Transcript() << close(file) << show(call("KvfIsOpen", {file}))
                                             << errorCode(file);
                       }),
            "aKvFile false 0");
  EXPECT_EQ(readFile("stream"), "abc");
}

TEST_F(StandardFiles, ClosingErrorOutputWithinALineWritesNothing) {
  EXPECT_EQ(withStream(2,
                       [&] {
                         const OopType file = bind(2);
                         write(file, "abc");
                         return close(file);
                       }),
            "aKvFile");
  EXPECT_EQ(readFile("stream"), "abc");
}

TEST_F(StandardFiles, TheStreamsAreNeverClosed) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         std::string told;
                         const auto names = namesOf(callsDuring([&] {
                           for (int64 id = 0; id < 3; ++id) told += close(bind(id)) + " ";
                         }));
                         told += std::find(names.begin(), names.end(), "fclose") == names.end()
                                     ? "kept"
                                     : "lost";
                         for (int fd = 0; fd < 3; ++fd)
                           told += fcntl(fd, F_GETFD) >= 0 ? " open" : " closed";
                         return told;
                       }),
            "aKvFile aKvFile aKvFile kept open open open");
}

TEST_F(StandardFiles, ClosingAllAndShuttingDownEndTheLineOnce) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         write(file, "abc");
                         call("KvfCloseAll", {kvhost::CLASS_KV_FILE});
                         Transcript told;
                         told << show(call("KvfIsOpen", {file}));
                         call("KvfCloseAll", {kvhost::CLASS_KV_FILE});
                         KvfShutdown(session_);
                         return told;
                       }),
            "false");
  EXPECT_EQ(readFile("stream"), "abc\n");
  EXPECT_EQ(withStream(1,
                       [&] {
                         write(bind(1), "abc");
                         KvfShutdown(session_);
                         return std::string("done");
                       }),
            "done");
  EXPECT_EQ(readFile("stream"), "abc\n");
}

TEST_F(StandardFiles, OutputCannotBeRead) {
  const int sink = ::open("sink", O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(inChild([&] {
              dup2(sink, 1);
              const OopType file = bind(1);
              return Transcript() << readBytes(file, 1) << errorCode(file) << atEnd(file);
            }),
            "nil 9 true");
  ::close(sink);
}

TEST_F(StandardFiles, OutputIsFlushedAndSynchronised) {
  EXPECT_EQ(withStream(1,
                       [&] {
                         const OopType file = bind(1);
                         write(file, "abc\n");
                         return Transcript()
                                << show(call("KvfFlush", {file})) << show(call("KvfSync", {file}));
                       }),
            "aKvFile aKvFile");
}

}  // namespace
}  // namespace kvtest
