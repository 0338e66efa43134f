// The environment, name expansion, version parameters, the allocator and the test pointer.

#include <kvfile/kvhost.h>
#include <kvfile/platform/host.h>
#include <kvfile/platform/utl.h>
#include <kvfile/platform/version.h>

#include "standalone/host_fixture.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sched.h>
#include <sys/utsname.h>

#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

// ---- environment ----

TEST(Environment, isSetReadAndRemoved) {
  char value[64] = "before";
  EXPECT_TRUE(HostSetEnv("KVHOST_TEST", "some value"));
  EXPECT_TRUE(HostGetEnv("KVHOST_TEST", value, sizeof value));
  EXPECT_STREQ(value, "some value");
  EXPECT_TRUE(HostSetEnv("KVHOST_TEST", ""));
  EXPECT_TRUE(HostGetEnv("KVHOST_TEST", value, sizeof value));
  EXPECT_STREQ(value, "");
  EXPECT_TRUE(HostSetEnv("KVHOST_TEST", nullptr));
  std::strcpy(value, "untouched");
  EXPECT_FALSE(HostGetEnv("KVHOST_TEST", value, sizeof value));
  EXPECT_STREQ(value, "untouched");
  EXPECT_TRUE(HostSetEnv("KVHOST_TEST", nullptr)) << "removing nothing is no failure";
}

TEST(Environment, cutsAValueThatDoesNotFit) {
  HostSetEnv("KVHOST_TEST", "abcdef");
  char value[8] = "#######";
  EXPECT_TRUE(HostGetEnv("KVHOST_TEST", value, 4));
  EXPECT_STREQ(value, "abc");
  EXPECT_EQ(value[4], '#');
  EXPECT_TRUE(HostGetEnv("KVHOST_TEST", value, 0));
  HostSetEnv("KVHOST_TEST", nullptr);
}

TEST(Environment, hasNoEmptyNamesAndNoneWithAnEqualsSign) {
  char value[8];
  EXPECT_FALSE(HostSetEnv("", "x"));
  EXPECT_FALSE(HostSetEnv("A=B", "x"));
  EXPECT_FALSE(HostGetEnv("", value, sizeof value));
  EXPECT_FALSE(HostGetEnv("A=B", value, sizeof value));
}

TEST(Environment, mayBeUsedByThreadsSideBySide) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const std::string name = "KVHOST_TEST_" + std::to_string(i);
      char value[32];
      for (int round = 0; round < 500; ++round) {
        const std::string expected = std::to_string(round);
        ASSERT_TRUE(HostSetEnv(name.c_str(), expected.c_str()));
        ASSERT_TRUE(HostGetEnv(name.c_str(), value, sizeof value));
        ASSERT_EQ(expected, value);
        ASSERT_TRUE(HostExpandFileName(("$" + name).c_str(), value, sizeof value, 0, 1));
      }
      HostSetEnv(name.c_str(), nullptr);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// ---- name expansion ----

constexpr const char* FAILS = nullptr;

struct Expansion {
  const char* in;
  const char* out;  // FAILS: refused, with the buffer untouched
};

class NameExpansion : public ::testing::TestWithParam<Expansion> {
 protected:
  void SetUp() override {
    char value[4096];
    if (HostGetEnv("HOME", value, sizeof value)) formerHome_ = value;
    HostSetEnv("HOME", "/home/me");
    HostSetEnv("DIR", "/data");
    HostSetEnv("_x1", "one");
    HostSetEnv("NESTED", "$DIR/~");
    HostSetEnv("EMPTY", "");
    HostSetEnv("UNKNOWN", nullptr);
  }
  void TearDown() override { HostSetEnv("HOME", formerHome_.c_str()); }

 private:
  std::string formerHome_;
};

TEST_P(NameExpansion, isAsListed) {
  char out[64] = "untouched";
  const bool done = HostExpandFileName(GetParam().in, out, sizeof out, 0, 1) != 0;
  EXPECT_EQ(done, GetParam().out != FAILS);
  EXPECT_STREQ(out, GetParam().out != FAILS ? GetParam().out : "untouched");
}

INSTANTIATE_TEST_SUITE_P(
    Names, NameExpansion,
    ::testing::Values(
        Expansion{"", ""}, Expansion{"plain/name.txt", "plain/name.txt"},
        Expansion{"$DIR", "/data"}, Expansion{"$DIR/f", "/data/f"}, Expansion{"a$DIR", "a/data"},
        Expansion{"${DIR}f", "/dataf"}, Expansion{"${DIR}$DIR${_x1}", "/data/dataone"},
        Expansion{"$_x1.txt", "one.txt"}, Expansion{"$DIRECTORY", FAILS},
        Expansion{"$UNKNOWN/f", FAILS}, Expansion{"f${UNKNOWN}", FAILS}, Expansion{"${DIR", FAILS},
        Expansion{"${}", FAILS}, Expansion{"${DI R}", FAILS}, Expansion{"${1}", FAILS},
        Expansion{"$", "$"}, Expansion{"a$", "a$"}, Expansion{"$$DIR", "$/data"},
        Expansion{"$1", "$1"}, Expansion{"$/x", "$/x"}, Expansion{"[$EMPTY]", "[]"},
        Expansion{"$NESTED", "$DIR/~"}, Expansion{"~", "/home/me"}, Expansion{"~/f", "/home/me/f"},
        Expansion{"~/$_x1", "/home/me/one"}, Expansion{"a~", "a~"}, Expansion{"a/~/b", "a/~/b"},
        Expansion{"$EMPTY~", "~"}, Expansion{"~root/x", "/root/x"},
        Expansion{"~no-such-user-here/x", FAILS}, Expansion{"*?[a]", "*?[a]"},
        Expansion{"caf\xc3\xa9 \xff", "caf\xc3\xa9 \xff"}));

TEST(NameExpansionLimits, fitsExactlyOrNotAtAll) {
  HostSetEnv("FIVE", "12345");
  char out[16] = "untouched";
  EXPECT_FALSE(HostExpandFileName("a$FIVE", out, 6, 0, 1));
  EXPECT_FALSE(HostExpandFileName("abcdef", out, 6, 0, 1));
  EXPECT_FALSE(HostExpandFileName("a", out, 0, 0, 1));
  EXPECT_STREQ(out, "untouched");
  EXPECT_TRUE(HostExpandFileName("a$FIVE", out, 7, 0, 1));
  EXPECT_STREQ(out, "a12345");
  HostSetEnv("FIVE", nullptr);
}

TEST(NameExpansionLimits, withoutHomeAsksTheUserDataBase) {
  char home[4096] = "";
  const bool had = HostGetEnv("HOME", home, sizeof home) != 0;
  HostSetEnv("HOME", nullptr);
  char out[4096] = "";
  EXPECT_TRUE(HostExpandFileName("~/f", out, sizeof out, 0, 1));
  const struct passwd* user = getpwuid(getuid());
  ASSERT_NE(user, nullptr);
  EXPECT_EQ(out, std::string(user->pw_dir) + "/f");
  if (had) HostSetEnv("HOME", home);
}

// ---- version parameters ----

VerParamResultSType parameter(VerParamEType id) {
  VerParamResultSType result = {};
  EXPECT_TRUE(VerGetVersionParam(id, &result)) << id;
  return result;
}

std::string text(VerParamEType id) {
  const VerParamResultSType result = parameter(id);
  EXPECT_EQ(result.kind, VER_STRING_KIND) << id;
  return result.stringVal;
}

int32 number(VerParamEType id) {
  const VerParamResultSType result = parameter(id);
  EXPECT_EQ(result.kind, VER_INT_KIND) << id;
  return result.intVal;
}

TEST(VersionParameters, ofTheMachineAreThoseOfTheSystem) {
  struct utsname names = {};
  ASSERT_EQ(uname(&names), 0);
  EXPECT_EQ(text(VER_INFO_CPU_ARCH), names.machine);
  EXPECT_EQ(text(VER_INFO_NODE_NAME), names.nodename);
  EXPECT_EQ(text(VER_INFO_OS_NAME), names.sysname);
  EXPECT_EQ(text(VER_INFO_OS_RELEASE), names.release);
  EXPECT_EQ(text(VER_INFO_OS_VERSION), names.version);
  EXPECT_EQ(number(VER_INFO_PROCESS_ID), getpid());
  EXPECT_NE(text(VER_INFO_CPU_KIND), "");
}

TEST(VersionParameters, countTheProcessorsThatMayBeUsed) {
  cpu_set_t former;
  ASSERT_EQ(sched_getaffinity(0, sizeof former, &former), 0);
  EXPECT_EQ(number(VER_INFO_PROCESSOR_COUNT), CPU_COUNT(&former));
  cpu_set_t one;
  CPU_ZERO(&one);
  for (size_t i = 0; i < CPU_SETSIZE; ++i) {
    if (!CPU_ISSET(i, &former)) continue;
    CPU_SET(i, &one);
    break;
  }
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(number(VER_INFO_PROCESSOR_COUNT), 1);
  sched_setaffinity(0, sizeof former, &former);
}

TEST(VersionParameters, ofTheBuildAgreeWithEachOther) {
  int major = -1;
  int minor = -1;
  int patch = -1;
  ASSERT_EQ(std::sscanf(text(VER_INFO_KV_VERSION).c_str(), "%d.%d.%d", &major, &minor, &patch), 3);
  EXPECT_EQ(text(VER_INFO_KV_RELEASE), std::to_string(major) + "." + std::to_string(minor));
  EXPECT_EQ(number(VER_INFO_KV_BUILD_SERIAL_NUM), major * 10000 + minor * 100 + patch);
  EXPECT_EQ(text(VER_INFO_KV_IMAGE_KIND), "standalone");
  EXPECT_EQ(text(VER_INFO_KV_BUILD_ARCH), text(VER_INFO_CPU_ARCH)) << "it runs here";
  const std::string type = text(VER_INFO_KV_BUILD_TYPE);
  EXPECT_TRUE(type == "fast" || type == "debug" || type == "sanitize") << type;
  int year = 0;
  int month = 0;
  int day = 0;
  ASSERT_EQ(std::sscanf(text(VER_INFO_KV_BUILD_DATE).c_str(), "%d-%d-%d", &year, &month, &day), 3);
  EXPECT_TRUE(year >= 1970 && month >= 1 && month <= 12 && day >= 1 && day <= 31);
}

TEST(VersionParameters, ofOtherIdsAreNotKnownAndTouchNothing) {
  for (const int id : {-1, 15, 99, INT32_MAX, INT32_MIN}) {
    VerParamResultSType result = {};
    result.kind = VER_STRING_KIND;
    result.intVal = 42;
    std::strcpy(result.stringVal, "kept");
    EXPECT_FALSE(VerGetVersionParam(static_cast<VerParamEType>(id), &result)) << id;
    EXPECT_EQ(result.kind, VER_STRING_KIND);
    EXPECT_EQ(result.intVal, 42);
    EXPECT_STREQ(result.stringVal, "kept");
  }
}

// ---- allocator and test pointer ----

TEST(Allocator, answersMemoryAlignedForAnyTypeOrNull) {
  void* memory = UtlMalloc(5000, 1);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % alignof(std::max_align_t), 0U);
  std::memset(memory, 1, 5000);
  UtlFree(memory);
  UtlFree(nullptr);
}

TEST(TestPointer, leadsToNilAndFaultsWhereAsked) {
  OopType* where = nullptr;
  HostSetOopPtr(&where);
  ASSERT_NE(where, nullptr);
  EXPECT_EQ(*where, OOP_NIL);
  kvhost::setTestPointerFaults(true);
  HostSetOopPtr(&where);
  hosttest::Helper reader([where] {
    signal(SIGSEGV, [](int) { _exit(42); });
    const volatile OopType value = *where;
    return value == OOP_NIL ? 1 : 2;
  });
  EXPECT_EQ(reader.exitCode(), 42);
  kvhost::setTestPointerFaults(false);
  HostSetOopPtr(&where);
  EXPECT_EQ(*where, OOP_NIL);
}

}  // namespace
