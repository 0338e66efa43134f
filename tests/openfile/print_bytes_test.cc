// Printing byte objects as decimal numbers.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

class PrintBytes : public OpenFileTest {
 protected:
  // The expected text: a line is broken before a field where more than 200 columns are filled.
  static std::string decimalText(std::string_view data) {
    std::string text;
    std::size_t lineStart = 0;
    for (const char byte : data) {
      if (text.size() - lineStart > 200) {
        text += '\n';
        lineStart = text.size();
      }
      text += std::to_string(static_cast<unsigned char>(byte)) + " ";
    }
    return data.empty() ? " " : text;
  }

  static std::string mixedBytes(std::size_t size) {
    std::string data;
    for (std::size_t i = 0; i < size; ++i) data += static_cast<char>(i * 37 + i / 256);
    return data;
  }

  std::string printed(OopType object) {
    const OopType file = openFile("out", "w");
    EXPECT_EQ(call("KvfPrintBytes", {file, object}), file);
    EXPECT_EQ(call("KvfClose", {file}), file);
    return readFile("out");
  }
};

TEST_F(PrintBytes, EachByteIsANumberAndABlank) {
  EXPECT_EQ(printed(str(std::string("\0\x09\x0a\xff", 4))), "0 9 10 255 ");
  EXPECT_EQ(printed(kvhost::newByteArray(std::string(1, '\0'))), "0 ");
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_EQ(printed(str(all)), decimalText(all));
}

TEST_F(PrintBytes, NothingPrintsABlank) {
  EXPECT_EQ(printed(str("")), " ");
  EXPECT_EQ(printed(OOP_NIL), " ");
  EXPECT_EQ(printed(smallInt(7)), " ");
}

TEST_F(PrintBytes, LinesBreakBehindTheTwoHundredthColumn) {
  const auto repeated = [](std::string_view field, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += field;
    return text;
  };
  EXPECT_EQ(printed(str(std::string(51, '\xff'))), repeated("255 ", 51));
  EXPECT_EQ(printed(str(std::string(52, '\xff'))), repeated("255 ", 51) + "\n255 ");
  EXPECT_EQ(printed(str(std::string(103, '\xff'))),
            repeated("255 ", 51) + "\n" + repeated("255 ", 51) + "\n255 ");
  EXPECT_EQ(printed(str(std::string(67, 'A'))), repeated("65 ", 67));
  EXPECT_EQ(printed(str(std::string(68, 'A'))), repeated("65 ", 67) + "\n65 ");
  EXPECT_EQ(printed(str(std::string(101, '\0'))), repeated("0 ", 101));
  EXPECT_EQ(printed(str(std::string(102, '\0'))), repeated("0 ", 101) + "\n0 ");
}

TEST_F(PrintBytes, ChunksDoNotShowInTheText) {
  for (const std::size_t size : {1023U, 1024U, 1025U, 2047U, 2048U, 2049U, 5000U}) {
    const std::string data = mixedBytes(size);
    EXPECT_EQ(printed(str(data)), decimalText(data)) << size;
  }
}

TEST_F(PrintBytes, BytesAreFetchedInChunks) {
  const OopType file = openFile("out", "w");
  const auto calls = callsNamed("KciFetchBytes_", [&] {
    call("KvfPrintBytes", {file, str(mixedBytes(2500))});
  });
  EXPECT_THAT(resultsOf(calls), ::testing::ElementsAre("1024", "1024", "452"));
}

TEST_F(PrintBytes, EachFieldIsAWriteOfItsOwn) {
  const OopType file = openFile("out", "w");
  EXPECT_THAT(fileCallsDuring([&] {
                call("KvfPrintBytes", {file, str(std::string("\0\x09\x0a\xff", 4))});
              }),
              ::testing::ElementsAre("HostWriteFile_=2", "HostWriteFile_=2", "HostWriteFile_=3",
                                     "HostWriteFile_=4"));
}

TEST_F(PrintBytes, GzipTextGoesThroughZlib) {
  const std::string data = mixedBytes(1500);
  const OopType file = openFile("out.gz", "w", true);
  EXPECT_EQ(call("KvfPrintBytes", {file, str(data)}), file);
  EXPECT_EQ(call("KvfPrintBytes", {file, str("")}), file);
  call("KvfClose", {file});
  EXPECT_EQ(readGzip("out.gz"), decimalText(data) + " ");
}

TEST_F(PrintBytes, ReadAheadIsDroppedAndTheTextGoesToTheHostPosition) {
  const OopType file = openWith("0123456789", "r+");
  readBytes(file, 3);
  EXPECT_THAT(fileCallsDuring([&] {
                call("KvfPrintBytes", {file, str("A")});
              }),
              ::testing::ElementsAre("HostWriteFile_=3"));
  EXPECT_EQ(readFile("data.bin"), "012345678965 ");
  EXPECT_EQ(position(file), "13");
}

TEST_F(PrintBytes, AnEarlierErrorStays) {
  const OopType file = openFile("out", "w");
  EXPECT_EQ(readBytes(file, 1), "nil");
  EXPECT_EQ(call("KvfPrintBytes", {file, str("A")}), file);
  EXPECT_EQ(errorCode(file), "9");
}

TEST_F(PrintBytes, AFailedWriteChangesNothingInTheAnswer) {
  const OopType file = openFile("out", "w");
  fault("HostWriteFile_:1:ENOSPC");
  EXPECT_EQ(call("KvfPrintBytes", {file, str("AB")}), file);
  EXPECT_EQ(errorCode(file), "0");
  EXPECT_EQ(readFile("out"), "66 ");
}

TEST_F(PrintBytes, AFailureToAskTheSizeEndsInTheRecord) {
  const OopType file = openFile("out", "w");
  fault("KciFetchSize_:1:raise=2101");
  EXPECT_EQ(call("KvfPrintBytes", {file, str("AB")}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2101");
  EXPECT_THAT(takeError(file), ::testing::StartsWith("'Kestrova KCI error 2101, message: "));
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(PrintBytes, AFailureToFetchALaterChunkEndsInTheRecord) {
  const std::string data = mixedBytes(2000);
  const OopType file = openFile("out", "w");
  fault("KciFetchBytes_:2:raise=2102");
  EXPECT_EQ(call("KvfPrintBytes", {file, str(data)}), OOP_NIL);
  EXPECT_EQ(errorCode(file), "2102");
  EXPECT_EQ(readFile("out"), decimalText(data.substr(0, 1024)));
}

TEST_F(PrintBytes, AnObjectWithoutBytesEndsInTheRecord) {
  const OopType file = openFile("out", "w");
  const OopType array = kvhost::newArray({smallInt(1), smallInt(2)});
  ByteType byte = 0;
  const KciErrSType error = interfaceErrorOf([&] { KciFetchBytes_(array, 1, &byte, 1); });
  EXPECT_EQ(call("KvfPrintBytes", {file, array}), OOP_NIL);
  EXPECT_EQ(errorCode(file), std::to_string(error.number));
  EXPECT_EQ(takeError(file), "'" + interfaceErrorText(error) + "'");
  EXPECT_EQ(readFile("out"), "");
}

TEST_F(PrintBytes, TheFrameIsRegisteredForTheFetchesAndPoppedOnEveryWayOut) {
  const OopType file = openFile("out", "w");
  const auto frames = [this](auto body) {
    std::vector<std::string> names;
    for (const std::string& name : namesOf(callsDuring(body)))
      if (name == "KciPushErrJump" || name == "KciPopErrJump" || name == "KciErr")
        names.push_back(name);
    return names;
  };
  EXPECT_THAT(frames([&] {
                call("KvfPrintBytes", {file, str("AB")});
              }),
              ::testing::ElementsAre("KciPushErrJump", "KciPopErrJump"));
  EXPECT_THAT(frames([&] {
                call("KvfPrintBytes", {file, str("")});
              }),
              ::testing::ElementsAre("KciPushErrJump", "KciPopErrJump"));
  fault("KciFetchBytes_:1:raise=2101");
  EXPECT_THAT(frames([&] {
                call("KvfPrintBytes", {file, str("AB")});
              }),
              ::testing::ElementsAre("KciPushErrJump", "KciErr", "KciPopErrJump"));
}

}  // namespace
}  // namespace kvtest
