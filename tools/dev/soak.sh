#!/usr/bin/env bash
# The soak run of signals and deferred calls under a sanitizer preset.
#   tools/dev/soak.sh [SECONDS] [PRESET]    defaults: 600 seconds, tsan (asan checks leaks too)
set -euo pipefail
cd "$(dirname "$0")/../.."

seconds=${1:-600}
preset=${2:-tsan}
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target zq_soak
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ZQ_SOAK_SECONDS=$seconds ctest --test-dir "build/$preset" -L soak --output-on-failure
