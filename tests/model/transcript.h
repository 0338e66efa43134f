// A sequence in the language of the shell kvf, so that `kvf check` replays it.
#pragma once

#include "model/actions.h"
#include "model/generator.h"
#include "model/operation.h"

#include <string>
#include <string_view>
#include <vector>

namespace model {

std::string showBytes(std::string_view bytes);
std::string showAnswer(const Answer& answer);
std::string showOperation(const Operation& operation);

// What makes the starting files, the objects and the second session.
std::string transcriptStart(const std::vector<StartingFile>& files, int64 bufferSize);
// The step, and what it must print.
std::string transcriptStep(const Operation& operation, const Answer& expected, Model& model);

}  // namespace model
