#include "every_fault/script.h"

#include <kvfile/kvfile.h>

#include <csetjmp>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace every_fault {

namespace {

// ---- actions and C functions ----

struct Action {
  const char* name;
  void (*function)();
  int count;
};

const Action ACTIONS[] = {
#define KVF_ACTION(name, count, parameters, meaning) \
  {#name, reinterpret_cast<void (*)()>(&name), count},
#include <kvfile/action_table.def>
#undef KVF_ACTION
#undef KVF_PASSIVE_ACTION
};

constexpr size_t C_BUFFER = 6000;

// One call of the module, with nothing in it that a jump would leak.
struct Invocation {
  const Action* action;
  const OopType* arguments;
  OopType answer;
  int64 number;
  char* buffer;
  void (*function)(Invocation*);
};

OopType applyAction(const Action& action, const OopType* a) {
  using Oop = OopType;
  void (*f)() = action.function;
  switch (action.count) {
    case 1:
      return reinterpret_cast<Oop (*)(Oop)>(f)(a[0]);
    case 2:
      return reinterpret_cast<Oop (*)(Oop, Oop)>(f)(a[0], a[1]);
    case 3:
      return reinterpret_cast<Oop (*)(Oop, Oop, Oop)>(f)(a[0], a[1], a[2]);
    case 4:
      return reinterpret_cast<Oop (*)(Oop, Oop, Oop, Oop)>(f)(a[0], a[1], a[2], a[3]);
    default:
      return reinterpret_cast<Oop (*)(Oop, Oop, Oop, Oop, Oop)>(f)(a[0], a[1], a[2], a[3], a[4]);
  }
}

int64 integerAt(const Invocation* i, int index) {
  return oopSmallIntegerValue(i->arguments[index]);
}

// The C functions, by name. Bytes to write lie at `buffer`, and bytes read go there.
struct Entry {
  const char* name;
  int count;
  void (*body)(Invocation*);
};
constexpr Entry ENTRIES[] = {
    {"KvfUserActionInit", 0, [](Invocation* i) { i->number = KvfUserActionInit(); }},
    {"KvfPassiveObjActionInit", 0, [](Invocation* i) { i->number = KvfPassiveObjActionInit(); }},
    {"KvfStartup", 1, [](Invocation* i) { KvfStartup(static_cast<int>(integerAt(i, 0))); }},
    {"KvfShutdown", 1, [](Invocation* i) { KvfShutdown(static_cast<int>(integerAt(i, 0))); }},
    {"KvFileWrite", 3,
     [](Invocation* i) {
       i->number = KvFileWrite(i->arguments[0], reinterpret_cast<ByteType*>(i->buffer), i->number,
                               static_cast<int>(integerAt(i, 2)));
     }},
    {"KvFileRead", 3,
     [](Invocation* i) {
       i->number = KvFileRead(i->arguments[0], reinterpret_cast<ByteType*>(i->buffer),
                              integerAt(i, 1), static_cast<int>(integerAt(i, 2)));
     }},
    {"KvFileFetchErrorString", 3,
     [](Invocation* i) {
       KvFileFetchErrorString(i->arguments[0], i->buffer, static_cast<size_t>(integerAt(i, 1)),
                              static_cast<int>(integerAt(i, 2)));
     }},
    {"KvFileSetLineReader", 0,
     [](Invocation*) {
       KvFileSetLineReader(reinterpret_cast<LineReaderStateType*>(&w.lineReader));
     }},
    {"KvFileShutdownLineReader", 0, [](Invocation*) { KvFileShutdownLineReader(); }},
    // Not the module's: which session is current.
    {"session", 1, [](Invocation* i) { w.session = static_cast<int>(integerAt(i, 0)); }},
};

// Calls, and answers whether the call came back.
__attribute__((noinline)) bool invoke(Invocation* invocation) {
  jmp_buf here;
  w.top = &here;
  if (setjmp(here) != 0) return false;
  if (invocation->action != nullptr) {
    invocation->answer = applyAction(*invocation->action, invocation->arguments);
  } else {
    invocation->function(invocation);
  }
  return true;
}

const Action* findAction(const std::string& name) {
  for (const Action& action : ACTIONS) {
    if (name == action.name) return &action;
  }
  return nullptr;
}

const Entry* findEntry(const std::string& name) {
  for (const Entry& entry : ENTRIES) {
    if (name == entry.name) return &entry;
  }
  return nullptr;
}

void describe(const Invocation& invocation, bool cameBack, const std::string& name,
              Answer* answer) {
  answer->oop = invocation.answer;
  answer->number = invocation.number;
  answer->raised = w.raised;
  answer->raisedNumber = w.raised ? w.raise.number : 0;
  answer->frameLeft = w.frameCount != 0;
  if (cameBack && invocation.action != nullptr) answer->text = oopText(invocation.answer);
  if (cameBack && invocation.action == nullptr) {
    answer->text = std::to_string(invocation.number);
    if (name == "KvFileRead" && invocation.number > 0) {
      answer->text += " " + quoted({invocation.buffer, static_cast<size_t>(invocation.number)});
    }
    if (name == "KvFileFetchErrorString") answer->text = quoted(invocation.buffer);
  }
  if (w.raised) {
    std::string raised =
        "raised " + std::to_string(w.raise.number) + (w.raise.fatal ? " fatal" : "");
    for (int i = 0; i < w.raise.argCount; ++i) raised += " " + oopText(w.raise.args[i]);
    answer->text = cameBack ? raised + " and came back with " + answer->text : raised;
  }
  if (w.isPending) answer->text += ", pending " + std::to_string(w.pending.number);
}

// ---- reading scenarios ----

[[noreturn]] void reject(const std::string& why, const std::string& line) {
  fprintf(stderr, "scenarios: %s: %s\n", why.c_str(), line.c_str());
  exit(2);
}

std::string unescape(const std::string& text) {
  std::string bytes;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      bytes += text[i];
    } else if (text[++i] == 'n') {
      bytes += '\n';
    } else if (text[i] == 'x') {
      bytes += static_cast<char>(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      bytes += text[i];
    }
  }
  return bytes;
}

// Words, where what stands between quotes is one.
std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  std::string word;
  bool quote = false;
  for (const char c : line + " ") {
    if (c == '\'') quote = !quote;
    if ((c == ' ' && !quote)) {
      if (!word.empty()) words.push_back(word);
      word.clear();
    } else {
      word += c;
    }
  }
  return words;
}

Value constant(OopType oop) {
  Value value;
  value.is = Value::Is::Constant;
  value.oop = oop;
  return value;
}

Value bytesValue(Value::Is is, std::string bytes) {
  Value value;
  value.is = is;
  value.bytes = std::move(bytes);
  return value;
}

Value parseValue(const std::string& word) {
  static const std::map<std::string, OopType> constants = {
      {"nil", OOP_NIL}, {"true", OOP_TRUE}, {"false", OOP_FALSE}};
  static const std::map<std::string, size_t> variables = {
      {"F", VAR_F}, {"G", VAR_G}, {"H", VAR_H}, {"C", VAR_CLASS}, {"B", VAR_B}, {"S", VAR_S}};
  if (const auto found = constants.find(word); found != constants.end()) {
    return constant(found->second);
  }
  Value value;
  if (const auto found = variables.find(word); found != variables.end()) {
    value.is = Value::Is::Variable;
    value.variable = found->second;
    return value;
  }
  const size_t size = word.size();
  if (word[0] == '\'') return bytesValue(Value::Is::Bytes, unescape(word.substr(1, size - 2)));
  if (word[0] == 'u') return bytesValue(Value::Is::Utf16, unescape(word.substr(2, size - 3)));
  if (word[0] == 'p') return bytesValue(Value::Is::Bytes, pattern(strtoul(&word[1], nullptr, 10)));
  if (word[0] == 'x') {
    return bytesValue(Value::Is::Bytes, std::string(strtoul(&word[1], nullptr, 10), 'x'));
  }
  if (word[0] == '$') return constant(oopFromCharacter(static_cast<uint32_t>(atoi(&word[1]))));
  if (word == "large") {
    value.is = Value::Is::Large;
    return value;
  }
  if (word[0] == '[') {
    value.is = Value::Is::Array;
    std::istringstream elements(word.substr(1, size - 2));
    std::string element;
    while (std::getline(elements, element, ',')) value.elements.push_back(parseValue(element));
    return value;
  }
  char* end = nullptr;
  const int64 number = strtoll(word.c_str(), &end, 10);
  if (*end != '\0') reject("no value", word);
  return constant(oopFromSmallInteger(number));
}

Step parseStep(const std::string& line) {
  Step step;
  step.text = line;
  const std::vector<std::string> words = wordsOf(line);
  step.name = words[0];
  for (size_t i = 1; i < words.size(); ++i) step.arguments.push_back(parseValue(words[i]));
  const Action* action = findAction(step.name);
  const Entry* entry = findEntry(step.name);
  const int count = action != nullptr ? action->count : entry != nullptr ? entry->count : -1;
  if (count != static_cast<int>(step.arguments.size())) reject("wrong step", line);
  return step;
}

void parseWith(const std::string& line, Scenario* scenario) {
  const std::vector<std::string> words = wordsOf(line);
  const std::map<std::string, Kind> kinds = {
      {"file", Kind::Regular}, {"pipe", Kind::Pipe}, {"terminal", Kind::Terminal}};
  const std::string& what = words.at(1);
  if (what == "input") {
    scenario->input = kinds.at(words.at(2));
    scenario->inputText = unescape(words.at(3).substr(1, words[3].size() - 2));
  } else if (what == "output") {
    scenario->output = kinds.at(words.at(2));
  } else if (what == "reader") {
    scenario->lineReader = true;
  } else if (what == "conflict") {
    scenario->conflict = atoi(words.at(2).c_str());
  } else if (what == "all") {
    scenario->touchesAll = true;
  } else if (what == "gap") {
    scenario->gap = true;
  } else {
    reject("no setting", line);
  }
}

OopType makeObject(const Value& value) {
  switch (value.is) {
    case Value::Is::Variable:
      return variable(value.variable);
    case Value::Is::Bytes:
      return newBytes(OOP_CLASS_STRING, value.bytes);
    case Value::Is::Utf16:
      return newBytes(OOP_CLASS_UTF16_STRING, value.bytes);
    case Value::Is::Large: {
      const OopType large = newObject(OOP_CLASS_SMALL_INTEGER, true);
      findObject(large)->elements.push_back(uint64_t{1} << 62);
      return large;
    }
    case Value::Is::Array: {
      std::vector<OopType> elements;
      for (const Value& element : value.elements) {
        const OopType made = makeObject(element);
        // File objects stand in such arrays as the numbers of their identifiers.
        elements.push_back(element.is == Value::Is::Variable
                               ? oopFromSmallInteger(static_cast<int64>(made))
                               : made);
      }
      const OopType array = newObject(OOP_CLASS_ARRAY, true);
      findObject(array)->elements = elements;
      return array;
    }
    default:
      return value.oop;
  }
}

}  // namespace

OopType variable(size_t index) { return ((0x1000 + index) << 8) | 1; }

std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>('A' + (i + i / 26) % 26);
  return bytes;
}

std::vector<Scenario> readScenarios(const std::string& path) {
  std::ifstream file(path);
  if (!file) reject("cannot read", path);
  std::vector<Scenario> scenarios;
  std::string line;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    if (line.starts_with("== ")) {
      scenarios.emplace_back();
      scenarios.back().name = line.substr(3);
    } else if (line.starts_with("with ")) {
      parseWith(line, &scenarios.back());
    } else {
      const bool marked = line[0] == '>';
      scenarios.back().steps.push_back(parseStep(marked ? line.substr(2) : line));
      if (!marked) continue;
      scenarios.back().marked = scenarios.back().steps.size() - 1;
      scenarios.back().action = scenarios.back().steps.back().name;
    }
  }
  for (const Scenario& scenario : scenarios) {
    if (scenario.action.empty()) reject("no step is marked", scenario.name);
    if (!scenario.name.starts_with(scenario.action + ": ")) reject("wrong name", scenario.name);
  }
  return scenarios;
}

std::vector<OopType> makeArguments(const Step& step, OopType* file) {
  std::vector<OopType> arguments;
  *file = OOP_NIL;
  for (const Value& value : step.arguments) {
    arguments.push_back(makeObject(value));
    if (value.is == Value::Is::Variable && value.variable <= VAR_H && *file == OOP_NIL) {
      *file = arguments.back();
    }
  }
  return arguments;
}

Answer carryOut(const Step& step, const std::vector<OopType>& arguments) {
  static char buffer[C_BUFFER];
  Invocation invocation = {};
  invocation.action = findAction(step.name);
  invocation.arguments = arguments.data();
  invocation.answer = OOP_NIL;
  invocation.buffer = buffer;
  if (invocation.action == nullptr) invocation.function = findEntry(step.name)->body;
  if (step.name == "KvFileWrite") {
    const std::string& bytes = step.arguments[1].bytes;
    memcpy(buffer, bytes.data(), bytes.size());
    invocation.number = static_cast<int64>(bytes.size());
  }
  // A host begins each call so.
  w.isPending = false;
  w.raised = false;
  w.frameCount = 0;
  const bool cameBack = invoke(&invocation);
  Answer answer;
  describe(invocation, cameBack, step.name, &answer);
  return answer;
}

Answer act(const char* name, const std::vector<OopType>& arguments) {
  Step step;
  step.name = name;
  return carryOut(step, arguments);
}

std::vector<std::string> stepNames() {
  std::vector<std::string> names;
  for (const Action& action : ACTIONS) names.emplace_back(action.name);
  for (const Entry& entry : ENTRIES) {
    if (std::string(entry.name) != "session") names.emplace_back(entry.name);
  }
  return names;
}

}  // namespace every_fault
