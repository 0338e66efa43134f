// Evaluates syntax trees: variables, blocks, literals, messages and calls.
#pragma once

#include "root_stack.h"
#include "syntax.h"
#include "value.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace shell {

// A variable. What it holds is a root, and a block in it lives.
struct VariableSlot {
  Value value;
  OopType root = OOP_NIL;  // the object of `value`, or nil
  std::shared_ptr<const BlockBody> block;
};

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
  Value evaluate(const Node& node) {
    return node.known != nullptr ? *node.known : evaluateAnew(node);
  }

  // The value of a block's last statement, nil for an empty block.
  Value run(const BlockBody& body);

  // Lets the object memory collect where enough was allocated since it last did. Only what
  // variables and the root stack hold survives. Throws EvaluationError where the user has typed
  // Ctrl-C.
  void safePointInLoop();

  // The same between two statements; here a file that was dropped is closed at once.
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
  Value evaluateAnew(const Node& node);
  Value evaluateContent(const Node& node);
  Value evaluateLiteral(const Node& node, const Literal& literal);
  Value evaluateVariable(const Node& node, const Variable& variable);
  Value evaluateAssignment(const Assignment& assignment);
  Value evaluateSend(const Send& send);
  Value evaluateMessage(const Value& receiver, const Message& message);
  Value evaluateCall(const Call& call);
  Value evaluateBrace(const Brace& brace);
  std::vector<Value> evaluateAll(const Nodes& nodes, RootStack::Frame& frame);
  VariableSlot& slotOf(const std::string& name);
  void assign(VariableSlot& slot, const Value& value);
  void keepBlock(VariableSlot& slot, const Value& value);

  std::ostream& out_;
  RootStack roots_;
  std::unordered_map<std::string, std::unique_ptr<VariableSlot>> variables_;
  std::vector<std::shared_ptr<const BlockBody>> droppedBlocks_;
  std::unordered_map<OopType, int> fileNumbers_;
  int filesMade_ = 0;
  int evaluationDepth_ = 0;
  std::vector<int> sessions_;
};

// A new object for a literal.
OopType makeLiteral(const Literal& literal, RootStack& roots);

}  // namespace shell
