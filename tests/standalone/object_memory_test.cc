// Objects: identifiers, contents, growth, invariance, Symbols, integers.
#include <kvfile/kvhost.h>

#include "support/host_errors.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using kvtest::pendingNumber;

const ByteType* asBytes(const std::string& text) {
  const void* bytes = text.data();
  return static_cast<const ByteType*>(bytes);
}

void storeText(OopType object, int64 index, const std::string& text) {
  KciStoreBytesInstanceOf(OOP_NIL, object, index, asBytes(text), static_cast<int64>(text.size()));
}

std::string fetchText(OopType object, int64 index, int64 count) {
  std::string buffer(static_cast<size_t>(count), '?');
  void* bytes = buffer.data();
  buffer.resize(
      static_cast<size_t>(KciFetchBytes_(object, index, static_cast<ByteType*>(bytes), count)));
  return buffer;
}

TEST(Identifiers, ValuesAreKnownWithoutObjects) {
  EXPECT_EQ(kvhost::classOf(OOP_NIL), kvhost::CLASS_UNDEFINED_OBJECT);
  EXPECT_EQ(kvhost::classOf(OOP_TRUE), kvhost::CLASS_BOOLEAN);
  EXPECT_EQ(kvhost::classOf(OOP_FALSE), kvhost::CLASS_BOOLEAN);
  EXPECT_EQ(kvhost::classOf(oopFromCharacter('a')), OOP_CLASS_CHARACTER);
  EXPECT_EQ(kvhost::classOf(oopFromCharacter(0x110000)), OOP_NIL);
  EXPECT_EQ(kvhost::classOf(oopFromSmallInteger(-1)), OOP_CLASS_SMALL_INTEGER);
  for (const OopType value : {OOP_NIL, OOP_TRUE, oopFromCharacter(0), oopFromSmallInteger(7)}) {
    EXPECT_TRUE(kvhost::isValid(value));
    EXPECT_EQ(KciFetchSize_(value), 0);
  }
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Identifiers, GarbageNamesNothingAndHarmsNothing) {
  std::mt19937_64 random(20240607);
  const OopType real = kvhost::newString("real");
  ByteType buffer[16];
  OopType elements[4];
  int found = 0;
  for (int i = 0; i < 200000; ++i) {
    OopType garbage = random() >> (random() % 64);
    if (i % 2 == 0) garbage = (garbage & ~OopType{0xFF}) | 0x01;
    if (kvhost::isValid(garbage)) continue;
    ++found;
    EXPECT_EQ(kvhost::classOf(garbage), OOP_NIL);
    EXPECT_EQ(KciIsKindOfClass(garbage, kvhost::CLASS_OBJECT), FALSE);
    EXPECT_EQ(KciFetchSize_(garbage), 0);
    EXPECT_EQ(pendingNumber(), 2101);
    EXPECT_EQ(KciFetchBytes_(garbage, 1, buffer, 16), 0);
    EXPECT_EQ(KciFetchOops(garbage, 1, elements, 4), 0);
    KciStoreBytesInstanceOf(OOP_NIL, garbage, 1, buffer, 1);
    KciStoreOop(garbage, 1, OOP_NIL);
    KciSetVaryingSize(garbage, 3);
    EXPECT_EQ(pendingNumber(), 2101);
    KciNewOop(garbage);
    EXPECT_EQ(pendingNumber(), 2109);
  }
  EXPECT_GT(found, 100000);
  EXPECT_EQ(kvhost::bytesOf(real), "real");
}

TEST(Identifiers, AnotherThreadsObjectsNameNothingHere) {
  OopType foreign = OOP_NIL;
  OopType symbol = OOP_NIL;
  std::thread([&] {
    foreign = kvhost::newString(std::string(500, 't'));
    symbol = kvhost::newSymbol("there only");
    EXPECT_TRUE(kvhost::isValid(foreign));
    EXPECT_TRUE(kvhost::isValid(OOP_CLASS_STRING)) << "classes are everybody's";
  }).join();
  EXPECT_FALSE(kvhost::isValid(foreign));
  EXPECT_FALSE(kvhost::isValid(symbol));
}

TEST(Identifiers, OfALivingThreadNameNothingHere) {
  std::atomic<OopType> foreign = OOP_NIL;
  std::atomic<bool> done = false;
  std::thread other([&] {
    foreign = kvhost::newSymbol("elsewhere");
    while (!done) std::this_thread::yield();
  });
  while (foreign == OOP_NIL) std::this_thread::yield();
  EXPECT_FALSE(kvhost::isValid(foreign));
  EXPECT_EQ(kvhost::bytesOf(foreign), "");
  done = true;
  other.join();
}

TEST(Identifiers, StayDistinctWhileObjectsLive) {
  const OopType first = kvhost::newString("1");
  OopType previous = first;
  for (int i = 0; i < 10000; ++i) {
    const OopType next = kvhost::newString("x");
    ASSERT_NE(next, previous);
    ASSERT_EQ(next & 0xFF, 1U);
    previous = next;
  }
  EXPECT_EQ(kvhost::bytesOf(first), "1");
}

TEST(Classes, NamesAndInheritance) {
  for (const char* name : {"Object", "Class", "UndefinedObject", "Boolean", "Character",
                           "SmallInteger", "LargeInteger", "Array", "ByteArray", "String", "Symbol",
                           "Utf8", "Utf16", "DateTime", "KvFile"}) {
    const OopType cls = kvhost::classNamed(name);
    EXPECT_EQ(kvhost::className(cls), name);
    EXPECT_EQ(kvhost::classOf(cls), kvhost::CLASS_CLASS);
    EXPECT_EQ(KciFetchSize_(cls), 0);
  }
  EXPECT_EQ(kvhost::classNamed("Nothing"), OOP_NIL);
  EXPECT_EQ(kvhost::className(kvhost::newString("x")), "");
  EXPECT_TRUE(kvhost::isValid(OOP_ERROR_CATEGORY));
}

TEST(Classes, KindsCountSubclasses) {
  const OopType symbol = kvhost::newSymbol("s");
  const OopType utf8 = kvhost::newUtf8("u");
  EXPECT_TRUE(KciIsKindOfClass(symbol, OOP_CLASS_STRING));
  EXPECT_TRUE(KciIsKindOfClass(symbol, kvhost::CLASS_OBJECT));
  EXPECT_FALSE(KciIsKindOfClass(utf8, OOP_CLASS_STRING));
  EXPECT_FALSE(KciIsKindOfClass(kvhost::newString("s"), kvhost::CLASS_SYMBOL));
  EXPECT_TRUE(KciIsKindOfClass(kvhost::newUtf16(u"u"), OOP_CLASS_UTF16_STRING));
  EXPECT_TRUE(KciIsKindOfClass(oopFromSmallInteger(1), OOP_CLASS_SMALL_INTEGER));
  EXPECT_TRUE(KciIsKindOfClass(OOP_NIL, kvhost::CLASS_OBJECT));
}

TEST(Bytes, FetchesEndWithTheObject) {
  const OopType object = kvhost::newByteArray("abcdef");
  EXPECT_EQ(fetchText(object, 1, 6), "abcdef");
  EXPECT_EQ(fetchText(object, 0, 2), "ab");
  EXPECT_EQ(fetchText(object, 5, 10), "ef");
  EXPECT_EQ(fetchText(object, 7, 10), "");
  EXPECT_EQ(fetchText(object, std::numeric_limits<int64>::max(), 10), "");
  EXPECT_EQ(fetchText(object, 1, 0), "");
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Bytes, StoresGrowAcrossEveryStorageForm) {
  std::string expected;
  const OopType object = KciNewOop(OOP_CLASS_STRING);
  for (int i = 0; i < 3000; ++i) {
    const std::string piece(static_cast<size_t>(i % 7), static_cast<char>('a' + i % 26));
    storeText(object, static_cast<int64>(expected.size()) + 1, piece);
    expected += piece;
  }
  EXPECT_EQ(kvhost::bytesOf(object), expected);
  EXPECT_EQ(KciFetchSize_(object), static_cast<int64>(expected.size()));
}

TEST(Bytes, AGapIsFilledWithZeros) {
  for (const int64 gap : {1, 40, 100, 5000, 3 << 20}) {
    const OopType object = kvhost::newString("ab");
    storeText(object, 3 + gap, "z");
    std::string expected = "ab" + std::string(static_cast<size_t>(gap), '\0') + "z";
    EXPECT_TRUE(kvhost::bytesOf(object) == expected) << gap;
  }
}

// Leaves blocks of these sizes in malloc's hands that hold nothing but 'x'.
void fillFreedMemory() {
  for (int i = 0; i < 200; ++i) {
    for (const size_t size : {20U, 48U, 49U, 100U, 1000U, 5000U}) {
      kvhost::newString(std::string(size, 'x'));
    }
  }
  kvhost::collectGarbage();
}

OopType unsetString(int64 size) {
  return KciCreateByteObj(OOP_CLASS_STRING, 1, nullptr, size, 0, FALSE);
}

TEST(Bytes, ThatWereNeverGivenAreSeenAsZeros) {
  fillFreedMemory();
  for (const int64 size : {1, 20, 48, 49, 100, 1000, 5000}) {
    const std::string zeros(static_cast<size_t>(size), '\0');
    EXPECT_EQ(kvhost::bytesOf(unsetString(size)), zeros);
    EXPECT_EQ(fetchText(unsetString(size), 1, size), zeros);
    std::string chars(static_cast<size_t>(size), '?');
    EXPECT_EQ(KciFetchChars_(unsetString(size), 1, chars.data(), size), size);
    EXPECT_EQ(chars, zeros);
    KciObjInfoSType info{};
    int64 copied = 0;
    ByteType first = 'x';
    EXPECT_TRUE(KciFetchObjInfo(unsetString(size), 1, 1, &info, &first, &copied));
    EXPECT_EQ(first, 0);
  }
}

TEST(Bytes, AroundAFirstStoreAreZeros) {
  fillFreedMemory();
  for (const int64 size : {20, 48, 100, 5000}) {
    const auto count = static_cast<size_t>(size);
    OopType object = unsetString(size);
    storeText(object, 5, "abc");
    EXPECT_EQ(kvhost::bytesOf(object), std::string(4, '\0') + "abc" + std::string(count - 7, '\0'));
    object = unsetString(size);
    storeText(object, size, "abc");
    EXPECT_EQ(kvhost::bytesOf(object), std::string(count - 1, '\0') + "abc");
    object = unsetString(size);
    storeText(object, 1, std::string(count, 'a'));
    EXPECT_EQ(kvhost::bytesOf(object), std::string(count, 'a'));
    object = unsetString(size);
    KciSetVaryingSize(object, size + 10);
    EXPECT_EQ(kvhost::bytesOf(object), std::string(count + 10, '\0'));
    object = unsetString(size);
    storeText(object, int64{1} << 60, "abc");
    EXPECT_EQ(pendingNumber(), 2110);
    EXPECT_EQ(kvhost::bytesOf(object), std::string(count, '\0'));
  }
}

TEST(Bytes, OldBytesDoNotComeBack) {
  const OopType object = kvhost::newString(std::string(100, 'x'));
  KciSetVaryingSize(object, 10);
  KciSetVaryingSize(object, 20);
  EXPECT_EQ(kvhost::bytesOf(object), std::string(10, 'x') + std::string(10, '\0'));
}

TEST(Bytes, LargeStoresAreWhole) {
  std::string data(100001, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 251);
  const OopType object = KciCreateByteObj(OOP_CLASS_STRING, 1, nullptr, 100001, 0, FALSE);
  storeText(object, 1, data);
  EXPECT_TRUE(kvhost::bytesOf(object) == data);
  EXPECT_TRUE(fetchText(object, 2049, 90000) == data.substr(2048, 90000));
}

TEST(Bytes, StoringNothingChangesNothing) {
  const OopType object = kvhost::newString("abc");
  KciStoreBytesInstanceOf(OOP_NIL, object, 100, nullptr, 0);
  EXPECT_EQ(kvhost::bytesOf(object), "abc");
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Bytes, AbsurdSizesAreRefused) {
  const OopType object = kvhost::newString("abc");
  for (const int64 index : {std::numeric_limits<int64>::max(), int64{1} << 60, int64{1} << 40}) {
    storeText(object, index, "xy");
    EXPECT_NE(pendingNumber(), 0) << index;
  }
  KciSetVaryingSize(object, std::numeric_limits<int64>::max());
  EXPECT_EQ(pendingNumber(), 2110);
  EXPECT_EQ(KciCreateByteObj(OOP_CLASS_STRING, 1, nullptr, int64{1} << 61, 0, FALSE), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2110);
  EXPECT_EQ(KciCreateByteObj(OOP_CLASS_STRING, 1, nullptr, -1, 0, FALSE), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2108);
  EXPECT_EQ(kvhost::bytesOf(object), "abc");
}

TEST(Elements, StoreFetchAppendAndGrow) {
  const OopType array = KciNewOop(OOP_CLASS_ARRAY);
  KciStoreOop(array, 3, OOP_TRUE);
  EXPECT_EQ(kvhost::elementsOf(array), (std::vector<OopType>{OOP_NIL, OOP_NIL, OOP_TRUE}));
  const std::array<OopType, 2> more = {OOP_FALSE, oopFromSmallInteger(9)};
  KciAppendOops(array, 2, more.data());
  KciStoreOops(array, 1, more.data(), 2);
  std::array<OopType, 10> buffer{};
  ASSERT_EQ(KciFetchOops(array, 2, buffer.data(), 10), 4);
  EXPECT_EQ(buffer[0], oopFromSmallInteger(9));
  EXPECT_EQ(buffer[3], oopFromSmallInteger(9));
  EXPECT_EQ(KciFetchOops(array, 6, buffer.data(), 10), 0);
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Elements, OfAGapAreNil) {
  for (const int64 gap : {1, 10, 1000}) {
    const OopType array = kvhost::newArray({OOP_TRUE});
    KciStoreOop(array, 2 + gap, OOP_FALSE);
    std::vector<OopType> expected(static_cast<size_t>(gap) + 2, OOP_NIL);
    expected.front() = OOP_TRUE;
    expected.back() = OOP_FALSE;
    EXPECT_EQ(kvhost::elementsOf(array), expected);
  }
}

TEST(Elements, AppendingManyKeepsAll) {
  const OopType array = KciNewOop(OOP_CLASS_ARRAY);
  for (int i = 0; i < 5000; ++i) {
    const OopType value = oopFromSmallInteger(i);
    KciAppendOops(array, 1, &value);
  }
  const std::vector<OopType> elements = kvhost::elementsOf(array);
  ASSERT_EQ(elements.size(), 5000U);
  for (int i = 0; i < 5000; ++i) {
    ASSERT_EQ(elements[static_cast<size_t>(i)], oopFromSmallInteger(i));
  }
}

TEST(Elements, WrongFormatsAreRefused) {
  const OopType array = kvhost::newArray({OOP_NIL});
  const OopType text = kvhost::newString("a");
  OopType element = OOP_NIL;
  ByteType byte = 0;
  EXPECT_EQ(KciFetchOops(text, 1, &element, 1), 0);
  EXPECT_EQ(pendingNumber(), 2103);
  EXPECT_EQ(KciFetchBytes_(array, 1, &byte, 1), 0);
  EXPECT_EQ(pendingNumber(), 2102);
  EXPECT_EQ(KciFetchBytes_(OOP_NIL, 1, &byte, 1), 0);
  EXPECT_EQ(pendingNumber(), 2102);
  EXPECT_EQ(KciFetchOops(array, 0, &element, 1), 0);
  EXPECT_EQ(pendingNumber(), 2108);
  EXPECT_EQ(KciFetchOops(array, 1, &element, -1), 0);
  EXPECT_EQ(pendingNumber(), 2108);
  KciStoreOop(text, 1, OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2103);
  EXPECT_EQ(kvhost::bytesOf(text), "a");
}

TEST(Sizes, FixedSizesStay) {
  const OopType file = kvhost::newKvFile();
  KciStoreOop(file, 1, OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2105);
  KciSetVaryingSize(file, 2);
  EXPECT_EQ(pendingNumber(), 2105);
  KciSetVaryingSize(OOP_NIL, 2);
  EXPECT_EQ(pendingNumber(), 2105);
  const OopType text = kvhost::newString("abc");
  KciSetVaryingSize(text, -1);
  EXPECT_EQ(pendingNumber(), 2108);
  KciSetVaryingSize(text, 1);
  EXPECT_EQ(kvhost::bytesOf(text), "a");
}

TEST(Invariance, StoresAndResizesFail) {
  const OopType text = kvhost::newString("abc");
  const OopType array = kvhost::newArray({OOP_NIL});
  kvhost::makeInvariant(text);
  kvhost::makeInvariant(array);
  kvhost::makeInvariant(OOP_NIL);
  storeText(text, 1, "x");
  EXPECT_EQ(pendingNumber(), 2106);
  KciSetVaryingSize(text, 1);
  EXPECT_EQ(pendingNumber(), 2106);
  KciStoreOop(array, 1, OOP_TRUE);
  EXPECT_EQ(pendingNumber(), 2106);
  const OopType element = OOP_TRUE;
  KciAppendOops(array, 1, &element);
  EXPECT_EQ(pendingNumber(), 2106);
  EXPECT_EQ(kvhost::bytesOf(text), "abc");
  EXPECT_EQ(kvhost::elementsOf(array), std::vector<OopType>{OOP_NIL});
}

TEST(Stores, AskForTheClassOnlyWhenOneIsNamed) {
  const OopType symbolless = kvhost::newString("abc");
  KciStoreBytesInstanceOf(OOP_CLASS_STRING, symbolless, 1, asBytes("x"), 1);
  EXPECT_EQ(pendingNumber(), 0);
  KciStoreBytesInstanceOf(kvhost::CLASS_BYTE_ARRAY, symbolless, 1, asBytes("y"), 1);
  EXPECT_EQ(pendingNumber(), 2107);
  KciStoreBytesInstanceOf(OOP_NIL, symbolless, 0, asBytes("y"), 1);
  EXPECT_EQ(pendingNumber(), 2108);
  KciStoreBytesInstanceOf(OOP_NIL, symbolless, 1, asBytes("y"), -1);
  EXPECT_EQ(pendingNumber(), 2108);
  EXPECT_EQ(kvhost::bytesOf(symbolless), "xbc");
}

TEST(Symbols, EqualTextsAreOneObject) {
  const OopType symbol = KciNewSymbol("readLock");
  EXPECT_EQ(kvhost::newSymbol("readLock"), symbol);
  EXPECT_EQ(KciNewByteObj(kvhost::CLASS_SYMBOL, "readLock", 8), symbol);
  EXPECT_NE(kvhost::newSymbol("readLocks"), symbol);
  EXPECT_NE(kvhost::newSymbol(std::string_view("a\0b", 3)), kvhost::newSymbol("a"));
  EXPECT_EQ(kvhost::bytesOf(symbol), "readLock");
  storeText(symbol, 1, "x");
  EXPECT_EQ(pendingNumber(), 2106);
}

TEST(Symbols, EachThreadHasItsOwn) {
  const OopType here = kvhost::newSymbol("ours");
  std::thread([here] {
    const OopType own = kvhost::newSymbol("ours");
    EXPECT_NE(own, here);
    EXPECT_EQ(kvhost::newSymbol("ours"), own);
    EXPECT_EQ(kvhost::bytesOf(own), "ours");
    EXPECT_FALSE(kvhost::isValid(here));
  }).join();
  EXPECT_EQ(kvhost::newSymbol("ours"), here);
}

TEST(Symbols, ManyLongTexts) {
  for (int i = 0; i < 6000; ++i) {
    const std::string text = std::string(60, 'q') + std::to_string(i);
    ASSERT_EQ(kvhost::bytesOf(kvhost::newSymbol(text)), text);
  }
  EXPECT_EQ(kvhost::newSymbol(std::string(60, 'q') + "17"),
            kvhost::newSymbol(std::string(60, 'q') + "17"));
}

TEST(Integers, EveryLimitComesBack) {
  const int64 small = int64{1} << 60;
  for (const int64 value : {int64{0}, int64{-1}, small - 1, small, -small, -small - 1,
                            std::numeric_limits<int64>::max(), std::numeric_limits<int64>::min()}) {
    const OopType object = KciI64ToOop(value);
    int failed = 0;
    EXPECT_EQ(KciOopToI64_(object, &failed), value);
    EXPECT_EQ(failed, 0);
    const bool fits = value >= -small && value < small;
    EXPECT_EQ(kvhost::classOf(object),
              fits ? OOP_CLASS_SMALL_INTEGER : kvhost::CLASS_LARGE_INTEGER);
  }
}

TEST(Integers, ConversionsReportThroughTheFlagOnly) {
  for (const OopType object :
       {OOP_NIL, oopFromCharacter('1'), kvhost::newString("12345678"), OopType{0x7777777701}}) {
    int failed = 0;
    EXPECT_EQ(KciOopToI64_(object, &failed), 0);
    EXPECT_NE(failed, 0);
    EXPECT_EQ(pendingNumber(), 0);
  }
  int failed = 0;
  EXPECT_EQ(KciOopToI32_(KciI64ToOop(int64{1} << 31), &failed), 0);
  EXPECT_NE(failed, 0);
  failed = 0;
  EXPECT_EQ(KciOopToI32_(KciI32ToOop(std::numeric_limits<int>::min()), &failed),
            std::numeric_limits<int>::min());
  EXPECT_EQ(failed, 0);
}

TEST(Integers, LargeOnesCannotBeChanged) {
  const OopType object = KciI64ToOop(std::numeric_limits<int64>::max());
  storeText(object, 1, "x");
  EXPECT_EQ(pendingNumber(), 2106);
}

TEST(Making, TooLargeAnObjectIsNotTakenForNil) {
  const std::string_view five = {"", size_t{5} << 30};  // never read: the size alone is refused
  EXPECT_THROW(kvhost::newString(five), std::bad_alloc);
}

TEST(Making, OnlyWhatTheClassAllows) {
  EXPECT_EQ(KciNewOop(kvhost::CLASS_SYMBOL), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2109);
  EXPECT_EQ(KciNewOop(OOP_CLASS_SMALL_INTEGER), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2109);
  EXPECT_EQ(KciNewByteObj(OOP_CLASS_ARRAY, "x", 1), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2109);
  EXPECT_EQ(KciNewCharObj(kvhost::CLASS_BYTE_ARRAY, "x"), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2109);
  EXPECT_EQ(KciCreateByteObj(kvhost::CLASS_SYMBOL, 1, nullptr, 3, 0, FALSE), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2109);
  EXPECT_EQ(kvhost::classOf(KciNewOop(kvhost::CLASS_KV_FILE)), kvhost::CLASS_KV_FILE);
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Description, TellsSizeFormatClassAndBytes) {
  KciObjInfoSType info{};
  ByteType buffer[8] = {};
  int64 copied = -1;
  const OopType text = kvhost::newString("abcdef");
  ASSERT_TRUE(KciFetchObjInfo(text, 2, 3, &info, buffer, &copied));
  EXPECT_EQ(info.size, 6);
  EXPECT_EQ(info.format & KCI_FORMAT_IMPLEMENTATION_MASK, KCI_FORMAT_BYTES);
  EXPECT_EQ(info.objClass, OOP_CLASS_STRING);
  EXPECT_EQ(copied, 3);
  EXPECT_EQ(buffer[0], 'b');
  ASSERT_TRUE(KciFetchObjInfo(kvhost::newArray({OOP_NIL}), 1, 8, &info, buffer, &copied));
  EXPECT_EQ(info.format & KCI_FORMAT_IMPLEMENTATION_MASK, KCI_FORMAT_POINTERS);
  EXPECT_EQ(copied, 0);
  ASSERT_TRUE(KciFetchObjInfo(OOP_NIL, 1, 8, &info, buffer, &copied));
  EXPECT_EQ(info.size, 0);
  EXPECT_NE(info.format & KCI_FORMAT_IMPLEMENTATION_MASK, KCI_FORMAT_BYTES);
  EXPECT_EQ(info.objClass, kvhost::CLASS_UNDEFINED_OBJECT);
  EXPECT_FALSE(KciFetchObjInfo(0x7777777701, 1, 8, &info, buffer, &copied));
  EXPECT_EQ(pendingNumber(), 2101);
}

}  // namespace
