#!/usr/bin/env bash
# check-tidy.sh BUILD: runs clang-tidy over the sources of a configured build, tests excepted.
set -euo pipefail
build=$(cd "$1" && pwd)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
echo "Linting"

# Some sources are compiled several times, for the libraries that they belong to; once is looked at.
database=$(mktemp -d)
log=$(mktemp)
trap 'rm -rf "$database" "$log"' EXIT
python3 - "$build/compile_commands.json" "$database/compile_commands.json" <<'PYTHON'
import json, sys
commands = json.load(open(sys.argv[1]))
json.dump(list({c["file"]: c for c in reversed(commands)}.values()), open(sys.argv[2], "w"))
PYTHON

# lint BUILD COUNT NUMBER FILE: tells what is found in the file, and then that it is done.
lint() {
  local status=0
  clang-tidy-14 -p "$1" --quiet --extra-arg=-Wno-unknown-warning-option \
    --extra-arg=-Wno-ignored-optimization-argument "$4" 2>/dev/null || status=$?
  echo "$3/$2"
  return "$status"
}
export -f lint

lint_all() {
  local files
  mapfile -t files < <(find src standalone tools -name '*.cc' | sort)
  for ((i = 0; i < ${#files[@]}; i++)); do printf '%s\n' "$((i + 1))" "${files[i]}"; done |
    xargs -d '\n' -P "$(nproc)" -n 2 bash -c 'lint "$@"' lint "$database" "${#files[@]}"
}

follow Linting "$log" lint_all || {
  grep -vE '^[0-9]+/[0-9]+$' "$log" >&2
  echo "Linting failed." >&2
  exit 1
}
