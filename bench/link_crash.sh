#!/bin/bash
# Kills the hard-link replacement at random moments and checks that no file
# of the tree is lost: every path holds its old file or a link to its group's
# kept file.
#
#   bench/link_crash.sh [PROGRAM] [FILES] [RUNS] [GROUP]
#
# PROGRAM: kelvor_link_crash (default build/kelvor_link_crash)
# FILES: files of the tree (default 10000), RUNS: kills (default 20),
# GROUP: files per group (default 5).
set -euo pipefail

prog=${1:-build/kelvor_link_crash}
files=${2:-10000}
runs=${3:-20}
group=${4:-5}
work=$(mktemp -d "${TMPDIR:-/tmp}/kelvor-link-crash.XXXXXX")
trap 'rm -rf "$work"' EXIT

# How long a whole run takes, so that the kills fall inside it.
"$prog" make "$work/t" "$files" "$group"
start=$(date +%s%N)
"$prog" link "$work/t"
ms=$(( ($(date +%s%N) - start) / 1000000 + 1 ))
"$prog" check "$work/t" >/dev/null
echo "a whole run: ${ms} ms for $files files"

failed=0
for ((run = 1; run <= runs; run++)); do
  rm -rf "$work/t"
  "$prog" make "$work/t" "$files" "$group"
  delay=$(( RANDOM * 32768 + RANDOM ))
  delay=$(( delay % ms ))
  "$prog" link "$work/t" &
  pid=$!
  sleep "$(printf '%d.%03d' $((delay / 1000)) $((delay % 1000)))"
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  if out=$("$prog" check "$work/t"); then
    echo "run $run: killed after ${delay} ms: $(tail -n 1 <<<"$out")"
  else
    echo "run $run: killed after ${delay} ms: FILES LOST"
    echo "$out" | head -n 20
    failed=1
  fi
done
exit $failed
