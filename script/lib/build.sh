# shellcheck shell=bash
# Sourced by the commands in script/. Both are quiet unless they fail:
#
#   build PRESET [TARGET...]    builds a preset of CMakePresets.json in build/PRESET
#   build_for PROCESSOR         builds the tool and its tests for a processor of cmake/processors in build/PROCESSOR

quietly() { # LOG COMMAND...
  mkdir -p "$(dirname "$1")"
  if ! "${@:2}" >>"$1" 2>&1; then
    cat "$1" >&2
    exit 1
  fi
}

build_in() { # DIRECTORY TARGETS CMAKE-OPTION...
  local log=$1/build.log
  rm -f "$log"
  printf 'Building %s\n' "$1"
  quietly "$log" cmake -B "$1" "${@:3}"
  # shellcheck disable=SC2086 # several words
  quietly "$log" cmake --build "$1" --parallel "$(nproc)" --target $2
}

build() {
  local targets=${*:2}
  build_in "build/$1" "${targets:-all}" --preset "$1"
}

build_for() {
  build_in "build/$1" all --preset release --toolchain cmake/cross.cmake -D NEBULARK_PROCESSOR="$1" -D BUILD_TESTING=ON
}
