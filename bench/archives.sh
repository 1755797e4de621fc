#!/usr/bin/env bash
# Times searches with archives on against their yardsticks, on a generated
# tree of archives (zip, 7z, tar, iso), in one run:
#   listing: kelvor name+size  vs  bsdtar -tvf over every archive
#   content: kelvor content    vs  bsdtar -xf of every archive + jdupes -r
# Commands alternate (A B A B ...) and the median of the pair ratios is
# printed; the content groups of both are counted to show they agree.
#
# usage: bench/archives.sh [KELVOR-BINARY] [ARCHIVES] [MEMBERS-PER-ARCHIVE] [PAIRS]
#   defaults: build/kelvor, 200, 500, 5
set -euo pipefail
export LC_ALL=C

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
kelvor=${1:-$root/build/kelvor}
archives=${2:-200}
members=${3:-500}
pairs=${4:-5}
for tool in bsdtar zip jdupes; do
  command -v "$tool" >/dev/null || { echo "archives.sh: $tool is missing (scripts/install-deps)" >&2; exit 2; }
done
sevenzip=$(command -v 7zz || command -v 7z || true)
[[ -x $kelvor ]] || { echo "archives.sh: $kelvor not found" >&2; exit 2; }

scratch=$(mktemp -d /tmp/kelvor-archives-bench.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
tree=$scratch/tree data=$scratch/data
mkdir -p "$tree" "$data"
printf '[DupVerz]\nScanArchives=1\nScanArchive=1111111111111111\n' >"$data/config4.ini"

# Half of each archive's members are the same in every archive, half its own.
for ((a = 1; a <= archives; a++)); do
  src=$scratch/src/$a
  mkdir -p "$src/common" "$src/own"
  for ((i = 1; i <= members / 2; i++)); do
    printf 'common member %d\n%0200d\n' "$i" "$i" >"$src/common/c$i.txt"
    printf 'archive %d member %d\n' "$a" "$i" >"$src/own/o$i.txt"
  done
  case $((a % 4)) in
    0) (cd "$src" && zip -qr "$tree/a$a.zip" .) ;;
    1) if [[ -n $sevenzip ]]; then (cd "$src" && "$sevenzip" a -bd "$tree/a$a.7z" . >/dev/null)
       else (cd "$src" && zip -qr "$tree/a$a.zip" .); fi ;;
    2) (cd "$src" && bsdtar -cf "$tree/a$a.tar" .) ;;
    3) (cd "$src" && bsdtar --format iso9660 -cf "$tree/a$a.iso" .) ;;
  esac
  rm -rf "$src"
done
echo "tree: $archives archives, $((archives * (members / 2) * 2)) members"

now() { date +%s.%N; }
# run_pairs NAME CMD_A CMD_B: median of A/B over the pairs.
run_pairs() {
  local name=$1 a=$2 b=$3 ratios=()
  for ((p = 0; p < pairs; p++)); do
    local t0 t1 t2
    t0=$(now); sh -c "$a" >/dev/null 2>&1; t1=$(now); sh -c "$b" >/dev/null 2>&1; t2=$(now)
    ratios+=("$(echo "($t1 - $t0) / ($t2 - $t1)" | bc -l)")
  done
  printf '%s: median A/B %.3f (pairs: %s)\n' "$name" \
    "$(printf '%s\n' "${ratios[@]}" | sort -g | awk '{v[NR]=$1} END{print v[int((NR+1)/2)]}')" \
    "$(printf '%.2f ' "${ratios[@]}")"
}

k="$kelvor --data-dir $data --headless"
run_pairs "listing (kelvor -s0 -s2 / bsdtar -tvf)" "$k -s0 -s2 $tree" \
  "for f in $tree/*; do bsdtar -tvf \$f; done"
oracle="rm -rf $scratch/x; mkdir $scratch/x; for f in $tree/*; do d=$scratch/x/\$(basename \$f); mkdir \$d; bsdtar -xf \$f -C \$d; done; jdupes -r $scratch/x"
run_pairs "content (kelvor -s3 / extract + jdupes -r)" "$k -s3 $tree" "$oracle"

kgroups=$($k -s3 "$tree" 2>/dev/null | awk 'BEGIN{g=0; blank=1} /^$/{blank=1; next} {if (blank) g++; blank=0} END{print g}')
jgroups=$(sh -c "$oracle" 2>/dev/null | awk 'BEGIN{g=0; blank=1} /^$/{blank=1; next} {if (blank) g++; blank=0} END{print g}')
echo "content groups: kelvor $kgroups, extract + jdupes $jgroups"
