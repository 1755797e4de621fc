#!/usr/bin/env bash
# Checks that kelvor_gentree is reproducible: the same parameters give the same
# tree (names, sizes, link counts, contents), another seed gives another tree,
# and the tree holds what its summary line claims.
#
# usage: bench/check-gentree.sh [PATH-TO-kelvor_gentree]
#   default: build-bench/kelvor_gentree, else build-*/kelvor_gentree
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
gen=${1:-}
if [[ -z $gen ]]; then
  for candidate in "$root"/build-bench/kelvor_gentree "$root"/build*/kelvor_gentree; do
    if [[ -x $candidate ]]; then gen=$candidate; break; fi
  done
fi
if [[ -z $gen || ! -x $gen ]]; then
  echo "check-gentree: kelvor_gentree not found; build it (ninja kelvor_gentree) or pass its path" >&2
  exit 2
fi

scratch=$(mktemp -d /tmp/kelvor-gentree-check.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
pass() { echo "ok:   $*"; }

# Name, size and link count of every entry, then the digest of every file, both
# sorted, so that the listing order of the file system plays no part.
describe() {
  (cd "$1" && find . -mindepth 1 -printf '%y %P %s %n\n' | LC_ALL=C sort &&
    find . -type f -print0 | LC_ALL=C sort -z | xargs -0 -r md5sum)
}

summary_field() { # summary-line field-name
  awk -v k="$2" '{ for (i = 1; i < NF; i++) if ($i == k) { print $(i + 1); exit } }' <<<"$1"
}

params=(--files 1500 --seed 42 --depth 2 --size-mix mixed --total-bytes 40M
  --dup-share 0.2 --trap-share 0.04 --zero-share 0.01 --hardlink-share 0.02)

s1=$("$gen" --out "$scratch/a" "${params[@]}")
s2=$("$gen" --out "$scratch/b" "${params[@]}")
describe "$scratch/a" >"$scratch/a.txt"
describe "$scratch/b" >"$scratch/b.txt"
if cmp -s "$scratch/a.txt" "$scratch/b.txt"; then
  pass "same seed gives the same tree ($(grep -c '^f ' "$scratch/a.txt") files)"
else
  fail "same seed gives different trees:"
  diff "$scratch/a.txt" "$scratch/b.txt" | head -n 10
fi
[[ ${s1% (*} == "${s2% (*}" ]] && pass "same summary: ${s1% (*}" || fail "summaries differ: '$s1' / '$s2'"

"$gen" --out "$scratch/c" "${params[@]/#42/43}" >/dev/null
describe "$scratch/c" >"$scratch/c.txt"
if cmp -s "$scratch/a.txt" "$scratch/c.txt"; then fail "another seed gives the same tree"; else pass "another seed gives another tree"; fi

# The tree against its summary.
files=$(find "$scratch/a" -type f | wc -l)
[[ $files == "$(summary_field "$s1" files)" ]] && pass "file count $files" || fail "file count $files, summary says $(summary_field "$s1" files)"
zero=$(find "$scratch/a" -type f -size 0 | wc -l)
[[ $zero == "$(summary_field "$s1" zero)" ]] && pass "zero-byte files $zero" || fail "zero-byte files $zero, summary says $(summary_field "$s1" zero)"
links=$(find "$scratch/a" -type f -links +1 -printf '%i\n' | sort | uniq -c | awk '{ n += $1 - 1 } END { print n + 0 }')
[[ $links == "$(summary_field "$s1" links)" ]] && pass "extra hard links $links" || fail "extra hard links $links, summary says $(summary_field "$s1" links)"
bytes=$(find "$scratch/a" -type f -links 1 -printf '%s\n' | awk '{ n += $1 } END { print n + 0 }')
bytes=$((bytes + $(find "$scratch/a" -type f -links +1 -printf '%i %s\n' | sort -u | awk '{ n += $2 } END { print n + 0 }')))
[[ $bytes == "$(summary_field "$s1" bytes)" ]] && pass "bytes $bytes" || fail "bytes $bytes, summary says $(summary_field "$s1" bytes)"
if ((bytes > 36000000 && bytes < 44000000)); then pass "--total-bytes 40M honoured"; else fail "--total-bytes 40M gave $bytes"; fi

# Every copy and every extra link adds a file whose content is already there;
# unique files and traps add new content.
extra=$(find "$scratch/a" -type f -size +0 -print0 | xargs -0 md5sum | awk '{ print $1 }' | sort | uniq -c |
  awk '{ n += $1 - 1 } END { print n + 0 }')
expected=$(($(summary_field "$s1" copies) + links))
[[ $extra == "$expected" ]] && pass "files with repeated content $extra (copies + links)" || fail "files with repeated content $extra, expected $expected"

# Traps: contents that differ from another file of the same size only in the
# first byte, or only in the last. Digests of each file whole, without its first
# byte and without its last byte; a class of equal partial digests that holds k
# different whole digests counts k - 1 traps.
traps=$(summary_field "$s1" traps)
find "$scratch/a" -type f -size +0 -print0 | LC_ALL=C sort -z |
  while IFS= read -r -d '' f; do
    printf '%s %s %s\n' "$(md5sum <"$f" | cut -c1-32)" "$(tail -c +2 "$f" | md5sum | cut -c1-32)" \
      "$(head -c -1 "$f" | md5sum | cut -c1-32)"
  done >"$scratch/parts"
count_traps() { # column of the partial digest
  awk -v c="$1" '!seen[$c " " $1]++ { n[$c]++ } END { t = 0; for (k in n) t += n[k] - 1; print t }' "$scratch/parts"
}
first=$(count_traps 2)
last=$(count_traps 3)
if ((first + last == traps && first - last <= 1 && last - first <= 1 && traps > 0)); then
  pass "traps: $first differ at the first byte, $last at the last"
else
  fail "traps: $first differ at the first byte, $last at the last; summary says $traps"
fi

if ((failures)); then
  echo "check-gentree: $failures check(s) failed"
  exit 1
fi
echo "check-gentree: all checks passed"
