// A thread with a session of the standalone host, a scratch directory, and a seam at rest.
#pragma once

#include <kvfile/kvhost.h>

#include "seam/seam.h"
#include "seam/seam_calls.h"
#include "support/faults.h"
#include "support/scratch_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace seamtest {

using kvtest::fault;

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
    scratch_.emplace();
    directory_ = scratch_->path();
  }

  void TearDown() override {
    seam::setListener(nullptr);
    seam::clearFaults();
    seam::stop();
    kvhost::sessionEnd(session_);
    scratch_.reset();
  }

  std::string path(const std::string& name) const { return directory_ + "/" + name; }

  std::string directory_;

 private:
  std::optional<kvtest::ScratchFolder> scratch_;
  int session_ = 0;
};

}  // namespace seamtest
