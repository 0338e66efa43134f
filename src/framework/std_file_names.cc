// The test for names of standard files, made by every action on a path.
#include "framework/std_file_names.h"

#include <cstring>

namespace kvf {

BoolType isStdFile(const char* name) {
  // Nearly every name ends here, at its first byte.
  if (name[0] != 's' || name[1] != 't' || name[2] != 'd') return FALSE;
  return strcmp(name, "stdin") == 0 || strcmp(name, "stdout") == 0 || strcmp(name, "stderr") == 0;
}

BoolType isStdFile(const KvfPath* aPath) { return aPath->isUtf16 ? FALSE : isStdFile(aPath->path); }

}  // namespace kvf
