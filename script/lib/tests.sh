# shellcheck shell=bash
# Sourced by script/test and script/coverage, behind packages.sh: start_tests RESULTS [NAME], then runs of tests, each
# of those whose name contains NAME, and then finish_tests, which fails where one of them did, or where none ran.

start_tests() { # RESULTS [NAME]
  results=$1 name=${2-} status=0
  rm -rf "$results"
  mkdir -p "$results"
}

finish_tests() {
  /usr/bin/python3 script/lib/summary.py "$results"/*.xml || status=1
  return "$status"
}

compiled_tests() { # PROGRAM RESULT [EMULATOR]
  ${3-} "build/$1" --gtest_brief=1 --gtest_filter="*$name*" --gtest_output="xml:$results/$2.xml" || status=1
}

# Some tests type a password on a pseudo-terminal. A chroot may have /dev without /dev/pts; then one is mounted for them,
# seen by them alone.
with_terminals() {
  if [ -e /dev/pts/ptmx ]; then
    as_root "$@"
  else
    as_root unshare --mount --propagation unchanged sh -c \
      'mount --make-private /dev && mount -t devpts -o newinstance,ptmxmode=0666 devpts /dev/pts && exec "$@"' sh "$@"
  fi
}

# The tests make mount namespaces and become other users, for which they must be root.
program_tests() { # BINARY RESULT [PYTEST-OPTION...]
  with_terminals env NEBULARK_CTL="$PWD/$1" NEBULARK_EMULATOR="${NEBULARK_EMULATOR-}" TEST_NAME="$name" ${CI:+CI="$CI"} PYTHONDONTWRITEBYTECODE=1 \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider -n "$(nproc)" \
    --junitxml="$results/$2.xml" "${@:3}" tests/program ||
    { [ $? -eq 5 ] && [ -n "$name" ]; } || status=1 # 5: none of that name
}

# Those that run the tool, for a build in which it is another one; the others are about what stands around it.
tests_of_the_tool() { # BINARY RESULT
  program_tests "$1" "$2" --ignore-glob='*/test_'{binary,completions,documentation,page,sandbox}.py
}
