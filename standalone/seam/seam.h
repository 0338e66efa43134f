// The seam between the module and its platform. A program that links the seamed build of the module
// (libkvfile_seamed.a, the same objects with every call to the outside redirected) passes each of
// the module's calls through here: calls of the C interface, the host layer, zlib and the C
// library. Each is numbered, can be recorded with its arguments and result, and can be made to
// fail. Off, it costs one branch a call; a program linked with libkvfile.a does not hold it at all.
//
// The state is per thread, so that sessions on other threads are not disturbed.
#pragma once

#include <kvfile/platform/kcicmn.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace seam {

// One call that the module made.
struct Call {
  int64_t number = 0;                  // from 1, since start() or clear()
  std::string name;                    // "lseek"
  std::vector<std::string> arguments;  // "7", "SEEK_CUR"; texts quoted and cut; "ptr" or "null"
  std::string result;       // "4096", "null", "nil"; empty where there is none; "jumped" where the
                            // call did not come back
  int errnoAfter = 0;       // 0 unless the result tells of a failure
  int errorAfter = 0;       // the error of the C interface that the call left pending; 0 for none
  std::string errorText;    // of that error
  int64_t nanoseconds = 0;  // time within the call
  bool injected = false;    // a fault made this result
};

// What to do to a call.
struct Fault {
  std::string function;  // only calls of this name count; empty: all that `kind` can befall count
  int64_t at = 1;        // the at-th such call, from 1 ...
  bool forever = false;  // ... and every later one
  enum class Kind {
    Error,   // not made, but for fclose and gzclose: answers its failure value, with errno `value`
    Short,   // reads and writes: made, for at most `value` bytes
    Result,  // not made, but for those: answers `value`; where it is an address, 0 for null
    Interrupt,  // not made: answers -2
    Raise,      // not made: an error `value` of the C interface, by jump or pending as a real one
    NoMemory    // not made: answers null, errno ENOMEM
  } kind = Kind::Error;
  int64_t value = 0;
};

// Recording.
void start();                      // from now on calls are numbered and recorded
std::vector<Call> stop();          // answers them, and records no more
void clear();                      // drops what was recorded and numbers from 1 again
const std::vector<Call>& calls();  // recorded so far

// Called with each call as soon as it has ended, recorded or not; null: none. A call that was left
// by a jump is known to have ended when the next one begins. What `kvf --trace` prints with.
void setListener(std::function<void(const Call&)> listener);

// The schedule of faults, counted from the moment it is set. Several may be set.
void addFault(const Fault& fault);
void clearFaults();
int64_t faultsFired();  // since the first of this schedule was added

// What became of each fault of the schedule, in the order in which they were added: the calls that
// counted for it, and those that it befell.
struct FaultCount {
  Fault fault;
  int64_t seen;
  int64_t fired;
};
std::vector<FaultCount> faultCounts();

// Reads "lseek:2:EIO", "HostReadFile_:1+:short=7", "*:5:raise=2101", "UtlMalloc:3:nomem", ...
// False with a message for a text that is no fault. The full grammar stands in docs/kvf.md.
bool parseFault(const std::string& text, Fault* fault, std::string* message);

// Every function that a fault can name with the actions that can befall it, one a line.
std::string faultListing();

// One line of a trace: "  12  lseek(7, 0, SEEK_CUR) = 4096  0.2 us".
std::string formatCall(const Call& call, bool withTime);

// The functions that the seam knows, for completion and for the test that it knows them all.
const std::vector<std::string>& functionNames();

}  // namespace seam
