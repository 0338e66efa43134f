#include "every_fault/contents.h"

#include "every_fault/compressed.h"

#include <algorithm>

namespace every_fault {

namespace {

std::string bytesOf(OopType oop) {
  const Object* object = findObject(oop);
  return object == nullptr ? std::string() : object->bytes;
}

int64 integerOf(OopType oop) { return oopIsSmallInteger(oop) ? oopSmallIntegerValue(oop) : 0; }

// The decimal text of bytes, broken as KvfPrintBytes breaks it.
std::string decimalText(const std::string& bytes) {
  if (bytes.empty()) return " ";
  constexpr size_t LAST_COLUMN = 200;
  std::string text;
  size_t column = 0;
  for (const char byte : bytes) {
    if (column > LAST_COLUMN) {
      text += '\n';
      column = 0;
    }
    const std::string field = std::to_string(static_cast<unsigned char>(byte)) + " ";
    text += field;
    column += field.size();
  }
  return text;
}

// What the step is to write.
std::string expectedOf(const Step& step, const std::vector<OopType>& arguments) {
  if (step.name == "KvfWrite") {
    const std::string bytes = bytesOf(arguments[1]);
    const auto wanted = static_cast<int64>(static_cast<uint64_t>(integerOf(arguments[2])) *
                                           static_cast<uint64_t>(integerOf(arguments[3])));
    const auto size = static_cast<int64>(bytes.size());
    return bytes.substr(0, static_cast<size_t>(std::clamp<int64>(wanted, 0, size)));
  }
  if (step.name == "KvfPutC") {
    const OopType c = arguments[1];
    const int64 code = oopIsCharacter(c) ? static_cast<int64>(oopCharacterCode(c)) : integerOf(c);
    return std::string(1, static_cast<char>(code));
  }
  if (step.name == "KvfPrintBytes") return decimalText(bytesOf(arguments[1]));
  if (step.name == "KvFileWrite") return bytesOf(arguments[1]);
  return "";
}

bool isWrite(const Step& step) {
  return step.name == "KvfWrite" || step.name == "KvfPutC" || step.name == "KvfPrintBytes" ||
         step.name == "KvFileWrite";
}

// Where a fetch gave less than there was the rest is 0: never what was in memory before.
bool isPrefix(const std::string& part, const std::string& whole, bool orZeros) {
  if (part.size() > whole.size()) return false;
  for (size_t i = 0; i < part.size(); ++i) {
    if (part[i] != whole[i] && !(orZeros && part[i] == '\0')) return false;
  }
  return true;
}

bool isSubsequence(const std::string& part, const std::string& whole) {
  size_t at = 0;
  for (const char c : part) {
    at = whole.find(c, at);
    if (at == std::string::npos) return false;
    ++at;
  }
  return true;
}

bool isStandard(int file) { return file >= 0 && w.files[file].name.starts_with("std"); }

// Whether `text` is what is left of the pieces: each in its order, whole; only what may be missing is
// missing; and the last one may be cut, with all behind it, where zlib failed.
bool consistsOf(const std::string& text, const std::vector<Followed::Piece>& pieces) {
  size_t at = 0;
  for (const auto& [bytes, mayBeMissing, orZeros] : pieces) {
    size_t common = 0;
    while (common < bytes.size() && at + common < text.size() &&
           (bytes[common] == text[at + common] || (orZeros && text[at + common] == '\0'))) {
      ++common;
    }
    if (at + common == text.size()) return true;
    if (common == bytes.size()) {
      at += common;
    } else if (!mayBeMissing) {
      return false;
    }
  }
  return at == text.size();
}

}  // namespace

Followed& Contents::of(OopType file) {
  const OopType index = (file - variable(VAR_F)) >> 8;
  return followed_[index < 3 ? index : 0];
}

void Contents::begin() {
  forget();
  allowedLeaks_ = 0;
}

void Contents::forget() {
  for (Followed& followed : followed_) followed = Followed();
}

void Contents::before(const Step&, const std::vector<OopType>&, OopType file) {
  w.written.clear();
  w.firedInStep = 0;
  w.fetchCut = false;
  sizeBefore_ = 0;
  if (file != OOP_NIL && of(file).file >= 0) sizeBefore_ = w.files[of(file).file].bytes.size();
}

std::string Contents::after(const Step& step, const std::vector<OopType>& arguments, OopType file,
                            const Answer& answer) {
  // An open that could not be registered leaves the file open: for want of a session, or of an
  // object to register it under.
  const bool noSession = answer.raised && answer.raisedNumber == 4100;
  const bool opened = step.name == "KvfOpen" && (noSession || (file == OOP_NIL && !answer.raised));
  if (opened) ++allowedLeaks_;
  Followed none;
  Followed* followed = file == OOP_NIL ? &none : &of(file);
  const std::string expected = isWrite(step) ? expectedOf(step, arguments) : "";
  std::string complaint = checkWrites(step, expected, followed, answer);
  if (file != OOP_NIL) {
    const std::string second = follow(step, arguments, followed, answer, expected);
    if (complaint.empty()) complaint = second;
  }
  return complaint;
}

// Every byte that reached a plain file in this step.
std::string Contents::checkWrites(const Step& step, const std::string& expected, Followed* followed,
                                  const Answer& answer) {
  std::string bytes;
  int64 end = -1;
  bool pieceIsPrefix = true;
  for (const Written& write : w.written) {
    if (write.byZlib) continue;
    if (isStandard(write.file) && (!isWrite(step) || followed->file != write.file)) {
      // A prompt, or the newline of a close; the golden file has the text.
      if (write.file != fileNamed("stdout")) return "bytes on standard input or error";
      continue;
    }
    if (!isWrite(step)) return "bytes were written to " + w.files[write.file].name;
    if (write.file != followed->file) return "bytes went to " + w.files[write.file].name;
    if (end >= 0 && write.offset != end) return "writes with a gap between them";
    const auto before = static_cast<int64>(sizeBefore_);
    if (end < 0 && followed->appends && write.offset != before) return "an append inside the file";
    // Printing goes on where the host stands, behind what was read ahead.
    const bool printsAhead = step.name == "KvfPrintBytes" && followed->readAhead;
    if (end < 0 && !followed->appends && followed->positionKnown && !printsAhead &&
        write.offset != followed->position) {
      return "bytes at " + std::to_string(write.offset) + " instead of " +
             std::to_string(followed->position);
    }
    end = write.offset + static_cast<int64>(write.bytes.size());
    bytes += write.bytes;
    pieceIsPrefix = pieceIsPrefix && isPrefix(write.bytes, expected, false);
  }
  if (!isWrite(step) || followed->compressed) return "";
  bool good = isPrefix(bytes, expected, w.fetchCut);
  // Each write of the C function is given the buffer's start.
  if (!good && step.name == "KvFileWrite") good = w.firedInStep > 0 && pieceIsPrefix;
  // A number whose write failed or was cut is lost, and what follows it is written.
  if (!good && step.name == "KvfPrintBytes")
    good = w.firedInStep > 0 && isSubsequence(bytes, expected);
  if (!good) return "other bytes than were given: " + quoted(bytes);
  if (step.name == "KvfWrite" && oopIsSmallInteger(answer.oop) && !answer.raised &&
      oopSmallIntegerValue(answer.oop) != static_cast<int64>(bytes.size())) {
    return "another count than was written: " + std::to_string(bytes.size());
  }
  if (step.name == "KvFileWrite" && answer.number == TRUE && !answer.raised &&
      bytes.size() < expected.size()) {
    return "success, and bytes are missing";
  }
  return "";
}

std::string Contents::followOpen(const Step& step, Followed* followed, const Answer& answer) {
  if (!oopIsSmallInteger(answer.oop) || answer.raised) return "";
  // Reuse closes what was open: all that was given to it has to be there.
  const std::string complaint = compressedFile(*followed);
  *followed = Followed();
  followed->isOpen = true;
  followed->positionKnown = true;
  if (step.name == "KvfCreateStdFile") {
    followed->file = static_cast<int>(integerOf(step.arguments[1].oop));
    followed->positionKnown = false;
    return complaint;
  }
  const std::string& mode = step.arguments[2].bytes;
  followed->compressed = step.arguments[3].oop == OOP_TRUE;
  followed->appends = mode[0] == 'a';
  followed->writes = mode[0] != 'r' || mode.find('+') != std::string::npos;
  followed->file = w.lastOpened;
  if (followed->compressed && followed->writes && followed->appends && followed->file >= 0) {
    // What was there stays in front.
    std::string old;
    expand(w.files[followed->file].bytes, &old);
    followed->pieces.push_back({old, false, false});
  }
  return complaint;
}

std::string Contents::follow(const Step& step, const std::vector<OopType>& arguments,
                             Followed* followed, const Answer& answer,
                             const std::string& expected) {
  const bool fired = w.firedInStep > 0;
  if (step.name == "KvfOpen" || step.name == "KvfCreateStdFile") {
    return followOpen(step, followed, answer);
  }
  if (isWrite(step) && followed->compressed && !answer.raised) {
    const bool accepted = step.name == "KvFileWrite" ? answer.number == TRUE
                          : step.name == "KvfWrite"  ? oopIsSmallInteger(answer.oop)
                                                     : answer.oop != OOP_NIL;
    std::string given = expected;
    if (step.name == "KvfWrite" && accepted) {
      const auto taken = static_cast<size_t>(integerOf(answer.oop));
      followed->pieces.push_back({given.substr(0, taken), w.fired > 0, w.fetchCut});
      given.erase(0, taken);
      if (!fired) return "";
    }
    // Each number is a write of its own, and may be lost alone.
    const bool numbers = step.name == "KvfPrintBytes";
    while (numbers && given.size() > 1 && (accepted || fired)) {
      const size_t end = given.find_first_of(" \n") + 1;
      followed->pieces.push_back({given.substr(0, end), w.fired > 0, false});
      given.erase(0, end);
    }
    if (accepted || fired) followed->pieces.push_back({given, w.fired > 0, w.fetchCut});
  }
  followed->readAhead = step.name == "KvfRead" || step.name == "KvfGetLine" ||
                        step.name == "KvfGetC" || step.name == "KvfAtEnd";
  // Only where nothing failed does an answer tell where the file stands.
  const bool integer = oopIsSmallInteger(answer.oop) && !answer.raised && answer.number == 0;
  const int64 count = integerOf(answer.oop);
  if (step.name == "KvfSeek" && integer) {
    followed->positionKnown = !fired;
    followed->position = count;
  } else if (fired || answer.raised) {
    followed->positionKnown = false;
  } else if (step.name == "KvfRead" || step.name == "KvfWrite") {
    if (integer && count >= 0) followed->position += count;
  } else if (step.name == "KvfPutC" || (step.name == "KvfGetC" && oopIsCharacter(answer.oop))) {
    followed->position += 1;
  } else if (step.name == "KvfGetLine" && arguments[1] == OOP_NIL && answer.oop != OOP_NIL) {
    followed->position += static_cast<int64>(bytesOf(answer.oop).size());
  } else if (step.name != "KvfPosition" && step.name != "KvfAtEnd" && step.name != "KvfIsOpen" &&
             !step.name.starts_with("KvfError")) {
    followed->positionKnown = false;
  }
  return "";
}

std::string Contents::compressedFile(const Followed& followed) const {
  if (!followed.compressed || !followed.writes || followed.file < 0) return "";
  std::string text;
  const bool complete = expand(w.files[followed.file].bytes, &text);
  if (!consistsOf(text, followed.pieces)) {
    return "the gzip file holds other bytes than were given: " + quoted(text);
  }
  if (w.fired > 0) return "";
  size_t given = 0;
  for (const Followed::Piece& piece : followed.pieces) given += piece.bytes.size();
  return complete && text.size() == given ? "" : "bytes are missing in the gzip file";
}

std::string Contents::compressedFiles(bool gap) {
  std::string complaint;
  for (const Followed& followed : followed_) {
    if (complaint.empty() && !gap) complaint = compressedFile(followed);
  }
  return complaint;
}

}  // namespace every_fault
