// Forking with files open and with other threads at work: what the child may do, and that nothing of
// the parent's is lost, doubled or moved by it.
//
// KVF_FORK_ROUNDS sets how often each test forks.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>

#include "standalone/host_fixture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

int rounds() {
  const char* given = std::getenv("KVF_FORK_ROUNDS");
  return given != nullptr ? std::atoi(given) : 40;
}

OopType call(const char* name, const std::vector<OopType>& args) {
  return kvhost::callAction(name, args.data(), static_cast<int>(args.size())).value;
}

OopType str(const std::string& text) { return kvhost::newString(text); }

OopType opened(const std::string& path, const char* mode, bool compressed) {
  const OopType file = kvhost::newKvFile();
  const std::vector<OopType> args = {file, str(path), str(mode), oopFromBool(compressed)};
  return call("KvfOpen", args) == oopFromSmallInteger(1) ? file : OOP_NIL;
}

bool write(OopType file, const std::string& text) {
  const OopType count = oopFromSmallInteger(static_cast<int64>(text.size()));
  return call("KvfWrite", {file, str(text), oopFromSmallInteger(1), count}) == count;
}

std::string readLine(OopType file) {
  return kvhost::bytesOf(call(
      "KvfGetLine", {file, OOP_NIL, oopFromSmallInteger(1), oopFromSmallInteger(10), OOP_NIL}));
}

bool closed(OopType file) { return call("KvfClose", {file}) == file; }

std::string lineNumbered(int i) { return "line " + std::to_string(i * 7919) + " of many\n"; }

std::string unpacked(const std::string& path) {
  std::string content;
  const gzFile file = gzopen(path.c_str(), "r");
  char piece[4096];
  int got = 0;
  while ((got = gzread(file, piece, sizeof piece)) > 0)
    content.append(piece, static_cast<size_t>(got));
  EXPECT_EQ(got, 0) << path << " is damaged";
  gzclose(file);
  return content;
}

// What any process may do: begin a session, write a file and read it again. 0, or the step that
// failed.
int useTheHost(const std::string& path, bool compressed) {
  const int session = kvhost::sessionBegin();
  KvfStartup(session);
  const OopType out = opened(path, "w", compressed);
  if (out == OOP_NIL || !write(out, "of the child\n") || !closed(out)) return 11;
  const OopType in = opened(path, "r", compressed);
  if (readLine(in) != "of the child\n") return 12;
  char value[64] = "";
  if (HostSetEnv("KVF_FORK_TEST", "child") == FALSE) return 13;
  if (HostGetEnv("KVF_FORK_TEST", value, sizeof value) == FALSE) return 14;
  kvhost::collectGarbage();
  KvfShutdown(session);
  kvhost::sessionEnd(session);
  return 0;
}

// A child that hangs is ended, so that the test fails and goes on.
int childExit(const std::function<int()>& body) {
  hosttest::Helper child([&body] {
    alarm(300);
    return body();
  });
  return child.exitCode();
}

class Fork : public hosttest::InDirectory {
 protected:
  void SetUp() override {
    InDirectory::SetUp();
    kvhost::initialize();
    KvfUserActionInit();
    session_ = kvhost::sessionBegin();
    KvfStartup(session_);
  }
  void TearDown() override {
    KvfShutdown(session_);
    kvhost::sessionEnd(session_);
    kvhost::forgetDeclaredActions();
    InDirectory::TearDown();
  }

  int session_ = 0;
};

TEST_F(Fork, AChildWritesNothingOfItsParentsCompressedFile) {
  const OopType file = opened(in("out.gz"), "w", true);
  const OopType plain = opened(in("out"), "w", false);
  std::string expected;
  for (int i = 0; i < rounds(); ++i) {
    expected += lineNumbered(i);
    ASSERT_TRUE(write(file, lineNumbered(i)));
    ASSERT_TRUE(write(plain, lineNumbered(i)));
    ASSERT_EQ(childExit([&] {
                kvhost::dropInherited();
                KvfShutdown(session_);
                kvhost::sessionEnd(session_);
                if (KciGetSessionId() != 0 || KciSupGetKvfileOopMap(session_) != nullptr) return 1;
                return useTheHost(in("child.gz"), true);
              }),
              0);
  }
  ASSERT_TRUE(closed(file));
  ASSERT_TRUE(closed(plain));
  EXPECT_EQ(unpacked(in("out.gz")), expected);
  EXPECT_EQ(hosttest::readFile(in("out")), expected);
}

TEST_F(Fork, AChildTakesNoLineFromItsParent) {
  std::string content;
  for (int i = 0; i < rounds(); ++i) content += lineNumbered(i) + std::string(5000, 'x') + "\n";
  hosttest::writeFile(in("lines"), content);
  const OopType file = opened(in("lines"), "r", false);
  for (int i = 0; i < rounds(); ++i) {
    ASSERT_EQ(readLine(file), lineNumbered(i));
    ASSERT_EQ(childExit([&] {
                kvhost::dropInherited();
                const int session = kvhost::sessionBegin();
                KvfStartup(session);
                const OopType own = opened(in("lines"), "r", false);
                for (int k = 0; k < 3; ++k) {
                  if (readLine(own) != lineNumbered(k)) return 1;
                  readLine(own);
                }
                KvfShutdown(session);
                return 0;
              }),
              0);
    ASSERT_EQ(readLine(file), std::string(5000, 'x') + "\n");
  }
}

TEST_F(Fork, AChildEndsNoLineOfStandardOutput) {
  const int before = dup(STDOUT_FILENO);
  const int target = open(in("stdout").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  std::fflush(stdout);
  dup2(target, STDOUT_FILENO);
  const OopType out = kvhost::newKvFile();
  call("KvfCreateStdFile", {out, oopFromSmallInteger(1)});
  const bool wrote = write(out, "no line end");
  std::fflush(stdout);  // else the child's flush would write this text again
  const int code = childExit([&] {
    kvhost::dropInherited();
    KvfShutdown(session_);
    std::fflush(stdout);
    return 0;
  });
  std::fflush(stdout);
  dup2(before, STDOUT_FILENO);
  close(before);
  close(target);
  EXPECT_TRUE(wrote);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(hosttest::readFile(in("stdout")), "no line end");
}

TEST_F(Fork, TheParentKeepsItsSessionsWhenItDropsByMistake) {
  const OopType file = opened(in("f"), "w", false);
  kvhost::dropInherited();
  EXPECT_EQ(KciGetSessionId(), session_);
  EXPECT_TRUE(write(file, "still open"));
}

TEST_F(Fork, AChildThatGoesOnInPlaceOfItsParentHasItsFiles) {
  const auto parent = [&] {
    const int session = kvhost::sessionBegin();
    KvfStartup(session);
    const OopType file = opened(in("out.gz"), "w", true);
    if (!write(file, "before\n")) return 1;
    return childExit([&] { return write(file, "behind\n") && closed(file) ? 0 : 2; });
  };
  EXPECT_EQ(childExit(parent), 0);
  EXPECT_EQ(unpacked(in("out.gz")), "before\nbehind\n");
}

// A thread that is always within one of the host's locks.
void keepBusy(const std::atomic<bool>& done) {
  for (int i = 0; !done; ++i) {
    const int session = kvhost::sessionBegin();
    KvfStartup(session);
    HostSetEnv("KVF_FORK_BUSY", i % 2 == 0 ? "even" : "odd");
    for (int k = 0; k < 5000; ++k) kvhost::newString("makes chunks come and go");
    kvhost::collectGarbage();
    kvhost::declaredActions();
    KvfShutdown(session);
    kvhost::sessionEnd(session);
  }
}

TEST_F(Fork, IsSafeBesideBusyThreads) {
  const OopType file = opened(in("out.gz"), "w", true);
  std::atomic<bool> done = false;
  std::vector<std::thread> busy;
  for (int i = 0; i < 3; ++i) busy.emplace_back([&done] { keepBusy(done); });
  std::string expected;
  int failed = 0;
  for (int i = 0; i < rounds() && failed == 0; ++i) {
    expected += lineNumbered(i);
    if (!write(file, lineNumbered(i))) failed = 99;
    const int code = childExit([&] {
      kvhost::dropInherited();
      KvfShutdown(session_);
      if (kvhost::declaredActions().empty()) return 1;
      return useTheHost(in("child"), i % 2 == 0);
    });
    if (code != 0) failed = code;
  }
  done = true;
  for (std::thread& thread : busy) thread.join();
  EXPECT_EQ(failed, 0);
  ASSERT_TRUE(closed(file));
  EXPECT_EQ(unpacked(in("out.gz")), expected);
}

}  // namespace
