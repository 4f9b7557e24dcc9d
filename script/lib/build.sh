# shellcheck shell=bash
# Sourced by the commands in script/. build PRESET configures and builds one preset of CMakePresets.json in build/PRESET,
# build_for PROCESSOR the tool and its tests for one processor of cmake/processors in build/PROCESSOR; both quietly, unless
# they fail.

build_in() { # DIRECTORY CMAKE-OPTION...
  local log=$1/build.log
  mkdir -p "$1"
  printf 'Building %s\n' "$1"
  if ! { cmake -B "$1" "${@:2}" && cmake --build "$1" --parallel "$(nproc)"; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
  fi
}

build() {
  build_in "build/$1" --preset "$1"
}

build_for() {
  build_in "build/$1" --preset release --toolchain cmake/cross.cmake -D NEBULARK_PROCESSOR="$1" -D BUILD_TESTING=ON
}
