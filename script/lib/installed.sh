# shellcheck shell=bash
# Sourced by script/install and script/uninstall.

# What the package manager has installed is its own to replace and to remove.
refuse_packaged() {
  if [ "$(dpkg-query --show --showformat='${db:Status-Status}' nebulark-ctl 2>/dev/null)" = installed ]; then
    printf '%s: the package nebulark-ctl is installed, and these are its files\n' "$0" >&2
    printf '  To remove it:  sudo apt-get remove nebulark-ctl\n' >&2
    exit 1
  fi
}
