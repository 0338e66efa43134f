// Sessions, the maps of objects, and what a session keeps.
#include <kvfile/kvhost.h>

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

TEST(Sessions, BeginSelectAndEnd) {
  EXPECT_EQ(KciGetSessionId(), 0);
  const int first = kvhost::sessionBegin();
  EXPECT_GE(first, 1);
  EXPECT_EQ(KciGetSessionId(), first);
  const int second = kvhost::sessionBegin();
  EXPECT_NE(second, first);
  EXPECT_EQ(KciGetSessionId(), second);
  kvhost::sessionSelect(first);
  EXPECT_EQ(KciGetSessionId(), first);
  kvhost::sessionEnd(second);
  EXPECT_EQ(KciGetSessionId(), first);
  kvhost::sessionEnd(first);
  EXPECT_EQ(KciGetSessionId(), 0);
  const int third = kvhost::sessionBegin();
  EXPECT_GT(third, second);
  kvhost::sessionEnd(third);
}

TEST(Sessions, TheCurrentOneIsTheThreads) {
  const int session = kvhost::sessionBegin();
  std::thread([session] {
    EXPECT_EQ(KciGetSessionId(), 0);
    const int own = kvhost::sessionBegin();
    EXPECT_NE(own, session);
    kvhost::sessionEnd(own);
  }).join();
  EXPECT_EQ(KciGetSessionId(), session);
  kvhost::sessionEnd(session);
}

TEST(Sessions, EachKeepsAMap) {
  const int first = kvhost::sessionBegin();
  const int second = kvhost::sessionBegin();
  KciOopMapType* map = KciOopMapCreate();
  EXPECT_EQ(KciSupGetKvfileOopMap(first), nullptr);
  KciSupStoreKvfileOopMap(first, map);
  EXPECT_EQ(KciSupGetKvfileOopMap(first), map);
  EXPECT_EQ(KciSupGetKvfileOopMap(second), nullptr);
  KciSupStoreKvfileOopMap(first, nullptr);
  EXPECT_EQ(KciSupGetKvfileOopMap(first), nullptr);
  KciOopMapDestroy(map);
  kvhost::sessionEnd(first);
  kvhost::sessionEnd(second);
}

TEST(Sessions, AnyIdMayKeepAMap) {
  KciOopMapType* map = KciOopMapCreate();
  for (const int id : {-5, 7777, 2147483647}) {
    EXPECT_EQ(KciSupGetKvfileOopMap(id), nullptr);
    KciSupStoreKvfileOopMap(id, nullptr);
    KciSupStoreKvfileOopMap(id, map);
    EXPECT_EQ(KciSupGetKvfileOopMap(id), map);
    KciSupStoreKvfileOopMap(id, nullptr);
    EXPECT_EQ(KciSupGetKvfileOopMap(id), nullptr);
  }
  KciOopMapDestroy(map);
}

TEST(Sessions, AnIdThatIsInUseIsNotGiven) {
  const int last = kvhost::sessionBegin();
  KciOopMapType* map = KciOopMapCreate();
  KciSupStoreKvfileOopMap(last + 1, map);
  const int next = kvhost::sessionBegin();
  EXPECT_EQ(next, last + 2);
  KciSupStoreKvfileOopMap(last + 1, nullptr);
  KciOopMapDestroy(map);
  kvhost::sessionEnd(last);
  kvhost::sessionEnd(next);
}

TEST(Sessions, AnEndedOneKeepsNothing) {
  const int session = kvhost::sessionBegin();
  KciOopMapType* map = KciOopMapCreate();
  KciSupStoreKvfileOopMap(session, map);
  EXPECT_EQ(KciSupGetKvfileOopMap(session), map);
  kvhost::sessionEnd(session);
  EXPECT_EQ(KciSupGetKvfileOopMap(session), nullptr);
  KciOopMapDestroy(map);
}

TEST(Sessions, ManyThreadsSideBySide) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) {
        const int session = kvhost::sessionBegin();
        KciOopMapType* map = KciOopMapCreate();
        KciSupStoreKvfileOopMap(session, map);
        for (int k = 0; k < 20; ++k) {
          kvhost::newSymbol("shared" + std::to_string(k));
          ASSERT_EQ(kvhost::bytesOf(kvhost::newString("own")), "own");
          ASSERT_EQ(KciSupGetKvfileOopMap(session), map);
        }
        KciSupStoreKvfileOopMap(session, nullptr);
        KciOopMapDestroy(map);
        kvhost::sessionEnd(session);
      }
      kvhost::collectGarbage();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

class Maps : public testing::Test {
 protected:
  void SetUp() override { map_ = KciOopMapCreate(); }
  void TearDown() override { KciOopMapDestroy(map_); }

  bool add(OopType key, void* value) {
    int status = 0;
    KciOopMapEntryAdd(map_, key, value, &status);
    return status == 0;
  }
  void* valueOf(OopType key) {
    KciOopMapEntryType* entry = KciOopMapEntryFind(map_, key);
    return entry != nullptr ? KciOopMapEntryGetValue(entry) : nullptr;
  }

  KciOopMapType* map_ = nullptr;
};

TEST_F(Maps, AddFindDelete) {
  int a = 0;
  int b = 0;
  EXPECT_EQ(KciOopMapEntryFind(map_, 0x10001), nullptr);
  EXPECT_TRUE(add(0x10001, &a));
  EXPECT_TRUE(add(OOP_NIL, &b));
  EXPECT_FALSE(add(0x10001, &b));
  EXPECT_EQ(valueOf(0x10001), &a);
  EXPECT_EQ(valueOf(OOP_NIL), &b);
  KciOopMapEntryDelete(KciOopMapEntryFind(map_, 0x10001));
  EXPECT_EQ(KciOopMapEntryFind(map_, 0x10001), nullptr);
  EXPECT_EQ(valueOf(OOP_NIL), &b);
}

TEST_F(Maps, AnyKeyAndANullValueAreFine) {
  for (const OopType key : {OopType{0}, ~OopType{0}, OopType{1}}) {
    EXPECT_TRUE(add(key, nullptr));
    ASSERT_NE(KciOopMapEntryFind(map_, key), nullptr);
    EXPECT_EQ(KciOopMapEntryGetValue(KciOopMapEntryFind(map_, key)), nullptr);
  }
}

std::multiset<int64> visited;

TEST_F(Maps, AWalkVisitsEachOnceAndMayDeleteAll) {
  std::vector<int64> values(5000);
  for (size_t i = 0; i < values.size(); ++i) {
    values[i] = static_cast<int64>(i);
    ASSERT_TRUE(add((i << 8) | 1, &values[i]));
  }
  visited.clear();
  int64 count = 0;
  int64 deleted = 0;
  KciOopMapForeach(
      map_,
      [](KciOopMapEntryType* entry, int64* counted, int64* removed) -> BoolType {
        const int64 value = *static_cast<int64*>(KciOopMapEntryGetValue(entry));
        visited.insert(value);
        ++*counted;
        if (value % 3 != 0) {
          KciOopMapEntryDelete(entry);
          ++*removed;
        }
        return TRUE;
      },
      &count, &deleted);
  EXPECT_EQ(count, 5000);
  EXPECT_EQ(std::set<int64>(visited.begin(), visited.end()).size(), 5000U);
  for (size_t i = 0; i < values.size(); ++i) {
    ASSERT_EQ(valueOf((i << 8) | 1), i % 3 == 0 ? &values[i] : nullptr);
  }
}

TEST_F(Maps, AWalkEndsWithFalse) {
  int value = 0;
  for (OopType key = 1; key <= 10; ++key) add(key, &value);
  int64 count = 0;
  KciOopMapForeach(
      map_, [](KciOopMapEntryType*, int64* counted, int64*) -> BoolType { return ++*counted < 4; },
      &count, nullptr);
  EXPECT_EQ(count, 4);
}

TEST_F(Maps, AMillionEntries) {
  constexpr OopType COUNT = 1000000;
  std::vector<char> values(COUNT);
  for (OopType i = 0; i < COUNT; ++i) ASSERT_TRUE(add((i << 8) | 1, &values[i]));
  for (OopType i = 0; i < COUNT; ++i) ASSERT_EQ(valueOf((i << 8) | 1), &values[i]);
  EXPECT_EQ(valueOf((COUNT << 8) | 1), nullptr);
  for (OopType i = 0; i < COUNT; i += 2) {
    KciOopMapEntryDelete(KciOopMapEntryFind(map_, (i << 8) | 1));
  }
  for (OopType i = 0; i < COUNT; ++i) {
    ASSERT_EQ(valueOf((i << 8) | 1), i % 2 == 0 ? nullptr : &values[i]);
  }
}

}  // namespace
