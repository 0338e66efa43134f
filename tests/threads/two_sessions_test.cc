// Two sessions on two threads, each with files of its own, run every action side by side. Only one
// of them meets class-level failures, since that error is one for the process.
#include "support/module_fixture.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cstdio>
#include <set>
#include <string>
#include <thread>

namespace kvtest {
namespace {

constexpr OopType CLASS = kvhost::CLASS_KV_FILE;
constexpr int ROUNDS = 40;

OopType str(std::string_view text) { return kvhost::newString(text); }
OopType blank(size_t size) { return str(std::string(size, ' ')); }

// One session at work in a directory of its own. Every answer is compared exactly.
class Worker {
 public:
  Worker(std::string name, bool meetsClassFailures)
      : name_(std::move(name)), meetsClassFailures_(meetsClassFailures) {}

  void run(std::barrier<>* start) {
    session_ = kvhost::sessionBegin();
    KvfStartup(session_);
    start->arrive_and_wait();
    for (int round = 0; round < ROUNDS; ++round) {
      prepare(round);
      plainFile();
      positions();
      compressedFile();
      lines();
      locks();
      entryPoints();
      byteText();
      paths();
      environment();
      settings();
      standardFiles();
      if (meetsClassFailures_) classFailures();
      registry();
      kvhost::collectGarbage();
    }
    KvfShutdown(session_);
    kvhost::sessionEnd(session_);
  }

  const std::set<std::string>& actionsCalled() const { return called_; }

 private:
  OopType act(const char* action, std::initializer_list<OopType> args) {
    called_.insert(action);
    const kvhost::Outcome outcome =
        kvhost::callAction(action, std::data(args), static_cast<int>(args.size()));
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Answered)
        << name_ << ": " << action << " raised " << outcome.error.number;
    return outcome.value;
  }
  OopType path(const std::string& file) { return str(directory_ + "/" + file); }

  OopType open(const std::string& file, const char* mode, OopType compressed = OOP_FALSE) {
    const OopType object = kvhost::newKvFile();
    EXPECT_EQ(act("KvfOpen", {object, path(file), str(mode), compressed}), smallInt(1));
    return object;
  }
  void close(OopType file) {
    EXPECT_EQ(act("KvfClose", {file}), file);
    EXPECT_EQ(act("KvfIsOpen", {file}), OOP_FALSE);
  }
  void write(OopType file, const std::string& text) {
    const auto size = static_cast<int64>(text.size());
    EXPECT_EQ(act("KvfWrite", {file, str(text), smallInt(1), smallInt(size)}), smallInt(size));
  }

  void prepare(int round) {
    directory_ = name_ + std::to_string(round);
    text_ = name_ + " in round " + std::to_string(round);
    EXPECT_EQ(act("KvfMkdir", {CLASS, str(directory_), smallInt(0755)}), CLASS);
    EXPECT_EQ(act("KvfIsDir", {CLASS, str(directory_)}), OOP_TRUE);
  }

  void plainFile() {
    const OopType file = open("plain", "w+");
    write(file, text_);
    EXPECT_EQ(act("KvfPutC", {file, oopFromCharacter('\n')}), OOP_TRUE);
    EXPECT_EQ(act("KvfFlush", {file}), file);
    EXPECT_EQ(act("KvfSync", {file}), file);
    EXPECT_EQ(act("KvfSeek", {file, smallInt(0), smallInt(0)}), smallInt(0));
    const OopType target = blank(text_.size());
    const auto size = static_cast<int64>(text_.size());
    EXPECT_EQ(act("KvfRead", {file, target, smallInt(1), smallInt(size)}), smallInt(size));
    EXPECT_EQ(kvhost::bytesOf(target), text_);
    EXPECT_EQ(act("KvfGetC", {file}), oopFromCharacter('\n'));
    EXPECT_EQ(act("KvfAtEnd", {file}), OOP_TRUE);
    EXPECT_EQ(act("KvfIsCompressed", {file}), OOP_FALSE);
    EXPECT_TRUE(oopSmallIntegerValue(act("KvfGetFileDesc", {file})) > 2);
    close(file);
  }

  void positions() {
    const OopType file = open("plain", "r");
    EXPECT_EQ(act("KvfGetC", {file}), oopFromCharacter(static_cast<uint32_t>(text_[0])));
    EXPECT_EQ(act("KvfPosition", {file}), smallInt(1));
    EXPECT_EQ(act("KvfSeek", {file, smallInt(0), smallInt(2)}),
              smallInt(static_cast<int64>(text_.size()) + 1));
    EXPECT_EQ(act("KvfGetC", {file}), OOP_NIL);
    EXPECT_EQ(act("KvfErrorCode", {file}), smallInt(0));
    EXPECT_EQ(act("KvfErrorString", {file}), OOP_NIL);
    close(file);
  }

  void compressedFile() {
    OopType file = open("packed", "wb9", OOP_TRUE);
    write(file, text_);
    close(file);
    file = open("packed", "r", OOP_TRUE);
    const OopType target = blank(text_.size());
    const auto size = static_cast<int64>(text_.size());
    EXPECT_EQ(act("KvfRead", {file, target, smallInt(1), smallInt(size)}), smallInt(size));
    EXPECT_EQ(kvhost::bytesOf(target), text_);
    EXPECT_EQ(act("KvfIsCompressed", {file}), OOP_TRUE);
    close(file);
  }

  void lines() {
    OopType file = open("lines", "w");
    for (int i = 0; i < 200; ++i) write(file, text_ + ", line " + std::to_string(i) + "\n");
    close(file);
    file = open("lines", "r");
    for (int i = 0; i < 200; ++i) {
      const OopType line = act("KvfGetLine", {file, OOP_NIL, smallInt(1), smallInt(10), OOP_NIL});
      EXPECT_EQ(kvhost::bytesOf(line), text_ + ", line " + std::to_string(i) + "\n");
    }
    close(file);
  }

  void locks() {
    const OopType file = open("plain", "r+");
    EXPECT_EQ(act("KvfLock", {file, str("writeLock"), smallInt(0), smallInt(10), smallInt(0)}),
              OOP_TRUE);
    const OopType free = act("KvfLockQuery", {file, str("readLock"), smallInt(0), smallInt(10)});
    EXPECT_EQ(kvhost::elementsOf(free),
              (std::vector<OopType>{OOP_TRUE, OOP_NIL, smallInt(-1), smallInt(-1), smallInt(-1)}));
    EXPECT_EQ(act("KvfUnlock", {file, smallInt(0), smallInt(10)}), OOP_TRUE);
    close(file);
  }

  void entryPoints() {
    const OopType file = open("entry", "w+");
    const std::string text = text_ + "!";
    const auto* data = static_cast<const ByteType*>(static_cast<const void*>(text.data()));
    const auto size = static_cast<intptr_t>(text.size());
    EXPECT_EQ(KvFileWrite(file, data, size, session_), TRUE);
    EXPECT_EQ(act("KvfSeek", {file, smallInt(0), smallInt(0)}), smallInt(0));
    ByteType back[64];
    EXPECT_EQ(KvFileRead(file, back, size, 0), size);
    EXPECT_EQ(std::string(back, back + size), text);
    EXPECT_EQ(KvFileRead(file, back, 1, session_), 0);
    char error[64];
    KvFileFetchErrorString(file, error, sizeof error, session_);
    EXPECT_STREQ(error, "attempt to read past end of file");
    close(file);
  }

  void byteText() {
    const OopType printed = act("KvfPassiveObjPrint", {str(text_)});
    const std::string decimal = kvhost::bytesOf(printed);
    const auto size = static_cast<int64>(text_.size());
    const OopType fromObject = str("");
    EXPECT_EQ(
        act("KvfPassiveObjLoadByteStrings", {fromObject, smallInt(size), printed, smallInt(1)}),
        smallInt(static_cast<int64>(decimal.size())));
    EXPECT_EQ(kvhost::bytesOf(fromObject), text_);
    OopType file = open("decimal", "w");
    EXPECT_EQ(act("KvfPrintBytes", {file, str(text_)}), file);
    close(file);
    file = open("decimal", "r");
    const OopType fromFile = str("");
    EXPECT_EQ(act("KvfLoadByteStrings", {file, fromFile, smallInt(size)}), smallInt(size));
    EXPECT_EQ(kvhost::bytesOf(fromFile), text_);
    close(file);
  }

  void paths() {
    EXPECT_EQ(act("KvfSize", {CLASS, path("plain")}),
              smallInt(static_cast<int64>(text_.size()) + 1));
    EXPECT_EQ(act("KvfFileKind", {CLASS, path("plain")}), smallInt(0));
    EXPECT_EQ(kvhost::classOf(act("KvfModTime", {CLASS, path("plain")})), OOP_CLASS_DATE_TIME);
    EXPECT_EQ(act("KvfRename", {CLASS, path("plain"), path("renamed")}), smallInt(0));
    std::set<std::string> names;
    const OopType listed = act("KvfDirectory", {CLASS, str(directory_), OOP_TRUE});
    for (const OopType name : kvhost::elementsOf(listed)) names.insert(kvhost::bytesOf(name));
    std::set<std::string> expected;
    for (const char* name : {"renamed", "packed", "lines", "entry", "decimal"})
      expected.insert(directory_ + "/" + name);
    EXPECT_EQ(names, expected);
    for (const std::string& name : names) {
      EXPECT_EQ(act("KvfUnlink", {CLASS, str(name)}), CLASS);
    }
    EXPECT_EQ(act("KvfRmdir", {CLASS, str(directory_)}), CLASS);
  }

  // The environment is the process's: each thread has a variable of its own in it.
  void environment() {
    const std::string name = "KVF_TEST_" + name_;
    EXPECT_EQ(act("KvfSetEnvVar", {CLASS, str(name), str(text_)}), OOP_TRUE);
    EXPECT_EQ(kvhost::bytesOf(act("KvfExpandEnvVar", {CLASS, str(name), smallInt(0)})), text_);
    EXPECT_EQ(kvhost::bytesOf(act("KvfExpandEnvVar", {CLASS, str("$" + name + "/x"), smallInt(1)})),
              text_ + "/x");
    EXPECT_EQ(act("KvfSetEnvVar", {CLASS, str(name), OOP_NIL}), OOP_TRUE);
    EXPECT_EQ(act("KvfExpandEnvVar", {CLASS, str(name), smallInt(0)}), OOP_NIL);
  }

  void settings() {
    const int64 size = meetsClassFailures_ ? 32768 : 65536;
    EXPECT_EQ(act("KvfKciSetSocketBufSize", {CLASS, str("SO_SNDBUF"), smallInt(size)}), OOP_TRUE);
    EXPECT_EQ(act("KvfKciGetSocketBufSize", {CLASS, str("SO_SNDBUF")}), smallInt(size));
    EXPECT_EQ(act("KvfVersionParam", {CLASS, smallInt(11)}), smallInt(getpid()));
    EXPECT_EQ(act("KvfKciLog", {CLASS, str(text_)}), CLASS);
    EXPECT_EQ(act("KvfTestClientHandler", {CLASS}), OOP_NIL);
    EXPECT_EQ(kvhost::elementsOf(act("KvfAllValidFileModes", {OOP_NIL, OOP_FALSE})).size(), 15U);
  }

  void standardFiles() {
    const OopType output = kvhost::newKvFile();
    EXPECT_EQ(act("KvfCreateStdFile", {output, smallInt(1)}), smallInt(1));
    EXPECT_EQ(act("KvfGetFileDesc", {output}), smallInt(1));
    EXPECT_EQ(act("KvfIsOpen", {output}), OOP_TRUE);
    close(output);
  }

  void classFailures() {
    EXPECT_EQ(act("KvfUnlink", {CLASS, str("there is none")}), OOP_NIL);
    EXPECT_EQ(act("KvfErrorCode", {OOP_NIL}), smallInt(ENOENT));
    EXPECT_TRUE(
        kvhost::bytesOf(act("KvfClassError", {CLASS, OOP_NIL})).ends_with(" : there is none"));
    EXPECT_EQ(act("KvfClassError", {CLASS, OOP_NIL}), OOP_NIL);
    EXPECT_EQ(act("KvfClassError", {CLASS, str("installed")}), CLASS);
    EXPECT_EQ(kvhost::bytesOf(act("KvfErrorString", {OOP_NIL})), "installed");
  }

  // The files of this session are known to it alone.
  void registry() {
    const int64 before = oopSmallIntegerValue(act("KvfFinalizeAll", {CLASS}));
    EXPECT_EQ(act("KvfCloseAll", {CLASS}), CLASS);
    EXPECT_EQ(act("KvfFinalizeAll", {CLASS}), smallInt(before));
    const OopType file = kvhost::newKvFile();
    EXPECT_EQ(act("KvfOpen", {file, str("/dev/null"), str("r"), OOP_FALSE}), smallInt(1));
    EXPECT_EQ(act("KvfFinalizeAll", {CLASS}), smallInt(before + 1));
    const OopType dead = kvhost::newArray({kvhost::newInteger(static_cast<int64>(file))});
    EXPECT_EQ(act("KvfClientFinalize", {dead}), OOP_TRUE);
    EXPECT_EQ(act("KvfFinalizeAll", {CLASS}), smallInt(before));
  }

  const std::string name_;
  const bool meetsClassFailures_;
  int session_ = 0;
  std::string directory_;
  std::string text_;
  std::set<std::string> called_;
};

class TwoSessions : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    log_ = fopen("log", "w");
    ASSERT_NE(log_, nullptr);
    kvhost::setLogStream(log_);
    kvhost::setTestPointerFaults(false);
  }
  void TearDown() override {
    kvhost::setLogStream(stderr);
    if (log_ != nullptr) fclose(log_);
    ModuleTest::TearDown();
  }

 private:
  FILE* log_ = nullptr;
};

TEST_F(TwoSessions, RunEveryActionSideBySide) {
  Worker first("first", true);
  Worker second("second", false);
  std::barrier start(2);
  std::thread one([&] { first.run(&start); });
  std::thread two([&] { second.run(&start); });
  one.join();
  two.join();

  std::set<std::string> declared;
  for (const kvhost::DeclaredAction& action : kvhost::declaredActions())
    declared.insert(action.name);
  EXPECT_EQ(first.actionsCalled(), declared);
  for (const char* processWide : {"KvfClassError"}) declared.erase(processWide);
  EXPECT_EQ(second.actionsCalled(), declared);
}

TEST_F(TwoSessions, DoNotKnowEachOthersFiles) {
  const OopType file = kvhost::newKvFile();
  writeFile("shared", "x");
  ASSERT_EQ(call("KvfOpen", {file, str("shared"), str("r"), OOP_FALSE}), smallInt(1));
  std::thread other([&] {
    const int session = kvhost::sessionBegin();
    KvfStartup(session);
    const OopType none = CLASS;
    EXPECT_EQ(kvhost::callAction("KvfFinalizeAll", &none, 1).value, smallInt(0));
    const kvhost::Outcome outcome = kvhost::callAction("KvfIsOpen", &file, 1);
    EXPECT_EQ(outcome.status, kvhost::CallStatus::Raised);
    EXPECT_EQ(outcome.error.number, 2364);
    KvfShutdown(session);
    kvhost::sessionEnd(session);
  });
  other.join();
  EXPECT_EQ(call("KvfIsOpen", {file}), OOP_TRUE);
  EXPECT_EQ(call("KvfGetC", {file}), oopFromCharacter('x'));
}

}  // namespace
}  // namespace kvtest
