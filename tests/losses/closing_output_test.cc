// The newline that closing standard output writes lies before what is written to the descriptor next.
#include "openfile/openfile_fixture.h"
#include "support/standard_streams.h"

namespace kvtest {
namespace {

class ClosingOutput : public OpenFileTest {
 protected:
  OopType standardOutput() {
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(1)});
    return file;
  }
  static void writeBeside(std::string_view text) {
    EXPECT_EQ(::write(STDOUT_FILENO, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
};

TEST_F(ClosingOutput, TheNewlineComesBeforeTheNextWriteToTheDescriptor) {
  OopType answer = OOP_NIL;
  EXPECT_EQ(writtenTo(STDOUT_FILENO,
                      [&] {
                        const OopType file = standardOutput();
                        write(file, "abc");
                        answer = call("KvfClose", {file});
                        writeBeside("next");
                      }),
            "abc\nnext");
  EXPECT_EQ(answer, OOP_NIL) << "a newline that was written counts as a failure";
}

TEST_F(ClosingOutput, TheNewlineComesBeforeTheNextFileObjectsText) {
  EXPECT_EQ(writtenTo(STDOUT_FILENO,
                      [&] {
                        for (const char* text : {"one", "two", "three\n", "four"}) {
                          const OopType file = standardOutput();
                          write(file, text);
                          call("KvfClose", {file});
                        }
                      }),
            "one\ntwo\nthree\nfour\n");
}

TEST_F(ClosingOutput, OpeningAgainIsAClose) {
  EXPECT_EQ(writtenTo(STDOUT_FILENO,
                      [&] {
                        const OopType file = standardOutput();
                        write(file, "one");
                        call("KvfCreateStdFile", {file, smallInt(1)});
                        write(file, "two\n");
                      }),
            "one\ntwo\n");
}

TEST_F(ClosingOutput, SoIsClosingAllFinalisingAndTheEndOfTheSession) {
  EXPECT_EQ(writtenTo(STDOUT_FILENO,
                      [&] {
                        write(standardOutput(), "one");
                        call("KvfCloseAll", {kvhost::CLASS_KV_FILE});
                        writeBeside("1 ");
                        const OopType file = standardOutput();
                        write(file, "two");
                        const OopType id = kvhost::newInteger(static_cast<int64>(file));
                        call("KvfClientFinalize", {kvhost::newArray({id})});
                        writeBeside("2 ");
                        write(standardOutput(), "three");
                        KvfShutdown(session_);
                        writeBeside("3 ");
                        KvfStartup(session_);
                      }),
            "one\n1 two\n2 three\n3 ");
}

TEST_F(ClosingOutput, FlushesTheStreamRightBehindTheNewline) {
  std::vector<std::string> calls;
  writtenTo(STDOUT_FILENO, [&] {
    const OopType file = standardOutput();
    write(file, "abc");
    calls = fileCallsDuring([&] { call("KvfClose", {file}); });
  });
  EXPECT_THAT(calls, ::testing::ElementsAre("fflush=0"));
  // fwrite moves no file: it is looked for apart.
  std::vector<std::string> names;
  writtenTo(STDOUT_FILENO, [&] {
    const OopType file = standardOutput();
    write(file, "abc");
    names = namesOf(callsDuring([&] { call("KvfClose", {file}); }));
  });
  const auto newline = std::find(names.begin(), names.end(), "fwrite");
  ASSERT_NE(newline, names.end());
  ASSERT_NE(newline + 1, names.end());
  EXPECT_EQ(*(newline + 1), "fflush");
}

TEST_F(ClosingOutput, TheAnswerIsThatOfTheNewlineEvenWhereTheFlushFails) {
  OopType answer = OOP_FALSE;
  OopType file = OOP_NIL;
  writtenTo(STDOUT_FILENO, [&] {
    file = standardOutput();
    write(file, "abc");
    fault("fflush:1:EIO");
    answer = call("KvfClose", {file});
    clearFaults();
  });
  EXPECT_EQ(answer, OOP_NIL);
  EXPECT_EQ(call("KvfIsOpen", {file}), OOP_FALSE);
}

TEST_F(ClosingOutput, ANewlineThatCouldNotBeWrittenAnswersTheFile) {
  OopType answer = OOP_FALSE;
  OopType file = OOP_NIL;
  writtenTo(STDOUT_FILENO, [&] {
    file = standardOutput();
    write(file, "abc");
    fault("fwrite:1:EIO");
    answer = call("KvfClose", {file});
    clearFaults();
  });
  EXPECT_EQ(answer, file);
}

TEST_F(ClosingOutput, WithoutANewlineNothingIsFlushed) {
  std::vector<std::string> names;
  writtenTo(STDOUT_FILENO, [&] {
    const OopType file = standardOutput();
    write(file, "abc\n");
    names = namesOf(callsDuring([&] { EXPECT_EQ(call("KvfClose", {file}), file); }));
  });
  EXPECT_THAT(names, ::testing::Not(::testing::Contains("fwrite")));
}

}  // namespace
}  // namespace kvtest
