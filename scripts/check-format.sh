#!/usr/bin/env bash
# Fails where a source file is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
echo "Checking the format"
find include src standalone tools tests bench fuzz -name '*.cc' -o -name '*.c' -o -name '*.h' | sort |
  xargs clang-format-14 --dry-run --Werror
