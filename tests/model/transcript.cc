#include "model/transcript.h"

#include <cstdio>

namespace model {

namespace {

bool isPrintable(unsigned char c) { return c >= 0x20 && c < 0x7F; }

std::string escaped(char byte) {
  const auto c = static_cast<unsigned char>(byte);
  if (c == '\n') return "\\n";
  if (c == '\r') return "\\r";
  if (c == '\t') return "\\t";
  if (c == '\\') return "\\\\";
  if (c == '\'') return "''";
  if (isPrintable(c)) return std::string(1, byte);
  char text[8];
  std::snprintf(text, sizeof text, "\\x%02X", c);
  return text;
}

std::string showByteArray(std::string_view bytes) {
  std::string text = "#[";
  for (const char byte : bytes) {
    if (text.size() > 2) text += ' ';
    text += std::to_string(static_cast<unsigned char>(byte));
  }
  return text + "]";
}

std::string showCharacter(int64 code) {
  if (code > 0x20 && code < 0x7F) return std::string("$") + static_cast<char>(code);
  return code == ' ' ? "$ " : "Character value: " + std::to_string(code);
}

std::string showInteger(int64 value) {
  // The least integer has no literal of its own in every reader of numbers.
  return std::to_string(value);
}

std::string showValue(const Value& value, bool inArray = false) {
  switch (value.kind) {
    case Value::Kind::Nil:
      return "nil";
    case Value::Kind::True:
      return "true";
    case Value::Kind::False:
      return "false";
    case Value::Kind::Integer:
      return showInteger(value.number);
    case Value::Kind::Character:
      return "(Character value: " + std::to_string(value.number) + ")";
    case Value::Kind::File:
      return "f" + std::to_string(value.number) + (inArray ? " objectId" : "");
    case Value::Kind::Object:
      return "o" + std::to_string(value.number);
    case Value::Kind::Text:
      return showBytes(value.bytes);
    case Value::Kind::Symbol:
      return "#" + showBytes(value.bytes);
    case Value::Kind::Bytes:
      return showByteArray(value.bytes);
    case Value::Kind::Utf16:
      return "w'x'";
    case Value::Kind::Array:
      break;
  }
  std::string text = "{";
  for (const Value& element : value.elements) {
    if (text.size() > 1) text += ". ";
    text += showValue(element, true);
  }
  return text + "}";
}

std::string showObject(const ByteObject& object) {
  return object.isByteArray ? showByteArray(object.bytes) : showBytes(object.bytes);
}

bool isClassSide(Step step) {
  return step == Step::KvfCloseAll || step == Step::KvfFinalizeAll || step == Step::KvfClassError;
}

std::string printedArgument(const Operation& operation, const Value& value, const Model& model) {
  (void)operation;
  if (value.kind == Value::Kind::File) return "aKvFile#" + std::to_string(value.number + 2);
  if (value.kind == Value::Kind::Object)
    return showObject(const_cast<Model&>(model).object(value.number));
  if (value.kind == Value::Kind::Array) return "...";
  return showValue(value);
}

std::string printed(const Operation& operation, const Answer& answer, const Model& model) {
  switch (answer.kind) {
    case Answer::Kind::Argument:
      return printedArgument(operation, operation.arguments[static_cast<size_t>(answer.number)],
                             model);
    case Answer::Kind::Raised:
      return "error " + std::to_string(answer.number) + " ...";
    case Answer::Kind::Nothing:
      if (operation.step == Step::SelectSession) return std::to_string(operation.session);
      return "nil";
    case Answer::Kind::Integer:
      // The shell has other descriptors open.
      if (operation.step == Step::KvfGetFileDesc && answer.number > 2) return "...";
      return answer.numberUnknown ? "..." : showInteger(answer.number);
    case Answer::Kind::Text:
      // A text that names an object by its identifier.
      if (answer.bytesUnknown || answer.bytes.find("object 0x") != std::string::npos) return "...";
      return showBytes(answer.bytes);
    default:
      return showAnswer(answer);
  }
}

}  // namespace

std::string showBytes(std::string_view bytes) {
  bool plain = true;
  std::string body;
  for (const char byte : bytes) {
    plain = plain && isPrintable(static_cast<unsigned char>(byte));
    body += escaped(byte);
  }
  if (!plain) return "e'" + body + "'";
  std::string text = "'";
  for (const char byte : bytes) text += byte == '\'' ? "''" : std::string(1, byte);
  return text + "'";
}

std::string showAnswer(const Answer& answer) {
  switch (answer.kind) {
    case Answer::Kind::Nil:
      return "nil";
    case Answer::Kind::True:
      return "true";
    case Answer::Kind::False:
      return "false";
    case Answer::Kind::Integer:
      return showInteger(answer.number);
    case Answer::Kind::Character:
      return showCharacter(answer.number);
    case Answer::Kind::Text:
      return showBytes(answer.bytes);
    case Answer::Kind::Argument:
      return "argument " + std::to_string(answer.number);
    case Answer::Kind::Class:
      return "KvFile";
    case Answer::Kind::Raised:
      return "error " + std::to_string(answer.number);
    case Answer::Kind::Nothing:
      return "";
  }
  return "?";
}

std::string showOperation(const Operation& operation) {
  const std::string name = stepName(operation.step);
  if (operation.step == Step::SelectSession)
    return "Session select: " + std::to_string(operation.session);
  if (operation.step == Step::SetObject)
    return showValue(operation.arguments[0]) + " := " + showValue(operation.arguments[1]);
  std::string text = isClassSide(operation.step) ? "KvFile" : "";
  for (const Value& value : operation.arguments)
    text += (text.empty() ? "" : ", ") + showValue(value);
  const bool takesCount =
      operation.step == Step::KvFileRead || operation.step == Step::KvFileFetchErrorString;
  if (takesCount) text += ", " + showInteger(operation.count);
  if (takesCount || operation.step == Step::KvFileWrite || operation.step == Step::KvfStartup ||
      operation.step == Step::KvfShutdown)
    text += (text.empty() ? "" : ", ") + std::to_string(operation.session);
  return name + "(" + text + ")";
}

std::string transcriptStart(const std::vector<StartingFile>& files, int64 bufferSize) {
  std::string text = "\"For a module with a read buffer of " + std::to_string(bufferSize) +
                     " bytes. The standard files of a replay are others.\n";
  text +=
      "> w := KvFile new. KvfMkdir(KvFile, 'dir', nil). Session begin. Session select: "
      "1\naKvFile#1\nKvFile\n2\n1\n";
  for (const StartingFile& file : files) {
    text += "> KvfOpen(w, '" + file.name + "', 'w', false). KvfWrite(w, " + showBytes(file.bytes) +
            ", 1, " + std::to_string(file.bytes.size()) + "). KvfClose(w)\n...\n" +
            std::to_string(file.bytes.size()) + "\naKvFile#1\n";
  }
  text += "> KvfClientFinalize({w objectId})\ntrue\n";
  for (int i = 0; i < Model::FILES; ++i)
    text += "> f" + std::to_string(i) + " := KvFile new\naKvFile#" + std::to_string(i + 2) + "\n";
  return text +
         "> o0 := ''. o1 := ByteArray new. o2 := ''. o3 := '' beInvariant\n''\n#[]\n''\n''\n";
}

std::string transcriptStep(const Operation& operation, const Answer& expected, Model& model) {
  if (operation.step == Step::SetObject) {
    const int64 which = operation.arguments[0].number;
    const ByteObject& object = model.object(which);
    return "> o" + std::to_string(which) + " := " + showObject(object) +
           (object.invariant ? " beInvariant" : "") + "\n" + showObject(object) + "\n";
  }
  std::string statement = showOperation(operation);
  std::string answers = printed(operation, expected, model) + "\n";
  for (const Value& value : operation.arguments) {
    if (value.kind != Value::Kind::Object || expected.kind == Answer::Kind::Raised) continue;
    statement += ". o" + std::to_string(value.number);
    answers += showObject(model.object(value.number)) + "\n";
  }
  return "> " + statement + "\n" + answers;
}

}  // namespace model
