// Runs sequences of steps against the module and the model side by side, and tells where they part.
#pragma once

#include "model/actions.h"
#include "model/generator.h"
#include "model/module_side.h"

#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace model {

struct Difference {
  size_t operation = 0;  // which of the sequence
  std::string text;
};

class Comparison {
 public:
  explicit Comparison(int64 bufferSize);

  // Runs the steps of the sequence for which `kept` is true; all when it is empty. Where
  // `transcript` names a file, the steps are written there with what the model expects.
  std::optional<Difference> run(const Sequence& sequence, const std::vector<bool>& kept,
                                const std::string& transcript = {});
  const std::string& directory() const { return module_.directory(); }

  int64 performed() const { return performed_; }  // steps, since the start

 private:
  void begin(const Sequence& sequence);
  void write(const std::string& transcript);
  std::string step(const Operation& operation);
  bool sameError(const Answer& expected, const KciErrSType& actual);
  bool sameResult(const Answer& expected, const Observed& actual);
  bool sameAnswer(const Answer& expected, const Observed& actual);
  std::string compareAnswer(const Answer& expected, const Observed& actual);
  std::string compareRecord(const Operation& operation);
  std::string compareObjects(const Operation& operation);
  std::string compareFiles();
  std::string compareFile(HostFile& file);
  std::string settle(HostFile& file, std::string_view bytes);
  std::string compareClassError();

  int64 bufferSize_;
  ModuleSide module_;
  std::unique_ptr<Model> model_;
  std::ofstream transcript_;
  int64 performed_ = 0;
};

}  // namespace model
