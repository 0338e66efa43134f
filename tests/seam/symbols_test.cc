// The seam stands before every call that leaves the module.
#include "seam/seam.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;

// What computes from its arguments alone, names a place, or belongs to the toolchain.
constexpr std::string_view PURE[] = {"bcmp",
                                     "memchr",
                                     "memcmp",
                                     "memcpy",
                                     "memmove",
                                     "memset",
                                     "snprintf",
                                     "strchr",
                                     "strcmp",
                                     "strlen",
                                     "strncmp",
                                     "strnlen",
                                     "strstr",
                                     "_setjmp",
                                     "stdin",
                                     "stdout",
                                     "stderr",
                                     "__errno_location",
                                     "__assert_fail",
                                     "__stack_chk_fail",
                                     "__tls_get_addr",
                                     "__gxx_personality_v0",
                                     "_GLOBAL_OFFSET_TABLE_",
                                     "_Unwind_Resume"};

bool isFromToolchain(const std::string& symbol) {
  static const std::regex sanitizers(
      "__(asan|ubsan|tsan|sanitizer|gcov|llvm)_.*|_ZTVN10__cxxabiv1.*");
  return std::find(std::begin(PURE), std::end(PURE), symbol) != std::end(PURE) ||
         std::regex_match(symbol, sanitizers);
}

// Symbols that `nm` lists with one of the letters of `types`.
std::set<std::string> symbolsOf(const std::string& archive, const std::string& types) {
  const std::string command = "nm " + archive + " 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  std::set<std::string> symbols;
  std::array<char, 4096> line{};
  const std::regex entry("^[0-9a-f ]*([A-Za-z]) (\\S+)\\s*$");
  while (pipe != nullptr && fgets(line.data(), line.size(), pipe) != nullptr) {
    std::cmatch match;
    if (std::regex_match(line.data(), match, entry) && types.find(match[1]) != std::string::npos) {
      symbols.insert(match[2]);
    }
  }
  if (pipe == nullptr || pclose(pipe) != 0) ADD_FAILURE() << command << " failed";
  return symbols;
}

TEST(SeamedModule, CallsNothingPastTheSeam) {
  const std::set<std::string> defined = symbolsOf(KVF_SEAMED_ARCHIVE, "TtWwVvuDdBbRr");
  std::vector<std::string> past;
  size_t redirected = 0;
  for (const std::string& symbol : symbolsOf(KVF_SEAMED_ARCHIVE, "U")) {
    if (symbol.starts_with("seam_")) {
      redirected++;
    } else if (!defined.contains(symbol) && !isFromToolchain(symbol)) {
      past.push_back(symbol);
    }
  }
  EXPECT_THAT(past, IsEmpty());
  EXPECT_GT(redirected, 80U);
}

// The functions that the platform's headers declare, by their text: a declaration that a header
// gains must get its row.
std::vector<std::string> declaredIn(const std::string& header) {
  std::ifstream in(std::string(KVF_SOURCE_DIR "/include/kvfile/platform/") + header);
  std::ostringstream text;
  text << in.rdbuf();
  std::string code =
      std::regex_replace(text.str(), std::regex("/\\*[^*]*\\*+([^/*][^*]*\\*+)*/"), "");
  const std::regex declaration(
      "(?:^|\\n)(?!typedef|static|#)[A-Za-z_][A-Za-z_0-9* ]*[ *](\\w+)\\([^;{}]*\\);");
  std::vector<std::string> names;
  for (std::sregex_iterator match(code.begin(), code.end(), declaration), end; match != end;
       ++match)
    names.push_back((*match)[1]);
  return names;
}

TEST(Functions, HoldEveryDeclarationOfThePlatform) {
  std::vector<std::string> all;
  for (const char* header : {"kci.h", "kcistring.h", "kcisup.h", "host.h", "syserror.h", "utl.h",
                             "unixio.h", "version.h", "lrsupreadline.h"}) {
    const std::vector<std::string> declared = declaredIn(header);
    EXPECT_FALSE(declared.empty()) << header;
    all.insert(all.end(), declared.begin(), declared.end());
  }
  EXPECT_THAT(all, SizeIs(73));
  for (const std::string& name : all) EXPECT_THAT(seam::functionNames(), Contains(name));
}

TEST(Functions, AreListedOnce) {
  std::vector<std::string> names = seam::functionNames();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

}  // namespace
