#!/usr/bin/env bash
# Installs what is missing (Debian packages), builds libvekutils, and then
#   ./setup.sh demo [vek-solve arguments]   runs the command-line solver
#   ./setup.sh test                         runs the whole test suite (C++,
#                                           install and Python tests)
#   ./setup.sh sanitize                     builds the suite with the address
#                                           and undefined-behaviour sanitizers
#                                           and runs it, then the thread tests
#                                           under the thread sanitizer
set -euo pipefail
cd "$(dirname "$0")"

PKGS="cmake g++ make libmetis-dev libopenblas-dev liblapack-dev libgtest-dev pkg-config"
# The Python module and its tests (Debian's interpreter, /usr/bin/python3).
PKGS="$PKGS python3 python3-dev python3-numpy python3-scipy python3-pytest pybind11-dev"
missing=""
for p in $PKGS; do
  dpkg -s "$p" >/dev/null 2>&1 || missing="$missing $p"
done
if [ -n "$missing" ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  echo "setup: installing$missing"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq $missing >/dev/null
fi

JOBS="$(nproc 2>/dev/null || echo 2)"
TSAN_PROGRAMS="test_parallel test_threads test_sweep_frame test_ordering test_memory test_public_interface"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$JOBS" >/dev/null

mode="${1:-demo}"
[ $# -gt 0 ] && shift
case "$mode" in
  demo) exec ./build/vek-solve "$@" ;;
  test) cd build && exec ctest --output-on-failure -j"$JOBS" "$@" ;;
  sanitize)
    cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEK_SANITIZE=address >/dev/null
    cmake --build build-asan -j"$JOBS" >/dev/null
    (cd build-asan && ctest --output-on-failure -j"$JOBS" "$@")
    # The programs with the tests that run several threads.
    cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEK_SANITIZE=thread >/dev/null
    cmake --build build-tsan -j"$JOBS" --target $TSAN_PROGRAMS >/dev/null
    export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1"
    for t in $TSAN_PROGRAMS; do
      echo "setup: $t under the thread sanitizer"
      ./build-tsan/tests/$t --gtest_brief=1
    done ;;
  *) echo "usage: ./setup.sh [demo [vek-solve arguments] | test [ctest arguments] | sanitize]" >&2; exit 2 ;;
esac
