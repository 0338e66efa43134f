// Listing a directory: names, classes of the names, failures, and names that fill the buffer.
#include "pathhost/directory.h"
#include "pathhost/path_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <set>

namespace kvtest {

using namespace kvf;
namespace {

class Directory : public PathTest {
 protected:
  OopType list(const std::string& path, OopType utf = OOP_FALSE) {
    return call("KvfDirectory", {KV_FILE, str(path), utf});
  }

  // The listed names; each is listed once.
  static std::set<std::string> namesIn(OopType array) {
    EXPECT_EQ(kvhost::classOf(array), OOP_CLASS_ARRAY);
    std::set<std::string> names;
    for (const OopType element : kvhost::elementsOf(array))
      EXPECT_TRUE(names.insert(bytes(element)).second) << bytes(element) << " is there twice";
    return names;
  }

  // Every listed name can be opened again and leads to the file whose content is its bare name.
  void expectRoundTrip(OopType array) {
    for (const OopType name : kvhost::elementsOf(array)) {
      const OopType file = kvhost::newKvFile();
      ASSERT_EQ(call("KvfOpen", {file, name, str("r"), OOP_FALSE}), smallInt(1)) << bytes(name);
      const OopType content = str(std::string(300, ' '));
      const OopType count = call("KvfRead", {file, content, smallInt(1), smallInt(300)});
      const std::string whole = bytes(name);
      const std::string bare = whole.substr(whole.rfind('/') + 1);
      EXPECT_EQ(count, smallInt(static_cast<int64>(bare.size())));
      EXPECT_EQ(bytes(content).substr(0, bare.size()), bare);
      EXPECT_EQ(call("KvfClose", {file}), file);
    }
  }
};

TEST_F(Directory, OfNothingIsANewEmptyArray) {
  std::filesystem::create_directory("empty");
  const OopType first = list("empty");
  const OopType second = list("empty");
  EXPECT_TRUE(namesIn(first).empty());
  EXPECT_NE(first, second);
}

TEST_F(Directory, AnswersFullPathsOfEveryKindOfEntry) {
  std::filesystem::create_directories("d/sub/below");
  writeFile("d/file", "");
  writeFile("d/.hidden", "");
  ASSERT_EQ(symlink("gone", "d/link"), 0);
  const std::set<std::string> expected = {"d/sub", "d/file", "d/.hidden", "d/link"};
  EXPECT_EQ(namesIn(list("d")), expected);
  std::set<std::string> absolute;
  const std::string base = std::filesystem::current_path().string() + "/d";
  for (const std::string& name : expected) absolute.insert(base + name.substr(1));
  EXPECT_EQ(namesIn(list(base)), absolute);
}

TEST_F(Directory, NameEndingInASeparatorGetsNoSecondOne) {
  std::filesystem::create_directory("d");
  writeFile("d/file", "");
  EXPECT_EQ(namesIn(list("d/")), std::set<std::string>{"d/file"});
}

TEST_F(Directory, FollowsALinkToADirectory) {
  std::filesystem::create_directory("d");
  writeFile("d/file", "");
  ASSERT_EQ(symlink("d", "link"), 0);
  EXPECT_EQ(namesIn(list("link")), std::set<std::string>{"link/file"});
}

TEST_F(Directory, ThatCannotBeWalkedAnswersNilAndStoresNothing) {
  writeFile("plain", "");
  const ClassError earlier = seedSlot();
  EXPECT_EQ(list("plain"), OOP_NIL);
  EXPECT_EQ(list("gone"), OOP_NIL);
  fault("HostDirectory:1:EACCES");
  EXPECT_EQ(list("."), OOP_NIL);
  EXPECT_EQ(takeSlot(), earlier);
}

TEST_F(Directory, RefusesStandardFilesAndKeepsTheCode) {
  for (const char* name : {"stdin", "stdout", "stderr"}) {
    std::filesystem::create_directory(name);
    const ClassError earlier = seedSlot();
    const auto calls = callsDuring([&] { EXPECT_EQ(list(name), OOP_NIL); });
    EXPECT_TRUE(callsOf(calls, "HostDirectory").empty());
    EXPECT_EQ(takeSlot(),
              (ClassError{earlier.code, "Directory operation not allowed on standard file"}));
  }
  writeFile("stdin/file", "");
  EXPECT_EQ(namesIn(list("./stdin")), std::set<std::string>{"./stdin/file"});
  std::filesystem::create_directory("stdinx");
  EXPECT_TRUE(namesIn(list("stdinx")).empty());
}

TEST_F(Directory, DoesNotExpandItsName) {
  setenv("KVF_TEST_DIR", "real", 1);
  std::filesystem::create_directory("real");
  std::filesystem::create_directory("$KVF_TEST_DIR");
  writeFile("$KVF_TEST_DIR/literal", "");
  const auto calls = callsDuring([&] {
    EXPECT_EQ(namesIn(list("$KVF_TEST_DIR")), std::set<std::string>{"$KVF_TEST_DIR/literal"});
  });
  unsetenv("KVF_TEST_DIR");
  EXPECT_TRUE(callsOf(calls, "HostExpandFileName").empty());
  const auto walks = callsOf(calls, "HostDirectory");
  ASSERT_EQ(walks.size(), 1U);
  EXPECT_EQ(walks[0].arguments.front(), asText("$KVF_TEST_DIR"));
  EXPECT_EQ(walks[0].arguments.back(), "0");
}

// ---- bytes of names ----

class OddNames : public Directory {
 protected:
  void SetUp() override {
    Directory::SetUp();
    std::filesystem::create_directory("d");
    for (const std::string& name : names_) writeFile("d/" + name, name);
  }

  const std::vector<std::string> names_ = {"ascii",
                                           "caf\xC3\xA9",
                                           "\xE6\x97\xA5\xE6\x9C\xAC",
                                           "bad-\xFF\xFE",
                                           "cut-\xC3",
                                           "overlong-\xC0\xAF",
                                           "lone-\x80",
                                           "new\nline",
                                           "tab\tand space ",
                                           "\x01\x7F",
                                           std::string(255, '\xE9'),
                                           std::string(255, 'n')};
};

TEST_F(OddNames, AreListedByteByByte) {
  std::set<std::string> expected;
  for (const std::string& name : names_) expected.insert("d/" + name);
  EXPECT_EQ(namesIn(list("d", OOP_FALSE)), expected);
  EXPECT_EQ(namesIn(list("d", OOP_TRUE)), expected);
}

TEST_F(OddNames, AreAllStringsWithoutTheUtfChoice) {
  for (const OopType choice : {OOP_FALSE, OOP_NIL, smallInt(1), str("true")})
    for (const OopType name : kvhost::elementsOf(list("d", choice)))
      EXPECT_EQ(kvhost::classOf(name), OOP_CLASS_STRING) << bytes(name);
}

TEST_F(OddNames, AreUtf8WhereAByteIsAbove127) {
  int utf8 = 0;
  for (const OopType name : kvhost::elementsOf(list("d", OOP_TRUE))) {
    const std::string text = bytes(name);
    const bool wide = std::any_of(text.begin(), text.end(),
                                  [](char c) { return static_cast<unsigned char>(c) >= 128; });
    EXPECT_EQ(kvhost::classOf(name), wide ? OOP_CLASS_UTF8_STRING : OOP_CLASS_STRING) << text;
    utf8 += wide ? 1 : 0;
  }
  EXPECT_EQ(utf8, 7);
}

TEST_F(OddNames, LeadBackToTheirFiles) {
  expectRoundTrip(list("d", OOP_FALSE));
  expectRoundTrip(list("d", OOP_TRUE));
}

TEST_F(Directory, NameWithBytesAbove127MakesEveryFullPathUtf8) {
  std::filesystem::create_directory("\xC3\xA9");
  writeFile("\xC3\xA9/ascii", "ascii");
  const OopType array = list("\xC3\xA9", OOP_TRUE);
  ASSERT_EQ(kvhost::elementsOf(array).size(), 1U);
  EXPECT_EQ(kvhost::classOf(kvhost::elementsOf(array)[0]), OOP_CLASS_UTF8_STRING);
  expectRoundTrip(array);
}

TEST_F(Directory, OfThousandsOfEntriesIsWhole) {
  constexpr int entries = 3000;
  const MemoryDirectory many;
  const std::string prefix = many.path() + "/";
  for (int i = 0; i < entries; ++i) {
    const int file = open((prefix + std::to_string(i)).c_str(), O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0) << i;
    close(file);
  }
  const std::set<std::string> names = namesIn(list(many.path()));
  ASSERT_EQ(names.size(), static_cast<size_t>(entries));
  for (int i = 0; i < entries; ++i)
    ASSERT_EQ(names.count(prefix + std::to_string(i)), 1U) << "entry " << i;
}

// ---- the callback by itself ----

class DirectoryCallback : public Directory {
 protected:
  // The one element that the callback appended.
  OopType appended(const std::string& dir, const std::string& file, const std::string& separator,
                   bool ruby = false, bool utf = false) {
    const OopType array = KciNewOop(OOP_CLASS_ARRAY);
    HostDirClientDataType data(nullptr, nullptr, array, ruby, TRUE, utf);
    EXPECT_EQ(clientDirCallback(dir.c_str(), file.c_str(), separator.c_str(), &data), TRUE);
    const std::vector<OopType> elements = kvhost::elementsOf(array);
    EXPECT_EQ(elements.size(), 1U);
    return elements.empty() ? OOP_NIL : elements[0];
  }
};

TEST_F(DirectoryCallback, ComposesDirectorySeparatorAndName) {
  EXPECT_EQ(bytes(appended("dir", "name", "/")), "dir/name");
  EXPECT_EQ(bytes(appended("dir/", "name", "")), "dir/name");
  EXPECT_EQ(bytes(appended("dir", "name", "::")), "dir::name");
}

TEST_F(DirectoryCallback, TakesTheBareNameWhereFullPathsAreNotAskedFor) {
  EXPECT_EQ(bytes(appended("dir", "name", "/", true)), "name");
}

TEST_F(DirectoryCallback, FillsTheBufferAndCutsWhatIsLonger) {
  const std::string dir(4096, 'd');
  for (const size_t length : {4096U, 4097U, 4098U, 5000U, 20000U}) {
    const std::string file(length, 'f');
    const std::string whole = dir + "/" + file;
    for (const bool utf : {false, true}) {
      const OopType name = appended(dir, file, "/", false, utf);
      EXPECT_EQ(bytes(name), whole.substr(0, 8194)) << length;
      EXPECT_EQ(kvhost::classOf(name), OOP_CLASS_STRING);
    }
  }
}

TEST_F(DirectoryCallback, ChoosesTheClassByWhatIsLeftAfterTheCut) {
  const std::string dir(8193, 'd');
  EXPECT_EQ(kvhost::classOf(appended(dir, "\xC3\xA9", "/", false, true)), OOP_CLASS_STRING);
  EXPECT_EQ(kvhost::classOf(appended(dir, "\xC3\xA9", "", false, true)), OOP_CLASS_UTF8_STRING);
}

TEST_F(DirectoryCallback, DoesNotCutABareName) {
  const std::string file(10000, 'f');
  EXPECT_EQ(bytes(appended("dir", file, "/", true)), file);
}

TEST_F(DirectoryCallback, AppendsInTheOrderOfItsCalls) {
  const OopType array = KciNewOop(OOP_CLASS_ARRAY);
  HostDirClientDataType data(nullptr, nullptr, array, FALSE, TRUE, FALSE);
  for (const char* name : {"c", "a", "b"})
    EXPECT_EQ(clientDirCallback("d", name, "/", &data), TRUE);
  std::vector<std::string> names;
  for (const OopType element : kvhost::elementsOf(array)) names.push_back(bytes(element));
  EXPECT_EQ(names, (std::vector<std::string>{"d/c", "d/a", "d/b"}));
}

TEST_F(Directory, MakesOneObjectForEachName) {
  std::filesystem::create_directory("d");
  writeFile("d/ascii", "");
  const auto plain = callsDuring([&] { list("d", OOP_FALSE); });
  EXPECT_EQ(callsOf(plain, "KciNewString").size(), 1U);
  EXPECT_TRUE(callsOf(plain, "KciAll7Bit").empty());
  EXPECT_TRUE(callsOf(plain, "KciNewByteObj").empty());
  const auto utf = callsDuring([&] { list("d", OOP_TRUE); });
  EXPECT_TRUE(callsOf(utf, "KciNewString").empty());
  EXPECT_EQ(callsOf(utf, "KciAll7Bit").size(), 1U);
  EXPECT_EQ(callsOf(utf, "KciNewByteObj").size(), 1U);
  EXPECT_EQ(callsOf(utf, "KciAppendOops").size(), 1U);
}

TEST_F(Directory, LeavesNoDescriptorOpen) {
  writeFile("plain", "");
  const int before = openDescriptorCount();
  for (int i = 0; i < 20; ++i) {
    list(".");
    list("plain");
    list("gone");
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(Directory, ContentsAreBareNamesWhereTheCallerAsksForThem) {
  std::filesystem::create_directory("d");
  writeFile("d/caf\xC3\xA9", "");
  KvfPath path;
  std::snprintf(path.path, sizeof path.path, "d");
  path.sizeBytes = 1;
  for (const BoolType utf : {FALSE, TRUE}) {
    const std::vector<OopType> names = kvhost::elementsOf(KvfDirectoryContents(&path, TRUE, utf));
    ASSERT_EQ(names.size(), 1U);
    EXPECT_EQ(bytes(names[0]), "caf\xC3\xA9");
    EXPECT_EQ(kvhost::classOf(names[0]), utf ? OOP_CLASS_UTF8_STRING : OOP_CLASS_STRING);
  }
}

TEST_F(Directory, ContentsOfAUtf16PathAreNilWithoutAWalk) {
  KvfPath path;
  std::snprintf(path.path, sizeof path.path, ".");
  path.sizeBytes = 2;
  path.isUtf16 = TRUE;
  const auto calls =
      callsDuring([&] { EXPECT_EQ(KvfDirectoryContents(&path, FALSE, FALSE), OOP_NIL); });
  EXPECT_EQ(namesOf(calls), std::vector<std::string>{"KciNewOop"});
}

}  // namespace
}  // namespace kvtest
