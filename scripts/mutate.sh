#!/usr/bin/env bash
# Mutation check of the unit tests: applies each fault of tests/mutation/faults.txt alone to a
# scratch copy of the sources, rebuilds only the unit tests and runs them, and lists the faults
# that no unit test catches. Not part of `make test`; it takes a while.
#   scripts/mutate.sh [FAULTS_FILE] [PATTERN]   (PATTERN: start at the first fault holding it)
# Set ZQ_MUTATION_DIR to choose the scratch folder (default build-mutation/).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
faults=${1:-$root/tests/mutation/faults.txt}
from=${2:-}
work=${ZQ_MUTATION_DIR:-$root/build-mutation}
copy=$work/tree
rm -rf "$copy"
mkdir -p "$copy"
tar -C "$root" --exclude='./build*' --exclude=./.git --exclude=./out -cf - . | tar -C "$copy" -xf -
# An interrupted run may have left objects of a fault behind: every source counts as changed,
# and ccache gives back the ones it has seen.
find "$copy/src" "$copy/tests" -type f -exec touch {} +

bash "$root/scripts/install-deps.sh"
# A restored file compiles from ccache's copy, so each fault costs little more than its own build.
export CCACHE_DIR=$work/ccache CCACHE_BASEDIR=$copy
cmake -S "$copy" -B "$work/build" -DCMAKE_BUILD_TYPE=Debug -DZQ_BUILD_BENCH=OFF -DZQ_UNIT_TESTS_IN_ONE=ON \
  -DCMAKE_CXX_COMPILER_LAUNCHER=ccache > "$work/configure.log" 2>&1 || { cat "$work/configure.log"; exit 1; }
# The platform contract on the fake does not link the library: no fault can reach it.
targets=(unit_tests)
build() { cmake --build "$work/build" -j 2 --target "${targets[@]}" > "$work/build.log" 2>&1; }
run() { ctest --test-dir "$work/build" -L unit -E 'exported_symbols|^fake\.' -j 2 --timeout 120 --stop-on-failure \
          > "$work/ctest.log" 2>&1; }
build || { tail -30 "$work/build.log"; exit 1; }
run || { echo "the unit tests fail without any fault; see $work/ctest.log"; exit 1; }

# Each fault line: FILE<TAB>TEXT<TAB>REPLACEMENT[<TAB>equivalent: REASON]; TEXT occurs exactly once.
apply() {
  python3 - "$copy/$1" "$2" "$3" <<'PY'
import sys
def unescape(text):
    return text.replace('\\n', '\n').replace('\\t', '\t')
path, old, new = sys.argv[1], unescape(sys.argv[2]), unescape(sys.argv[3])
text = open(path).read()
if text.count(old) != 1:
    sys.exit(f"{path}: expected one occurrence of {old!r}, found {text.count(old)}")
open(path, 'w').write(text.replace(old, new))
PY
}

caught=0 survived=0 equivalent=0 unbuilt=0 total=0
survivors=()
while IFS=$'\t' read -r file old new note; do
  [[ -z "$file" || "$file" == \#* ]] && continue
  # Resume: skip the faults before the first one that holds the pattern.
  [[ -n "$from" && "$file$old" != *"$from"* ]] && continue
  from=
  total=$((total + 1))
  label="$file: '$old' -> '$new'"
  apply "$file" "$old" "$new" || { echo "BAD FAULT $label"; exit 1; }
  if ! build; then
    verdict=unbuilt
  elif run; then
    verdict=survived
  else
    verdict=caught
  fi
  cp "$root/$file" "$copy/$file"
  if [[ $verdict == unbuilt ]]; then
    unbuilt=$((unbuilt + 1))
    echo "NOT BUILT  $label (a fault must compile)"
  elif [[ $verdict == survived && $note == equivalent:* ]]; then
    equivalent=$((equivalent + 1))
    echo "EQUIVALENT $label ($note)"
  elif [[ $verdict == survived ]]; then
    survived=$((survived + 1))
    survivors+=("$label")
    echo "SURVIVED   $label"
  else
    caught=$((caught + 1))
    echo "CAUGHT     $label"
  fi
done < "$faults"
build > /dev/null || true

echo "mutation score: $caught caught, $equivalent equivalent, $survived survived, $unbuilt not built, of $total"
for s in "${survivors[@]}"; do echo "  survivor: $s"; done
[[ $survived -eq 0 && $unbuilt -eq 0 ]]
