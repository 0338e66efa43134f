// What may stand in the files. Each write that a step makes is held against what the step was given:
// right behind the last byte that Smalltalk knows of, a prefix of the bytes, and nothing else.
#pragma once

#include "every_fault/script.h"

#include <string>
#include <vector>

namespace every_fault {

// What is known of one file object, followed from the answers alone.
struct Followed {
  bool isOpen = false;
  bool compressed = false;
  bool writes = false;
  bool appends = false;
  bool positionKnown = false;
  bool readAhead = false;  // the last step was a read
  int64 position = 0;
  int file = -1;
  // What was given to a compressed file, and whether a part of it may be missing.
  struct Piece {
    std::string bytes;
    bool mayBeMissing;
    bool orZeros;  // a fetch gave less than there was
  };
  std::vector<Piece> pieces;
};

class Contents {
 public:
  void begin();
  // The files are as at the begin again.
  void forget();
  // Before and after a step; afterwards a complaint, or nothing.
  void before(const Step& step, const std::vector<OopType>& arguments, OopType file);
  std::string after(const Step& step, const std::vector<OopType>& arguments, OopType file,
                    const Answer& answer);
  // Compressed files that were written, after all were closed.
  std::string compressedFiles(bool gap);
  int allowedLeaks() const { return allowedLeaks_; }

 private:
  Followed& of(OopType file);
  std::string checkWrites(const Step& step, const std::string& expected, Followed* followed,
                          const Answer& answer);
  std::string follow(const Step& step, const std::vector<OopType>& arguments, Followed* followed,
                     const Answer& answer, const std::string& expected);
  std::string followOpen(const Step& step, Followed* followed, const Answer& answer);
  std::string compressedFile(const Followed& followed) const;

  Followed followed_[3];
  int allowedLeaks_ = 0;
  size_t sizeBefore_ = 0;
};

}  // namespace every_fault
