// A root directory of one's own while an input runs, so that no path that a fuzzer makes leads to what
// is not its own. Takes the right to change the root: root has it, and where user namespaces are
// allowed everybody does.
#pragma once

namespace fuzz {

class Jail {
 public:
  // Enters: the scratch directory becomes "/", which is current, with these in it and nothing else:
  // "f", a file of ten bytes; "d", an empty directory; "l", a link to "f"; "e", a link to nothing.
  Jail();
  // Leaves; the current directory is the scratch directory again.
  ~Jail();
  Jail(const Jail&) = delete;
  Jail& operator=(const Jail&) = delete;

  // False where the right is missing: the target can then do nothing.
  static bool isPossible();
};

}  // namespace fuzz
