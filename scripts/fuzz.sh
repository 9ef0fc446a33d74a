#!/usr/bin/env bash
# The fuzz targets of tests/fuzz, one per parser of outside input: builds them
# with clang under AddressSanitizer and UBSan in $BUILD/fuzz, then runs each
# from its committed seeds (and the corpus it grew here before) for a bounded
# time, two at a time. Any crash, leak, time-out (10 s for one input), memory
# blow-up or sanitizer report fails the run; the input that caused it is kept
# in $BUILD/fuzz/artifacts and the target's output in $BUILD/fuzz/logs.
#
#   bash scripts/fuzz.sh                   # every target, LINKRIG_FUZZ_SECONDS (15) each
#   bash scripts/fuzz.sh --campaign 600    # a long campaign: 600 s per target
#   bash scripts/fuzz.sh route_table ...   # only these targets
source "$(dirname "$0")/common.sh"
bash "$ROOT/scripts/install-deps.sh" fuzz

SECONDS_EACH=${LINKRIG_FUZZ_SECONDS:-15}
if [ "${1:-}" = --campaign ]; then
  SECONDS_EACH=${2:?"--campaign needs the seconds per target"}
  shift 2
fi
FUZZ_BUILD=$BUILD/fuzz
TARGETS=("$@")
if [ ${#TARGETS[@]} -eq 0 ]; then
  for source in "$ROOT"/tests/fuzz/*_fuzz.cpp; do
    name=$(basename "$source" .cpp)
    TARGETS+=("${name%_fuzz}")
  done
fi

configure_and_build "$FUZZ_BUILD" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DLINKRIG_FUZZ=ON -DBUILD_TESTING=OFF
mkdir -p "$FUZZ_BUILD/artifacts" "$FUZZ_BUILD/logs"
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

# The targets' own diagnostics (standard error) are dropped: libFuzzer and the
# sanitizers still report. Run a target on an artifact to see everything.
run_target() {
  local name=$1 log=$FUZZ_BUILD/logs/$1.log
  mkdir -p "$FUZZ_BUILD/corpus/$name"
  if "$FUZZ_BUILD/tests/fuzz/${name}_fuzz" -max_total_time="$SECONDS_EACH" -timeout=10 \
      -rss_limit_mb=2048 -close_fd_mask=2 -print_final_stats=1 \
      -artifact_prefix="$FUZZ_BUILD/artifacts/$name-" \
      "$FUZZ_BUILD/corpus/$name" "$ROOT/tests/fuzz/corpus/$name" >"$log" 2>&1; then
    sed -n 's/^#\([0-9]*\)\s*DONE\s*cov: \([0-9]*\) ft: \([0-9]*\) corp: \([0-9]*\).*/\1 \2 \3 \4/p' "$log" |
      awk -v n="$name" '{ printf "fuzz: %-20s %11d runs  cov %5d  ft %6d  corpus %5d\n", n, $1, $2, $3, $4 }'
  else
    echo "fuzz: $name FAILED (log: $log)" >&2
    tail -n 40 "$log" >&2
    return 1
  fi
}
export -f run_target
export FUZZ_BUILD SECONDS_EACH ROOT

printf '%s\n' "${TARGETS[@]}" | xargs -P "${LINKRIG_FUZZ_JOBS:-2}" -I{} bash -c 'run_target {}'
