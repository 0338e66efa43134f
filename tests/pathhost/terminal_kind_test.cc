// Kinds of the standard files: terminals and others, in children whose standard files are set up
// for it.
#include "pathhost/path_fixture.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvtest {
namespace {

// Which standard descriptors of the child are the terminal; the others are /dev/null.
struct Terminals {
  bool in, out, err;
};

class StandardKinds : public PathTest {
 protected:
  // Kinds of stdin, stdout and stderr, as a child sees them.
  std::vector<int> kindsIn(Terminals terminals) {
    int controller = -1, terminal = -1, report[2];
    EXPECT_EQ(openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(pipe(report), 0);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t child = fork();
    if (child == 0) {
      dup2(terminals.in ? terminal : null, 0);
      dup2(terminals.out ? terminal : null, 1);
      dup2(terminals.err ? terminal : null, 2);
      reportKinds(report[1]);
    }
    close(report[1]);
    close(terminal);
    std::vector<int> kinds(3, -1);
    EXPECT_EQ(read(report[0], kinds.data(), 3 * sizeof(int)),
              static_cast<ssize_t>(3 * sizeof(int)));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    for (const int descriptor : {controller, report[0], null}) close(descriptor);
    return kinds;
  }

 private:
  [[noreturn]] void reportKinds(int descriptor) {
    int kinds[3];
    int index = 0;
    for (const char* name : {"stdin", "stdout", "stderr"}) {
      const OopType kind = call("KvfFileKind", {KV_FILE, str(name)});
      kinds[index++] = static_cast<int>(oopSmallIntegerValue(kind));
    }
    _exit(write(descriptor, kinds, sizeof kinds) == sizeof kinds ? 0 : 1);
  }
};

TEST_F(StandardKinds, TellATerminalForInputAndOutputAlone) {
  EXPECT_EQ(kindsIn({true, true, true}), (std::vector<int>{9, 9, 8}));
  EXPECT_EQ(kindsIn({false, false, false}), (std::vector<int>{8, 8, 8}));
  EXPECT_EQ(kindsIn({true, false, true}), (std::vector<int>{9, 8, 8}));
  EXPECT_EQ(kindsIn({false, true, false}), (std::vector<int>{8, 9, 8}));
}

TEST_F(StandardKinds, AskTheHostNothing) {
  writeFile("stdin", "x");
  writeFile("stdout", "x");
  writeFile("stderr", "x");
  for (const char* name : {"stdin", "stdout", "stderr"}) {
    const auto calls = callsDuring([&] { call("KvfFileKind", {KV_FILE, str(name)}); });
    EXPECT_TRUE(callsOf(calls, "HostExpandFileName").empty());
    EXPECT_TRUE(callsOf(calls, "HostFileType").empty());
    EXPECT_EQ(callsOf(calls, "isatty").size(), name == std::string("stderr") ? 0U : 1U) << name;
  }
}

TEST_F(StandardKinds, OfAPathThatOnlyLeadsThereAreOrdinary) {
  writeFile("stdin", "x");
  EXPECT_EQ(call("KvfFileKind", {KV_FILE, str("./stdin")}), smallInt(HOST_FILE_KIND_FILE));
}

}  // namespace
}  // namespace kvtest
