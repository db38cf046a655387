#!/usr/bin/env bash
# Builds the benchmarks in Release (build-bench/), runs them and prints every figure beside its
# reference, measured in the same run, and its target. Not part of the tests or CI.
#
#   scripts/bench.sh [--in-process-only]
#
# The in-process figures (bench/, Google Benchmark) need nothing running; the end-to-end ones
# (bench/e2e.py) start a whole gateway in a temporary home and need wrk, which this script
# installs from bench/packages.txt when it is missing. Exit status 0 when every target is met.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${ZQ_BENCH_BUILD_DIR:-$root/build-bench}"
e2e=1
case "${1:-}" in
  --in-process-only) e2e=0 ;;
  "") ;;
  *) echo "usage: $0 [--in-process-only]" >&2; exit 2 ;;
esac

missing=()
while read -r package; do
  [ -n "$package" ] || continue
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done < "$root/bench/packages.txt"
if [ "$e2e" -eq 1 ] && [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DZQ_BUILD_BENCH=ON > /dev/null
targets=(zq_bench zqmediad)
[ "$e2e" -eq 0 ] || targets+=(zqgatewayd zqdevsim)
cmake --build "$build" -j"$(nproc)" --target "${targets[@]}"

results="$build/bench-results"
mkdir -p "$results"
rm -f "$results"/*.json
"$build/bench/zq_bench" --benchmark_out="$results/in-process.json" --benchmark_out_format=json
if [ "$e2e" -eq 1 ]; then
  python3 "$root/bench/e2e.py" --build "$build" --out "$results/e2e.json" ||
    echo "end-to-end figures not measured (see the error above)" >&2
fi
reports=("$results/in-process.json")
[ ! -f "$results/e2e.json" ] || reports+=("$results/e2e.json")
python3 "$root/bench/report.py" "${reports[@]}"
