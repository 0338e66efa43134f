// The files that are made: their permissions under any umask, and what a link in the place of the name
// leads to.
#include "losses/gzip_files.h"
#include "terminal/history_file.h"

#include <sys/stat.h>

namespace kvtest {
namespace {

// While it lives, the process has another umask.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t before_;
};

constexpr mode_t UMASKS[] = {0000, 0002, 0022, 0027, 0077, 0111, 0222, 0277, 0777};

unsigned permissionsOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

class MadeFiles : public OpenFileTest {
 protected:
  // Opens a new file in every mode that makes one and hands its name to `check`.
  void madeInEveryMode(const std::function<void(const std::string&)>& check) {
    for (const bool compressed : {false, true}) {
      const OopType modes = call("KvfAllValidFileModes", {OOP_NIL, oopFromBool(compressed)});
      for (const OopType mode : kvhost::elementsOf(modes)) {
        if (bytes(mode)[0] == 'r') continue;
        SCOPED_TRACE(bytes(mode) + (compressed ? ", gzip" : ", plain"));
        std::filesystem::remove("made");
        const OopType file = openFile("made", bytes(mode), compressed);
        check("made");
        call("KvfClose", {file});
      }
    }
  }
};

TEST_F(MadeFiles, MayBeReadAndWrittenByAllWhomTheUmaskLets) {
  for (const mode_t mask : UMASKS) {
    SCOPED_TRACE(mask);
    const Umask changed(mask);
    madeInEveryMode([&](const std::string& path) { EXPECT_EQ(permissionsOf(path), 0666 & ~mask); });
  }
}

TEST_F(MadeFiles, ThatWereThereKeepTheirPermissions) {
  const Umask changed(0);
  for (const char* mode : {"w", "a", "r+"}) {
    writeFile("kept", "x");
    chmod("kept", 0604);
    call("KvfClose", {openFile("kept", mode)});
    EXPECT_EQ(permissionsOf("kept"), 0604U) << mode;
  }
  chmod("kept", 0604);
  call("KvfClose", {openFile("kept", "w", true)});
  EXPECT_EQ(permissionsOf("kept"), 0604U);
}

TEST_F(MadeFiles, ThatAreLinksAreFollowed) {
  for (const bool compressed : {false, true}) {
    writeFile("target", "what was there");
    std::filesystem::create_symlink("target", "link");
    call("KvfClose", {openFile("link", "w", compressed)});
    EXPECT_TRUE(std::filesystem::is_symlink("link"));
    EXPECT_NE(readFile("target"), "what was there") << "it was emptied through the link";
    std::filesystem::remove("link");
  }
}

TEST_F(MadeFiles, AppearAtTheEndOfALinkThatLedNowhere) {
  for (const bool compressed : {false, true}) {
    std::filesystem::create_symlink("nowhere", "link");
    call("KvfClose", {openFile("link", "a", compressed)});
    EXPECT_TRUE(std::filesystem::exists("nowhere"));
    std::filesystem::remove("nowhere");
    std::filesystem::remove("link");
  }
}

TEST_F(MadeFiles, AreWrittenThroughEveryNameThatTheyHave) {
  writeFile("one", "");
  std::filesystem::create_hard_link("one", "two");
  const OopType file = openFile("two", "w");
  EXPECT_EQ(show(write(file, "both")), "4");
  EXPECT_EQ(readFile("one"), "both");
}

// A name that was looked at may lead elsewhere by the time it is opened.
TEST_F(MadeFiles, AreWhatTheNameLeadsToWhenItIsOpened) {
  writeFile("name", "");
  EXPECT_EQ(call("KvfFileKind", {kvhost::CLASS_KV_FILE, str("name")}), smallInt(0));
  std::filesystem::remove("name");
  std::filesystem::create_symlink("elsewhere", "name");
  EXPECT_EQ(show(write(openFile("name", "w"), "moved")), "5");
  EXPECT_EQ(readFile("elsewhere"), "moved");
}

TEST_F(MadeFiles, ThatAreRenamedOrRemovedWhileOpenAreWrittenOn) {
  const OopType renamed = openFile("old", "w");
  std::filesystem::rename("old", "new");
  EXPECT_EQ(show(write(renamed, "abc")), "3");
  EXPECT_EQ(readFile("new"), "abc");
  const OopType removed = openFile("gone", "w");
  std::filesystem::remove("gone");
  EXPECT_EQ(show(write(removed, "abc")), "3") << "into a file without a name";
  EXPECT_FALSE(std::filesystem::exists("gone"));
}

// ---- the shell's history ----

TEST_F(MadeFiles, OfTheHistoryAreTheUsersAloneWhateverTheUmask) {
  for (const mode_t mask : UMASKS) {
    const Umask changed(mask);
    std::filesystem::remove("history");
    kvhost::HistoryFile("history").add("a secret");
    EXPECT_EQ(permissionsOf("history"), 0600 & ~mask) << mask;
  }
}

TEST_F(MadeFiles, OfTheHistoryAreTheUsersAloneWhenTheyAreShortened) {
  for (const mode_t mask : {mode_t{0000}, mode_t{0022}, mode_t{0077}}) {
    const Umask changed(mask);
    std::filesystem::remove("history");
    kvhost::HistoryFile history("history");
    history.add("the first");
    chmod("history", 0666);
    history.add("still as others left it");
    EXPECT_EQ(permissionsOf("history"), 0666U);
    for (int i = 0; i < 2000; ++i) history.add("line " + std::to_string(i));
    EXPECT_EQ(permissionsOf("history"), 0600U) << mask;
  }
}

}  // namespace
}  // namespace kvtest
