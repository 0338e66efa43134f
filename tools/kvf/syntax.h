// The parts of a kvf program: syntax errors, literals and the syntax tree.
#pragma once

#include <kvfile/kvhost.h>

#include "position.h"
#include "value.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace shell {

// The text breaks the grammar at `position`. `incomplete`: it ended too early, and more lines could
// complete it.
class SyntaxError : public std::runtime_error {
 public:
  SyntaxError(const std::string& message, Position where, bool more)
      : std::runtime_error(message), position(where), incomplete(more) {}

  Position position;
  bool incomplete;
};

// A literal as written; every evaluation makes a new object of it, so none needs to be kept alive.
struct Literal {
  enum class Kind {
    Nil,
    True,
    False,
    Integer,
    Character,
    String,
    Utf8,
    Utf16,
    Symbol,
    ByteArray,
    Array
  } kind = Kind::Nil;
  int64_t integer = 0;            // Integer; Character: its code point
  std::string bytes;              // String, Utf8, Symbol, ByteArray
  std::u16string units;           // Utf16
  std::vector<Literal> elements;  // Array
};

struct CFunction;     // of functions.h
struct Method;        // of messages.h
struct VariableSlot;  // of interpreter.h

struct Node;
using NodePtr = std::unique_ptr<Node>;
using Nodes = std::vector<NodePtr>;

struct Variable {
  std::string name;
};

struct Assignment {
  std::string name;
  NodePtr value;
  mutable VariableSlot* slot = nullptr;  // once it was evaluated
};

// One message, sent to what stands before it: `selector`, `+ argument`, `at: 1 put: 2`.
struct Message {
  Position position;
  std::string selector;
  Nodes arguments;
  const Method* method = nullptr;  // null: nothing understands it
};

// An expression with the messages that follow it, each sent to the answer of the one before. They
// stand side by side, so that a chain may be of any length.
struct Send {
  NodePtr receiver;
  std::vector<Message> messages;
};

// A call of an action or exported function: `KvfSeek(f, 0, 2)`.
struct Call {
  std::string function;
  Nodes arguments;
  const CFunction* entryPoint = nullptr;                // null: it is an action, or unknown
  mutable const kvhost::FoundAction* action = nullptr;  // once it was called
};

// The statements of a block; shared, because a variable may keep the block after its program ended.
struct BlockBody : std::enable_shared_from_this<BlockBody> {
  explicit BlockBody(Nodes nodes) : statements(std::move(nodes)) {}

  Nodes statements;
};

struct Block {
  std::shared_ptr<const BlockBody> body;
};

// `{1. f. 'x'}`: an Array of values computed when it is reached.
struct Brace {
  Nodes elements;
};

struct Node {
  Position position;
  std::variant<Literal, Variable, Assignment, Send, Call, Block, Brace> content;
  int height = 1;  // nodes on the longest way down, this one included

  // Where the value of a variable, a constant or a block stands, once it was evaluated; null for what
  // has to be evaluated each time.
  mutable const Value* known = nullptr;
  mutable Value constant;
};

}  // namespace shell
