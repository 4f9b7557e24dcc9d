# shellcheck shell=bash
# Sourced by the commands in script/. need GROUP... installs what script/packages lists for these groups and this machine
# lacks, and says what before it does. A processor is a group too: its compiler. Where nothing is missing it does not call
# the package manager.

packages_of() {
  local groups=" $* " group names
  while read -r group names; do
    case $groups in *" $group "*) printf '%s ' "$names" ;; esac
  done < <(grep -v '^#' script/packages && awk '!/^#/ { print $1, $2 }' cmake/processors)
}

is_installed() {
  [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo -- "$@"; fi
}

need() {
  local name missing=()
  for name in $(packages_of "$@"); do
    is_installed "$name" || missing+=("$name")
  done
  [ ${#missing[@]} -eq 0 ] && return

  printf 'Installing what is missing: %s\n' "${missing[*]}"
  local log
  log=$(mktemp)
  if ! { as_root apt-get update && as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install --yes --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"
}
