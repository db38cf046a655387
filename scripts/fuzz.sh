#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz/) in build-fuzz/ and runs each for a while on top of its
# checked-in seeds: scripts/fuzz.sh [SECONDS [TARGET...]] (60 s each and every target by
# default). The seeds are only read; inputs the fuzzer finds go to build-fuzz/fuzz-run/<target>/.
# Prints the executions per second and the coverage each target reached, and the path of every
# input that crashed one; exits non-zero when any did.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

seconds=${1:-60}
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for seeds in fuzz/corpus/*/; do
    targets+=("$(basename "$seeds")")
  done
fi

bash scripts/install-deps.sh fuzz
build="build-fuzz"
CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZQ_FUZZ=ON \
  -DZQ_BUILD_BENCH=OFF > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j "$(nproc)" --target fuzz_targets

# The dictionary of each target's input language, if it has one.
dictionary() {
  case $1 in
    digest_*|telmi_auth) echo fuzz/dict/digest.dict ;;
    api_json|media_*|management_reply) echo fuzz/dict/json.dict ;;
    rtsp_session) echo fuzz/dict/rtsp.dict ;;
    admission_request) echo fuzz/dict/http.dict ;;
    device_address) echo fuzz/dict/address.dict ;;
  esac
}

crashed=0
printf '%-18s %10s %8s %8s  %s\n' target 'exec/s' edges features result
for target in "${targets[@]}"; do
  run=$build/fuzz-run/$target
  rm -rf "$run"
  mkdir -p "$run/corpus" "$run/crashes" "$run/home"
  args=(-max_total_time="$seconds" -timeout=10 -print_final_stats=1 -artifact_prefix="$run/crashes/")
  dict=$(dictionary "$target")
  [ -z "$dict" ] || args+=(-dict="$dict")
  result=clean
  if ! ZQ_GATEWAY_HOME=$root/$run/home "$build/fuzz/fuzz_$target" "${args[@]}" "$run/corpus" "fuzz/corpus/$target" \
      > "$run/log" 2>&1; then
    result="CRASH: $(sed -n 's/.*Test unit written to //p' "$run/log" | head -1) (log: $run/log)"
    crashed=1
  fi
  # The last status line holds the coverage reached; the final stats the speed.
  status=$(grep -E '^#[0-9]+' "$run/log" | tail -1)
  edges=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<< "$status")
  features=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<< "$status")
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$run/log")
  printf '%-18s %10s %8s %8s  %s\n' "$target" "${speed:--}" "${edges:--}" "${features:--}" "$result"
done
exit $crashed
