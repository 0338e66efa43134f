#!/usr/bin/env bash
# check-tidy.sh BUILD: runs clang-tidy over the sources of a configured build, tests excepted.
set -euo pipefail
build=$(cd "$1" && pwd)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
echo "Linting"

# lint BUILD COUNT NUMBER FILE: tells what is found in the file, and then that it is done.
lint() {
  local status=0
  clang-tidy-14 -p "$1" --quiet --extra-arg=-Wno-unknown-warning-option "$4" 2>/dev/null || status=$?
  echo "$3/$2"
  return "$status"
}
export -f lint

lint_all() {
  local files
  mapfile -t files < <(find src standalone tools -name '*.cc' | sort)
  for ((i = 0; i < ${#files[@]}; i++)); do printf '%s\n' "$((i + 1))" "${files[i]}"; done |
    xargs -d '\n' -P "$(nproc)" -n 2 bash -c 'lint "$@"' lint "$build" "${#files[@]}"
}

log=$(mktemp)
trap 'rm -f "$log"' EXIT
follow Linting "$log" lint_all || {
  grep -vE '^[0-9]+/[0-9]+$' "$log" >&2
  echo "Linting failed." >&2
  exit 1
}
