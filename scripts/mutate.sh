#!/usr/bin/env bash
# Mutation testing: applies each single-point fault of scripts/mutations.txt to a scratch
# copy of the tree, builds it (native, release) and runs the tests, and lists the faults
# no test noticed. A mutation whose text is not found exactly once is reported as stale.
# Usage: scripts/mutate.sh [N...]   (mutation numbers, 1-based; default all)
# LUMIVEX_MUTATION_SECONDS bounds each test run (default 600). The packaging checks (the
# Android compile and the installed example), which see no behaviour, are left out. Takes
# about a minute and a half a mutation on two cores; not part of scripts/test.sh.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
work=${LUMIVEX_MUTATION_DIR:-/tmp/lumivex-mutants}
seconds=${LUMIVEX_MUTATION_SECONDS:-600}
# The committed tree (HEAD), never the working copy's edits.
rm -rf "$work" && mkdir -p "$work/tree"
git -C "$root" archive HEAD | tar -x -C "$work/tree"
cp -r "$work/tree" "$work/pristine"
cmake -S "$work/tree" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DLUMIVEX_DATA_DIR="${LUMIVEX_DATA_DIR:-$root/../shared/data}" >/dev/null
cmake --build "$work/build" >/dev/null 2>&1 || { echo "the unmutated tree does not build"; exit 2; }
excluded='^(android_abi_compile|installed_package_example)$'
# A fault is only noticed against a suite that passes without it.
ctest --test-dir "$work/build" -j "$(nproc)" --timeout 300 -E "$excluded" >"$work/unmutated.log" 2>&1 ||
  { echo "the unmutated tree fails its tests (see $work/unmutated.log)"; exit 2; }

mapfile -t lines < <(grep -v '^#' "$root/scripts/mutations.txt" | grep -v '^\s*$')
wanted=("$@")
[[ ${#wanted[@]} -gt 0 ]] || wanted=($(seq 1 ${#lines[@]}))
killed=0 survived=0 stale=0
for n in "${wanted[@]}"; do
  line=${lines[$((n - 1))]}
  file=${line%% ||| *}
  what=${line##* ||| }
  # Apply: exactly one occurrence, with \n standing for a line break.
  if ! python3 - "$work/tree/$file" "$line" <<'PY'
import sys
path, line = sys.argv[1], sys.argv[2]
_, old, new, _ = line.split(" ||| ")
old, new = old.replace("\\n", "\n"), new.replace("\\n", "\n")
text = open(path).read()
if text.count(old) != 1:
    sys.exit(1)
open(path, "w").write(text.replace(old, new))
PY
  then
    echo "#$n stale: $file ($what)"
    stale=$((stale + 1))
    continue
  fi
  if ! cmake --build "$work/build" >/dev/null 2>&1; then
    verdict=killed  # by the compiler
  elif timeout "$seconds" ctest --test-dir "$work/build" -j "$(nproc)" --timeout 300 \
      -E "$excluded" \
      >"$work/mutant-$n.log" 2>&1; then
    verdict=SURVIVED
  else
    verdict=killed
  fi
  cp "$work/pristine/$file" "$work/tree/$file"
  echo "#$n $verdict: $file ($what)"
  if [[ $verdict == SURVIVED ]]; then survived=$((survived + 1)); else killed=$((killed + 1)); fi
done
echo "mutations: $killed killed, $survived survived, $stale stale"
[[ $survived -eq 0 && $stale -eq 0 ]]
