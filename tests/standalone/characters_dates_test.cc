// Character objects and dates.
#include <kvfile/kvhost.h>

#include "support/host_errors.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

namespace {

using kvtest::pendingNumber;

std::string utf8Of(OopType object, int64 index, int64 maximum, OopType* converted) {
  std::string buffer(static_cast<size_t>(maximum), '?');
  void* bytes = buffer.data();
  const int64 count =
      KciFetchUtf8Bytes_(object, index, static_cast<ByteType*>(bytes), maximum, converted, 0);
  buffer.resize(static_cast<size_t>(count));
  return buffer;
}

TEST(Characters, ANulFollowsOnlyWhereThereIsRoom) {
  const OopType text = kvhost::newString("abcd");
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(KciFetchChars_(text, 1, buffer, 3), 3);
  EXPECT_EQ(std::string(buffer, 5), "abc##");
  EXPECT_EQ(KciFetchChars_(text, 2, buffer, 4), 3);
  EXPECT_EQ(std::string(buffer, 5), std::string("bcd\0#", 5));
  EXPECT_EQ(KciFetchChars_(kvhost::newSymbol("s"), 1, buffer, 8), 1);
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Characters, OtherObjectsAreRefusedAndTheBufferKept) {
  for (const OopType object :
       {kvhost::newByteArray("abc"), kvhost::newArray({}), OOP_NIL, oopFromSmallInteger(5),
        oopFromCharacter('a'), OOP_TRUE, kvhost::newUtf16(u"abc")}) {
    char buffer[8] = "#######";
    EXPECT_EQ(KciFetchChars_(object, 1, buffer, 8), 0);
    EXPECT_EQ(pendingNumber(), 2104);
    EXPECT_STREQ(buffer, "#######");
  }
}

TEST(Utf8, StringsAreTheirOwnForm) {
  for (const std::string text : {"plain", "gr\xC3\xBC\xC3\x9F", "raw \xFF\xFE bytes"}) {
    OopType converted = OOP_NIL;
    EXPECT_EQ(utf8Of(kvhost::newString(text), 1, 100, &converted), text);
    EXPECT_EQ(utf8Of(kvhost::newUtf8(text), 1, 100, &converted), text);
    EXPECT_EQ(utf8Of(kvhost::newSymbol(text), 1, 100, &converted), text);
    EXPECT_EQ(converted, OOP_NIL);
  }
}

TEST(Utf8, FetchesPieceByPiece) {
  OopType converted = OOP_NIL;
  const OopType text = kvhost::newString("abcdefg");
  EXPECT_EQ(utf8Of(text, 1, 3, &converted), "abc");
  EXPECT_EQ(utf8Of(text, 7, 3, &converted), "g");
  EXPECT_EQ(utf8Of(text, 8, 3, &converted), "");
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Utf8, Utf16IsConverted) {
  OopType converted = OOP_NIL;
  const OopType text = kvhost::newUtf16(u"a\u00FC\u20AC\U0001F600");
  const std::string expected = "a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(utf8Of(text, 1, 4, &converted), expected.substr(0, 4));
  ASSERT_EQ(kvhost::classOf(converted), OOP_CLASS_UTF8_STRING);
  EXPECT_EQ(utf8Of(converted, 5, 100, &converted), expected.substr(4));
  EXPECT_EQ(kvhost::bytesOf(converted), expected);
}

TEST(Utf8, MalformedUtf16IsReported) {
  const std::u16string lowFirst = {0xDC00, u'a'};
  const std::u16string highLast = {u'a', 0xD800};
  const std::u16string highAlone = {0xD800, u'a'};
  for (const std::u16string& text : {lowFirst, highLast, highAlone}) {
    OopType converted = OOP_NIL;
    EXPECT_EQ(utf8Of(kvhost::newUtf16(text), 1, 100, &converted), "");
    EXPECT_EQ(pendingNumber(), 2111);
    EXPECT_EQ(converted, OOP_NIL);
  }
  OopType converted = OOP_NIL;
  EXPECT_EQ(utf8Of(KciNewByteObj(OOP_CLASS_UTF16_STRING, "abc", 3), 1, 100, &converted), "");
  EXPECT_EQ(pendingNumber(), 2111);
}

TEST(Utf8, OtherObjectsAreRefused) {
  for (const OopType object : {kvhost::newByteArray("abc"), kvhost::newArray({OOP_NIL})}) {
    OopType converted = OOP_NIL;
    EXPECT_EQ(utf8Of(object, 1, 10, &converted), "");
    EXPECT_EQ(pendingNumber(), 2104);
  }
}

TEST(Utf8, WhatHasNoSizeHasNoText) {
  for (const OopType object : {OOP_NIL, oopFromSmallInteger(3), OOP_FALSE, kvhost::newArray({})}) {
    OopType converted = OOP_NIL;
    EXPECT_EQ(utf8Of(object, 1, 10, &converted), "");
    EXPECT_EQ(pendingNumber(), 0);
  }
}

TEST(All7Bit, TellsAndMeasures) {
  size_t length = 99;
  EXPECT_TRUE(KciAll7Bit("abc\x7F", &length));
  EXPECT_EQ(length, 4U);
  EXPECT_FALSE(KciAll7Bit("ab\x80", &length));
  EXPECT_EQ(length, 3U);
  EXPECT_TRUE(KciAll7Bit("", &length));
  EXPECT_EQ(length, 0U);
}

struct DateRow {
  int64 time;
  int year;
  int dayOfYear;
  int milliseconds;
};

TEST(Dates, SecondsBecomeDates) {
  const DateRow rows[] = {
      {0, 1970, 1, 0},
      {-1, 1969, 365, 86399000},
      {951782400, 2000, 60, 0},   // 29 February 2000
      {978220800, 2000, 366, 0},  // 31 December 2000
      {978307200, 2001, 1, 0},
      {4107542400, 2100, 60, 0},  // 1 March 2100, no leap year
      {1717761600 + 3661, 2024, 159, 43200000 + 3661000},
      {-62135596800, 1, 1, 0},
      {-62135596801, 0, 366, 86399000},  // year 0 is a leap year
  };
  for (const DateRow& row : rows) {
    KciDateTimeSType date{};
    KciCTimeToDateTime(row.time, &date);
    EXPECT_EQ(date.year, row.year) << row.time;
    EXPECT_EQ(date.dayOfYear, row.dayOfYear) << row.time;
    EXPECT_EQ(date.milliseconds, row.milliseconds) << row.time;
    EXPECT_EQ(date.timeZone, kvhost::newSymbol("UTC"));
  }
  EXPECT_EQ(pendingNumber(), 0);
}

TEST(Dates, YearsPastAnIntFail) {
  constexpr int64 lastSecond = 67767976233532799;  // of the year 2147483647
  KciDateTimeSType date{};
  KciCTimeToDateTime(lastSecond, &date);
  EXPECT_EQ(date.year, std::numeric_limits<int>::max());
  EXPECT_EQ(date.dayOfYear, 365);
  EXPECT_EQ(pendingNumber(), 0);
  date.year = 5;
  for (const int64 time :
       {lastSecond + 1, std::numeric_limits<int64>::max(), std::numeric_limits<int64>::min()}) {
    KciCTimeToDateTime(time, &date);
    EXPECT_EQ(pendingNumber(), 2112) << time;
    EXPECT_EQ(date.year, 5);
  }
}

TEST(Dates, ObjectsHoldTheFourParts) {
  const KciDateTimeSType date = {2024, 366, 86399999, OOP_NIL};
  const OopType object = KciNewDateTime(OOP_CLASS_DATE_TIME, &date);
  EXPECT_EQ(kvhost::classOf(object), OOP_CLASS_DATE_TIME);
  EXPECT_EQ(kvhost::elementsOf(object),
            (std::vector<OopType>{oopFromSmallInteger(2024), oopFromSmallInteger(366),
                                  oopFromSmallInteger(86399999), OOP_NIL}));
}

TEST(Dates, ImpossibleOnesFail) {
  const KciDateTimeSType rows[] = {{2023, 366, 0, OOP_NIL},
                                   {2024, 0, 0, OOP_NIL},
                                   {2024, 1, 86400000, OOP_NIL},
                                   {2024, 1, -1, OOP_NIL}};
  for (const KciDateTimeSType& row : rows) {
    EXPECT_EQ(KciNewDateTime(OOP_CLASS_DATE_TIME, &row), OOP_NIL);
    EXPECT_EQ(pendingNumber(), 2112);
  }
  const KciDateTimeSType good = {2024, 1, 0, OOP_NIL};
  EXPECT_EQ(KciNewDateTime(OOP_CLASS_ARRAY, &good), OOP_NIL);
  EXPECT_EQ(pendingNumber(), 2109);
}

}  // namespace
