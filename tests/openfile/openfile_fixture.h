// What the tests of open files share: answers as text, files of known content, the calls that moved
// the host file, and child processes for what would disturb this one's standard streams.
#pragma once

#include <kvfile/platform/host.h>

#include "support/host_errors.h"
#include "support/module_fixture.h"
#include "support/returning_raise.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <utility>

namespace kvtest {

inline std::string show(OopType object);

inline std::string showArray(OopType array) {
  std::string text = "#(";
  for (const OopType element : kvhost::elementsOf(array))
    text += (text.size() > 2 ? " " : "") + show(element);
  return text + ")";
}

// An answer as a Smalltalk programmer writes it, for comparing answers of any kind.
inline std::string show(OopType object) {
  if (object == OOP_NIL) return "nil";
  if (object == OOP_TRUE) return "true";
  if (object == OOP_FALSE) return "false";
  if (oopIsSmallInteger(object)) return std::to_string(oopSmallIntegerValue(object));
  if (oopIsCharacter(object)) return "$" + std::to_string(oopCharacterCode(object));
  const OopType cls = kvhost::classOf(object);
  if (cls == OOP_CLASS_STRING) return "'" + kvhost::bytesOf(object) + "'";
  if (cls == kvhost::CLASS_SYMBOL) return "#" + kvhost::bytesOf(object);
  if (cls == kvhost::CLASS_KV_FILE) return "aKvFile";
  if (cls == OOP_CLASS_ARRAY) return showArray(object);
  return "a(n) " + std::string(kvhost::className(cls));
}

// `size` bytes that differ from their neighbours and from those one buffer further on; no newline.
inline std::string patternBytes(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + (i * 7 + i / 4096) % 89);
  return text;
}

// What a child process saw, one after the other, with blanks between. Operands of << are evaluated
// from left to right, unlike those of +.
class Transcript {
 public:
  Transcript& operator<<(std::string_view seen) {
    if (!text_.empty()) text_ += ' ';
    text_ += seen;
    return *this;
  }
  operator std::string() const { return text_; }

 private:
  std::string text_;
};

// Runs `body` in a child process and answers the text that it made. The child leaves without the
// exit handlers, so that what it leaves open or unflushed is its own affair.
inline std::string inChild(const std::function<std::string()>& body) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    const std::string text = body();
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t n = write(ends[1], text.data() + done, text.size() - done);
      if (n <= 0) _exit(3);
      done += static_cast<std::size_t>(n);
    }
    _exit(0);
  }
  close(ends[1]);
  std::string text;
  char piece[4096];
  for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<std::size_t>(n));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (status != 0) text += " [child ended with status " + std::to_string(status) + "]";
  return text;
}

class OpenFileTest : public ModuleTest {
 protected:
  void SetUp() override {
    kvhost::initialize();
    descriptorsBefore_ = openDescriptorCount();
    ModuleTest::SetUp();
  }

  void TearDown() override {
    letRaisesReturn(0);
    ModuleTest::TearDown();
    EXPECT_EQ(openDescriptorCount(), descriptorsBefore_) << "descriptors were left open";
  }

  // A file of this content, opened.
  OopType openWith(std::string_view content, std::string_view mode = "r",
                   std::string_view path = "data.bin") {
    writeFile(std::string(path), content);
    return openFile(path, mode);
  }

  // A gzip file of this content, opened.
  OopType openGzipWith(std::string_view content, std::string_view mode = "r",
                       const std::string& path = "data.gz") {
    writeGzip(path, content);
    return openFile(path, mode, true);
  }

  // ---- actions in short ----

  OopType read(OopType file, OopType bytesObject, int64 itemSize, int64 amount) {
    return call("KvfRead",
                {file, bytesObject, kvhost::newInteger(itemSize), kvhost::newInteger(amount)});
  }
  // Reads up to `amount` bytes; the bytes, or the answer as text where it is no count.
  std::string readBytes(OopType file, int64 amount) {
    const OopType into = str("");
    const OopType count = read(file, into, 1, amount);
    if (!oopIsSmallInteger(count) || oopSmallIntegerValue(count) < 0) return show(count);
    EXPECT_EQ(oopSmallIntegerValue(count), static_cast<int64>(bytes(into).size()));
    return bytes(into);
  }
  OopType write(OopType file, std::string_view text) {
    return call("KvfWrite",
                {file, str(text), smallInt(1), smallInt(static_cast<int64>(text.size()))});
  }
  OopType getLine(OopType file, OopType into = OOP_NIL, int64 start = 1, OopType eol = smallInt(10),
                  OopType prompt = OOP_NIL) {
    return call("KvfGetLine", {file, into, smallInt(start), eol, prompt});
  }
  OopType seek(OopType file, int64 position, int64 kind = 0) {
    return call("KvfSeek", {file, kvhost::newInteger(position), smallInt(kind)});
  }
  std::string position(OopType file) { return show(call("KvfPosition", {file})); }
  std::string atEnd(OopType file) { return show(call("KvfAtEnd", {file})); }
  std::string getC(OopType file) { return show(call("KvfGetC", {file})); }
  std::string errorCode(OopType file) { return show(call("KvfErrorCode", {file})); }
  std::string takeError(OopType file) { return show(call("KvfErrorString", {file})); }

  // ---- what the module asked of its platform ----

  static bool movesFile(const std::string& name) {
    static const std::vector<std::string> moving = {
        "lseek",   "HostReadFile_", "HostWriteFile_", "fflush",  "fsync",  "fclose",
        "gzread",  "gzwrite",       "gzputc",         "gzputs",  "gzseek", "gztell",
        "gzflush", "gzclose",       "gzgetc",         "gzungetc"};
    return std::find(moving.begin(), moving.end(), name) != moving.end();
  }

  // The calls on the host file while `body` ran, as "name=result".
  template <typename Body>
  std::vector<std::string> fileCallsDuring(Body body) {
    std::vector<std::string> made;
    for (const seam::Call& one : callsDuring(body))
      if (movesFile(one.name)) made.push_back(one.name + "=" + one.result);
    return made;
  }

  template <typename Body>
  std::vector<seam::Call> callsNamed(const std::string& name, Body body) {
    return callsOf(callsDuring(body), name);
  }

  // The file's record as the module sees it.
  static constexpr const char* past_end = "'attempt to read past end of file'";

 private:
  int descriptorsBefore_ = 0;
};

// What the interface's pending error becomes as the text of a record.
inline std::string interfaceErrorText(const KciErrSType& error) {
  return "Kestrova KCI error " + std::to_string(error.number) + ", message: " + error.message;
}

// The error that the interface itself reports for `failing`, called outside any action.
inline KciErrSType interfaceErrorOf(const std::function<void()>& failing) {
  KciErrSType error;
  error.initialize();
  failing();
  EXPECT_NE(KciErr(&error), 0) << "the interface did not report the failure";
  return error;
}

}  // namespace kvtest
