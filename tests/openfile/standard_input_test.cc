// Reading standard input that is no terminal: a regular file, and a pipe, which cannot seek. Each
// case runs in a child process with its own descriptor 0.
#include "openfile/openfile_fixture.h"

#include <fcntl.h>

namespace kvtest {
namespace {

class StandardInput : public OpenFileTest {
 protected:
  // Runs `body` on the bound file object with `content` on descriptor 0 and a file on descriptor 1,
  // which is left as "shown".
  std::string withFile(std::string_view content, const std::function<std::string(OopType)>& body) {
    writeFile("input", content);
    return inChild([&] {
      dup2(open("input", O_RDONLY), 0);
      return run(body);
    });
  }

  std::string withPipe(std::string_view content, const std::function<std::string(OopType)>& body) {
    return inChild([&] {
      int ends[2];
      if (pipe(ends) != 0) return std::string("no pipe");
      if (::write(ends[1], content.data(), content.size()) < 0) return std::string("no write");
      close(ends[1]);
      dup2(ends[0], 0);
      return run(body);
    });
  }

  // The calls that fetched a line, as "name(arguments)=result".
  template <typename Body>
  std::string fetches(Body body) {
    std::string text;
    for (const seam::Call& one : callsDuring(body))
      if (one.name == "UnixIoFgets_" || one.name == "LrSupReadLine")
        text += seam::formatCall(one, false) + "; ";
    return text;
  }

  OopType prompted(OopType file, std::string_view prompt) {
    return getLine(file, OOP_NIL, 1, smallInt(10), str(prompt));
  }

 private:
  std::string run(const std::function<std::string(OopType)>& body) {
    dup2(open("shown", O_RDWR | O_CREAT | O_TRUNC, 0600), 1);
    const OopType file = kvhost::newKvFile();
    call("KvfCreateStdFile", {file, smallInt(0)});
    return body(file);
  }
};

TEST_F(StandardInput, LinesOfAFileAreReadOneByOneWithThePrompt) {
  EXPECT_EQ(withFile("ab\ncd\nef",
                     [&](OopType file) {
                       Transcript told;
                       for (int i = 0; i < 4; ++i) told << show(prompted(file, "? "));
                       return told << errorCode(file) << takeError(file);
                     }),
            "'ab\n' 'cd\n' 'ef' nil 0 " + std::string(past_end));
  EXPECT_EQ(readFile("shown"), "? ? ? ? ? ");
}

TEST_F(StandardInput, ThePromptOfALineIsUpTo1023Characters) {
  EXPECT_EQ(
      withFile("ab\n", [&](OopType file) { return show(prompted(file, std::string(2000, 'p'))); }),
      "'ab\n'");
  EXPECT_EQ(readFile("shown"), std::string(1023, 'p'));
}

TEST_F(StandardInput, WithoutAPromptNothingIsShown) {
  EXPECT_EQ(withFile("ab\ncd\n",
                     [&](OopType file) {
                       return Transcript() << show(getLine(file)) << getC(file)
                                           << readBytes(file, 1) << atEnd(file);
                     }),
            "'ab\n' $99 d false");
  EXPECT_EQ(readFile("shown"), "");
}

TEST_F(StandardInput, ALineFetchIsGivenTwoMoreThanAsked) {
  for (const auto& row : std::vector<std::pair<int64, std::string>>{
           {1, "3"}, {5, "7"}, {4093, "4095"}, {4094, "4096"}, {4096, "4096"}}) {
    EXPECT_THAT(
        withFile(patternBytes(5000),
                 [&](OopType file) { return fetches([&] { readBytes(file, row.first); }); }),
        ::testing::HasSubstr(", " + row.second + ", "))
        << row.first;
  }
}

TEST_F(StandardInput, ALineIsFetchedInPiecesOfTheSizeAsked) {
  EXPECT_EQ(withFile("hello world\n",
                     [&](OopType file) {
                       Transcript told;
                       told << readBytes(file, 5);
                       const std::string made = fetches([&] { told << readBytes(file, 1) + "|"; });
                       return told << "[" + made + "]" << readBytes(file, 5) << show(getLine(file));
                     }),
            "hello  | [] world '\n'");
}

TEST_F(StandardInput, ALineLongerThanTheBufferIsOneString) {
  EXPECT_EQ(withFile(patternBytes(9000) + "\nrest\n",
                     [&](OopType file) {
                       const bool whole = bytes(getLine(file)) == patternBytes(9000) + "\n";
                       return (whole ? "whole " : "cut ") + show(getLine(file));
                     }),
            "whole 'rest\n'");
}

TEST_F(StandardInput, AByteLeftMakesTheNextFetchLandBehindIt) {
  EXPECT_EQ(withFile("abcdefgh\n",
                     [&](OopType file) {
                       return Transcript()
                              << readBytes(file, 3) << readBytes(file, 6) << atEnd(file);
                     }),
            "abc defgh\n true");
}

TEST_F(StandardInput, AnInterruptedFetchIsMinusTwoEvenWithBytesBuffered) {
  EXPECT_EQ(withFile("abcdefgh\n",
                     [&](OopType file) {
                       Transcript told;
                       told << readBytes(file, 3);
                       fault("UnixIoFgets_:1:interrupt");
                       return told << show(read(file, str(""), 1, 3)) << readBytes(file, 1)
                                   << readBytes(file, 5);
                     }),
            "abc -2 d efgh\n");
}

TEST_F(StandardInput, AnInterruptedLineIsMinusTwo) {
  EXPECT_EQ(withFile("ab\n",
                     [&](OopType file) {
                       fault("UnixIoFgets_:1:interrupt");
                       Transcript told;
                       told << show(getLine(file));
                       fault("UnixIoFgets_:1:interrupt");
                       return told << getC(file) << show(getLine(file));
                     }),
            "-2 -2 'ab\n'");
}

TEST_F(StandardInput, AFailedFetchLooksLikeTheEndButIsNotRemembered) {
  EXPECT_EQ(withFile("ab\n",
                     [&](OopType file) {
                       fault("UnixIoFgets_:1:EIO");
                       return Transcript() << show(read(file, str(""), 1, 1)) << errorCode(file)
                                           << takeError(file) << atEnd(file);
                     }),
            "0 0 " + std::string(past_end) + " false");
}

TEST_F(StandardInput, TheEndOfAFileIsRemembered) {
  EXPECT_EQ(withFile("",
                     [&](OopType file) {
                       Transcript told;
                       told << getC(file) << errorCode(file);
                       const std::string made = fetches([&] { told << atEnd(file); });
                       return told << "[" + made + "]" << show(read(file, str(""), 1, 1))
                                   << takeError(file);
                     }),
            "nil 0 true [] 0 " + std::string(past_end));
}

TEST_F(StandardInput, LocksAreRefused) {
  EXPECT_EQ(withFile("ab\n",
                     [&](OopType file) {
                       return show(call("KvfUnlock", {file, smallInt(0), smallInt(0)}));
                     }),
            "'unlocking is not supported on stdin, stdout, or stderr'");
}

TEST_F(StandardInput, APipeLeavesItsRefusalToSeekBesideTheBytes) {
  EXPECT_EQ(withPipe("ab\ncd\n",
                     [&](OopType file) {
                       return Transcript()
                              << show(getLine(file)) << errorCode(file) << takeError(file)
                              << show(getLine(file)) << errorCode(file) << takeError(file);
                     }),
            "'ab\n' 29 'errno=29,ESPIPE, Illegal seek' 'cd\n' 29 nil");
}

TEST_F(StandardInput, TheEndOfAPipeIsNil) {
  EXPECT_EQ(withPipe("ab\n",
                     [&](OopType file) {
                       return Transcript() << readBytes(file, 3) << show(read(file, str(""), 1, 1))
                                           << errorCode(file) << show(getLine(file)) << getC(file)
                                           << atEnd(file);
                     }),
            "ab\n nil 29 nil nil true");
}

TEST_F(StandardInput, TheEndOfAnEmptyPipeIsNilWithTheTextOfTheSeek) {
  EXPECT_EQ(
      withPipe(
          "", [&](OopType file) { return Transcript() << show(getLine(file)) << takeError(file); }),
      "nil 'errno=29,ESPIPE, Illegal seek'");
}

}  // namespace
}  // namespace kvtest
