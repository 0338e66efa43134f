// Collecting garbage: what is kept, what is freed, and which files are handed over.
#include <kvfile/kvhost.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

KciActionFnType asAction(OopType (*function)(OopType)) {
  return reinterpret_cast<KciActionFnType>(reinterpret_cast<void (*)()>(function));
}

// Keeps an object for the life of the test.
class Root {
 public:
  explicit Root(OopType object) : object_(object) { kvhost::addRoot(&object_); }
  ~Root() { kvhost::removeRoot(&object_); }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  OopType get() const { return object_; }
  void set(OopType object) { object_ = object; }

 private:
  OopType object_;
};

// What the declared KvfClientFinalize was called with.
std::multiset<OopType> finalizedIds;
std::vector<int> finalizedSessions;
bool finalizeRaises = false;

OopType recordFinalized(OopType array) {
  finalizedSessions.push_back(KciGetSessionId());
  KciOopMapType* map = KciSupGetKvfileOopMap(KciGetSessionId());
  if (finalizeRaises) {
    KciErrSType error;
    error.initialize();
    KciRaiseException(&error);
  }
  OopType buffer[100];
  int64 index = 1;
  while (const int count = KciFetchOops(array, index, buffer, 100)) {
    for (int i = 0; i < count; ++i) {
      int failed = 0;
      const auto id = static_cast<OopType>(KciOopToI64_(buffer[i], &failed));
      EXPECT_EQ(failed, 0);
      EXPECT_TRUE(kvhost::isValid(id));
      finalizedIds.insert(id);
      KciOopMapEntryDelete(KciOopMapEntryFind(map, id));
    }
    index += count;
  }
  return OOP_TRUE;
}

class Collecting : public testing::Test {
 protected:
  void SetUp() override {
    kvhost::collectGarbage();
    finalizedIds.clear();
    finalizedSessions.clear();
    finalizeRaises = false;
    kvhost::forgetDeclaredActions();
    KciDeclareAction("KvfClientFinalize", asAction(recordFinalized), 1, 0, TRUE);
  }
  void TearDown() override { kvhost::forgetDeclaredActions(); }
};

TEST_F(Collecting, FreesWhatNothingRefersTo) {
  const int64 before = kvhost::liveObjects();
  const OopType small = kvhost::newString("small");
  const OopType large = kvhost::newString(std::string(1000, 'x'));
  const OopType array = kvhost::newArray({small, large});
  EXPECT_EQ(kvhost::liveObjects(), before + 3);
  EXPECT_EQ(kvhost::objectsSinceCollection(), 3);
  EXPECT_GT(kvhost::bytesSinceCollection(), 1000);
  const kvhost::Collection result = kvhost::collectGarbage();
  EXPECT_EQ(result.objectsBefore, before + 3);
  EXPECT_EQ(result.objectsFreed, 3);
  EXPECT_EQ(result.filesFinalized, 0);
  EXPECT_EQ(kvhost::liveObjects(), before);
  EXPECT_EQ(kvhost::objectsSinceCollection(), 0);
  EXPECT_EQ(kvhost::bytesSinceCollection(), 0);
  for (const OopType object : {small, large, array}) EXPECT_FALSE(kvhost::isValid(object));
}

TEST_F(Collecting, KeepsWhatRootsReach) {
  Root root(kvhost::newArray({kvhost::newArray({kvhost::newString("deep")}), OOP_NIL}));
  kvhost::collectGarbage();
  const std::vector<OopType> outer = kvhost::elementsOf(root.get());
  ASSERT_EQ(outer.size(), 2U);
  EXPECT_EQ(kvhost::bytesOf(kvhost::elementsOf(outer[0])[0]), "deep");
  root.set(OOP_NIL);
  EXPECT_EQ(kvhost::collectGarbage().objectsFreed, 3);
}

TEST_F(Collecting, CyclesAreNoMatter) {
  const OopType a = kvhost::newArray({OOP_NIL});
  const OopType b = kvhost::newArray({a});
  KciStoreOop(a, 1, b);
  Root root(a);
  EXPECT_EQ(kvhost::collectGarbage().objectsFreed, 0);
  root.set(OOP_NIL);
  EXPECT_EQ(kvhost::collectGarbage().objectsFreed, 2);
}

TEST_F(Collecting, LongChainsDoNotExhaustTheStack) {
  OopType chain = OOP_NIL;
  for (int i = 0; i < 1000000; ++i) {
    chain = KciNewOop(OOP_CLASS_ARRAY) == OOP_NIL ? OOP_NIL : kvhost::newArray({chain});
  }
  Root root(chain);
  EXPECT_EQ(kvhost::collectGarbage().objectsFreed, 1000000);
  root.set(OOP_NIL);
  EXPECT_EQ(kvhost::collectGarbage().objectsFreed, 1000000);
}

TEST_F(Collecting, SymbolsAndPermanentObjectsStay) {
  const OopType symbol = kvhost::newSymbol("kept without a root");
  const void* text = "permanent";
  const OopType permanent =
      KciCreateByteObj(OOP_CLASS_STRING, 1, static_cast<const ByteType*>(text), 9, 0, TRUE);
  kvhost::collectGarbage();
  EXPECT_EQ(kvhost::bytesOf(symbol), "kept without a root");
  EXPECT_EQ(kvhost::bytesOf(permanent), "permanent");
}

TEST_F(Collecting, FreedSlotsServeAgain) {
  for (int round = 0; round < 20; ++round) {
    Root kept(kvhost::newString("kept"));
    for (int i = 0; i < 20000; ++i) {
      const OopType text = kvhost::newString(std::string(static_cast<size_t>(i % 100), 'y'));
      ASSERT_EQ(KciFetchSize_(text), i % 100);
    }
    ASSERT_EQ(kvhost::collectGarbage().objectsFreed, 20000 + (round > 0 ? 1 : 0));
    ASSERT_EQ(kvhost::bytesOf(kept.get()), "kept");
  }
}

class FilesOfASession : public Collecting {
 protected:
  void SetUp() override {
    Collecting::SetUp();
    session_ = kvhost::sessionBegin();
    map_ = KciOopMapCreate();
    KciSupStoreKvfileOopMap(session_, map_);
  }
  void TearDown() override {
    KciOopMapDestroy(map_);
    kvhost::sessionEnd(session_);
    Collecting::TearDown();
  }
  OopType registered() {
    const OopType file = kvhost::newKvFile();
    int status = 0;
    KciOopMapEntryAdd(map_, file, this, &status);
    EXPECT_EQ(status, 0);
    return file;
  }

  int session_ = 0;
  KciOopMapType* map_ = nullptr;
};

TEST_F(FilesOfASession, DeadOnesAreHandedOverOnce) {
  Root kept(registered());
  std::multiset<OopType> dead;
  for (int i = 0; i < 1234; ++i) dead.insert(registered());
  kvhost::newKvFile();
  kvhost::sessionSelect(0);
  const kvhost::Collection result = kvhost::collectGarbage();
  EXPECT_EQ(result.filesFinalized, 1234);
  EXPECT_EQ(result.objectsFreed, 1235);
  EXPECT_EQ(finalizedIds, dead);
  EXPECT_EQ(finalizedSessions, std::vector<int>{session_});
  EXPECT_EQ(KciGetSessionId(), 0);
  EXPECT_NE(KciOopMapEntryFind(map_, kept.get()), nullptr);
  EXPECT_TRUE(kvhost::isValid(kept.get()));
  EXPECT_EQ(kvhost::collectGarbage().filesFinalized, 0);
}

TEST_F(FilesOfASession, AreKeptWhereTheyCannotBeHandedOver) {
  const OopType file = registered();
  kvhost::forgetDeclaredActions();
  EXPECT_EQ(kvhost::collectGarbage().filesFinalized, 0);
  EXPECT_TRUE(kvhost::isValid(file));
  KciDeclareAction("KvfClientFinalize", asAction(recordFinalized), 1, 0, TRUE);
  finalizeRaises = true;
  EXPECT_EQ(kvhost::collectGarbage().filesFinalized, 0);
  EXPECT_TRUE(kvhost::isValid(file));
  finalizeRaises = false;
  EXPECT_EQ(kvhost::collectGarbage().filesFinalized, 1);
  EXPECT_FALSE(kvhost::isValid(file));
}

TEST_F(FilesOfASession, NothingHappensWhileAnActionRuns) {
  registered();
  kvhost::protect(
      [](void*) -> OopType {
        EXPECT_EQ(kvhost::collectGarbage().objectsBefore, 0);
        return OOP_NIL;
      },
      nullptr);
  EXPECT_TRUE(finalizedIds.empty());
  EXPECT_EQ(kvhost::collectGarbage().filesFinalized, 1);
}

}  // namespace
