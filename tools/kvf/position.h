// A place in a source text.
#pragma once

namespace shell {

// Both count from 1, columns in bytes.
struct Position {
  int line = 1;
  int column = 1;
};

}  // namespace shell
