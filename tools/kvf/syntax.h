// The parts of a kvf program: positions, syntax errors, literals and the syntax tree.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace shell {

// A place in a source text; both count from 1, columns in bytes.
struct Position {
  int line = 1;
  int column = 1;
};

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

struct Node;
using NodePtr = std::unique_ptr<Node>;
using Nodes = std::vector<NodePtr>;

struct Variable {
  std::string name;
};

struct Assignment {
  std::string name;
  NodePtr value;
};

// One message, sent to what stands before it: `selector`, `+ argument`, `at: 1 put: 2`.
struct MessageNode {
  Position position;
  std::string selector;
  Nodes arguments;
};

// An expression with the messages that follow it, each sent to the answer of the one before. They
// stand side by side, so that a chain may be of any length.
struct Send {
  NodePtr receiver;
  std::vector<MessageNode> messages;
};

// A call of an action or exported function: `KvfSeek(f, 0, 2)`.
struct Call {
  std::string function;
  Nodes arguments;
};

// The statements of a block; shared, because a variable may keep the block after its program ended.
struct BlockBody {
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
};

}  // namespace shell
