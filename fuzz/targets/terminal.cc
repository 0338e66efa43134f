// Standard input on a terminal: the line reader answers what the input says, lines whole or in parts,
// ends, interrupts and failures, and the module's reads must deliver these bytes and no others, in their
// order. The reader and the question whether there is a terminal are replaced here.
#include <kvfile/kvfile.h>
#include <kvfile/kvhost.h>

#include "support/actions.h"
#include "support/target.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

// What the terminal does.
class Typist {
 public:
  void begin(fuzz::Input* input) {
    input_ = input;
    pending_.clear();
    typed_.clear();
    prompts_.clear();
    onlyLines_ = true;
    calls_ = 0;
  }

  // As LrSupReadLine; also what UnixIoFgets_ answers.
  int read(char* buffer, size_t size) {
    fuzz::expect(size >= 2, "no room was given for a line");
    std::memset(buffer, '\xEE', size);  // a room that is smaller than was said is overrun
    ++calls_;
    if (pending_.empty()) {
      const size_t choice = input_->empty() ? 0 : input_->byte();
      if (input_->empty() || choice < 8) return end(-1, 0);
      if (choice < 16) return end(-2, EINTR);
      if (choice < 24) return end(1, EIO);
      makeLine(choice);
    }
    const size_t length = std::min(pending_.size(), size - 1);
    pending_.copy(buffer, length);
    buffer[length] = '\0';
    typed_ += pending_.substr(0, length);
    pending_.erase(0, length);
    return 0;
  }

  void prompted(const char* prompt) { prompts_.emplace_back(prompt); }

  const std::string& typed() const { return typed_; }
  bool onlyLines() const { return onlyLines_; }
  const std::vector<std::string>& prompts() const { return prompts_; }
  size_t calls() const { return calls_; }

 private:
  int end(int status, int error) {
    onlyLines_ = onlyLines_ && status == -1;
    errno = error;
    return status;
  }

  // Lines of every length around that of the buffer; without NUL, which ends what is read.
  void makeLine(size_t choice) {
    if (choice % 4 == 0) pending_.assign(input_->below(100), 'x');
    pending_ += fuzz::textOf(input_->bytes(input_->below(24)));
    for (char& each : pending_)
      if (each == '\0' || each == '\n') each = '.';
    if (choice < 250) pending_ += '\n';
    if (pending_.empty()) pending_ = ".";
  }

  fuzz::Input* input_ = nullptr;
  std::string pending_;
  std::string typed_;
  std::vector<std::string> prompts_;
  bool onlyLines_ = true;
  size_t calls_ = 0;
};

Typist typist;

}  // namespace

// The linker sends the module's calls of these here.
extern "C" int __wrap_isatty(int descriptor) { return descriptor == 0 ? 1 : 0; }
extern "C" int __wrap_LrSupReadLine(LineReaderStateType* /*state*/, FILE* /*stream*/, char* buf,
                                    size_t size, const char* prompt, BoolType /*flag*/) {
  typist.prompted(prompt);
  return typist.read(buf, size);
}
extern "C" int __wrap_UnixIoFgets_(char* buf, size_t size, FILE* /*stream*/) {
  return typist.read(buf, size);
}
extern "C" void __wrap_LineReadShutdown(LineReaderStateType* /*state*/) {}

namespace {

class Reading {
 public:
  Reading() : file_(kvhost::newKvFile()) { kvhost::addRoot(&file_); }
  ~Reading() { kvhost::removeRoot(&file_); }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  void run(fuzz::Input* input) {
    const std::array making = {file_, kvhost::newInteger(0)};
    fuzz::expect(fuzz::call("KvfCreateStdFile", making) != OOP_NIL, "no standard input");
    for (int i = 0; i < 60 && !input->empty(); ++i) step(input);
    // What is still buffered; behind it stands /dev/null.
    for (int i = 0; i < 10; ++i) readForC();
    check();
  }

 private:
  void step(fuzz::Input* input) {
    const size_t choice = input->byte();
    const std::array onlyFile = {file_};
    switch (choice % 8) {
      case 0:
        return getByte();
      case 1:
        return readItems(1 + input->below(40));
      case 2:
        fuzz::call("KvfAtEnd", onlyFile);
        return;
      case 3:
        fuzz::call("KvfPosition", onlyFile);
        return;
      case 4:
        return readForC();
      default:
        return getLine(choice & 0x80 ? '\n' : '.', (choice & 0x40) != 0);
    }
  }

  void getByte() {
    const std::array arguments = {file_};
    const OopType answer = fuzz::call("KvfGetC", arguments);
    if (oopIsCharacter(answer)) got_ += static_cast<char>(oopCharacterCode(answer));
  }

  void readItems(size_t count) {
    const OopType object = kvhost::newString("");
    const std::array arguments = {file_, object, kvhost::newInteger(1),
                                  kvhost::newInteger(static_cast<int64>(count))};
    fuzz::call("KvfRead", arguments);
    got_ += kvhost::bytesOf(object);
  }

  void readForC() {
    std::array<ByteType, 4096> buffer;
    const int64 count = KvFileRead(file_, buffer.data(), buffer.size(), 0);
    if (count > 0) got_ += fuzz::textOf({buffer.data(), static_cast<size_t>(count)});
  }

  void getLine(char end, bool prompted) {
    static constexpr const char* PROMPT = "say: ";
    const size_t promptsBefore = typist.prompts().size();
    const size_t typedBefore = typist.typed().size();
    const OopType into = kvhost::newString("");
    const std::array arguments = {file_, into, kvhost::newInteger(1), kvhost::newInteger(end),
                                  prompted ? kvhost::newString(PROMPT) : OOP_NIL};
    fuzz::call("KvfGetLine", arguments);
    // Into an object that was there, so that what came before a failure is seen.
    got_ += kvhost::bytesOf(into);
    if (typist.prompts().size() == promptsBefore) return;
    fuzz::expect(typist.prompts()[promptsBefore] == (prompted ? PROMPT : ""), "another prompt");
    fuzz::expect(typist.typed().size() >= typedBefore, "bytes were taken back");
  }

  // In their order, each once; what a failed or interrupted read had begun may be lost.
  void check() const {
    const std::string& typed = typist.typed();
    if (typist.onlyLines() && got_ != typed) fuzz::fail("typed: " + typed + "\nread: " + got_);
    size_t at = 0;
    for (const char each : got_) {
      at = typed.find(each, at);
      if (at == std::string::npos) fuzz::fail("typed: " + typed + "\nread: " + got_);
      ++at;
    }
  }

  OopType file_;
  std::string got_;
};

void begin() {
  fuzz::silence(STDIN_FILENO);
  fuzz::silence(STDOUT_FILENO);
  kvhost::initialize();
  KvfUserActionInit();
  KvfStartup(kvhost::sessionBegin());
  static char state;
  void* address = &state;
  KvFileSetLineReader(static_cast<LineReaderStateType*>(address));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool begun = (begin(), true);
  (void)begun;
  const size_t half = size / 2;
  fuzz::Input typing({data, half});
  fuzz::Input reading({data + half, size - half});
  typist.begin(&typing);
  Reading().run(&reading);
  const OopType kvFile = kvhost::CLASS_KV_FILE;
  kvhost::callAction("KvfCloseAll", &kvFile, 1);
  if (kvhost::objectsSinceCollection() > 20000) kvhost::collectGarbage();
  return 0;
}
