// The seam stands before every call that leaves the module.
#include "seam/seam.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAreArray;

constexpr std::string_view REDIRECTED = "seam_";

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
                                     "__cpu_model",
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
  for (const std::string& symbol : symbolsOf(KVF_SEAMED_ARCHIVE, "U")) {
    if (!symbol.starts_with(REDIRECTED) && !defined.contains(symbol) && !isFromToolchain(symbol)) {
      past.push_back(symbol);
    }
  }
  EXPECT_THAT(past, IsEmpty());
}

TEST(SeamedModule, CallsEveryFunctionThatTheSeamKnows) {
  std::set<std::string> called = {"KciLogger"};  // through the address that the seam answers
  for (const std::string& symbol : symbolsOf(KVF_SEAMED_ARCHIVE, "U")) {
    if (symbol.starts_with(REDIRECTED)) called.insert(symbol.substr(REDIRECTED.size()));
  }
  EXPECT_THAT(seam::functionNames(), UnorderedElementsAreArray(called));
}

// The functions that the platform's headers declare, by their text: a declaration that a header
// gains must get its row.
std::vector<std::string> declaredIn(const std::filesystem::path& header) {
  std::ifstream in(header);
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

TEST(Functions, OfThePlatformAreThoseThatItsHeadersDeclare) {
  std::vector<std::string> declared = {"KciLogger"};  // a type: what KciGetLogger answers
  for (const auto& header :
       std::filesystem::directory_iterator(KVF_SOURCE_DIR "/include/kvfile/platform")) {
    const std::vector<std::string> here = declaredIn(header.path());
    declared.insert(declared.end(), here.begin(), here.end());
  }
  std::vector<std::string> known;  // zlib's and the C library's names begin with a small letter
  std::copy_if(seam::functionNames().begin(), seam::functionNames().end(),
               std::back_inserter(known), [](const std::string& name) { return name[0] < 'a'; });
  EXPECT_THAT(known, UnorderedElementsAreArray(declared));
}

TEST(Functions, AreListedOnce) {
  std::vector<std::string> names = seam::functionNames();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

}  // namespace
