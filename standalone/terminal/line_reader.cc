#include "terminal/line_reader.h"

#include <kvfile/kvhost.h>

#include "hostlayer/held_input.h"
#include "hostlayer/interrupt.h"
#include "terminal/completion.h"
#include "terminal/history_file.h"
#include "terminal/terminal_scope.h"

#include <histedit.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

namespace {

// How the input of a line ended other than by a line.
enum class InputEnd { None, EndOfInput, Interrupted, Failed };

constexpr int NO_KEY = -1;

}  // namespace

struct LineReaderStateType {
  explicit LineReaderStateType(const char* historyPath) : history(historyPath) {}
  ~LineReaderStateType() {
    if (editor != nullptr) el_end(editor);
  }
  LineReaderStateType(const LineReaderStateType&) = delete;
  LineReaderStateType& operator=(const LineReaderStateType&) = delete;

  kvhost::HistoryFile history;
  EditLine* editor = nullptr;
  kvhost::Completer completer = nullptr;
  FILE* input = stdin;
  bool onTerminal = false;  // as the editor sees it
  bool isEditing = false;
  int interruptKey = NO_KEY;
  size_t typedAhead = 0;  // unread bytes that came before the editor had the terminal
  std::string prompt;
  std::string line;  // the one that was read last
  InputEnd inputEnd = InputEnd::None;
  int inputErrno = 0;
};

namespace {

constexpr wchar_t REPLACEMENT_CHARACTER = 0xFFFD;
constexpr char BACKSPACE = '\b';
constexpr char REDISPLAY = '\x1d';  // Ctrl-], bound below
constexpr char CTRL_D = '\x04';

LineReaderStateType* stateOf(EditLine* editor) {
  void* state = nullptr;
  el_get(editor, EL_CLIENTDATA, &state);
  return static_cast<LineReaderStateType*>(state);
}

char* promptOf(EditLine* editor) { return stateOf(editor)->prompt.data(); }

// ---- input ----

// Draws the line anew after the terminal was resized, or was another program's for a while.
void followTerminal(EditLine* editor) {
  const bool continued = kvhost::TerminalSignalScope::takeContinued();
  const bool resized = kvhost::TerminalSignalScope::takeResized();
  if (!stateOf(editor)->isEditing) return;
  if (resized) el_resize(editor);
  if (continued) {
    el_set(editor, EL_PREP_TERM, 0);
    el_set(editor, EL_PREP_TERM, 1);
  }
  el_set(editor, EL_REFRESH);
}

// True when the input is worth another try after it delivered nothing; else `inputEnd` tells why.
bool mayReadOn(LineReaderStateType* state) {
  const int errNum = errno;
  const bool ended = feof(state->input) != 0;
  clearerr(state->input);
  if (ended) {
    state->inputEnd = InputEnd::EndOfInput;
  } else if (errNum == EINTR && kvhost::takeInterrupt()) {
    state->inputEnd = InputEnd::Interrupted;
  } else if (errNum == EINTR) {
    followTerminal(state->editor);
    return true;
  } else if (errNum == EAGAIN) {
    struct pollfd waiting = {fileno(state->input), POLLIN, 0};
    poll(&waiting, 1, -1);
    return true;
  } else {
    state->inputEnd = InputEnd::Failed;
  }
  state->inputErrno = errNum;
  return false;
}

size_t bufferedBytes(const FILE* stream) {
  return static_cast<size_t>(stream->_IO_read_end - stream->_IO_read_ptr);
}

// Waits for input; false with errno when that failed or a signal is noted. The signals are let in
// only by the wait itself, so that one just before it is not missed.
bool waitForInput(FILE* stream) {
  sigset_t noted;
  sigset_t former;
  sigemptyset(&noted);
  for (const int signal : {SIGINT, SIGWINCH, SIGCONT}) sigaddset(&noted, signal);
  pthread_sigmask(SIG_BLOCK, &noted, &former);
  struct pollfd waiting = {fileno(stream), POLLIN, 0};
  errno = EINTR;
  const bool isNoted = kvhost::interruptIsNoted() || kvhost::TerminalSignalScope::isNoted();
  const bool ready = !isNoted && ppoll(&waiting, 1, nullptr, &former) >= 0;
  const int errNum = errno;
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  errno = errNum;
  return ready;
}

// A key as it was typed. What a terminal keeps for a Ctrl-D while it edits lines by itself is a NUL
// for whoever reads byte by byte.
int typedKey(LineReaderStateType* state, int c) {
  if (state->typedAhead == 0) return c;
  --state->typedAhead;
  return c == '\0' ? CTRL_D : c;
}

// The next byte of the input, or -1 with `inputEnd` set. It goes through the stream, so that what
// was typed ahead is shared with whoever else reads it.
int nextByte(LineReaderStateType* state) {
  for (;;) {
    if (bufferedBytes(state->input) == 0 && !waitForInput(state->input)) {
      if (!mayReadOn(state)) return -1;
      continue;
    }
    const int c = std::fgetc(state->input);
    if (c != EOF && c == state->interruptKey) {
      state->inputEnd = InputEnd::Interrupted;
      return -1;
    }
    if (c != EOF) return typedKey(state, c);
    if (!mayReadOn(state)) return -1;
  }
}

// ---- completion ----

size_t terminalWidth() {
  struct winsize window = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0) return 80;
  return window.ws_col;
}

// The keys that turn `typed`, before the cursor, into `text`.
std::string keysToReplace(const std::string& typed, const std::string& text) {
  if (text.starts_with(typed)) return text.substr(typed.size());
  const size_t characters = std::mbstowcs(nullptr, typed.c_str(), 0);
  if (characters == static_cast<size_t>(-1)) return {};
  return std::string(characters, BACKSPACE) + text;
}

// The keys that complete the word at the cursor, as if the user had typed them; none where there is
// nothing to complete. Shows the choices where there are several.
std::string completionKeys(EditLine* editor, kvhost::Completer completer) {
  const LineInfo* info = el_line(editor);
  const std::string line(info->buffer, info->lastchar);
  const auto cursor = static_cast<size_t>(info->cursor - info->buffer);
  size_t wordStart = cursor;
  const std::vector<std::string> words = completer(line, cursor, &wordStart);
  if (words.empty()) return {};
  wordStart = std::min(wordStart, cursor);
  const std::string typed = line.substr(wordStart, cursor - wordStart);
  const std::string common = kvhost::commonStart(words);
  if (words.size() == 1 || common.size() > typed.size()) return keysToReplace(typed, common);
  std::fprintf(stdout, "\n%s", kvhost::listInColumns(words, terminalWidth()).c_str());
  std::fflush(stdout);
  return {REDISPLAY};
}

// Puts the completion in the place of a Tab: its first character at `*out`, the others behind it in
// the editor's input. False when there is none. (The library has commands of one's own for this, but
// never frees their names.)
bool typeCompletion(EditLine* editor, kvhost::Completer completer, wchar_t* out) {
  const std::string keys = completionKeys(editor, completer);
  const int first = std::mbtowc(out, keys.c_str(), keys.size());
  if (first <= 0) return false;
  if (keys.size() > static_cast<size_t>(first)) el_push(editor, keys.c_str() + first);
  return true;
}

// The editor's source of characters: 1 with a character at `*out`, 0 at the end of the input, -1
// for a failure. Bytes that are no character show as the replacement character. The library's own
// source would retry the first interrupted read, and so swallow a Ctrl-C.
int nextCharacter(EditLine* editor, wchar_t* out) {
  LineReaderStateType* state = stateOf(editor);
  std::mbstate_t conversion = {};
  for (;;) {
    const int c = nextByte(state);
    if (c < 0) return state->inputEnd == InputEnd::EndOfInput ? 0 : -1;
    const char byte = static_cast<char>(c);
    const size_t used = std::mbrtowc(out, &byte, 1, &conversion);
    if (used == static_cast<size_t>(-2)) continue;
    if (used == static_cast<size_t>(-1)) *out = REPLACEMENT_CHARACTER;
    const bool completes = *out == L'\t' && state->completer != nullptr;
    if (!completes || typeCompletion(editor, state->completer, out)) return 1;
    el_beep(editor);
  }
}

// ---- a line ----

bool setUp(LineReaderStateType* state, const char* programName) {
  if (state->history.handle() == nullptr) return false;
  EditLine* editor = el_init(programName, stdin, stdout, stderr);
  state->editor = editor;
  if (editor == nullptr) return false;
  state->onTerminal = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
  el_set(editor, EL_CLIENTDATA, state);
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_PROMPT, promptOf);
  el_set(editor, EL_GETCFN, nextCharacter);
  el_set(editor, EL_HIST, history, state->history.handle());
  // Without the interrupt key (see interruptKeyOf), and with a line end that is the same byte
  // whenever it is typed: it may be read by somebody else.
  el_set(editor, EL_SETTY, "-d", "-intr", "intr=", "-inlcr", nullptr);
  el_set(editor, EL_BIND, "^I", "ed-insert", nullptr);
  el_set(editor, EL_BIND, "^]", "ed-redisplay", nullptr);
  el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
  el_source(editor, nullptr);  // the user's own bindings, from ~/.editrc
  return true;
}

// The key that interrupts, Ctrl-C as a rule. While a line is edited it is an ordinary character that
// ends the input: as a signal it would overtake the characters before it and behind it, and nobody
// could tell which of them belong to the line that it clears.
int interruptKeyOf(FILE* stream) {
  struct termios settings = {};
  if (tcgetattr(fileno(stream), &settings) != 0 || (settings.c_lflag & ISIG) == 0) return NO_KEY;
  const cc_t key = settings.c_cc[VINTR];
  return key == _POSIX_VDISABLE ? NO_KEY : key;
}

size_t waitingBytes(FILE* stream) {
  int inTerminal = 0;
  if (ioctl(fileno(stream), FIONREAD, &inTerminal) != 0) inTerminal = 0;
  return bufferedBytes(stream) + static_cast<size_t>(inTerminal);
}

// False where there is no terminal to show the line on, or where the user wants no editing: the
// terminal itself edits the line then.
bool wantsEditing(LineReaderStateType* state) {
  int wanted = 0;
  return state->onTerminal && el_get(state->editor, EL_EDITMODE, &wanted) == 0 && wanted != 0;
}

void prepare(LineReaderStateType* state, FILE* stream, const char* prompt) {
  state->prompt = prompt != nullptr ? prompt : "";
  state->inputEnd = InputEnd::None;
  if (stream != state->input) {
    state->input = stream;
    el_set(state->editor, EL_SETFP, 0, stream);
  }
  state->isEditing = wantsEditing(state);
  std::fflush(stdout);
}

// Takes the terminal over.
void prepareEditor(LineReaderStateType* state) {
  state->interruptKey = interruptKeyOf(state->input);
  el_resize(state->editor);
  // The editor would do this after it has shown the prompt: a Ctrl-D typed in between is lost.
  el_set(state->editor, EL_PREP_TERM, 1);
  state->typedAhead = waitingBytes(state->input);
}

// The answer for an input that ended without a line. The cursor of the editor is left on a new line.
int answerEnd(const LineReaderStateType* state, InputEnd end, int errNum) {
  if (state->isEditing) std::fputs(end == InputEnd::Interrupted ? "^C\n" : "\n", stdout);
  std::fflush(stdout);
  if (end == InputEnd::Interrupted) {
    errno = EINTR;
    return -2;
  }
  errno = errNum;
  return end == InputEnd::Failed ? 1 : -1;
}

void remember(LineReaderStateType* state) {
  std::string line = state->line;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  state->history.add(line);
}

// Both leave a line in `line`, or nothing with `inputEnd` set.
void editLine(LineReaderStateType* state) {
  prepareEditor(state);
  int length = 0;
  const char* line = el_gets(state->editor, &length);
  if (line != nullptr && length > 0) state->line = line;
}

// The bytes are taken as they are: nobody has to show them.
void takeLine(LineReaderStateType* state) {
  state->interruptKey = NO_KEY;
  state->typedAhead = 0;
  std::fputs(state->prompt.c_str(), stdout);
  std::fflush(stdout);
  int c = 0;
  while (c != '\n' && (c = nextByte(state)) >= 0) state->line += static_cast<char>(c);
  if (state->inputEnd == InputEnd::Interrupted) state->line.clear();
}

// Reads a line into `line`; the answer is that of LrSupReadLine.
int readLine(LineReaderStateType* state, FILE* stream, const char* prompt, bool toHistory) {
  const kvhost::CharacterSetScope characterSet;
  const kvhost::TerminalSignalScope signals;
  prepare(state, stream, prompt);
  if (kvhost::takeInterrupt()) return answerEnd(state, InputEnd::Interrupted, EINTR);
  if (state->isEditing) {
    editLine(state);
  } else {
    takeLine(state);
  }
  if (state->line.empty()) return answerEnd(state, state->inputEnd, state->inputErrno);
  if (toHistory) remember(state);
  return 0;
}

}  // namespace

namespace kvhost {

LineReaderStateType* lineReaderCreate(const char* programName, const char* historyPath) {
  const CharacterSetScope characterSet;
  auto state = std::make_unique<LineReaderStateType>(historyPath != nullptr ? historyPath : "");
  return setUp(state.get(), programName) ? state.release() : nullptr;
}

void lineReaderSetCompleter(LineReaderStateType* state, Completer completer) {
  if (state != nullptr) state->completer = completer;
}

}  // namespace kvhost

extern "C" {

int LrSupReadLine(LineReaderStateType* state, FILE* stream, char* buf, size_t size,
                  const char* prompt, BoolType flag) {
  if (state == nullptr || stream == nullptr || size == 0) {
    errno = EINVAL;
    return 1;
  }
  size_t length = 0;
  int status = 0;
  if (!kvhost::takeHeldInput(stream, buf, size - 1, &length)) {
    status = readLine(state, stream, prompt, flag != 0);
    length = state->line.copy(buf, size - 1);
    kvhost::holdInput(stream, state->line.substr(length));
    state->line.clear();
  }
  buf[length] = '\0';
  return status;
}

void LineReadShutdown(LineReaderStateType* state) {
  if (state == nullptr) return;
  const kvhost::CharacterSetScope characterSet;
  delete state;
}

}  // extern "C"
