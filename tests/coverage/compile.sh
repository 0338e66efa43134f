#!/usr/bin/env bash
# compile.sh COMPILER ARGUMENT...: fails where the compiler says anything. A decision that is not
# measured is a warning of clang that its -Werror passes over.
set -uo pipefail
said=$("$@" 2>&1)
status=$?
[[ -z $said ]] || printf '%s\n' "$said" >&2
[[ $status -ne 0 || -z $said ]] && exit "$status"
exit 1
