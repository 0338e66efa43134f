// The file that keeps a history: what several programs add to it, and how long it gets.
#include "standalone/host_fixture.h"
#include "terminal/history_file.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using kvhost::HistoryFile;

class History : public hosttest::InDirectory {
 protected:
  // The lines behind the file's first, as they stand there.
  std::vector<std::string> linesOfFile() const {
    std::istringstream text(hosttest::readFile(in("history")));
    std::vector<std::string> lines;
    std::string line;
    std::getline(text, line);
    EXPECT_EQ(line, "_HiStOrY_V2_");
    while (std::getline(text, line)) lines.push_back(line);
    return lines;
  }

  // What a program that begins now recalls, the newest first.
  std::vector<std::string> recalled() const {
    const HistoryFile history(in("history"));
    HistEvent event;
    std::vector<std::string> lines;
    for (int status = ::history(history.handle(), &event, H_FIRST); status >= 0;
         status = ::history(history.handle(), &event, H_NEXT)) {
      lines.emplace_back(event.str);
    }
    return lines;
  }
};

TEST_F(History, isInTheFileAsSoonAsALineIsAdded) {
  HistoryFile history(in("history"));
  history.add("one");
  EXPECT_EQ(linesOfFile(), std::vector<std::string>{"one"});
  history.add("one");
  history.add("");
  EXPECT_EQ(linesOfFile(), std::vector<std::string>{"one"}) << "not twice in succession";
}

TEST_F(History, bringsEveryByteBack) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '\n') all += static_cast<char>(byte);
  }
  HistoryFile(in("history")).add(all);
  HistoryFile(in("history")).add("\\ \\134 \\n two\nlines");
  EXPECT_EQ(recalled(), (std::vector<std::string>{"\\ \\134 \\n two\nlines", all}));
}

TEST_F(History, keepsTheNewestLinesWithinTheLimit) {
  HistoryFile history(in("history"));
  for (int i = 1; i <= 5000; ++i) {
    history.add("line" + std::to_string(i));
    if (i % 500 != 0) continue;
    const std::vector<std::string> lines = linesOfFile();
    EXPECT_LT(lines.size(), 2000U);
    EXPECT_GE(lines.size(), std::min<size_t>(static_cast<size_t>(i), 1000U));
    EXPECT_EQ(lines.back(), "line" + std::to_string(i));
  }
  const std::vector<std::string> lines = recalled();
  EXPECT_EQ(lines.size(), 1000U);
  EXPECT_EQ(lines.front(), "line5000");
  EXPECT_EQ(lines.back(), "line4001");
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files += entry.path().empty() ? 0 : 1;
  }
  EXPECT_EQ(files, 1) << "only the history itself is left";
}

// Each adds so much that all of them replace the file while the others write to it.
TEST_F(History, losesNoLineOfProgramsThatWriteAtOnce) {
  constexpr int PROGRAMS = 4;
  constexpr int LINES = 2500;
  std::vector<pid_t> programs;
  for (int program = 0; program < PROGRAMS; ++program) {
    programs.push_back(fork());
    if (programs.back() != 0) continue;
    HistoryFile history(in("history"));
    for (int i = 0; i < LINES; ++i) {
      history.add(std::to_string(program) + "," + std::to_string(i));
    }
    _exit(0);
  }
  for (const pid_t program : programs) ASSERT_EQ(waitpid(program, nullptr, 0), program);
  std::vector<int> expected(PROGRAMS, -1);
  for (const std::string& line : linesOfFile()) {
    const auto program = static_cast<size_t>(line.at(0) - '0');
    ASSERT_LT(program, static_cast<size_t>(PROGRAMS)) << line;
    const int number = std::stoi(line.substr(2));
    if (expected[program] >= 0) {
      EXPECT_EQ(number, expected[program]) << "a line is lost";
    }
    expected[program] = number + 1;
  }
  bool anyIsComplete = false;
  for (const int next : expected) anyIsComplete = anyIsComplete || next == LINES;
  EXPECT_TRUE(anyIsComplete);
}

}  // namespace
