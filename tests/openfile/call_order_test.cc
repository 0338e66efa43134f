// The order in which actions ask the interface and the host, where an embedder may rely on it.
#include "openfile/openfile_fixture.h"

namespace kvtest {
namespace {

using ::testing::_;
using ::testing::ElementsAre;

class CallOrder : public OpenFileTest {
 protected:
  // The names of the calls while `body` ran that are among `wanted`.
  template <typename Body>
  std::vector<std::string> order(const std::vector<std::string>& wanted, Body body) {
    std::vector<std::string> made;
    for (const seam::Call& one : callsDuring(body))
      if (std::find(wanted.begin(), wanted.end(), one.name) != wanted.end())
        made.push_back(one.name);
    return made;
  }
};

TEST_F(CallOrder, AFileIsLookedUpBeforeItsArguments) {
  const OopType file = openWith("abc");
  const OopType into = str("");
  EXPECT_THAT(
      order({"KciGetSessionId", "KciSupGetKvfileOopMap", "KciOopMapEntryFind",
             "KciOopMapEntryGetValue", "KciOopToI64_", "HostReadFile_", "KciStoreBytesInstanceOf",
             "KciErr"},
            [&] { read(file, into, 1, 2); }),
      ::testing::ElementsAre("KciGetSessionId", "KciSupGetKvfileOopMap", "KciOopMapEntryFind",
                             "KciOopMapEntryGetValue", "KciOopToI64_", "KciOopToI64_",
                             "HostReadFile_", "KciStoreBytesInstanceOf", "KciErr"));
}

TEST_F(CallOrder, ALineIsReadBetweenItsArguments) {
  const OopType file = openWith("ab\n");
  const OopType into = str("12345");
  EXPECT_THAT(order({"KciOopToI32_", "KciIsKindOfClass", "KciFetchBytes_", "KciFetchChars_",
                     "HostReadFile_", "KciOopToI64_", "KciStoreBytesInstanceOf",
                     "KciSetVaryingSize", "KciErr"},
                    [&] { getLine(file, into, 1, str("\n"), str("? ")); }),
              ::testing::ElementsAre("KciOopToI32_", "KciIsKindOfClass", "KciFetchBytes_",
                                     "KciFetchChars_", "HostReadFile_", "KciOopToI64_",
                                     "KciStoreBytesInstanceOf", "KciSetVaryingSize", "KciErr"));
}

TEST_F(CallOrder, AWriteFetchesAChunkBeforeEachHostCall) {
  const OopType file = openFile("out", "w");
  EXPECT_THAT(order({"KciOopToI64_", "KciFetchSize_", "KciFetchBytes_", "clearerr_unlocked",
                     "HostWriteFile_"},
                    [&] { write(file, patternBytes(5000)); }),
              ::testing::ElementsAre("KciOopToI64_", "KciOopToI64_", "KciFetchSize_",
                                     "KciFetchBytes_", "clearerr_unlocked", "HostWriteFile_",
                                     "KciFetchBytes_", "clearerr_unlocked", "HostWriteFile_"));
}

TEST_F(CallOrder, AnOpenFetchesThePathThenTheModeThenOpensThenRegisters) {
  const OopType file = kvhost::newKvFile();
  EXPECT_THAT(order({"KciIsKindOfClass", "KciFetchUtf8Bytes_", "KciFetchObjInfo", "HostOpenFile",
                     "KciGetSessionId", "KciSupGetKvfileOopMap", "KciOopMapEntryFind", "UtlMalloc",
                     "KciOopMapEntryAdd"},
                    [&] {
                      call("KvfOpen", {file, str("f"), str("w"), OOP_FALSE});
                    }),
              ::testing::ElementsAre("KciIsKindOfClass", "KciFetchUtf8Bytes_", "KciFetchObjInfo",
                                     "HostOpenFile", "KciGetSessionId", "KciSupGetKvfileOopMap",
                                     "KciOopMapEntryFind", "UtlMalloc", "KciOopMapEntryAdd"));
}

TEST_F(CallOrder, HostOpensAreGivenTheirFlags) {
  const OopType file = kvhost::newKvFile();
  auto calls = callsNamed("HostOpenFile", [&] {
    call("KvfOpen", {file, str("plain"), str("w+b"), OOP_FALSE});
  });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(calls[0].arguments, ElementsAre("\"plain\"", "\"w+b\"", _, "1"));
  calls = callsNamed("HostExpandFileName", [&] {
    call("KvfOpen", {file, str("packed"), str("w"), OOP_TRUE});
  });
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_THAT(calls[0].arguments, ElementsAre("\"packed\"", _, "4097", "0", "1"));
  EXPECT_THAT(order({"HostExpandFileName", "gzopen"},
                    [&] {
                      call("KvfOpen", {file, str("packed"), str("w"), OOP_TRUE});
                    }),
              ::testing::ElementsAre("HostExpandFileName", "gzopen"));
}

TEST_F(CallOrder, AQueryMakesItsArrayBehindTheHostCall) {
  const OopType file = openWith("abc", "r+");
  EXPECT_THAT(
      order({"KciFetchObjInfo", "HostLockFileQuery", "KciNewOop", "KciStoreOop", "KciStoreOops"},
            [&] {
              call("KvfLockQuery", {file, str("writeLock"), smallInt(0), smallInt(0)});
            }),
      ::testing::ElementsAre("KciFetchObjInfo", "HostLockFileQuery", "KciNewOop", "KciStoreOop",
                             "KciStoreOops"));
}

}  // namespace
}  // namespace kvtest
