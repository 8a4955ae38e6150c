#!/usr/bin/env bash
# Long fuzzing runs of the fuzz/ targets (built with the fuzz preset), one target after another.
# Each run starts from the checked-in seeds plus what earlier runs kept, fuzzes for the given
# time, writes crashes, leaks and timeouts to OUT/artifacts/<target>/, and then merges the
# inputs it found into a minimised corpus, OUT/merged/<target>/ (copy it over fuzz/corpus/<target>
# by hand when new seeds should be checked in).
# Usage: scripts/fuzz-long.sh [-t SECONDS] [-o OUT] [target ...]
#   -t  seconds per target (default 600); -o output folder (default build/fuzz-long);
#   targets by name without the fuzz_ prefix (default: all).
# Exit status 1 when any target reported a crash, leak, timeout or sanitizer finding.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=600
out=build/fuzz-long
while getopts "t:o:" option; do
  case $option in
    t) seconds=$OPTARG ;;
    o) out=$OPTARG ;;
    *) echo "usage: $0 [-t SECONDS] [-o OUT] [target ...]" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))

bash scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for dir in fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

# AddressSanitizer keeps every distinct allocation stack for good. The parsers' recursion on
# deeply nested input makes new stacks all the time, even cut to ten frames: a ten-minute run of
# alarm_document grew to the 2 GB limit while its live heap stayed at 24 MB (with no stacks kept,
# the same run stays flat at 270 MB). So long runs keep no allocation stacks; to see where a
# reported leak was allocated, replay its artifact with ASAN_OPTIONS=malloc_context_size=30.
export ASAN_OPTIONS=detect_leaks=1:malloc_context_size=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
printf '%-22s %8s %10s %8s %8s %s\n' target seconds execs exec/s corpus result
for target in "${targets[@]}"; do
  binary=build/fuzz/fuzz/fuzz_$target
  seeds=fuzz/corpus/$target
  if [ ! -x "$binary" ] || [ ! -d "$seeds" ]; then
    echo "fuzz-long: no target $target" >&2
    exit 2
  fi
  work=$out/corpus/$target
  artifacts=$out/artifacts/$target
  merged=$out/merged/$target
  log=$out/logs/$target.log
  mkdir -p "$work" "$artifacts" "$out/logs"
  result=clean
  if ! "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -dict="fuzz/dict/$target.dict" -artifact_prefix="$artifacts/" \
      "$work" "$seeds" >"$log" 2>&1; then
    result="FINDING (see $log and $artifacts)"
    status=1
  fi
  rm -rf "$merged" && mkdir -p "$merged"
  "$binary" -merge=1 "$merged" "$seeds" "$work" >>"$log" 2>&1 || true
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  printf '%-22s %8s %10s %8s %8s %s\n' "$target" "$seconds" "${execs:-?}" "${rate:-?}" \
    "$(find "$merged" -type f | wc -l)" "$result"
done
exit $status
