#!/usr/bin/env bash
# Saving and loading a result of about a million file rows: the size search
# (-s2) of the 1,000,000-file bench tree, saved once; then save and load are
# timed against `find` of the same tree, in turns (find, load, save, find,
# ...), and the memory of the loaded result is set beside the memory right
# after the search. See bench/README.md.
set -euo pipefail
export LC_ALL=C

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tree=/tmp/kelvor-bench/trees/n1000000-small-s1-g66b9922b
rounds=5
work=/tmp/kelvor-results-bench
build=1

usage() {
  cat <<'EOF'
usage: bench/results_bench.sh [--tree DIR] [--rounds N] [--work DIR] [--no-build]
  --tree DIR    the tree to search by size (default: the 1,000,000-file bench tree)
  --rounds N    timed rounds of find, load and save, in turns (default 5)
  --work DIR    data folder and outputs (default /tmp/kelvor-results-bench)
  --no-build    use build-bench/kelvor_results_bench as it is
EOF
}

while (($#)); do
  case $1 in
    --tree) tree=${2:?}; shift ;;
    --rounds) rounds=${2:?}; shift ;;
    --work) work=${2:?}; shift ;;
    --no-build) build=0 ;;
    -h|--help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
  esac
  shift
done

[[ -d $tree ]] || { echo "no tree at $tree (make it with bench/run.sh)" >&2; exit 1; }
bin=$root/build-bench/kelvor_results_bench
if ((build)); then
  cmake -S "$root" -B "$root/build-bench" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$root/build-bench" --target kelvor_results_bench -j2 >/dev/null
fi
[[ -x $bin ]] || { echo "no $bin" >&2; exit 1; }

rm -rf "$work"
mkdir -p "$work"
data=$work/data

value() { awk -v k="$1" '$1 == k { print $2 }' "$2"; }
now() { date +%s.%N; }
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

echo "search by size of $tree and the first save ..."
"$bin" search "$data" big -s2 "$tree" >"$work/search.txt"
cat "$work/search.txt"

: >"$work/find.txt"; : >"$work/load.txt"; : >"$work/save.txt"
: >"$work/load-ratio.txt"; : >"$work/save-ratio.txt"
for ((i = 1; i <= rounds + 1; i++)); do
  t0=$(now); find "$tree" >/dev/null; t1=$(now)
  f=$(echo "$t1 - $t0" | bc -l)
  "$bin" load "$data" big >"$work/round-load.txt"
  "$bin" save "$data" big again >"$work/round-save.txt"
  ((i == 1)) && continue  # the warm-up round
  l=$(value load_s "$work/round-load.txt")
  s=$(value save_s "$work/round-save.txt")
  echo "$f" >>"$work/find.txt"; echo "$l" >>"$work/load.txt"; echo "$s" >>"$work/save.txt"
  echo "$l / $f" | bc -l >>"$work/load-ratio.txt"
  echo "$s / $f" | bc -l >>"$work/save-ratio.txt"
  printf 'round %d: find %.3f s, load %.3f s, save %.3f s\n' $((i - 1)) "$f" "$l" "$s"
done

rows=$(value rows "$work/search.txt")
printf '\nrows                      %s\n' "$rows"
printf 'find (median)             %.3f s\n' "$(median <"$work/find.txt")"
printf 'load (median)             %.3f s   load/find %.2f (median of the pairs)\n' \
  "$(median <"$work/load.txt")" "$(median <"$work/load-ratio.txt")"
printf 'save (median)             %.3f s   save/find %.2f (median of the pairs)\n' \
  "$(median <"$work/save.txt")" "$(median <"$work/save-ratio.txt")"
printf 'heap after the search     %s MB   after a load %s MB\n' \
  "$(value after_search_heap_mb "$work/search.txt")" "$(value after_load_heap_mb "$work/round-load.txt")"
printf 'resident after the search %s MB   after a load %s MB (peak of the load %s MB)\n' \
  "$(value after_search_rss_mb "$work/search.txt")" "$(value after_load_rss_mb "$work/round-load.txt")" \
  "$(value after_load_peak_mb "$work/round-load.txt")"
printf '.ksr4a                    %s bytes   CSV export (estimated) %s bytes\n' \
  "$(value ksr4a_bytes "$work/search.txt")" "$(value csv_estimate_bytes "$work/search.txt")"
