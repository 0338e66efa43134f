// The log: a stream that the embedding program chooses for the whole process.
#include <kvfile/kvhost.h>

#include <atomic>

namespace {

std::atomic<FILE*> logStream = nullptr;

// A caller sets the flag around its own log calls and restores it, so each thread has its own: two
// threads that log at the same time do not see each other's.
constinit thread_local int logFlush = 0;

void writeToLog(const char* text) {
  FILE* chosen = logStream.load(std::memory_order_acquire);
  FILE* stream = chosen != nullptr ? chosen : stderr;
  std::fputs(text, stream);
  if (logFlush != 0) std::fflush(stream);
}

}  // namespace

namespace kvhost {

void setLogStream(FILE* stream) { logStream.store(stream, std::memory_order_release); }

}  // namespace kvhost

extern "C" {

KciLoggerType KciGetLogger(void) { return writeToLog; }

int KciGetLoggerFlush(void) { return logFlush; }

void KciSetLoggerFlush(int flush) { logFlush = flush != 0 ? 1 : 0; }

}  // extern "C"
