// Decimal byte text loaded from an open file.
#include "bytestrings/bytes_fixture.h"

namespace kvtest {
namespace {

class LoadFile : public BytesTest {
 protected:
  // Loads `amount` values of `text` from a plain and from a compressed file; both must store the
  // same. Answers what was stored.
  std::string load(std::string_view text, int64_t amount = LOTS) {
    std::string stored[2];
    for (const bool compressed : {false, true}) {
      const OopType file = openText(text, compressed);
      const OopType target = emptyTarget();
      const OopType answer = loadFile(file, target, amount);
      stored[compressed] = bytes(target);
      EXPECT_EQ(answer, smallInt(static_cast<int64>(stored[compressed].size()))) << compressed;
      ModelFile model{text};
      EXPECT_EQ(stored[compressed], modelLoadFile(&model, amount)) << compressed;
      EXPECT_EQ(call("KvfPosition", {file}), smallInt(static_cast<int64>(model.position)));
    }
    EXPECT_EQ(stored[0], stored[1]);
    return stored[0];
  }
};

TEST_F(LoadFile, StoresTheValuesAndAnswersTheirNumber) {
  EXPECT_EQ(load("104 101 108 108 111", 5), "hello");
  EXPECT_EQ(load("104 101 108 108 111", 3), "hel");
  EXPECT_EQ(load("104 101 108 108 111"), "hello");
  EXPECT_EQ(load("104 101 108 108 111 \n", 5), "hello");
}

TEST_F(LoadFile, SkipsRunsOfSeparators) { EXPECT_EQ(load(" \t\n\n 104\t\t101\n \n108  "), "hel"); }

TEST_F(LoadFile, WrapsAValueToItsLowEightBits) {
  EXPECT_EQ(load("256"), std::string("\0", 1));
  EXPECT_EQ(load("65535"), std::string("\x99\x05", 2));
  EXPECT_EQ(load("0065"), "A");
  EXPECT_EQ(load("9999 999"), std::string("\x0F\xE7", 2));
}

TEST_F(LoadFile, EndsAValueAfterFourDigits) {
  EXPECT_EQ(load("12345"), std::string("\xD2\x05", 2));
  EXPECT_EQ(load("12345678"), std::string("\xD2\x2E", 2));
  EXPECT_EQ(load("123456789"), std::string("\xD2\x2E\x09", 3));
  EXPECT_EQ(load("1234 5"), std::string("\xD2\x05", 2));
  EXPECT_EQ(load("1234x5"), std::string("\xD2", 1));
}

TEST_F(LoadFile, StopsAtAForeignCharacterAndConsumesIt) {
  EXPECT_EQ(load("1 2 x 3"), "\x01\x02");
  EXPECT_EQ(load("1 2x3"), "\x01\x02");
  EXPECT_EQ(load("x"), "");
  EXPECT_EQ(load("-1"), "");
  EXPECT_EQ(load("1,2"), "\x01");
  EXPECT_EQ(load("1 \xFF 2"), "\x01");
  EXPECT_EQ(load(std::string_view("1 \0 2", 5)), "\x01");
  EXPECT_EQ(load("1 \v 2"), "\x01");
  EXPECT_EQ(load("1 \f 2"), "\x01");
}

TEST_F(LoadFile, CarriageReturnsEndTheParse) {
  EXPECT_EQ(load("1 2 \r\n3 4 \r\n"), "\x01\x02");
  EXPECT_EQ(load("1 2\r\n3"), "\x01\x02");
}

TEST_F(LoadFile, OfNothingStoresNothing) {
  EXPECT_EQ(load(""), "");
  EXPECT_EQ(load(" \t\n"), "");
}

TEST_F(LoadFile, EndsWithTheFileWithinAValue) {
  EXPECT_EQ(load("1"), "\x01");
  EXPECT_EQ(load("12"), "\x0C");
  EXPECT_EQ(load("1 123"), "\x01\x7B");
  EXPECT_EQ(load("1 1234"), "\x01\xD2");
}

TEST_F(LoadFile, ConsumesTheCharacterBehindTheLastValue) {
  const OopType file = openText("1 2 3 4");
  EXPECT_EQ(loadFile(file, emptyTarget(), 2), smallInt(2));
  EXPECT_EQ(call("KvfPosition", {file}), smallInt(4));
  const OopType rest = emptyTarget();
  EXPECT_EQ(loadFile(file, rest, 1), smallInt(1));
  EXPECT_EQ(bytes(rest), "\x03");
}

TEST_F(LoadFile, ContinuesAfterTheDigitThatBeganAnotherValueIsLost) {
  const OopType file = openText("1234567");
  const OopType target = emptyTarget();
  EXPECT_EQ(loadFile(file, target, 1), smallInt(1));
  EXPECT_EQ(call("KvfPosition", {file}), smallInt(5));
  EXPECT_EQ(loadFile(file, target, 1), smallInt(1));
  EXPECT_EQ(bytes(target), std::string("\x43")) << "67, without the 5 that was consumed";
}

// ---- amounts ----

TEST_F(LoadFile, OfZeroOrLessReadsNothing) {
  for (const bool compressed : {false, true}) {
    const OopType file = openText("1 2 3", compressed);
    for (const int64_t amount : {int64_t{0}, int64_t{-1}, INT64_MIN}) {
      const OopType target = kvhost::newByteArray("kept");
      const auto calls =
          callsDuring([&] { EXPECT_EQ(loadFile(file, target, amount), smallInt(0)); });
      EXPECT_EQ(countOf(calls, "HostReadFile_"), 0);
      EXPECT_EQ(countOf(calls, "gzgetc"), 0);
      EXPECT_EQ(storesIn(calls), Ranges{});
      EXPECT_EQ(bytes(target), "kept");
      expectFramesPopped(calls);
    }
    EXPECT_EQ(call("KvfPosition", {file}), smallInt(0));
  }
}

TEST_F(LoadFile, OfAHugeAmountEndsWithTheFile) { EXPECT_EQ(load("1 2 3", INT64_MAX), "\1\2\3"); }

TEST_F(LoadFile, OfWhatIsNoIntegerRaises) {
  const OopType file = openText("1 2 3");
  for (const OopType amount : {OOP_NIL, OOP_TRUE, str("3"), oopFromCharacter(3)}) {
    const auto calls = callsDuring([&] {
      expectRaise(2061, {amount}, "KvfLoadByteStrings", {file, emptyTarget(), amount});
    });
    expectFramesPopped(calls);
    EXPECT_EQ(countOf(calls, "HostReadFile_"), 0);
    letRaisesReturn(1);
    EXPECT_EQ(call("KvfLoadByteStrings", {file, emptyTarget(), amount}), OOP_NIL);
  }
  EXPECT_EQ(call("KvfPosition", {file}), smallInt(0));
}

// ---- the target ----

TEST_F(LoadFile, StoresFromTheFirstByteAndKeepsTheRest) {
  const OopType target = str("0123456789");
  EXPECT_EQ(loadFile(openText("65 66 67"), target, 3), smallInt(3));
  EXPECT_EQ(bytes(target), "ABC3456789");
}

TEST_F(LoadFile, StoresOnceFor2048Values) {
  for (const int64_t length : {1, 2047, 2048, 2049, 4096, 4097, 5000}) {
    std::string data;
    for (int64_t i = 0; i < length; ++i) data.push_back(static_cast<char>(i * 31 + 5));
    const OopType file = openText(modelPrint(data));
    const OopType target = emptyTarget();
    const auto calls =
        callsDuring([&] { EXPECT_EQ(loadFile(file, target, length), smallInt(length)); });
    EXPECT_EQ(bytes(target), data) << length;
    Ranges expected;
    for (int64_t at = 0; at < length; at += 2048)
      expected.emplace_back(at + 1, std::min<int64_t>(length - at, 2048));
    EXPECT_EQ(storesIn(calls), expected) << length;
  }
}

TEST_F(LoadFile, StoresWithoutAClass) {
  const OopType file = openText("1");
  const auto calls = callsDuring([&] { loadFile(file, emptyTarget(), 1); });
  const auto stores = callsOf(calls, "KciStoreBytesInstanceOf");
  ASSERT_FALSE(stores.empty());
  EXPECT_EQ(argumentOf(stores[0], 0), "nil");
  EXPECT_TRUE(argumentOf(stores[0], 1).starts_with("oop:"));
}

// ---- the record ----

TEST_F(LoadFile, ReadsOneByteAtATime) {
  constexpr std::string_view text = "1 22 333 4444 55555 ";
  const OopType plain = openText(text);
  const auto plainCalls = callsDuring([&] { loadFile(plain, emptyTarget(), LOTS); });
  ModelFile model{text};
  modelLoadFile(&model, LOTS);
  EXPECT_EQ(countOf(plainCalls, "HostReadFile_"), model.reads);
  for (const seam::Call& made : plainCalls) {
    if (made.name == "HostReadFile_") {
      EXPECT_EQ(lastArgumentOf(made), "1");
    }
  }
  const OopType compressed = openText(text, true);
  const auto zipCalls = callsDuring([&] { loadFile(compressed, emptyTarget(), LOTS); });
  EXPECT_EQ(countOf(zipCalls, "gzgetc"), model.reads);
  EXPECT_EQ(countOf(zipCalls, "HostReadFile_"), 0);
}

TEST_F(LoadFile, DropsWhatWasReadAhead) {
  std::string text(4096, ' ');
  text[0] = 'z';
  text.replace(10, 2, "77");
  text += "65 66";
  const OopType file = openText(text);
  EXPECT_EQ(call("KvfGetC", {file}), oopFromCharacter('z'));
  const OopType target = emptyTarget();
  EXPECT_EQ(loadFile(file, target, LOTS), smallInt(2));
  EXPECT_EQ(bytes(target), "AB");
}

TEST_F(LoadFile, StartsAgainAfterAnEarlierEndOfTheFile) {
  const OopType file = openText("65");
  EXPECT_EQ(loadFile(file, emptyTarget(), LOTS), smallInt(1));
  std::ofstream("text", std::ios::app) << " 66";
  const OopType target = emptyTarget();
  EXPECT_EQ(loadFile(file, target, LOTS), smallInt(1));
  EXPECT_EQ(bytes(target), "B");
}

TEST_F(LoadFile, LeavesTheEndOfTheFileWithoutAnError) {
  const OopType file = openText("65");
  loadFile(file, emptyTarget(), LOTS);
  EXPECT_EQ(takeRecordError(file), (std::pair<int64, std::string>{0, ""}));
}

TEST_F(LoadFile, WithAnErrorPendingInTheRecordReadsNothing) {
  const OopType file = openText("65 66");
  fault("HostReadFile_:1:EIO");
  EXPECT_EQ(call("KvfGetC", {file}), OOP_NIL);
  clearFaults();
  const auto calls =
      callsDuring([&] { EXPECT_EQ(loadFile(file, emptyTarget(), LOTS), smallInt(0)); });
  EXPECT_EQ(countOf(calls, "HostReadFile_"), 0);
  EXPECT_EQ(takeRecordError(file).first, EIO);
  EXPECT_EQ(loadFile(file, emptyTarget(), LOTS), smallInt(2)) << "once the error was taken";
}

TEST_F(LoadFile, AReadErrorEndsTheParseAndStaysInTheRecord) {
  struct Row {
    int64_t failingRead;
    std::string stored;
  };
  // The text is "65 6"; the reads are 6, 5, space, 6, end.
  for (const auto& [failingRead, stored] :
       std::vector<Row>{{1, ""}, {2, "\x06"}, {3, "A"}, {4, "A"}, {5, "A\x06"}}) {
    const OopType file = openText("65 6");
    const OopType target = emptyTarget();
    fault("HostReadFile_:" + std::to_string(failingRead) + ":EIO");
    EXPECT_EQ(loadFile(file, target, LOTS), smallInt(static_cast<int64>(stored.size())));
    clearFaults();
    EXPECT_EQ(bytes(target), stored) << failingRead;
    ErrMsgStrType text;
    HostStrerror(EIO, text, sizeof text);
    EXPECT_EQ(takeRecordError(file), (std::pair<int64, std::string>{EIO, text})) << failingRead;
  }
}

TEST_F(LoadFile, AnInterruptedReadEndsTheParse) {
  const OopType file = openText("65 66 67");
  const OopType target = emptyTarget();
  fault("HostReadFile_:5:interrupt");
  EXPECT_EQ(loadFile(file, target, LOTS), smallInt(2));
  EXPECT_EQ(bytes(target), "A\x06");
}

TEST_F(LoadFile, ALateReadErrorKeepsWholeAndPartBuffers) {
  const std::string data(3000, 'A');
  const OopType file = openText(modelPrint(data));
  const OopType target = emptyTarget();
  // Three reads a value on a line of 1024: the second line begins after 3073 characters.
  fault("HostReadFile_:" + std::to_string(3 * 2500 + 2 + 1) + ":EIO");
  EXPECT_EQ(loadFile(file, target, LOTS), smallInt(2500));
  EXPECT_EQ(bytes(target), data.substr(0, 2500));
}

TEST_F(LoadFile, AReadThatZlibRefusesEndsTheParseWithoutAnError) {
  const OopType file = openText("65 66 67", true);
  fault("gzgetc:5:EIO");
  const OopType target = emptyTarget();
  EXPECT_EQ(loadFile(file, target, LOTS), smallInt(2));
  clearFaults();
  EXPECT_EQ(bytes(target), "A\x06");
  EXPECT_EQ(call("KvfErrorCode", {file}), smallInt(0));
  EXPECT_EQ(call("KvfErrorString", {file}), OOP_NIL);
}

TEST_F(LoadFile, OfAFileThatIsOnlyWrittenMeetsTheHostsRefusal) {
  const OopType plain = openFile("written", "w");
  EXPECT_EQ(loadFile(plain, emptyTarget(), LOTS), smallInt(0));
  EXPECT_EQ(call("KvfErrorCode", {plain}), smallInt(EBADF));
  const OopType compressed = openFile("written.gz", "w", true);
  EXPECT_EQ(loadFile(compressed, emptyTarget(), LOTS), smallInt(0));
  EXPECT_EQ(call("KvfErrorCode", {compressed}), smallInt(0));
}

// ---- files that are not there ----

TEST_F(LoadFile, WithoutASessionRaises) {
  const OopType file = openText("1 2");
  kvhost::sessionSelect(0);
  expectRaise(4100, {smallInt(0)}, "KvfLoadByteStrings", {file, emptyTarget(), smallInt(2)});
  kvhost::sessionSelect(session_);
}

TEST_F(LoadFile, OfNoOpenFileIsNil) {
  const OopType file = openText("1 2");
  call("KvfClose", {file});
  const auto calls = callsDuring([&] {
    EXPECT_EQ(call("KvfLoadByteStrings", {file, emptyTarget(), smallInt(2)}), OOP_NIL);
    EXPECT_EQ(call("KvfLoadByteStrings", {OOP_NIL, emptyTarget(), smallInt(2)}), OOP_NIL);
    EXPECT_EQ(call("KvfLoadByteStrings", {file, emptyTarget(), OOP_NIL}), OOP_NIL);
  });
  EXPECT_EQ(countOf(calls, "KciPushErrJump"), 0);
}

TEST_F(LoadFile, OfAnUnknownFileObjectRaises) {
  const OopType unknown = kvhost::newKvFile();
  const auto calls = callsDuring([&] {
    expectRaise(2364, {unknown}, "KvfLoadByteStrings", {unknown, emptyTarget(), OOP_NIL});
  });
  EXPECT_EQ(countOf(calls, "KciPushErrJump"), 0) << "the look-up comes first";
}

// ---- errors of the interface ----

TEST_F(LoadFile, AnErrorOfTheInterfaceIsPostedInTheRecord) {
  const OopType file = openText("1 2 3");
  fault("KciStoreBytesInstanceOf:1:raise=2101");
  const auto calls = callsDuring([&] { EXPECT_EQ(loadFile(file, emptyTarget(), 3), OOP_NIL); });
  clearFaults();
  expectFramesPopped(calls);
  EXPECT_EQ(
      takeRecordError(file),
      (std::pair<int64, std::string>{2101, "Kestrova KCI error 2101, message: raised by a fault"}));
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(LoadFile, ARealErrorOfTheInterfaceIsPostedToo) {
  const OopType target = kvhost::newByteArray("");
  kvhost::makeInvariant(target);
  const OopType array = kvhost::newArray({});
  for (const OopType refused : {target, array}) {
    KciStoreBytesInstanceOf(OOP_NIL, refused, 1, nullptr, 0);
    const ByteType byte = 1;
    KciStoreBytesInstanceOf(OOP_NIL, refused, 1, &byte, 1);
    KciErrSType expected;
    ASSERT_TRUE(KciErr(&expected));
    const OopType file = openText("1 2 3");
    EXPECT_EQ(loadFile(file, refused, 3), OOP_NIL);
    EXPECT_EQ(takeRecordError(file),
              (std::pair<int64, std::string>{
                  expected.number, "Kestrova KCI error " + std::to_string(expected.number) +
                                       ", message: " + expected.message}));
  }
}

TEST_F(LoadFile, ALaterStoreThatFailsKeepsTheEarlierOnes) {
  const std::string data(5000, 'A');
  const OopType file = openText(modelPrint(data));
  const OopType target = emptyTarget();
  fault("KciStoreBytesInstanceOf:3:raise=2101");
  const auto calls = callsDuring([&] { EXPECT_EQ(loadFile(file, target, LOTS), OOP_NIL); });
  clearFaults();
  expectFramesPopped(calls);
  EXPECT_EQ(bytes(target), data.substr(0, 4096));
  EXPECT_EQ(takeRecordError(file).first, 2101);
}

TEST_F(LoadFile, AnErrorThatIsNotReportedLeavesNoText) {
  const OopType file = openText("1 2 3");
  fault("KciStoreBytesInstanceOf:1:raise=2101");
  fault("KciErr:1:result=0");
  expectUnasked(2101, "KvfLoadByteStrings", {file, emptyTarget(), smallInt(3)});
  clearFaults();
  EXPECT_EQ(takeRecordError(file), (std::pair<int64, std::string>{0, ""}));
}

TEST_F(LoadFile, TheCompressedRecordTakesAnErrorOfTheInterfaceToo) {
  const OopType file = openText("1 2 3", true);
  fault("KciStoreBytesInstanceOf:1:raise=2101");
  EXPECT_EQ(loadFile(file, emptyTarget(), 3), OOP_NIL);
  clearFaults();
  EXPECT_EQ(takeRecordError(file).first, 2101);
}

}  // namespace
}  // namespace kvtest
