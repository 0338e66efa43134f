# Shared by ./run and ./check: the packages, and the build of one preset.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

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
  if ! {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q &&
      "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "${missing[@]}"
  } >"$log" 2>&1; then
    cat "$log" >&2
    echo "The packages could not be installed." >&2
    return 1
  fi
  rm -f "$log"
}

# build PRESET [TARGET...]: configures and builds. On a terminal the progress is shown; else only what
# went wrong.
build() {
  local preset=$1 log
  shift
  log=$(mktemp)
  echo "Building ($preset)"
  if ! (
    cd "$root"
    cmake --preset "$preset" >"$log" 2>&1 || exit 1
    command=(cmake --build --preset "$preset" ${1:+--target "$@"})
    if [[ -t 1 ]]; then "${command[@]}"; else "${command[@]}" >"$log" 2>&1; fi
  ); then
    tail -n 60 "$log" >&2
    echo "The build failed." >&2
    return 1
  fi
  rm -f "$log"
}
