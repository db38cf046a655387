#!/usr/bin/env bash
# Lints the shell scripts (shellcheck) and checks the C++ formatting (clang-format), then builds and runs every test: all tests in a plain
# build, again under AddressSanitizer+UndefinedBehaviorSanitizer, the concurrency tests under
# ThreadSanitizer, and a short pass of every fuzz target over its seeds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

bash scripts/install-deps.sh

echo "== shellcheck: scripts and CI"
shellcheck -x -P SCRIPTDIR scripts/*.sh .ci/run

echo "== clang-format: every C++ file as .clang-format wants it"
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format-14 --dry-run --Werror

# configure_and_build DIR [TARGET] [CMAKE OPTIONS...]: builds everything, or only TARGET.
configure_and_build() {
  local dir=$1 target=$2
  shift 2
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" > "$dir.configure.log" 2>&1 \
    || { cat "$dir.configure.log"; return 1; }
  # shellcheck disable=SC2086 # the target list splits into several --target names
  cmake --build "$dir" -j "$(nproc)" ${target:+--target $target}
}

echo "== plain build: all tests"
configure_and_build build ""
ctest --test-dir build --output-on-failure -j 2

echo "== AddressSanitizer + UndefinedBehaviorSanitizer: unit and integration tests"
configure_and_build build-asan "" -DZQ_ASAN_UBSAN=ON
ctest --test-dir build-asan -LE 'install|e2e|chaos' --output-on-failure -j 2

echo "== ThreadSanitizer: concurrency tests"
configure_and_build build-tsan "concurrency_test frame_test" -DZQ_TSAN=ON
ctest --test-dir build-tsan -L unit -R Concurren --output-on-failure -j 2

echo "== libFuzzer targets: 20 s each over the checked-in seeds"
bash scripts/fuzz.sh 20
