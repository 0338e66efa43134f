# Shared by ./run and ./check: the packages, the build of one preset, and commands that take their time.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# What was compiled before is taken from there, where there is such a store.
if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER:-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
fi

# Every so many seconds a command that takes its time tells how far it is.
progress_seconds=20

# tell_progress STAGE LOG: tells it until the shell that began it has ended, or ends this one.
tell_progress() {
  local stage=$1 log=$2 began=$SECONDS far
  while sleep "$progress_seconds" >/dev/null 2>&1 && kill -0 $$ 2>/dev/null; do
    far=$(grep -aoE '^ *\[?[0-9]+/[0-9]+\]?' "$log" | tail -n 1 | tr -d ' []')
    printf '  %s: %s, %d s\n' "$stage" "${far:-begun}" $((SECONDS - began))
  done
}

# follow STAGE LOG COMMAND...: runs a command whose lines begin with how many of how many are done. Its
# output goes to LOG, and the progress to standard output. Answers what the command answers.
follow() {
  local stage=$1 log=$2 teller status=0
  shift 2
  : >"$log"
  tell_progress "$stage" "$log" &
  teller=$!
  "$@" >"$log" 2>&1 || status=$?
  { kill "$teller" && wait "$teller"; } 2>/dev/null || true
  return "$status"
}

# Installs what packages.txt names and this machine lacks. Without anything missing it needs neither
# a network nor rights.
install_packages() {
  local missing=() package
  while read -r package; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$package")
  done < <(sed 's/#.*//' "$root/packages.txt" | awk 'NF { print $1 }')
  ((${#missing[@]} == 0)) && return 0
  echo "Installing: ${missing[*]}"
  local as_root=()
  if ((EUID != 0)); then
    command -v sudo >/dev/null || {
      echo "These packages are missing, and installing them takes root or sudo." >&2
      return 1
    }
    as_root=(sudo)
  fi
  local log
  log=$(mktemp)
  if ! follow Installing "$log" "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q ||
    ! follow Installing "$log" "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -q -y --no-install-recommends "${missing[@]}"; then
    cat "$log" >&2
    echo "The packages could not be installed." >&2
    return 1
  fi
  rm -f "$log"
}

# build PRESET [TARGET...]: configures and builds. On a terminal the compiler's own progress is shown;
# else how far it is, and what went wrong.
build() {
  local preset=$1 log
  shift
  log=$(mktemp)
  echo "Building ($preset)"
  cd "$root"
  local command=(cmake --build --preset "$preset" ${1:+--target "$@"})
  if ! {
    cmake --preset "$preset" >"$log" 2>&1 &&
      if [[ -t 1 ]]; then "${command[@]}"; else follow "Building ($preset)" "$log" "${command[@]}"; fi
  }; then
    tail -n 60 "$log" >&2
    echo "The build failed." >&2
    return 1
  fi
  rm -f "$log"
}
