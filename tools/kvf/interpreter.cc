#include "interpreter.h"

#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "files.h"
#include "functions.h"
#include "messages.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <exception>
#include <new>

namespace shell {
namespace {

// Blocks can run themselves; this many evaluations within each other leave room on the stack.
constexpr int MAX_EVALUATION_DEPTH = 1000;

class DepthCount {
 public:
  explicit DepthCount(int* depth) : depth_(depth) { ++*depth_; }
  ~DepthCount() { --*depth_; }
  DepthCount(const DepthCount&) = delete;
  DepthCount& operator=(const DepthCount&) = delete;

 private:
  int* depth_;
};

void shutSessionDown(int id) {
  KvfShutdown(id);
  kvhost::sessionEnd(id);
}

[[noreturn]] void failAt(const Node& node, const std::string& text) {
  EvaluationError error(text);
  error.position = node.position;
  throw error;
}

void throwWhenInterrupted() {
  if (!kvhost::takeInterrupt()) return;
  EvaluationError error("interrupted");
  error.interrupted = true;
  throw error;
}

// True when no argument has to be evaluated: nothing is collected then between the first and the
// call, and none within it.
bool areKnown(const Nodes& nodes) {
  return std::all_of(nodes.begin(), nodes.end(),
                     [](const NodePtr& node) { return node->known != nullptr; });
}

}  // namespace

Interpreter::Interpreter(std::ostream& out) : out_(out) { beginSession(); }

Interpreter::~Interpreter() {
  for (int id : sessions_) shutSessionDown(id);
  for (const auto& [name, slot] : variables_) kvhost::removeRoot(&slot->root);
}

Value Interpreter::evaluateAnew(const Node& node) {
  DepthCount count(&evaluationDepth_);
  try {
    if (evaluationDepth_ > MAX_EVALUATION_DEPTH) {
      throw EvaluationError(
          fmt::format("error: evaluations are nested more than {} deep", MAX_EVALUATION_DEPTH));
    }
    return evaluateContent(node);
  } catch (EvaluationError& error) {
    if (!error.position) error.position = node.position;
    throw;
  } catch (const std::bad_alloc&) {
    failAt(node, "error: there is not enough memory");
  } catch (const std::exception& error) {
    failAt(node, fmt::format("error: {}", error.what()));
  }
}

Value Interpreter::evaluateContent(const Node& node) {
  if (const auto* send = std::get_if<Send>(&node.content)) return evaluateSend(*send);
  if (const auto* call = std::get_if<Call>(&node.content)) return evaluateCall(*call);
  if (const auto* assignment = std::get_if<Assignment>(&node.content)) {
    return evaluateAssignment(*assignment);
  }
  if (const auto* variable = std::get_if<Variable>(&node.content)) {
    return evaluateVariable(node, *variable);
  }
  if (const auto* literal = std::get_if<Literal>(&node.content)) {
    return evaluateLiteral(node, *literal);
  }
  if (const auto* block = std::get_if<Block>(&node.content)) {
    node.constant = Value::ofBlock(block->body.get());
    node.known = &node.constant;
    return node.constant;
  }
  return evaluateBrace(std::get<Brace>(node.content));
}

// A literal that is no object of its own is the same each time.
Value Interpreter::evaluateLiteral(const Node& node, const Literal& literal) {
  Value value = Value::object(makeLiteral(literal, roots_));
  bool isConstant = literal.kind == Literal::Kind::Integer
                        ? value.isSmallInteger()
                        : literal.kind <= Literal::Kind::Character;
  if (isConstant) {
    node.constant = value;
    node.known = &node.constant;
  }
  return value;
}

Value Interpreter::evaluateVariable(const Node& node, const Variable& variable) {
  auto found = variables_.find(variable.name);
  if (found != variables_.end()) {
    node.known = &found->second->value;
    return *node.known;
  }
  OopType cls = kvhost::classNamed(variable.name);
  if (cls != OOP_NIL) {
    node.constant = Value::object(cls);
  } else if (variable.name == "Session") {
    node.constant = Value::global(Value::Kind::Session);
  } else if (variable.name == "Smalltalk") {
    node.constant = Value::global(Value::Kind::Smalltalk);
  } else {
    throw EvaluationError(fmt::format("error: there is no variable or class '{}'", variable.name));
  }
  node.known = &node.constant;
  return node.constant;
}

VariableSlot& Interpreter::slotOf(const std::string& name) {
  std::unique_ptr<VariableSlot>& slot = variables_[name];
  if (slot == nullptr) {
    slot = std::make_unique<VariableSlot>();
    kvhost::addRoot(&slot->root);
  }
  return *slot;
}

Value Interpreter::evaluateAssignment(const Assignment& assignment) {
  Value value = evaluate(*assignment.value);
  if (assignment.slot == nullptr) assignment.slot = &slotOf(assignment.name);
  assign(*assignment.slot, value);
  return value;
}

void Interpreter::assign(VariableSlot& slot, const Value& value) {
  if (value.isBlock() || slot.block != nullptr) keepBlock(slot, value);
  slot.value = value;
  kvhost::storeRoot(&slot.root, value.isObject() ? value.oop : OOP_NIL);
}

// The block that the variable held may be running. So it stays until the statement is over, where
// nothing else keeps it.
void Interpreter::keepBlock(VariableSlot& slot, const Value& value) {
  std::shared_ptr<const BlockBody> block =
      value.isBlock() ? value.block->shared_from_this() : nullptr;
  slot.block.swap(block);
  if (block.use_count() == 1) droppedBlocks_.push_back(std::move(block));
}

std::vector<Value> Interpreter::evaluateAll(const Nodes& nodes, RootStack::Frame& frame) {
  std::vector<Value> values;
  values.reserve(nodes.size());
  for (const NodePtr& node : nodes) {
    values.push_back(evaluate(*node));
    frame.push(values.back());
  }
  return values;
}

Value Interpreter::evaluateSend(const Send& send) {
  Value receiver = evaluate(*send.receiver);
  for (const Message& message : send.messages) {
    try {
      receiver = evaluateMessage(receiver, message);
    } catch (EvaluationError& error) {
      if (!error.position) error.position = message.position;
      throw;
    }
  }
  return receiver;
}

Value Interpreter::evaluateMessage(const Value& receiver, const Message& message) {
  RootStack::Frame frame(roots_);
  frame.push(receiver);
  if (message.method == nullptr) {
    evaluateAll(message.arguments, frame);
    doesNotUnderstand(receiver, message.selector);
  }
  Value arguments[MAX_MESSAGE_ARGUMENTS];
  size_t count = 0;
  for (const NodePtr& argument : message.arguments) {
    arguments[count] = evaluate(*argument);
    frame.push(arguments[count++]);
  }
  return message.method->handler(*this, receiver, {arguments, count});
}

Value Interpreter::evaluateCall(const Call& call) {
  if (call.arguments.size() > KCI_MAX_ACTION_ARGS || !areKnown(call.arguments)) {
    RootStack::Frame frame(roots_);
    return callFunction(*this, call, evaluateAll(call.arguments, frame));
  }
  Value arguments[KCI_MAX_ACTION_ARGS];
  size_t count = 0;
  for (const NodePtr& argument : call.arguments) arguments[count++] = *argument->known;
  return callFunction(*this, call, {arguments, count});
}

Value Interpreter::evaluateBrace(const Brace& brace) {
  RootStack::Frame frame(roots_);
  std::vector<OopType> oops;
  for (const Value& value : evaluateAll(brace.elements, frame)) {
    if (!value.isObject()) throw EvaluationError("error: an Array holds objects only");
    oops.push_back(value.oop);
  }
  return Value::object(kvhost::newArray(oops));
}

Value Interpreter::run(const BlockBody& body) {
  Value last;
  for (const NodePtr& statement : body.statements) last = evaluate(*statement);
  return last;
}

void Interpreter::print(std::string_view text) {
  out_ << text << std::flush;
  if (!out_ && isReaderGone(STDOUT_FILENO)) throw QuitRequest{EXIT_READER_GONE};
}

void Interpreter::safePointInLoop() {
  throwWhenInterrupted();
  if (kvhost::collectionIsDue()) collect();
}

// A file that the statement dropped is closed now. Elsewhere a temporary object may still hold it.
void Interpreter::safePointBetweenStatements() {
  droppedBlocks_.clear();
  if (kvhost::takeDroppedFiles() || kvhost::collectionIsDue()) collect();
}

int64_t Interpreter::collect() {
  int64_t closed = kvhost::collectGarbage().filesFinalized;
  std::erase_if(fileNumbers_, [](const auto& entry) { return !kvhost::isValid(entry.first); });
  return closed;
}

int Interpreter::fileNumber(OopType file) {
  auto [entry, isNew] = fileNumbers_.try_emplace(file, 0);
  if (isNew) {
    entry->second = ++filesMade_;
  }
  return entry->second;
}

int Interpreter::beginSession() {
  int id = kvhost::sessionBegin();
  KvfStartup(id);
  sessions_.push_back(id);
  return id;
}

bool Interpreter::hasSession(int64_t id) const {
  return id <= INT_MAX &&
         std::find(sessions_.begin(), sessions_.end(), static_cast<int>(id)) != sessions_.end();
}

void Interpreter::selectSession(int64_t id) {
  if (id != 0 && !hasSession(id)) {
    throw EvaluationError(fmt::format("error: there is no session {}", id));
  }
  kvhost::sessionSelect(static_cast<int>(id));
}

void Interpreter::endSession(int64_t id) {
  if (!hasSession(id)) throw EvaluationError(fmt::format("error: there is no session {}", id));
  std::erase(sessions_, static_cast<int>(id));
  shutSessionDown(static_cast<int>(id));
}

std::vector<std::string> Interpreter::variableNames() const {
  std::vector<std::string> names;
  names.reserve(variables_.size());
  for (const auto& [name, slot] : variables_) names.push_back(name);
  return names;
}

namespace {

OopType makeLiteralArray(const Literal& literal, RootStack& roots) {
  RootStack::Frame frame(roots);
  std::vector<OopType> elements;
  for (const Literal& element : literal.elements) {
    elements.push_back(makeLiteral(element, roots));
    frame.push(Value::object(elements.back()));
  }
  return kvhost::newArray(elements);
}

}  // namespace

OopType makeLiteral(const Literal& literal, RootStack& roots) {
  switch (literal.kind) {
    case Literal::Kind::Nil:
      return OOP_NIL;
    case Literal::Kind::True:
      return OOP_TRUE;
    case Literal::Kind::False:
      return OOP_FALSE;
    case Literal::Kind::Integer:
      return kvhost::newInteger(literal.integer);
    case Literal::Kind::Character:
      return oopFromCharacter(static_cast<uint32_t>(literal.integer));
    case Literal::Kind::String:
      return kvhost::newString(literal.bytes);
    case Literal::Kind::Utf8:
      return kvhost::newUtf8(literal.bytes);
    case Literal::Kind::Utf16:
      return kvhost::newUtf16(literal.units);
    case Literal::Kind::Symbol:
      return kvhost::newSymbol(literal.bytes);
    case Literal::Kind::ByteArray:
      return kvhost::newByteArray(literal.bytes);
    case Literal::Kind::Array:
      return makeLiteralArray(literal, roots);
  }
  return OOP_NIL;
}

}  // namespace shell
