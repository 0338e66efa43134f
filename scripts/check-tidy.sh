#!/usr/bin/env bash
# check-tidy.sh BUILD: runs clang-tidy over the sources of a configured build, tests excepted.
set -euo pipefail
build=$(cd "$1" && pwd)
cd "$(dirname "${BASH_SOURCE[0]}")/.."
echo "Linting"
find src standalone tools -name '*.cc' | sort |
  xargs -P "$(nproc)" -n 6 clang-tidy-14 -p "$build" --quiet --extra-arg=-Wno-unknown-warning-option 2>/dev/null
