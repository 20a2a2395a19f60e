#!/usr/bin/env bash
# Runs every fuzz target, one after another, for SECONDS each (default 60), from its seeds and
# what earlier runs found. A target that fails is started again for the rest of its time, so one
# finding does not hide the next; each failing input is kept in build/fuzz/fuzz/artifacts/.
#   fuzz/run.sh [SECONDS] [TARGET...]     e.g. fuzz/run.sh 300 Url Base64
# Builds the fuzz preset first. Prints per target the inputs run and the failures found; exits
# non-zero when any target failed.
set -uo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true
cmake --preset fuzz >/dev/null && cmake --build --preset fuzz >/dev/null || exit 1

bin=build/fuzz/fuzz
artifacts=$bin/artifacts
mkdir -p "$artifacts"
if [ $# -gt 0 ]; then
  names=("$@")
else
  mapfile -t names < <(ls fuzz/*Fuzz.cpp | sed 's|fuzz/\(.*\)Fuzz.cpp|\1|')
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
status=0
for name in "${names[@]}"; do
  mkdir -p "$bin/corpus/$name"
  log=$bin/$name.log
  : >"$log"
  runs=0
  failures=0
  end=$((SECONDS + seconds))
  while [ $SECONDS -lt $end ] && [ $failures -lt 10 ]; do
    "$bin/zq_${name}Fuzz" -max_total_time=$((end - SECONDS)) -timeout=20 -rss_limit_mb=2048 -max_len=4096 \
      -print_final_stats=1 -artifact_prefix="$artifacts/$name-" "$bin/corpus/$name" "fuzz/corpus/$name" >"$log.part" 2>&1
    code=$?
    cat "$log.part" >>"$log"
    last=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log.part" | tail -1 | grep -o '[0-9]*$')
    runs=$((runs + ${last:-0}))
    [ $code -eq 0 ] && break
    failures=$((failures + 1))
    status=1
  done
  rm -f "$log.part"
  printf '%-16s %10d inputs  %d failures  (log: %s)\n' "$name" "$runs" "$failures" "$log"
done
exit $status
