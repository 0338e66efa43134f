// Sessions, the maps of objects, and what a session keeps.
#include <kvfile/kvhost.h>

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <random>
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

TEST(Sessions, AMapThatIsReplacedIsSeenAtOnce) {
  const int session = kvhost::sessionBegin();
  KciOopMapType* first = KciOopMapCreate();
  KciOopMapType* second = KciOopMapCreate();
  for (KciOopMapType* map : {first, second, static_cast<KciOopMapType*>(nullptr), first}) {
    KciSupStoreKvfileOopMap(session, map);
    EXPECT_EQ(KciSupGetKvfileOopMap(session), map);
    std::thread([=] {
      EXPECT_EQ(KciSupGetKvfileOopMap(session), map);
      KciSupStoreKvfileOopMap(session, second);
    }).join();
    EXPECT_EQ(KciSupGetKvfileOopMap(session), second) << "stored by another thread";
  }
  KciOopMapDestroy(first);
  KciOopMapDestroy(second);
  kvhost::sessionEnd(session);
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

TEST(DebugBuildsDeathTest, RefuseAnEntryThatWasDeleted) {
#if defined(NDEBUG)
  GTEST_SKIP() << "this build checks nothing";
#else
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  KciOopMapType* map = KciOopMapCreate();
  int status = 0;
  KciOopMapEntryAdd(map, 0x10001, &status, &status);
  KciOopMapEntryType* entry = KciOopMapEntryFind(map, 0x10001);
  KciOopMapEntryDelete(entry);
  EXPECT_DEATH(KciOopMapEntryGetValue(entry), "isLive");
  KciOopMapDestroy(map);
#endif
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

// A walk may meet keys of the same place one behind the other; deleting the first must hide none.
TEST_F(Maps, AWalkThatDeletesSomeAfterManyChangesMissesNone) {
  std::mt19937_64 random(5);
  std::map<OopType, int64*> expected;
  std::vector<int64> values(3000);
  for (int step = 0; step < 40000; ++step) {
    const size_t place = random() % values.size();
    const OopType key = (place << 8) | 1;
    if (expected.contains(key)) {
      KciOopMapEntryDelete(KciOopMapEntryFind(map_, key));
      expected.erase(key);
    } else {
      values[place] = static_cast<int64>(key);
      ASSERT_TRUE(add(key, &values[place]));
      expected[key] = &values[place];
    }
    ASSERT_EQ(valueOf(key), expected.contains(key) ? expected[key] : nullptr);
    if (step % 4000 != 0) continue;
    visited.clear();
    KciOopMapForeach(
        map_,
        [](KciOopMapEntryType* entry, int64*, int64*) -> BoolType {
          const int64 each = *static_cast<int64*>(KciOopMapEntryGetValue(entry));
          visited.insert(each);
          if (each % 512 == 1) KciOopMapEntryDelete(entry);
          return TRUE;
        },
        nullptr, nullptr);
    ASSERT_EQ(visited.size(), expected.size());
    for (const auto& [each, value] : expected)
      ASSERT_EQ(visited.count(static_cast<int64>(each)), 1U);
    std::erase_if(expected, [](const auto& entry) { return entry.first % 512 == 1; });
    for (size_t i = 0; i < values.size(); ++i) {
      ASSERT_EQ(valueOf((i << 8) | 1) != nullptr, expected.contains((i << 8) | 1));
    }
  }
}

TEST_F(Maps, KeysOfEveryStrideAreFoundAndMissedQuickly) {
  char value = 0;
  for (const unsigned shift : {8U, 9U, 12U, 16U, 20U, 32U, 40U}) {
    KciOopMapType* map = KciOopMapCreate();
    const std::clock_t start = std::clock();
    int status = 0;
    for (OopType i = 1; i <= 20000; ++i) KciOopMapEntryAdd(map, (i << shift) | 1, &value, &status);
    for (OopType i = 1; i <= 20000; ++i) {
      ASSERT_NE(KciOopMapEntryFind(map, (i << shift) | 1), nullptr);
      ASSERT_EQ(KciOopMapEntryFind(map, (i << shift) | 3), nullptr);
    }
    EXPECT_EQ(status, 0);
    // Where keys gathered at few places this would take seconds of the processor.
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC) << shift;
    KciOopMapDestroy(map);
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
