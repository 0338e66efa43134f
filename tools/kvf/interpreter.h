// Evaluates syntax trees: variables, blocks, literals, messages and calls.
#pragma once

#include "root_stack.h"
#include "value.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace shell {

// One workspace. It begins a session when it is made and shuts down every session it still has when
// it goes. Used by the thread that made it.
class Interpreter {
 public:
  // `out` takes what programs print; it must outlive the interpreter.
  explicit Interpreter(std::ostream& out);
  ~Interpreter();
  Interpreter(const Interpreter&) = delete;
  Interpreter& operator=(const Interpreter&) = delete;

  // The value of an expression. Throws EvaluationError or QuitRequest. The object answered stays
  // alive until the next safe point.
  Value evaluate(const Node& node);

  // The value of a block's last statement, nil for an empty block.
  Value run(const BlockBody& body);

  // Lets the object memory collect where enough was allocated since it last did. Only what
  // variables and the root stack hold survives. Throws EvaluationError where the user has typed
  // Ctrl-C.
  void safePointInLoop();

  // The same between two statements; here a file that was dropped is closed at once, unless the
  // object memory is so full that looking through it after each statement would be slow.
  void safePointBetweenStatements();

  // Collects now; answers the number of dead files that were closed.
  int64_t collect();

  // The number in "aKvFile#1"; files are numbered as they are made.
  int fileNumber(OopType file);

  // Sessions. Ids that are not this interpreter's are refused with an EvaluationError.
  int beginSession();
  void selectSession(int64_t id);
  void endSession(int64_t id);
  bool hasSession(int64_t id) const;

  std::vector<std::string> variableNames() const;
  RootStack& roots() { return roots_; }
  // Prints and flushes. Throws QuitRequest where nobody reads standard output any more.
  void print(std::string_view text);

  // The number of the last error that ifError: caught; 0: none.
  int lastErrorNumber = 0;

 private:
  struct VariableSlot {
    Value value;
  };

  bool isCollectionDue() const;
  Value evaluateContent(const Node& node);
  Value evaluateVariable(const Variable& variable);
  Value evaluateAssignment(const Assignment& assignment);
  Value evaluateSend(const Send& send);
  Value evaluateMessage(const Value& receiver, const MessageNode& message);
  Value evaluateCall(const Call& call);
  Value evaluateBrace(const Brace& brace);
  void evaluateInto(const Nodes& nodes, RootStack::Frame& frame, std::vector<Value>* values);

  std::ostream& out_;
  RootStack roots_;
  std::unordered_map<std::string, std::unique_ptr<VariableSlot>> variables_;
  std::unordered_map<OopType, int> fileNumbers_;
  int filesMade_ = 0;
  int filesSinceCollection_ = 0;
  int evaluationDepth_ = 0;
  std::vector<int> sessions_;
};

// A new object for a literal.
OopType makeLiteral(const Literal& literal, RootStack& roots);

}  // namespace shell
