#!/usr/bin/env bash
# Import of an Access file: `vantry import` against `mdb-export` (mdbtools'
# CSV export, run only here as the baseline) of the same table, in the same
# run, best of three each. The file is 100,000 rows of 15 mixed fields, made
# by bench/make_access_bench.py from the shared testV2000.mdb.
#
# usage: bench/access_import_bench.sh [BUILD_DIR] [ROWS]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
rows=${2:-100000}
source_mdb=../shared/data/access/testV2000.mdb
if [ ! -f "$source_mdb" ]; then
  echo "access_import_bench: skipped: $source_mdb is absent (the shared data folder)"; exit 0
fi
if ! command -v mdb-export >/dev/null; then
  echo "access_import_bench: skipped: mdb-export (Debian's mdbtools) is not installed"; exit 0
fi
work="$build/tmp/access_bench"
mkdir -p "$work"
mdb="$work/rows$rows.mdb"
[ -f "$mdb" ] || /usr/bin/python3 bench/make_access_bench.py "$source_mdb" "$mdb" "$rows"

# Seconds of wall time and of CPU (user + system, children included) of one command.
measure() {
  local out
  out=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null 2>&1; } 2>&1 )
  awk '{ printf "%.3f %.3f\n", $1, $2 + $3 }' <<<"$out"
}
best() {  # best wall and best CPU of three runs of a command
  local w c bw=999999 bc=999999
  for _ in 1 2 3; do
    [ "$1" = import ] && rm -f "$work/out.db"
    read -r w c < <(measure "${@:2}")
    bw=$(awk -v a="$w" -v b="$bw" 'BEGIN { print (a < b) ? a : b }')
    bc=$(awk -v a="$c" -v b="$bc" 'BEGIN { print (a < b) ? a : b }')
  done
  echo "$bw $bc"
}
read -r iw ic < <(best import "$build/bin/vantry" import "$mdb" "$work/out.db")
read -r ew ec < <(best export mdb-export "$mdb" Table4)
count=$(sqlite3 "$work/out.db" 'SELECT count(*) FROM Table4' 2>/dev/null || echo "?")
awk -v n="$rows" -v iw="$iw" -v ic="$ic" -v ew="$ew" -v ec="$ec" -v got="$count" 'BEGIN {
  printf "rows imported: %s of %d (15 fields)\n", got, n
  printf "%-28s %8s %8s %14s %14s\n", "", "wall s", "cpu s", "rows/s wall", "rows/s cpu"
  printf "%-28s %8.3f %8.3f %14.0f %14.0f\n", "vantry import (to SQLite)", iw, ic, n / iw, n / ic
  printf "%-28s %8.3f %8.3f %14.0f %14.0f\n", "mdb-export (CSV, baseline)", ew, ec, n / ew, n / ec
  printf "import / baseline: %.2fx wall, %.2fx cpu\n", ew / iw, ec / ic
}'
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
