// Decimal byte text loaded from a byte object: what is stored, and the index that is answered.
#include "bytestrings/bytes_fixture.h"

namespace kvtest {
namespace {

class LoadObject : public BytesTest {
 protected:
  struct Loaded {
    OopType answer;
    std::string stored;
  };

  Loaded load(std::string_view text, int64_t amount = LOTS, int64_t start = 1) {
    const OopType target = emptyTarget();
    const OopType answer = loadObject(target, amount, str(text), start);
    return {answer, bytes(target)};
  }

  void expectLoad(std::string_view text, int64 answer, std::string_view stored,
                  int64_t amount = LOTS, int64_t start = 1) {
    const Loaded loaded = load(text, amount, start);
    EXPECT_EQ(loaded.answer, smallInt(answer)) << text << " from " << start;
    EXPECT_EQ(loaded.stored, stored) << text << " from " << start;
    const ModelLoad model = modelLoadObject(text, start, amount);
    EXPECT_EQ(model.answer, answer) << "the model";
    EXPECT_EQ(model.stored, stored) << "the model";
  }
};

TEST_F(LoadObject, EndingWithinAValueAnswersTwoPastTheEnd) {
  expectLoad("1 2", 5, "\1\2");
  expectLoad("1", 3, "\1");
  expectLoad("12", 4, "\x0C");
  expectLoad("123", 5, "\x7B");
  expectLoad("1234", 6, "\xD2");
}

TEST_F(LoadObject, EndingInSeparatorsAnswersOnePastTheEnd) {
  expectLoad("1 2 ", 5, "\1\2");
  expectLoad("1 2   ", 7, "\1\2");
  expectLoad("1\t2\n", 5, "\1\2");
  expectLoad("   ", 4, "");
  expectLoad("\n", 2, "");
}

TEST_F(LoadObject, EndingAtAForeignCharacterAnswersTheIndexPastIt) {
  expectLoad("1 2 x", 6, "\1\2");
  expectLoad("1 2x", 5, "\1\2");
  expectLoad("1 2x 3", 5, "\1\2");
  expectLoad("x", 2, "");
  expectLoad("1 2\r\n3", 5, "\1\2");
  expectLoad("1 2 \r\n3", 6, "\1\2");
  expectLoad(std::string_view("1 \0 2", 5), 4, "\1");
  expectLoad("1 \xFF", 4, "\1");
}

TEST_F(LoadObject, OfNothingAnswersItsStart) { expectLoad("", 1, ""); }

TEST_F(LoadObject, EndsAValueAfterFourDigitsAndDropsALastFifth) {
  expectLoad("12345", 6, "\xD2");
  expectLoad("12345 ", 7, "\xD2\5");
  expectLoad("123456", 8, "\xD2\x38");
  expectLoad("1234 5", 8, "\xD2\5");
  expectLoad("12345678", 10, "\xD2\x2E");
  expectLoad("123456789", 10, "\xD2\x2E");
  expectLoad("0065", 6, "A");
  expectLoad("256 ", 5, std::string_view("\0", 1));
}

// ---- amounts ----

TEST_F(LoadObject, OfAnAmountAnswersTheIndexPastTheCharacterBehindIt) {
  expectLoad("104 101 108 108 111", 13, "hel", 3);
  expectLoad("104 101 108 108 111", 21, "hello", 5);
  expectLoad("1 2 3", 3, "\1", 1);
  expectLoad("1234567", 6, "\xD2", 1);
}

TEST_F(LoadObject, ContinuesFromTheAnsweredIndex) {
  const std::string text = "10 20 30 40 50 60";
  const OopType source = str(text);
  std::string all;
  int64 index = 1;
  for (int i = 0; i < 3; ++i) {
    const OopType target = emptyTarget();
    index = oopSmallIntegerValue(loadObject(target, 2, source, index));
    all += bytes(target);
  }
  EXPECT_EQ(all, "\x0A\x14\x1E\x28\x32\x3C");
  EXPECT_EQ(index, static_cast<int64>(text.size()) + 2);
}

TEST_F(LoadObject, OfZeroOrLessAnswersTheStartAndReadsNothing) {
  for (const int64_t amount : {int64_t{0}, int64_t{-1}, INT64_MIN}) {
    for (const int64_t start : {int64_t{1}, int64_t{3}, int64_t{0}, int64_t{-7}, int64_t{100}}) {
      const OopType source = str("1 2 3");
      const OopType target = kvhost::newByteArray("kept");
      const auto calls = callsDuring(
          [&] { EXPECT_EQ(loadObject(target, amount, source, start), smallInt(start)); });
      EXPECT_EQ(fetchesIn(calls), Ranges{});
      EXPECT_EQ(storesIn(calls), Ranges{});
      EXPECT_EQ(bytes(target), "kept");
      expectFramesPopped(calls);
    }
  }
}

TEST_F(LoadObject, OfAHugeAmountEndsWithTheSource) { expectLoad("1 2 3", 7, "\1\2\3", INT64_MAX); }

// ---- starts ----

TEST_F(LoadObject, StartsWhereItIsTold) {
  expectLoad("10 20 30", 10, "\x14\x1E", LOTS, 4);
  expectLoad("10 20 30", 10, std::string_view("\0\x14\x1E", 3), LOTS, 2);
  expectLoad("10 20 30", 10, std::string_view("\0", 1), LOTS, 8);
}

TEST_F(LoadObject, FromBehindTheEndAnswersItsStart) {
  for (const int64_t start : {int64_t{4}, int64_t{5}, int64_t{1000}, int64_t{1} << 50, INT64_MAX}) {
    const Loaded loaded = load("1 2", LOTS, start);
    int failed = 0;
    EXPECT_EQ(KciOopToI64_(loaded.answer, &failed), start);
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(loaded.stored, "");
  }
}

TEST_F(LoadObject, FromIndexZeroReadsTheFirstByteFirst) {
  // The character behind the source is then a 0.
  expectLoad("12 3", 5, "\x0C\3", LOTS, 0);
  expectLoad("12 ", 4, "\x0C", LOTS, 0);
  expectLoad("", 1, "", LOTS, 0);
}

TEST_F(LoadObject, FromANegativeIndexIsAnErrorOfTheInterface) {
  for (const int64_t start : {int64_t{-1}, int64_t{-5}, int64_t{-5000}, INT64_MIN + 1, INT64_MIN}) {
    OopType answer = OOP_TRUE;
    const OopType target = emptyTarget();
    const OopType source = str("1 2");
    const auto calls = callsDuring([&] { answer = loadObject(target, LOTS, source, start); });
    EXPECT_EQ(answer, OOP_NIL) << start;
    EXPECT_EQ(bytes(target), "") << start;
    expectFramesPopped(calls);
    KciErrSType pending;
    EXPECT_FALSE(KciErr(&pending)) << start;
  }
}

// ---- conversions ----

TEST_F(LoadObject, OfWhatIsNoIntegerRaisesNamingTheAmount) {
  const OopType source = str("1 2");
  const OopType bad = str("3");
  struct Row {
    OopType amount, start;
  };
  for (const Row& row : std::vector<Row>{
           {smallInt(5), OOP_NIL}, {bad, smallInt(1)}, {bad, OOP_NIL}, {OOP_TRUE, OOP_FALSE}}) {
    const auto calls = callsDuring([&] {
      expectRaise(2061, {row.amount}, "KvfPassiveObjLoadByteStrings",
                  {emptyTarget(), row.amount, source, row.start});
    });
    expectFramesPopped(calls);
    EXPECT_EQ(fetchesIn(calls), Ranges{});
    letRaisesReturn(1);
    EXPECT_EQ(call("KvfPassiveObjLoadByteStrings", {emptyTarget(), row.amount, source, row.start}),
              OOP_NIL);
  }
}

TEST_F(LoadObject, AsksForTheSizeThenTheStartThenTheAmount) {
  const OopType source = str("1 2");
  const auto calls = callsDuring([&] { loadObject(emptyTarget(), 8, source, 3); });
  std::vector<std::string> order;
  std::vector<std::string> converted;
  for (const seam::Call& made : calls) {
    if (made.name == "KciFetchSize_" && order.size() < 2) order.push_back(made.name);
    if (made.name == "KciPushErrJump") order.push_back(made.name);
    if (made.name == "KciOopToI64_") converted.push_back(made.result);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"KciPushErrJump", "KciFetchSize_"}));
  EXPECT_EQ(converted, (std::vector<std::string>{"3", "8"}));
}

// ---- sources and targets ----

TEST_F(LoadObject, ReadsAnyByteObject) {
  for (const OopType source : {str("65 66"), kvhost::newByteArray("65 66"),
                               kvhost::newSymbol("65 66"), kvhost::newUtf8("65 66")}) {
    const OopType target = str("");
    EXPECT_EQ(loadObject(target, LOTS, source, 1), smallInt(7));
    EXPECT_EQ(bytes(target), "AB");
  }
}

TEST_F(LoadObject, OfNilAnswersItsStart) {
  EXPECT_EQ(loadObject(emptyTarget(), LOTS, OOP_NIL, 1), smallInt(1));
}

TEST_F(LoadObject, StoresFromTheFirstByteAndKeepsTheRest) {
  const OopType target = str("0123456789");
  EXPECT_EQ(loadObject(target, 3, str("65 66 67"), 1), smallInt(10));
  EXPECT_EQ(bytes(target), "ABC3456789");
}

TEST_F(LoadObject, FetchesAtMost4096AndStoresAtMost2048) {
  const std::string data(5000, 'A');
  const std::string text = modelPrint(data);
  const OopType source = str(text);
  const OopType target = emptyTarget();
  const auto calls = callsDuring([&] {
    EXPECT_EQ(loadObject(target, LOTS, source, 1), smallInt(static_cast<int64>(text.size()) + 1));
  });
  EXPECT_EQ(bytes(target), data);
  EXPECT_EQ(storesIn(calls), (Ranges{{1, 2048}, {2049, 2048}, {4097, 904}}));
  Ranges expected;
  const auto size = static_cast<int64_t>(text.size());
  for (int64_t at = 0; at < size; at += 4096)
    expected.emplace_back(at + 1, std::min<int64_t>(size - at, 4096));
  EXPECT_EQ(fetchesIn(calls), expected);
  expectFramesPopped(calls);
}

TEST_F(LoadObject, StoresExactly2048ValuesOnce) {
  const OopType source = str(modelPrint(std::string(2048, 'A')));
  const auto calls = callsDuring([&] { loadObject(emptyTarget(), LOTS, source, 1); });
  EXPECT_EQ(storesIn(calls), (Ranges{{1, 2048}}));
}

TEST_F(LoadObject, StoresWhatIsFullBeforeItFetchesOn) {
  // 2048 values end within each fetch, or each of its last values with the next one's first
  // character.
  for (const bool cut : {false, true}) {
    std::string text = cut ? " " : "";
    while (text.size() < 3 * 4096) text += "1 ";
    const OopType source = str(text);
    const auto calls = callsDuring([&] { loadObject(emptyTarget(), LOTS, source, 1); });
    std::string order;
    for (const seam::Call& made : calls) {
      if (made.name == "KciFetchBytes_") order += "fetch ";
      if (made.name == "KciStoreBytesInstanceOf") order += "store ";
    }
    EXPECT_EQ(order, cut ? "fetch fetch store fetch store fetch store "
                         : "fetch store fetch store fetch store ");
  }
}

TEST_F(LoadObject, EndsAtAnyAmountAroundWhatIsStoredAtOnce) {
  std::string dense;
  while (dense.size() < 3 * 4096) dense += "1 2\n33\t4 ";
  const std::string ordinary = modelPrint(std::string(5000, '\xC8'));
  for (const std::string& text : {dense, ordinary}) {
    for (const int64_t around : {1, 33, 64, 1024, 2048, 4096}) {
      for (int64_t amount = around - 34; amount <= around + 34; ++amount) {
        const ModelLoad model = modelLoadObject(text, 1, amount);
        const Loaded loaded = load(text, amount);
        ASSERT_EQ(loaded.answer, smallInt(model.answer.value_or(-1))) << amount;
        ASSERT_EQ(loaded.stored, model.stored) << amount;
      }
    }
  }
}

TEST_F(LoadObject, TakesValuesThatTheFetchBufferCuts) {
  for (size_t pad = 4080; pad <= 4100; ++pad) {
    for (const char* values : {"200 201 202", "1234567 8", "12345", "7", "x", "1 \r 2"}) {
      const std::string text = std::string(pad, ' ') + values;
      const ModelLoad model = modelLoadObject(text, 1, LOTS);
      const Loaded loaded = load(text);
      ASSERT_TRUE(model.answer.has_value());
      EXPECT_EQ(loaded.answer, smallInt(*model.answer)) << pad << values;
      EXPECT_EQ(loaded.stored, model.stored) << pad << values;
    }
  }
}

TEST_F(LoadObject, TakesStartsWhoseFetchesFallElsewhere) {
  const std::string text = modelPrint(std::string(3000, '\xC8'));
  for (int64_t start = 1; start < 20; ++start) {
    const ModelLoad model = modelLoadObject(text, start, LOTS);
    const Loaded loaded = load(text, LOTS, start);
    EXPECT_EQ(loaded.answer, smallInt(model.answer.value_or(-1))) << start;
    EXPECT_EQ(loaded.stored, model.stored) << start;
  }
}

TEST_F(LoadObject, FromIndexZeroOfALongSourceMeetsAByteTwice) {
  std::string text(5000, ' ');
  text.replace(4095, 1, "7");
  const ModelLoad model = modelLoadObject(text, 0, LOTS);
  ASSERT_EQ(model.stored, std::string("\x4D", 1)) << "the model";
  const Loaded loaded = load(text, LOTS, 0);
  EXPECT_EQ(loaded.answer, smallInt(*model.answer));
  EXPECT_EQ(loaded.stored, model.stored);
}

// ---- failures ----

TEST_F(LoadObject, BytesThatAFetchLeftOutAreZero) {
  fault("KciFetchBytes_:1:result=0");
  const Loaded loaded = load("1 2 3");
  EXPECT_EQ(loaded.answer, smallInt(2));
  EXPECT_EQ(loaded.stored, "");
}

TEST_F(LoadObject, BytesThatALaterFetchLeftOutAreThoseFetchedBefore) {
  std::string text;
  while (text.size() < 4096) text += "1 ";
  while (text.size() < 2 * 4096) text += "2 ";
  fault("KciFetchBytes_:2:result=0");
  const Loaded loaded = load(text);
  EXPECT_EQ(loaded.answer, smallInt(2 * 4096 + 1));
  EXPECT_EQ(loaded.stored, std::string(4096, '\1'));
}

TEST_F(LoadObject, AnyErrorOfTheInterfaceIsNil) {
  const std::string text = modelPrint(std::string(5000, 'A'));
  const OopType source = str(text);
  for (const auto& [function, at] :
       std::vector<std::pair<const char*, int64_t>>{{"KciFetchSize_", 1},
                                                    {"KciFetchSize_", 2},
                                                    {"KciFetchBytes_", 1},
                                                    {"KciFetchBytes_", 3},
                                                    {"KciStoreBytesInstanceOf", 1},
                                                    {"KciStoreBytesInstanceOf", 3}}) {
    fault(std::string(function) + ":" + std::to_string(at) + ":raise=2101");
    OopType answer = OOP_TRUE;
    const auto calls = callsDuring([&] { answer = loadObject(emptyTarget(), LOTS, source, 1); });
    EXPECT_EQ(answer, OOP_NIL) << function << at;
    EXPECT_EQ(seam::faultsFired(), 1) << function << at;
    clearFaults();
    expectFramesPopped(calls);
    KciErrSType pending;
    EXPECT_FALSE(KciErr(&pending)) << function << at;
  }
  EXPECT_EQ(takeClassError(), "");
}

TEST_F(LoadObject, OfWhatHoldsNoBytesIsNil) {
  const OopType array = kvhost::newArray({OOP_NIL, OOP_NIL});
  EXPECT_EQ(loadObject(emptyTarget(), LOTS, array, 1), OOP_NIL);
  EXPECT_EQ(loadObject(array, LOTS, str("1"), 1), OOP_NIL);
  const OopType fixed = str("");
  kvhost::makeInvariant(fixed);
  EXPECT_EQ(loadObject(fixed, LOTS, str("1"), 1), OOP_NIL);
  EXPECT_EQ(bytes(fixed), "");
}

}  // namespace
}  // namespace kvtest
