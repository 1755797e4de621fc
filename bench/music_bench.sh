#!/usr/bin/env bash
# Similar music: fingerprints per second of a Kelvor search (kelvor -sa) over
# N tracks, against running fpcalc on the same tracks one after another.
#
#   bench/music_bench.sh [--tracks N] [--pairs P] [--work DIR] [--kelvor PATH]
#
# The tracks are 30-second tunes made with sox (each from its own seed), every
# tenth one an MP3 of the tune before it, so that the search has groups to
# find. They are made once per count under WORK/music-N. The two commands run
# in turn (Kelvor, fpcalc loop, Kelvor, ...) for P pairs; the figures are the
# medians of the pairs, and the ratio is taken pair by pair, so that a machine
# whose speed drifts still gives a fair ratio.
set -euo pipefail

tracks=200
pairs=5
work=/tmp/kelvor-bench
kelvor=""
while [ $# -gt 0 ]; do
  case "$1" in
    --tracks) tracks=$2; shift 2 ;;
    --pairs) pairs=$2; shift 2 ;;
    --work) work=$2; shift 2 ;;
    --kelvor) kelvor=$2; shift 2 ;;
    -h|--help) sed -n '2,12p' "$0"; exit 0 ;;
    *) echo "music_bench: unknown option $1" >&2; exit 1 ;;
  esac
done

here=$(cd "$(dirname "$0")/.." && pwd)
if [ -z "$kelvor" ]; then
  cmake -S "$here" -B "$here/build-bench" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$here/build-bench" --target kelvor -j2 >/dev/null
  kelvor="$here/build-bench/kelvor"
fi
for t in sox lame fpcalc; do
  command -v "$t" >/dev/null || { echo "music_bench: $t is missing (scripts/install-deps)" >&2; exit 1; }
done

dir="$work/music-$tracks"
if [ ! -f "$dir/.complete" ]; then
  rm -rf "$dir"
  mkdir -p "$dir"
  echo "making $tracks tracks in $dir ..."
  for i in $(seq 1 "$tracks"); do
    name=$(printf 'track-%04d' "$i")
    if [ $((i % 10)) -eq 0 ]; then
      lame --quiet -b 192 "$dir/$(printf 'track-%04d' $((i - 1))).wav" "$dir/$name.mp3"
      continue
    fi
    args=()
    s=$i
    for n in $(seq 1 60); do
      s=$(((s * 1103515245 + 12345) % 2147483648))
      args+=(synth 0.5 pluck $((150 + (s / 65536) % 700)))
      [ "$n" -lt 60 ] && args+=(:)
    done
    sox -n -r 44100 -c 1 -b 16 -e signed-integer "$dir/$name.wav" "${args[@]}"
  done
  touch "$dir/.complete"
fi

data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT
run_kelvor() {
  "$kelvor" --headless --data-dir "$data" -sa "$dir" >"$data/out.txt" 2>"$data/err.txt"
}
run_fpcalc() {
  for f in "$dir"/*.wav "$dir"/*.mp3; do
    fpcalc -raw -algorithm 5 -length 30 "$f" >/dev/null 2>&1 || true
  done
}
now() { date +%s.%N; }

echo "load: $(cut -d' ' -f1-3 /proc/loadavg)   tracks: $tracks   pairs: $pairs"
run_kelvor
run_fpcalc  # warm-up: the page cache holds the tracks
ks=() fs=() rs=()
for p in $(seq 1 "$pairs"); do
  t0=$(now); run_kelvor; t1=$(now); run_fpcalc; t2=$(now)
  k=$(echo "$t1 - $t0" | bc -l); f=$(echo "$t2 - $t1" | bc -l)
  ks+=("$k"); fs+=("$f"); rs+=("$(echo "$f / $k" | bc -l)")
  printf 'pair %d: kelvor %.2f s, fpcalc loop %.2f s\n' "$p" "$k" "$f"
done
median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}'; }
mk=$(median "${ks[@]}"); mf=$(median "${fs[@]}"); mr=$(median "${rs[@]}")
groups=$(grep -c '^$' "$data/out.txt" || true)
printf 'kelvor -sa:        %.2f s  %.1f fingerprints/s  (%d groups)\n' "$mk" "$(echo "$tracks / $mk" | bc -l)" "$((groups + 1))"
printf 'fpcalc one by one: %.2f s  %.1f fingerprints/s\n' "$mf" "$(echo "$tracks / $mf" | bc -l)"
printf 'kelvor / fpcalc fingerprints per second (median of pairs): %.2fx  (goal 1.8x)\n' "$mr"
