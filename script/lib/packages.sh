# shellcheck shell=bash
# Sourced by the commands in script/. need GROUP... names and installs the missing packages of these groups in
# script/packages. A processor is a group too: its compiler. Does not call the package manager if nothing is missing.
# Without apt-get, names what is missing and fails.

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo -- "$@"; fi
}

rows() {
  grep '^[a-z]' script/packages
  awk '/^[a-z]/ { print $1, $2, $3 "-g++" }' cmake/processors
}

is_there() { # SIGN
  case $1 in
  python:*) /usr/bin/python3 -c "import ${1#python:}" ;;
  /*) bash -O globstar -c 'compgen -G "$1"' sh "$1" ;;
  *) type -P "$1" ;;
  esac </dev/null >/dev/null 2>&1
}

install_packages() { # PACKAGE...
  local log
  log=$(mktemp)
  printf 'Installing missing packages: %s\n' "$*"
  if ! { as_root apt-get update && as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install --yes --no-install-recommends "$@"; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"
}

need() {
  local groups=" $* " group package signs sign packages=() missing=()
  while read -r group package signs; do
    [[ $groups == *" $group "* ]] || continue
    for sign in $signs; do
      is_there "$sign" || { packages+=("$package") && missing+=("$sign") && break; }
    done
  done < <(rows)
  [ ${#missing[@]} -eq 0 ] && return
  if ! type -P apt-get >/dev/null; then
    printf '%s: missing, with no apt-get to install them: %s\n' "$0" "${missing[*]}" >&2
    exit 1
  fi
  install_packages "${packages[@]}"
}
