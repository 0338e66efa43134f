// The scenarios, as scenarios.txt has them, and how one step of them is carried out.
#pragma once

#include "every_fault/world.h"

#include <string>
#include <vector>

namespace every_fault {

// An argument as it is written, before a run makes an object of it.
struct Value {
  enum class Is { Integer, Constant, Variable, Bytes, Utf16, Large, Array } is = Is::Integer;
  OopType oop = OOP_NIL;        // Constant; Integer as a SmallInteger
  size_t variable = 0;          // index of the object
  std::string bytes;            // Bytes, Utf16
  std::vector<Value> elements;  // Array
};

// One line of a scenario.
struct Step {
  std::string text;  // as written
  std::string name;  // "KvfRead"
  std::vector<Value> arguments;
};

struct Scenario {
  std::string name;    // "KvfRead: the first bytes"
  std::string action;  // of the step under test
  std::vector<Step> steps;
  size_t marked = 0;  // index of the step under test
  // What "with" lines say.
  Kind input = Kind::Regular;   // standard input
  Kind output = Kind::Regular;  // standard output
  std::string inputText;
  bool lineReader = false;
  int conflict = -1;
  bool touchesAll = false;  // the session's other files are meant, too
  bool gap = false;         // a gzip file gets a gap, whose bytes are not written by any step
};

// Objects that every run has, by their index.
enum Variable : size_t {
  VAR_F,
  VAR_G,
  VAR_H,
  VAR_CLASS,
  VAR_B,
  VAR_S,
  VAR_OWN,
  VAR_OTHER,
  VAR_COUNT
};
OopType variable(size_t index);

std::vector<Scenario> readScenarios(const std::string& path);

// The bytes that `size` stands for in "p500".
std::string pattern(size_t size);

// What became of a step.
struct Answer {
  std::string text;  // for people: the answer, or what was raised
  OopType oop = OOP_NIL;
  int64 number = 0;  // of a C function
  bool raised = false;
  int raisedNumber = 0;
  bool frameLeft = false;
};

// Makes the arguments; the first file object among them is at `*file`, nil for none.
std::vector<OopType> makeArguments(const Step& step, OopType* file);
Answer carryOut(const Step& step, const std::vector<OopType>& arguments);

// An action, without the script.
Answer act(const char* name, const std::vector<OopType>& arguments);

// Every action and C function that a step may name, in the order of the table.
std::vector<std::string> stepNames();

}  // namespace every_fault
