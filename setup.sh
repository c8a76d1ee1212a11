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
install_missing() {
  local missing=""
  for p in "$@"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing="$missing $p"
  done
  if [ -n "$missing" ]; then
    SUDO=""
    [ "$(id -u)" -ne 0 ] && SUDO="sudo"
    echo "setup: installing$missing"
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq $missing >/dev/null
  fi
}
install_missing $PKGS

JOBS="$(nproc 2>/dev/null || echo 2)"
# Test programs for the thread sanitizer, each with its gtest filter (the
# environment tests of test_memory need a process each, as ctest gives them;
# the repeated runs of test_parallel crawl through the installed BLAS's
# buffer allocator under the sanitizer).
TSAN_TESTS="test_parallel:-*RepeatedRuns* test_ordering:* test_public_interface:* test_dense_factor:*
  test_memory:-CacheEnvironment.*"
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
    # The programs with the tests that run several threads, built with clang
    # and the LLVM OpenMP runtime, whose tool library shows the runtime's
    # synchronisation to the thread sanitizer.
    install_missing clang libomp-dev
    ARCHER="$(ls /usr/lib/llvm-*/lib/libarcher.so 2>/dev/null | sort -V | tail -1)"
    CC=clang CXX=clang++ cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DVEK_SANITIZE=thread >/dev/null
    cmake --build build-tsan -j"$JOBS" --target $(for t in $TSAN_TESTS; do echo "${t%%:*}"; done) >/dev/null
    export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1:ignore_noninstrumented_modules=1"
    export OMP_TOOL_LIBRARIES="$ARCHER"
    for t in $TSAN_TESTS; do
      echo "setup: ${t%%:*} under the thread sanitizer"
      ./build-tsan/tests/"${t%%:*}" --gtest_brief=1 --gtest_filter="${t#*:}"
    done ;;
  *) echo "usage: ./setup.sh [demo [vek-solve arguments] | test [ctest arguments] | sanitize]" >&2; exit 2 ;;
esac
