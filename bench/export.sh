#!/usr/bin/env bash
# Times the CSV and XLSX export of a large result against `find` of the same
# tree, pair by pair, and checks that LibreOffice (headless) reads the XLSX
# back: it converts the sheet to CSV, and every row must match the CSV
# export. See bench/README.md.
#
#   bench/export.sh [TREE] [PAIRS]
#
# TREE defaults to the 1,000,000-file walk tree of bench/run.sh. WORK
# (KELVOR_EXPORT_WORK, default /tmp/kelvor-export-bench) keeps the outputs:
# export.csv, export.xlsx, the converted sheet and the logs. The Release
# build goes to build-bench (KELVOR_EXPORT_BUILD to use another folder).
set -euo pipefail
export LC_ALL=C.UTF-8

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
tree=${1:-/tmp/kelvor-bench/trees/n1000000-small-s1-g66b9922b}
pairs=${2:-5}
work=${KELVOR_EXPORT_WORK:-/tmp/kelvor-export-bench}
build=${KELVOR_EXPORT_BUILD:-$root/build-bench}

[ -d "$tree" ] || { echo "export.sh: no tree at $tree (bench/run.sh makes it)" >&2; exit 1; }
mkdir -p "$work"

echo "== build (Release)"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >"$work/build.log" 2>&1
cmake --build "$build" --target kelvor_export_bench -j2 >>"$work/build.log" 2>&1

echo "== $(date -u +%FT%TZ), load average: $(cut -d' ' -f1-3 /proc/loadavg), $(nproc) cores"
echo "== export against find, $pairs pairs each, export and find in turn"
"$build/kelvor_export_bench" "$tree" "$work" "$pairs" | tee "$work/export-bench.txt"

echo "== LibreOffice reads the XLSX back"
if ! command -v soffice >/dev/null; then
  echo "soffice is missing (scripts/install-deps installs libreoffice-calc-nogui)" >&2
  exit 1
fi
rm -rf "$work/lo" "$work/lo-profile"
start=$(date +%s)
# Field separator 44 (,), text delimiter 34 ("), character set 76 (UTF-8).
/usr/bin/time -f "soffice: %e s, peak %M KB" timeout 3600 soffice \
  -env:UserInstallation="file://$work/lo-profile" --headless \
  --convert-to 'csv:Text - txt - csv (StarCalc):44,34,76' --outdir "$work/lo" \
  "$work/export.xlsx" >"$work/soffice.log" 2>&1 || { cat "$work/soffice.log" >&2; exit 1; }
tail -1 "$work/soffice.log"
echo "conversion took $(( $(date +%s) - start )) s"

python3 - "$work/export.csv" "$work/lo/export.csv" <<'EOF'
import csv, sys

def pictures(s):
    # The sheet shows control characters other than tab and line feed as
    # their pictures (U+2400 + c); the CSV keeps them.
    return "".join(chr(0x2400 + ord(c)) if (ord(c) < 0x20 and c not in "\t\n") else
                   ("\u2421" if c == "\x7f" else c) for c in s)

with open(sys.argv[1], encoding="utf-16", newline="") as f:
    want = [[pictures(v) for v in row] for row in csv.reader(f)]
with open(sys.argv[2], encoding="utf-8", newline="") as f:
    got = list(csv.reader(f))
print(f"rows: CSV export {len(want)}, sheet read back {len(got)}")
bad = 0
for i, (w, g) in enumerate(zip(want, got)):
    if w != g:
        bad += 1
        if bad <= 5:
            print(f"row {i + 1} differs:\n  export {w}\n  sheet  {g}")
if bad or len(want) != len(got):
    print(f"MISMATCH: {bad} rows differ")
    sys.exit(1)
print("every row matches")
EOF
