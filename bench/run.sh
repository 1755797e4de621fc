#!/usr/bin/env bash
# Times kelvor --headless against find and the Debian duplicate finders on
# generated trees, all in one run, and prints times, ratios and peak memory.
# See bench/README.md.
set -uo pipefail
export LC_ALL=C

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

usage() {
  cat <<'EOF'
usage: bench/run.sh [options]
  --quick             smoke run: walk on 50,000 files, content on 10,000 files / 100 MB,
                      one timed round unless --repeats says otherwise
  --files N           files of the walk tree (default 1,000,000)
  --content-files N   files of the content tree (default 100,000)
  --total-bytes B     bytes of the content tree (default 2.45G; suffixes K M G, Ki Mi Gi)
  --content-mix M     size mix of the content tree: small, mixed (default) or large
                      (large with --content-files 60000 --total-bytes 1.5G: the tree
                      with many files between 4 KB and 1 MB)
  --repeats R         timed rounds after the warm-up round, best counts (default 3)
  --seed S            generator seed (default 1)
  --only walk|content run one of the two benchmarks
  --skip T1,T2        leave out some of jdupes, fdupes, rdfind, rmlint
  --work DIR          trees, outputs and build log (default /tmp/kelvor-bench)
  --kelvor PATH       time this kelvor binary instead of building one
  --no-build          use the binaries already in build-bench/
  --no-deps           do not call scripts/install-bench-deps
  -h, --help          this text
Trees are generated once per parameter set and kept under WORK/trees.
EOF
}

walk_files=1000000
content_files=100000
content_bytes=2.45G
content_mix=mixed
repeats=3
repeats_set=0
quick=0
skip=","
seed=1
only=all
work=/tmp/kelvor-bench
kelvor=""
build=1
deps=1
while (($#)); do
  case $1 in
    --quick) quick=1 walk_files=50000 content_files=10000 content_bytes=100M ;;
    --files) walk_files=${2:?}; shift ;;
    --content-files) content_files=${2:?}; shift ;;
    --total-bytes) content_bytes=${2:?}; shift ;;
    --content-mix) content_mix=${2:?}; shift ;;
    --repeats) repeats=${2:?} repeats_set=1; shift ;;
    --skip) skip=",${2:?},"; shift ;;
    --seed) seed=${2:?}; shift ;;
    --only) only=${2:?}; shift ;;
    --work) work=${2:?}; shift ;;
    --kelvor) kelvor=${2:?}; shift ;;
    --no-build) build=0 ;;
    --no-deps) deps=0 ;;
    -h | --help) usage; exit 0 ;;
    *) echo "run.sh: unknown option $1 (see --help)" >&2; exit 1 ;;
  esac
  shift
done
((quick && !repeats_set)) && repeats=1
case $only in all | walk | content) ;; *) echo "run.sh: --only takes walk or content" >&2; exit 1 ;; esac
case $content_mix in small | mixed | large) ;; *) echo "run.sh: --content-mix takes small, mixed or large" >&2; exit 1 ;; esac
[[ $repeats =~ ^[1-9][0-9]*$ ]] || { echo "run.sh: --repeats takes a positive number" >&2; exit 1; }

die() { echo "run.sh: $*" >&2; exit 1; }
note() { echo "  note: $*"; }

mkdir -p "$work" || die "cannot create $work"
work=$(cd "$work" && pwd)
build_dir=$root/build-bench
run_dir=$work/run
rm -rf "$run_dir"
mkdir -p "$run_dir" "$work/trees"

# ---------------------------------------------------------------- build

if ((build)); then
  targets=(kelvor_gentree)
  [[ -z $kelvor ]] && targets+=(kelvor)
  echo "Building ${targets[*]} (Release) in $build_dir ..."
  if ! { cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release &&
    ninja -C "$build_dir" "${targets[@]}"; } >"$work/build.log" 2>&1; then
    tail -n 30 "$work/build.log" >&2
    die "build failed (full log: $work/build.log)"
  fi
fi
gentree=$build_dir/kelvor_gentree
[[ -x $gentree ]] || die "$gentree is missing (build it, or drop --no-build)"
[[ -z $kelvor ]] && kelvor=$build_dir/kelvor
[[ -x $kelvor ]] || die "kelvor binary $kelvor is missing"
kelvor=$(cd "$(dirname "$kelvor")" && pwd)/$(basename "$kelvor")

if ((deps)) && [[ -x $root/scripts/install-bench-deps ]]; then
  "$root/scripts/install-bench-deps" >"$work/deps.log" 2>&1 ||
    note "scripts/install-bench-deps failed (see $work/deps.log); missing tools are skipped"
fi

have() { command -v "$1" >/dev/null 2>&1; }
gnu_time=""
[[ -x /usr/bin/time ]] && gnu_time=/usr/bin/time
[[ -z $gnu_time ]] && note "/usr/bin/time is missing: no peak memory figures (apt-get install time)"

# ---------------------------------------------------------------- trees

# Prints the path of a generated tree for these parameters, generating it the
# first time. The generator's source is part of the key, so a changed generator
# makes a new tree.
gen_key=$(md5sum <"$root/bench/gentree.cpp" | cut -c1-8)
ensure_tree() { # files size-mix total-bytes(or "")
  local files=$1 mix=$2 bytes=$3
  local name="n${files}-${mix}${bytes:+-b$bytes}-s${seed}-g${gen_key}"
  local tree=$work/trees/$name
  if [[ ! -d $tree || ! -s $tree.summary ]]; then
    rm -rf "$tree" "$tree.partial" "$tree.summary"
    # Trees of the same parameters from an older generator only take space.
    local old
    for old in "$work/trees/${name%-g*}"-g*; do
      [[ -e $old && $old != "$tree"* ]] && rm -rf "$old"
    done
    echo "Generating $name ..." >&2
    local args=(--out "$tree.partial" --files "$files" --seed "$seed" --size-mix "$mix")
    [[ -n $bytes ]] && args+=(--total-bytes "$bytes")
    "$gentree" "${args[@]}" >"$tree.summary.partial" || die "kelvor_gentree failed"
    mv "$tree.partial" "$tree" && mv "$tree.summary.partial" "$tree.summary" || die "cannot store $tree"
  fi
  echo "$tree"
}

summary_field() { # tree field
  awk -v k="$2" '{ for (i = 1; i < NF; i++) if ($i == k) { print $(i + 1); exit } }' "$1.summary"
}

# ---------------------------------------------------------------- timing

# A benchmark is a list of command ids. For each id: CMD (a shell command line
# run by bash -c, which execs a single command so that the peak memory is the
# tool's own), OUT (its standard output), DIR (its working folder), LABEL, and
# optionally DATA (a Kelvor data folder emptied before every run).
declare -A CMD OUT DIR LABEL DATA BEST PEAK STATUS
ids=()

add_cmd() { # id label out dir command...
  local id=$1
  LABEL[$id]=$2 OUT[$id]=$3 DIR[$id]=$4
  shift 4
  CMD[$id]=$(printf '%q ' "$@")
  ids+=("$id")
}

run_once() { # id  -> sets last_us, last_kb; returns the command's exit code
  local id=$1 tf=$run_dir/$1.time rc
  rm -f "$tf"
  [[ -n ${DATA[$id]:-} ]] && { rm -rf "${DATA[$id]}"; mkdir -p "${DATA[$id]}"; }
  local t0=${EPOCHREALTIME/./}
  if [[ -n $gnu_time ]]; then
    (cd "${DIR[$id]}" && exec "$gnu_time" -f %M -o "$tf" bash -c "${CMD[$id]}") \
      >"${OUT[$id]}" 2>"$run_dir/$id.err"
  else
    (cd "${DIR[$id]}" && exec bash -c "${CMD[$id]}") >"${OUT[$id]}" 2>"$run_dir/$id.err"
  fi
  rc=$?
  local t1=${EPOCHREALTIME/./}
  last_us=$((t1 - t0))
  last_kb=""
  [[ -n $gnu_time && -s $tf ]] && last_kb=$(tail -n 1 "$tf")
  [[ $last_kb =~ ^[0-9]+$ ]] || last_kb=""
  return $rc
}

# One warm-up round of every command (fills the page cache), then $repeats
# rounds; each command keeps its best time and its highest peak memory.
run_rounds() {
  local round id rc
  for ((round = 0; round <= repeats; round++)); do
    for id in "${ids[@]}"; do
      [[ ${STATUS[$id]:-ok} == ok ]] || continue
      run_once "$id"
      rc=$?
      if ((rc != 0)); then
        STATUS[$id]="failed (exit $rc; see $run_dir/$id.err)"
        continue
      fi
      ((round == 0)) && continue
      if [[ -z ${BEST[$id]:-} ]] || ((last_us < BEST[$id])); then BEST[$id]=$last_us; fi
      if [[ -n $last_kb ]] && { [[ -z ${PEAK[$id]:-} ]] || ((last_kb > PEAK[$id])); }; then
        PEAK[$id]=$last_kb
      fi
    done
  done
}

seconds() { awk -v us="$1" 'BEGIN { printf "%.3f", us / 1e6 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'; }
megabytes() { [[ -n ${1:-} ]] && awk -v kb="$1" 'BEGIN { printf "%.1f", kb / 1024 }' || echo "-"; }
per_file() { [[ -n ${1:-} ]] && awk -v kb="$1" -v n="$2" 'BEGIN { printf "%.0f", kb * 1024 / n }' || echo "-"; }
is_ok() { [[ ${STATUS[$1]:-ok} == ok && -n ${BEST[$1]:-} ]]; }
faster() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a <= b) }'; } # a <= b

reset_bench() {
  ids=()
  unset BEST PEAK STATUS DATA
  declare -gA BEST PEAK STATUS DATA
  DATA[kelvor]=$run_dir/data-kelvor DATA[kelvor_c0]=$run_dir/data-kelvor_c0
}

# ---------------------------------------------------------------- groups

# Reads groups as blocks of paths separated by blank lines and prints one line
# per group: its non-empty files' paths, sorted, joined by tabs; the lines
# sorted. Groups that keep fewer than two paths are dropped.
normalise_groups() { # zero-list < blocks
  awk -v zero="$1" '
    BEGIN { while ((getline z < zero) > 0) empty[z] = 1 }
    /^$/ { g++; next }
    !($0 in empty) { print g "\t" $0 }' |
    sort -t "$(printf '\t')" -k1,1n -k2 |
    awk -F '\t' '
      function flush() { if (n >= 2) print line; n = 0; line = "" }
      $1 != prev { flush(); prev = $1 }
      { line = n ? line "\t" $2 : $2; n++ }
      END { flush() }' |
    sort
}

# Kelvor's groups as blocks of paths. With jq or python3 from its JSON; else
# from its default output, where each block starts with the group's title.
# KELVOR_BENCH_PARSER=jq|python3|text forces one way (to test them all).
parser=${KELVOR_BENCH_PARSER:-}
if [[ -z $parser ]]; then
  if have jq; then parser=jq; elif have python3; then parser=python3; else parser=text; fi
fi
kelvor_blocks() { # tree data-dir kelvor-args...
  local tree=$1 data=$2
  shift 2
  rm -rf "$data" && mkdir -p "$data"
  if [[ $parser == jq ]]; then
    "$kelvor" --headless --data-dir "$data" --json "$@" "$tree" |
      jq -r '.groups[] | ((.files[] | .path), "")'
  elif [[ $parser == python3 ]]; then
    "$kelvor" --headless --data-dir "$data" --json "$@" "$tree" | python3 -c '
import json, sys
for g in json.load(sys.stdin)["groups"]:
    for f in g["files"]:
        print(f["path"])
    print()'
  else
    "$kelvor" --headless --data-dir "$data" "$@" "$tree" |
      awk 'BEGIN { title = 1 } /^$/ { print; title = 1; next } title { title = 0; next } { print }'
  fi
}

describe_groups() { # normalised-file
  awk -F '\t' '{ f += NF } END { printf "%d groups, %d files", NR, f }' "$1"
}

# ---------------------------------------------------------------- walk

bench_walk() {
  local tree files folders
  tree=$(ensure_tree "$walk_files" small "") || exit 1
  files=$(summary_field "$tree" files)
  folders=$(summary_field "$tree" folders)
  echo
  echo "== Walk: $files files in $folders folders ($(cat "$tree.summary"))"
  echo "   tree: $tree"
  reset_bench
  add_cmd find "find -printf '%s %p\\n'" /dev/null "$run_dir" find "$tree" -printf '%s %p\n'
  add_cmd kelvor "kelvor -s2" /dev/null "$run_dir" \
    "$kelvor" --headless --data-dir "${DATA[kelvor]}" -s2 "$tree"
  run_rounds
  printf '   %-24s %9s %10s\n' command "best s" "peak MB"
  local id
  for id in find kelvor; do
    if is_ok "$id"; then
      printf '   %-24s %9s %10s\n' "${LABEL[$id]}" "$(seconds "${BEST[$id]}")" "$(megabytes "${PEAK[$id]:-}")"
    else
      printf '   %-24s %s\n' "${LABEL[$id]}" "${STATUS[$id]:-no result}"
    fi
  done
  if is_ok find && is_ok kelvor; then
    local r bpf
    r=$(ratio "${BEST[kelvor]}" "${BEST[find]}")
    bpf=$(per_file "${PEAK[kelvor]:-}" "$files")
    echo "   kelvor / find: ${r}x    kelvor peak: $bpf bytes/file"
    echo -n "   goals: time <= 2x find: "
    faster "$r" 2 && echo -n "met" || echo -n "NOT met"
    echo -n ";  peak < 350 bytes/file: "
    if [[ $bpf == - ]]; then echo "not measured"; elif ((bpf < 350)); then echo "met"; else echo "NOT met"; fi
  fi
}

# ---------------------------------------------------------------- content

bench_content() {
  local tree files bytes
  tree=$(ensure_tree "$content_files" "$content_mix" "$content_bytes") || exit 1
  files=$(summary_field "$tree" files)
  bytes=$(summary_field "$tree" bytes)
  echo
  echo "== Content: $files files, $(awk -v b="$bytes" 'BEGIN { printf "%.2f GB", b / 1e9 }') ($(cat "$tree.summary"))"
  echo "   tree: $tree"

  # The least any content search must do: list the tree and read every file
  # whose size some other file shares.
  local sizes=$run_dir/sizes.txt list=$run_dir/same-size.list zero=$run_dir/zero.txt
  find "$tree" -type f -printf '%s %p\n' >"$sizes"
  awk 'NR == FNR { n[$1]++; next } n[$1] > 1 { sub(/^[0-9]+ /, ""); print }' "$sizes" "$sizes" |
    tr '\n' '\0' >"$list"
  local limit_bytes
  limit_bytes=$(awk 'NR == FNR { n[$1]++; next } n[$1] > 1 { b += $1 } END { printf "%.0f", b }' "$sizes" "$sizes")
  find "$tree" -type f -size 0 >"$zero"

  reset_bench
  # Every round reads every byte, as the other tools do: the checksum cache
  # would otherwise answer the rounds after the first.
  add_cmd kelvor "kelvor -s3 (SHA-1)" "$run_dir/kelvor.out" "$run_dir" \
    "$kelvor" --headless --data-dir "${DATA[kelvor]}" --no-checksum-cache -s3 "$tree"
  add_cmd kelvor_c0 "kelvor -s3 -c0" "$run_dir/kelvor_c0.out" "$run_dir" \
    "$kelvor" --headless --data-dir "${DATA[kelvor_c0]}" -s3 -c0 "$tree"
  local tool
  for tool in jdupes fdupes rdfind rmlint; do
    [[ $skip == *",$tool,"* ]] && { note "$tool left out (--skip)"; continue; }
    have "$tool" || { note "$tool not installed: skipped"; continue; }
    mkdir -p "$run_dir/cwd-$tool"
    case $tool in
      jdupes) add_cmd jdupes "jdupes -r" "$run_dir/jdupes.out" "$run_dir/cwd-$tool" jdupes -r "$tree" ;;
      fdupes) add_cmd fdupes "fdupes -r" "$run_dir/fdupes.out" "$run_dir/cwd-$tool" fdupes -r "$tree" ;;
      # rdfind writes results.txt into its working folder.
      rdfind) add_cmd rdfind "rdfind -dryrun true" "$run_dir/rdfind.out" "$run_dir/cwd-$tool" \
        rdfind -dryrun true "$tree" ;;
      # Only a JSON report, into the scratch folder: no rmlint.sh in the cwd.
      rmlint) add_cmd rmlint "rmlint -o json" "$run_dir/rmlint.out" "$run_dir/cwd-$tool" \
        rmlint -o "json:$run_dir/rmlint.json" "$tree" ;;
    esac
  done
  add_cmd limit "limit: find + cat" /dev/null "$run_dir" bash -c \
    'find "$1" -printf "%s %p\n" >/dev/null; xargs -0 -r cat <"$2" >/dev/null' limit "$tree" "$list"
  run_rounds

  printf '   %-24s %9s %10s %12s\n' command "best s" "peak MB" "vs kelvor"
  local id
  for id in "${ids[@]}"; do
    if is_ok "$id"; then
      local peak=${PEAK[$id]:-}
      [[ $id == limit ]] && peak=""
      printf '   %-24s %9s %10s %11sx\n' "${LABEL[$id]}" "$(seconds "${BEST[$id]}")" "$(megabytes "$peak")" \
        "$(is_ok kelvor && ratio "${BEST[$id]}" "${BEST[kelvor]}" || echo -)"
    else
      printf '   %-24s %s\n' "${LABEL[$id]}" "${STATUS[$id]:-no result}"
    fi
  done
  echo "   (vs kelvor: the command's time / kelvor -s3's time; above 1 means Kelvor is faster."
  echo "    The limit reads $(awk -v b="$limit_bytes" 'BEGIN { printf "%.2f GB", b / 1e9 }') in $(tr -cd '\0' <"$list" | wc -c) files of shared sizes.)"
  is_ok kelvor && echo "   kelvor -s3 peak: $(per_file "${PEAK[kelvor]:-}" "$files") bytes/file"

  # Same groups as jdupes? -H makes jdupes list every path of a hard-linked
  # file, as Kelvor does; empty files are left out on both sides.
  if have jdupes; then
    local jd=$run_dir/groups-jdupes.txt
    jdupes -r -H "$tree" 2>/dev/null | normalise_groups "$zero" >"$jd"
    for id in kelvor kelvor_c0; do
      is_ok "$id" || continue
      local kg=$run_dir/groups-$id.txt
      local args=(-s3)
      [[ $id == kelvor_c0 ]] && args+=(-c0)
      kelvor_blocks "$tree" "$run_dir/data-groups" "${args[@]}" | normalise_groups "$zero" >"$kg"
      if cmp -s "$jd" "$kg"; then
        echo "   groups of ${LABEL[$id]} = jdupes -r -H: yes ($(describe_groups "$kg"); read with $parser)"
      else
        echo "   groups of ${LABEL[$id]} = jdupes -r -H: NO (kelvor $(describe_groups "$kg"); jdupes $(describe_groups "$jd"))"
        diff "$jd" "$kg" | head -n 6 | cut -c1-200 | sed 's/^/      /'
        echo "      full lists: $jd $kg"
      fi
    done
  else
    note "jdupes missing: groups not compared"
  fi

  if is_ok kelvor; then
    local slower=() lost=()
    for id in jdupes rdfind fdupes rmlint; do
      is_ok "$id" || continue
      faster "${BEST[kelvor]}" "${BEST[$id]}" || slower+=("$id")
    done
    echo -n "   goals: faster than jdupes/rdfind/fdupes/rmlint: "
    ((${#slower[@]})) && echo -n "NOT met (slower than ${slower[*]})" || echo -n "met"
    echo -n ";  no slower than the limit: "
    if is_ok limit; then faster "${BEST[kelvor]}" "${BEST[limit]}" && echo "met" || echo "NOT met ($(ratio "${BEST[kelvor]}" "${BEST[limit]}")x)"; else echo "not measured"; fi
  fi
  bench_repeat "$tree"
}

# The same search a second time over the unchanged tree, with the checksum
# cache: one untimed run fills the cache in a fresh data folder, then the
# timed runs reuse that folder, in rounds with the find walk and with the
# search without the cache.
bench_repeat() { # tree
  local tree=$1 cached=$run_dir/data-cached
  rm -rf "$cached" && mkdir -p "$cached"
  "$kelvor" --headless --data-dir "$cached" -s3 "$tree" >/dev/null 2>"$run_dir/fill-cache.err" ||
    { note "filling the checksum cache failed (see $run_dir/fill-cache.err)"; return; }
  reset_bench
  add_cmd find "find -printf '%s %p\\n'" /dev/null "$run_dir" find "$tree" -printf '%s %p\n'
  add_cmd cached "kelvor -s3, cache filled" "$run_dir/kelvor-cached.out" "$run_dir" \
    "$kelvor" --headless --data-dir "$cached" -s3 "$tree"
  add_cmd kelvor "kelvor -s3, no cache" /dev/null "$run_dir" \
    "$kelvor" --headless --data-dir "${DATA[kelvor]}" --no-checksum-cache -s3 "$tree"
  run_rounds
  echo
  echo "== Repeat search with the checksum cache (same tree, cache filled by one earlier run)"
  printf '   %-24s %9s %10s\n' command "best s" "peak MB"
  local id
  for id in "${ids[@]}"; do
    if is_ok "$id"; then
      printf '   %-24s %9s %10s\n' "${LABEL[$id]}" "$(seconds "${BEST[$id]}")" "$(megabytes "${PEAK[$id]:-}")"
    else
      printf '   %-24s %s\n' "${LABEL[$id]}" "${STATUS[$id]:-no result}"
    fi
  done
  # What the last repeat run's log says about its digests.
  local runlog=$cached/log/lastsearch.txt
  if [[ -s $runlog ]] && have iconv; then
    iconv -f UTF-16 -t UTF-8 "$runlog" 2>/dev/null | tr -d '\r' |
      grep -E 'Prüfsummen (erstellt|der Dateianfänge erstellt|aus dem Prüfsummen-Cache)' |
      sed 's/^.* - /   last run: /'
  fi
  if is_ok cached && is_ok find; then
    local r
    r=$(ratio "${BEST[cached]}" "${BEST[find]}")
    echo -n "   repeat with the cache / find: ${r}x"
    is_ok kelvor && echo -n "    / the search without the cache: $(ratio "${BEST[cached]}" "${BEST[kelvor]}")x"
    echo
    echo -n "   goals: repeat with the cache <= 1.5x find: "
    faster "$r" 1.5 && echo "met" || echo "NOT met"
  fi
}

echo "Kelvor benchmark: $(date '+%Y-%m-%d %H:%M'), $(nproc) cores, load average $(cut -d ' ' -f 1-3 /proc/loadavg)"
echo "   best of $repeats timed round(s) after one warm-up round, warm cache"
echo "   kelvor: $kelvor"
[[ $only == all || $only == walk ]] && bench_walk
[[ $only == all || $only == content ]] && bench_content
echo
echo "Outputs of the last run: $run_dir"
