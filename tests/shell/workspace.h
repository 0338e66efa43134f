// A workspace for tests: a session, an output stream, and a directory of its own.
#pragma once

#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "interpreter.h"
#include "parser.h"
#include "printer.h"
#include "runner.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>

namespace shell {

class WorkspaceTest : public testing::Test {
 protected:
  void SetUp() override {
    kvhost::initialize();
    if (kvhost::declaredActions().empty()) {
      ASSERT_TRUE(KvfUserActionInit());
      ASSERT_TRUE(KvfPassiveObjActionInit());
    }
    scratch_.emplace();
    before_ = std::filesystem::current_path();
    std::filesystem::current_path(scratch_->path());
    interpreter_ = std::make_unique<Interpreter>(out_);
  }

  void TearDown() override {
    interpreter_.reset();
    std::filesystem::current_path(before_);
    scratch_.reset();
  }

  // The printed answer of the last statement, or the text of the error that ended it.
  std::string answer(std::string_view source) {
    std::string text;
    try {
      for (const NodePtr& statement : parse(source)) {
        text = printString(*interpreter_, interpreter_->evaluate(*statement));
        interpreter_->safePointBetweenStatements();
      }
    } catch (const EvaluationError& error) {
      return error.what();
    }
    return text;
  }

  std::ostringstream out_;
  std::unique_ptr<Interpreter> interpreter_;

 private:
  std::optional<kvtest::ScratchFolder> scratch_;
  std::filesystem::path before_;
};

}  // namespace shell
