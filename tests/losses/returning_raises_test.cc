// Where a raise comes back, the action answers nil, and has read, written and moved nothing.
#include "openfile/openfile_fixture.h"

#include <climits>
#include <cstdint>

namespace kvtest {
namespace {

class ReturningRaises : public OpenFileTest {
 protected:
  // The action raises `times` times and then answers nil; the calls on host files that it made.
  std::vector<std::string> nilAfterRaises(const char* action, std::initializer_list<OopType> args,
                                          int times = 1) {
    letRaisesReturn(times);
    auto calls = fileCallsDuring([&] { EXPECT_EQ(show(call(action, args)), "nil") << action; });
    EXPECT_EQ(raisesThatWillReturn(), 0) << action << " did not raise";
    letRaisesReturn(0);
    return calls;
  }
  OopType notAnInteger() { return str("three"); }
};

using ::testing::IsEmpty;

TEST_F(ReturningRaises, ReadNeedsAnAmountAndAnItemSize) {
  const OopType file = openWith("abcdef");
  const OopType into = str("");
  EXPECT_THAT(nilAfterRaises("KvfRead", {file, into, smallInt(1), notAnInteger()}), IsEmpty());
  EXPECT_THAT(nilAfterRaises("KvfRead", {file, into, notAnInteger(), smallInt(1)}), IsEmpty());
  for (const int64 itemSize : {int64{0}, int64{-1}, int64{4097}, INT64_MIN, INT64_MAX}) {
    EXPECT_THAT(nilAfterRaises("KvfRead", {file, into, kvhost::newInteger(itemSize), smallInt(1)}),
                IsEmpty())
        << itemSize;
  }
  // The amount is refused first, and only it.
  EXPECT_THAT(nilAfterRaises("KvfRead", {file, into, notAnInteger(), notAnInteger()}), IsEmpty());
  EXPECT_EQ(bytes(into), "");
  EXPECT_EQ(readBytes(file, 6), "abcdef");
}

TEST_F(ReturningRaises, WriteNeedsAnItemSizeAnAmountAndEnoughBytes) {
  const OopType file = openFile("out", "w");
  const OopType text = str("abc");
  EXPECT_THAT(nilAfterRaises("KvfWrite", {file, text, notAnInteger(), smallInt(1)}), IsEmpty());
  EXPECT_THAT(nilAfterRaises("KvfWrite", {file, text, smallInt(1), notAnInteger()}), IsEmpty());
  EXPECT_THAT(nilAfterRaises("KvfWrite", {file, text, notAnInteger(), notAnInteger()}), IsEmpty());
  EXPECT_THAT(nilAfterRaises("KvfWrite", {file, text, smallInt(2), smallInt(2)}), IsEmpty());
  EXPECT_EQ(position(file), "0");
}

TEST_F(ReturningRaises, GetLineNeedsAnEndOfLine) {
  const OopType file = openWith("abc\n");
  for (const OopType eol :
       {smallInt(256), smallInt(-1), OOP_NIL, str(""), str(std::string(129, 'x'))})
    EXPECT_THAT(nilAfterRaises("KvfGetLine", {file, OOP_NIL, smallInt(1), eol, OOP_NIL}),
                IsEmpty());
  EXPECT_EQ(show(getLine(file)), "'abc\n'");
}

TEST_F(ReturningRaises, GetLineNeedsAPromptOfSomeLength) {
  const OopType file = openWith("abc\n");
  EXPECT_THAT(nilAfterRaises("KvfGetLine", {file, OOP_NIL, smallInt(1), smallInt(10), str("")}),
              IsEmpty());
  EXPECT_EQ(show(getLine(file)), "'abc\n'");
}

TEST_F(ReturningRaises, GetLineNeedsAStartIndexWithinTheString) {
  const OopType file = openWith("abc\ndef\n");
  const OopType into = str("1234");
  for (const OopType start :
       {smallInt(0), smallInt(-1), smallInt(6), kvhost::newInteger(INT64_MAX), notAnInteger()})
    nilAfterRaises("KvfGetLine", {file, into, start, smallInt(10), OOP_NIL});
  EXPECT_EQ(bytes(into), "1234");
  nilAfterRaises("KvfGetLine", {file, OOP_NIL, smallInt(2), smallInt(10), OOP_NIL});
  EXPECT_EQ(position(file), "0") << "the line was read ahead, and not taken";
  EXPECT_EQ(show(getLine(file)), "'abc\n'");
}

TEST_F(ReturningRaises, SeekNeedsAPositionAndAKind) {
  const OopType file = openWith("abcdef");
  EXPECT_EQ(show(seek(file, 3)), "3");
  EXPECT_THAT(nilAfterRaises("KvfSeek", {file, notAnInteger(), smallInt(0)}), IsEmpty());
  for (const OopType kind : {smallInt(3), smallInt(-1), kvhost::newInteger(INT64_MIN),
                             kvhost::newInteger(INT64_MAX), notAnInteger()})
    EXPECT_THAT(nilAfterRaises("KvfSeek", {file, smallInt(0), kind}), IsEmpty());
  EXPECT_EQ(position(file), "3");
}

TEST_F(ReturningRaises, PutCNeedsAByte) {
  const OopType file = openFile("out", "w");
  for (const OopType c :
       {smallInt(256), smallInt(-1), kvhost::newInteger(INT64_C(1) << 32), oopFromCharacter(256),
        oopFromCharacter(0x10FFFF), str("a"), OOP_NIL, OOP_TRUE})
    EXPECT_THAT(nilAfterRaises("KvfPutC", {file, c}), IsEmpty()) << show(c);
  EXPECT_EQ(position(file), "0");
}

TEST_F(ReturningRaises, LoadByteStringsNeedsAnAmount) {
  const OopType file = openWith("1 2 3 ");
  const OopType into = str("");
  EXPECT_THAT(nilAfterRaises("KvfLoadByteStrings", {file, into, notAnInteger()}), IsEmpty());
  EXPECT_EQ(bytes(into), "");
  EXPECT_EQ(readBytes(file, 6), "1 2 3 ");
}

TEST_F(ReturningRaises, PassiveLoadNeedsAStartAndAnAmount) {
  const OopType source = str("1 2 3 ");
  const OopType into = str("");
  nilAfterRaises("KvfPassiveObjLoadByteStrings", {into, smallInt(3), source, notAnInteger()});
  nilAfterRaises("KvfPassiveObjLoadByteStrings", {into, notAnInteger(), source, smallInt(1)});
  nilAfterRaises("KvfPassiveObjLoadByteStrings", {into, notAnInteger(), source, notAnInteger()});
  EXPECT_EQ(bytes(into), "");
}

TEST_F(ReturningRaises, OpenNeedsAModeOfBytesThatIsShortEnough) {
  for (const OopType compressed : {OOP_FALSE, OOP_TRUE}) {
    for (const OopType mode : {str("12345678"), kvhost::newArray({OOP_NIL}), OOP_NIL}) {
      const auto names = namesOf(callsDuring([&] {
        nilAfterRaises("KvfOpen", {kvhost::newKvFile(), str("new"), mode, compressed});
      }));
      EXPECT_THAT(names, ::testing::Not(::testing::Contains("HostOpenFile")));
      EXPECT_THAT(names, ::testing::Not(::testing::Contains("gzopen")));
    }
  }
  EXPECT_FALSE(std::filesystem::exists("new"));
  EXPECT_EQ(takeClassError(), "") << "a mode that was not fetched is not told to be invalid";
}

TEST_F(ReturningRaises, OpenNeedsAPath) {
  nilAfterRaises("KvfOpen", {kvhost::newKvFile(), str(""), str("w"), OOP_FALSE});
  nilAfterRaises("KvfOpen",
                 {kvhost::newKvFile(), str(std::string(4096, 'p')), str("w"), OOP_FALSE});
  EXPECT_EQ(takeClassError(), "");
  EXPECT_EQ(show(call("KvfFinalizeAll", {kvhost::CLASS_KV_FILE})), "0");
}

TEST_F(ReturningRaises, AUtf16PathGoesOnAsFarAsItIsSupported) {
  const OopType path = kvhost::newUtf16(u"name");
  nilAfterRaises("KvfOpen", {kvhost::newKvFile(), path, str("w"), OOP_FALSE});
  EXPECT_EQ(takeClassError(), hostText(0) + " : pathOop " + std::to_string(path));
  nilAfterRaises("KvfOpen", {kvhost::newKvFile(), path, str("w"), OOP_TRUE});
  EXPECT_EQ(takeClassError(), "gzopen not supported with Utf16 filename");
  EXPECT_FALSE(std::filesystem::exists("name"));
}

TEST_F(ReturningRaises, AUtf16PathThatIsTooLongIsRefusedTwice) {
  const OopType path = kvhost::newUtf16(std::u16string(2047, u'p'));
  nilAfterRaises("KvfOpen", {kvhost::newKvFile(), path, str("w"), OOP_FALSE}, 2);
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(ReturningRaises, AUtf16PathOf4092BytesIsTakenToBeAPath) {
  const OopType path = kvhost::newUtf16(std::u16string(2046, u'p'));
  nilAfterRaises("KvfOpen", {kvhost::newKvFile(), path, str("w"), OOP_FALSE}, 1);
  EXPECT_EQ(takeClassError(), hostText(0) + " : pathOop " + std::to_string(path));
}

TEST_F(ReturningRaises, AnUnknownFileAnswersNilEverywhere) {
  const OopType unknown = kvhost::newKvFile();
  for (const char* action : {"KvfAtEnd", "KvfGetC", "KvfPosition", "KvfFlush", "KvfSync"})
    nilAfterRaises(action, {unknown});
  nilAfterRaises("KvfRead", {unknown, str(""), smallInt(1), smallInt(1)});
  nilAfterRaises("KvfWrite", {unknown, str("a"), smallInt(1), smallInt(1)});
  nilAfterRaises("KvfSeek", {unknown, smallInt(0), smallInt(0)});
  nilAfterRaises("KvfPutC", {unknown, smallInt(1)});
  nilAfterRaises("KvfPrintBytes", {unknown, str("a")});
  nilAfterRaises("KvfLoadByteStrings", {unknown, str(""), smallInt(1)});
  nilAfterRaises("KvfGetLine", {unknown, OOP_NIL, smallInt(1), smallInt(10), OOP_NIL});
}

TEST_F(ReturningRaises, ALogOfWhatIsNoStringComesToItsEnd) {
  letRaisesReturn(1);
  // The host raises what the fetch left pending; the module's own raise came back.
  expectUnasked(2104, "KvfKciLog", {kvhost::CLASS_KV_FILE, kvhost::newArray({OOP_NIL})});
  EXPECT_EQ(raisesThatWillReturn(), 0);
  KciSetLoggerFlush(0);
}

TEST_F(ReturningRaises, AVersionParameterNeedsASmallInteger) {
  nilAfterRaises("KvfVersionParam", {kvhost::CLASS_KV_FILE, str("8")});
  nilAfterRaises("KvfVersionParam", {kvhost::CLASS_KV_FILE, smallInt(INT64_C(1) << 40)});
  EXPECT_EQ(takeClassError(), "");
}

}  // namespace
}  // namespace kvtest
