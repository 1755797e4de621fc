#!/usr/bin/env bash
# The similar-pictures benchmark: makes a folder of photographs with their
# transformed copies (bench/make_pictures.sh), then measures
#   1. hashes per second of Kelvor's picture reading (header, reduced decode,
#      16 x 16 pHash) against "djpeg -scale 1/8 -grayscale" over the same files;
#   2. the whole pHash search (kelvor --headless -s8 -h2) against findimagedupes
#      and against dupeGuru's picture scan (shared/tools/dupeguru_scan.py),
#      each pair run in turn (A B A B ...), the median of the pairwise ratios.
# Needs the pairing timer given as --timer (a program taking
# "-n RUNS --timeout S --vs 'B' -- A ..." and printing median ratios).
#   bench/pictures.sh [--count N] [--work DIR] [--runs R] [--timer PROG] [--build DIR]
set -uo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
count=300
work=/tmp/kelvor-bench
runs=3
timer=""
build=$root/build
while (($#)); do
  case $1 in
    --count) count=${2:?}; shift ;;
    --work) work=${2:?}; shift ;;
    --runs) runs=${2:?}; shift ;;
    --timer) timer=${2:?}; shift ;;
    --build) build=${2:?}; shift ;;
    -h | --help) sed -n '2,13p' "$0"; exit 0 ;;
    *) echo "pictures.sh: unknown option $1" >&2; exit 1 ;;
  esac
  shift
done
pics=$work/pictures
# dupeGuru's own scanner run headless (a helper kept beside the repository).
dupeguru=${DUPEGURU_SCAN:-/work/shared/tools/dupeguru_scan.py}
"$root/scripts/install-bench-deps" || exit 1
echo "== making $count photographs (2-12 MP) and copies in $pics"
start=$(date +%s)
n=$("$root/bench/make_pictures.sh" "$count" "$pics" 1 2) || exit 1
echo "$n files, $(du -sh "$pics" | cut -f1), made in $(($(date +%s) - start)) s"

echo "== hashes per second against djpeg -scale 1/8 -grayscale"
"$build/kelvor_picture_hash_bench" "$n" "$pics"

data=$work/kelvor-data
rm -rf "$data"
kelvor=("$build/kelvor" --headless --data-dir "$data" -s8 -h2 "$pics")
echo "== groups found (pHash 16x16 at 91 %, Kelvor's default gates)"
"${kelvor[@]}" > "$work/kelvor-pics.txt" 2>&1
echo "kelvor: $(grep -c '^$' "$work/kelvor-pics.txt") groups"
findimagedupes -q "$pics" > "$work/fid-pics.txt" 2>&1
echo "findimagedupes: $(grep -c . "$work/fid-pics.txt") groups"
QT_QPA_PLATFORM=offscreen /usr/bin/python3 "$dupeguru" picture "$pics" 91 > "$work/dg-pics.txt" 2>&1
tail -1 "$work/dg-pics.txt"

[ -n "$timer" ] || { echo "no --timer: whole-search timings skipped"; exit 0; }
echo "== whole search: kelvor (A) against findimagedupes (B)"
QT_QPA_PLATFORM=offscreen "$timer" -n "$runs" --warmup 0 --timeout 3600 \
  --vs "findimagedupes -q $pics" -- "${kelvor[@]}"
echo "== whole search: kelvor (A) against dupeGuru's picture scan (B)"
QT_QPA_PLATFORM=offscreen "$timer" -n "$runs" --warmup 0 --timeout 3600 \
  --vs "/usr/bin/python3 $dupeguru picture $pics 91" -- "${kelvor[@]}"
