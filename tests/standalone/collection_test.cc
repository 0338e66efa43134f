// Collecting garbage: what is kept, what is freed, and which files are handed over.
#include <kvfile/kvhost.h>

#include <gtest/gtest.h>

#include <unistd.h>

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

TEST_F(FilesOfASession, ThatCouldNotBeHandedOverAreToldAndAskedForAgain) {
  registered();
  kvhost::takeDroppedFiles();
  finalizeRaises = true;
  EXPECT_EQ(kvhost::collectGarbage().filesKept, 1);
  EXPECT_TRUE(kvhost::takeDroppedFiles());
  finalizeRaises = false;
  EXPECT_EQ(kvhost::collectGarbage().filesKept, 0);
  EXPECT_FALSE(kvhost::takeDroppedFiles());
}

class DroppedFiles : public FilesOfASession {
 protected:
  void SetUp() override {
    FilesOfASession::SetUp();
    kvhost::addRoot(&variable_);
    kvhost::addRoot(&other_);
  }
  void TearDown() override {
    kvhost::removeRoot(&other_);
    kvhost::removeRoot(&variable_);
    kvhost::collectGarbage();
    FilesOfASession::TearDown();
  }
  // Answers the files closed by the collection that the answer calls for.
  static int64 closedWhereDue() {
    return kvhost::takeDroppedFiles() ? kvhost::collectGarbage().filesFinalized : -1;
  }

  OopType variable_ = OOP_NIL;
  OopType other_ = OOP_NIL;
};

TEST_F(DroppedFiles, ThatWereNeverStoredAreNoticed) {
  EXPECT_EQ(closedWhereDue(), -1);
  registered();
  EXPECT_EQ(closedWhereDue(), 1);
  EXPECT_EQ(closedWhereDue(), -1);
}

TEST_F(DroppedFiles, OfAVariableAreNoticed) {
  kvhost::storeRoot(&variable_, registered());
  EXPECT_EQ(closedWhereDue(), -1) << "a root holds it";
  kvhost::storeRoot(&other_, variable_);
  kvhost::storeRoot(&variable_, OOP_NIL);
  EXPECT_EQ(closedWhereDue(), -1) << "another root holds it";
  kvhost::storeRoot(&other_, kvhost::newString("no file"));
  EXPECT_EQ(closedWhereDue(), 1);
}

TEST_F(DroppedFiles, OfAnArrayAreNoticed) {
  kvhost::storeRoot(&variable_, kvhost::newArray({registered(), OOP_NIL, registered()}));
  EXPECT_EQ(closedWhereDue(), 0);
  KciStoreOop(variable_, 2, OOP_TRUE);
  EXPECT_EQ(closedWhereDue(), -1) << "nothing was overwritten";
  KciStoreOop(variable_, 1, OOP_NIL);
  EXPECT_EQ(closedWhereDue(), 1);
  KciSetVaryingSize(variable_, 2);
  EXPECT_EQ(closedWhereDue(), 1);
}

TEST_F(DroppedFiles, WithAnArrayAreNoticed) {
  kvhost::storeRoot(&variable_, kvhost::newArray({kvhost::newArray({registered()})}));
  EXPECT_EQ(closedWhereDue(), 0);
  KciStoreOop(variable_, 1, OOP_NIL);
  EXPECT_EQ(closedWhereDue(), 1);
  kvhost::storeRoot(&variable_, kvhost::newArray({registered()}));
  EXPECT_EQ(closedWhereDue(), 0);
  kvhost::storeRoot(&variable_, OOP_NIL);
  EXPECT_EQ(closedWhereDue(), 1);
}

TEST_F(DroppedFiles, ByTheHundredAreNoticed) {
  for (int i = 0; i < 300; ++i) kvhost::storeRoot(&variable_, registered());
  EXPECT_EQ(closedWhereDue(), 299);
}

TEST_F(DroppedFiles, ThatWereNeverRegisteredCallForNothing) {
  kvhost::storeRoot(&variable_, registered());
  for (int i = 0; i < 5; ++i) kvhost::storeRoot(&other_, kvhost::newKvFile());
  kvhost::storeRoot(&other_, kvhost::newString("text"));
  kvhost::storeRoot(&other_, OOP_NIL);
  EXPECT_EQ(closedWhereDue(), -1);
}

TEST_F(Collecting, IsDueOnlyWhenAsMuchWasMadeAsIsKept) {
  std::vector<OopType> texts;
  for (int i = 0; i < 300000; ++i) texts.push_back(kvhost::newString("kept"));
  Root kept(kvhost::newArray(texts));
  kvhost::collectGarbage();
  EXPECT_FALSE(kvhost::collectionIsDue());
  for (int i = 0; i < 250000; ++i) kvhost::newString("dropped");
  EXPECT_FALSE(kvhost::collectionIsDue()) << "300,000 were kept";
  for (int i = 0; i < 60000; ++i) kvhost::newString("dropped");
  EXPECT_TRUE(kvhost::collectionIsDue());
  kept.set(OOP_NIL);
  kvhost::collectGarbage();
  for (int i = 0; i < 99000; ++i) kvhost::newString("dropped");
  EXPECT_FALSE(kvhost::collectionIsDue());
  kvhost::newString(std::string(17 << 20, 'x'));
  EXPECT_TRUE(kvhost::collectionIsDue()) << "few objects, many bytes";
}

TEST_F(FilesOfASession, AreADueCollectionWhereTheyHoldTheDescriptors) {
  kvhost::collectGarbage();
  std::vector<int> held;
  for (int i = 0; i < 300; ++i) {
    registered();
    EXPECT_FALSE(kvhost::collectionIsDue()) << i << " files that hold no descriptors";
  }
  for (int i = 0; i < 300; ++i) held.push_back(dup(0));
  bool due = false;
  for (int i = 0; i < 300 && !due; ++i) {
    registered();
    due = kvhost::collectionIsDue();
  }
  EXPECT_TRUE(due);
  for (const int descriptor : held) close(descriptor);
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
