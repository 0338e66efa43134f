// Faults as text.
#include "seam/seam.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using Kind = seam::Fault::Kind;
using testing::HasSubstr;

struct Accepted {
  const char* text;
  const char* function;
  int64_t at;
  bool forever;
  Kind kind;
  int64_t value;
};

class AcceptedFault : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedFault, IsRead) {
  const Accepted& wanted = GetParam();
  seam::Fault fault;
  std::string message;
  ASSERT_TRUE(seam::parseFault(wanted.text, &fault, &message)) << message;
  EXPECT_EQ(fault.function, wanted.function);
  EXPECT_EQ(fault.at, wanted.at);
  EXPECT_EQ(fault.forever, wanted.forever);
  EXPECT_EQ(fault.kind, wanted.kind);
  EXPECT_EQ(fault.value, wanted.value);
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, AcceptedFault,
    testing::Values(Accepted{"lseek:2:EIO", "lseek", 2, false, Kind::Error, EIO},
                    Accepted{"lseek:2:28", "lseek", 2, false, Kind::Error, ENOSPC},
                    Accepted{"HostReadFile_:1+:short=7", "HostReadFile_", 1, true, Kind::Short, 7},
                    Accepted{"HostReadFile_:12:interrupt", "HostReadFile_", 12, false,
                             Kind::Interrupt, 0},
                    Accepted{"*:5:raise=2101", "", 5, false, Kind::Raise, 2101},
                    Accepted{"*:1+:EINTR", "", 1, true, Kind::Error, EINTR},
                    Accepted{"KciErr:1:result=1", "KciErr", 1, false, Kind::Result, 1},
                    Accepted{"gzread:3:result=-5", "gzread", 3, false, Kind::Result, -5},
                    Accepted{"UtlMalloc:1:nomem", "UtlMalloc", 1, false, Kind::NoMemory, 0},
                    Accepted{"UtlMalloc:1:result=0", "UtlMalloc", 1, false, Kind::Result, 0}));

struct Refused {
  const char* text;
  const char* message;
};

class RefusedFault : public testing::TestWithParam<Refused> {};

TEST_P(RefusedFault, HasAMessageAndChangesNothing) {
  seam::Fault fault;
  fault.value = 77;
  std::string message;
  EXPECT_FALSE(seam::parseFault(GetParam().text, &fault, &message));
  EXPECT_THAT(message, HasSubstr(GetParam().message));
  EXPECT_EQ(fault.value, 77);
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, RefusedFault,
    testing::Values(
        Refused{"", "wanted NAME:COUNT:ACTION"}, Refused{"lseek:2", "\"lseek:2\" is no fault"},
        Refused{"hostreadfile:1:EIO", "did you mean HostReadFile_?"},
        Refused{"gzraed:1:EIO", "did you mean gzread?"},
        Refused{"Frobnicate:1:EIO", "no function \"Frobnicate\""},
        Refused{":1:EIO", "no function \"\""}, Refused{"lseek:0:EIO", "\"0\" is no count"},
        Refused{"lseek:-1:EIO", "\"-1\" is no count"}, Refused{"lseek:x:EIO", "\"x\" is no count"},
        Refused{"lseek:+:EIO", "\"+\" is no count"}, Refused{"lseek:1:", "no action \"\""},
        Refused{"lseek:1:EWHAT", "\"EWHAT\""}, Refused{"lseek:1:0", "no action \"0\""},
        Refused{"lseek:1:4096", "no action \"4096\""},
        Refused{"lseek:1:EIO:2", "no action \"EIO:2\""},
        Refused{"gzread:1:short=", "\"\" is no value for short"},
        Refused{"gzread:1:short=0", "\"0\" is no value for short"},
        Refused{"gzread:1:long=4", "no action \"long=\""},
        Refused{"lseek:1:short=4", "lseek cannot end in \"short=4\""},
        Refused{"gzread:1:interrupt", "gzread cannot end in \"interrupt\""},
        Refused{"KciErr:1:raise=2101", "KciErr cannot end in"},
        Refused{"UtlFree:1:EIO", "UtlFree cannot end in"},
        Refused{"UtlMalloc:1:result=4", "UtlMalloc cannot end in"},
        Refused{"lseek:1:nomem", "lseek cannot end in"}));

TEST(FaultText, NoSuggestionWhereNothingIsNear) {
  seam::Fault fault;
  std::string message;
  EXPECT_FALSE(seam::parseFault("zzzzzzzzzzzz:1:EIO", &fault, &message));
  EXPECT_EQ(message, "no function \"zzzzzzzzzzzz\"");
}

}  // namespace
