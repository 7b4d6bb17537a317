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
# A database as another program writes it, for the schema functions: types
# declared in SQLite's own words, a named and an unnamed foreign key.
site="$dir/site.db"
rm -f "$site"
sqlite3 "$site" <<'SQL'
CREATE TABLE systems (name TEXT PRIMARY KEY, colour INTEGER NOT NULL DEFAULT 7);
CREATE TABLE runs (id INTEGER PRIMARY KEY, label VARCHAR(30), length REAL, started DATE,
  system TEXT CONSTRAINT SystemRuns REFERENCES systems (name) ON DELETE CASCADE ON UPDATE CASCADE);
CREATE TABLE notes (run INTEGER REFERENCES runs, body BLOB);
INSERT INTO systems VALUES ('Supply', 1), ('Return', 5);
INSERT INTO runs VALUES (1, 'R1', 12.5, '2024-01-31', 'Supply'), (2, 'R2', 3.0, NULL, 'Return');
SQL
