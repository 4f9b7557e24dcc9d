# shellcheck shell=bash
# Sourced by the commands in script/. build PRESET configures and builds one preset of CMakePresets.json in
# build/PRESET, quietly unless it fails.

build() {
  local log
  mkdir -p "build/$1"
  log=build/$1/build.log
  printf 'Building %s\n' "build/$1"
  if ! { cmake --preset "$1" && cmake --build --preset "$1" --parallel "$(nproc)"; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
  fi
}
