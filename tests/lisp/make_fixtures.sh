#!/usr/bin/env bash
# Makes the binary test files that LISP cannot write: a real database with a
# damaged page, for the repair path. Usage: make_fixtures.sh DIR
set -euo pipefail
dir=$1
mkdir -p "$dir"
db="$dir/damaged.db"
rm -f "$db"
sqlite3 "$db" <<'SQL'
PRAGMA page_size = 1024;
CREATE TABLE ducts (id INTEGER PRIMARY KEY AUTOINCREMENT, size TEXT, width REAL, depth REAL);
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 400)
INSERT INTO ducts (size, width, depth) SELECT 'D' || i, i * 10.0, i * 5.0 FROM n;
CREATE TABLE fittings (id INTEGER PRIMARY KEY, name TEXT);
INSERT INTO fittings VALUES (1, 'elbow'), (2, 'tee');
SQL
# Overwrite a page in the middle of the ducts table with garbage.
pages=$(( $(stat -c %s "$db") / 1024 ))
printf 'GARBAGE%.0s' $(seq 1 146) | dd of="$db" bs=1024 seek=$(( pages / 2 )) conv=notrunc status=none
