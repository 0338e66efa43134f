// A thread with a session of the standalone host, a scratch directory, and a seam at rest.
#pragma once

#include <kvfile/kvhost.h>

#include "seam/seam.h"
#include "seam/seam_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace seamtest {

// Names and results of calls, "lseek=3", in their order.
inline std::vector<std::string> outline(const std::vector<seam::Call>& calls) {
  std::vector<std::string> lines;
  for (const seam::Call& call : calls) lines.push_back(call.name + "=" + call.result);
  return lines;
}

class SeamTest : public testing::Test {
 protected:
  void SetUp() override {
    kvhost::initialize();
    session_ = kvhost::sessionBegin();
    std::string pattern = (std::filesystem::temp_directory_path() / "kvfile-seam-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }

  void TearDown() override {
    seam::setListener(nullptr);
    seam::clearFaults();
    seam::stop();
    kvhost::sessionEnd(session_);
    std::filesystem::remove_all(directory_);
  }

  std::string path(const std::string& name) const { return directory_ + "/" + name; }

  void fault(const std::string& text) {
    seam::Fault parsed;
    std::string message;
    ASSERT_TRUE(seam::parseFault(text, &parsed, &message)) << message;
    seam::addFault(parsed);
  }

  std::string directory_;

 private:
  int session_ = 0;
};

}  // namespace seamtest
