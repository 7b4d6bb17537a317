#!/usr/bin/python3
"""The database benchmark's Python counterpart, run by vantry_bench in the same run.

Usage: python_sqlite.py WALK_DB APPEND_DB APPENDS

WALK_DB holds table t (100,000 records) with index by_tag on tag; APPEND_DB
holds an empty table a of the same fields. Every workload builds what the
LISP side gets: each record as a list of (name, value) pairs.

Prints one line per workload: "<name> <seconds> <items>", where the time is
the process's CPU time, as Google Benchmark reports the C++ side, best of a
few rounds (appends run once: they grow the table).
"""
import random
import sqlite3
import sys
import time


def pairs(names, row):
    return list(zip(names, row))


def best(rounds, fn):
    times = []
    for _ in range(rounds):
        start = time.process_time()
        items = fn()
        times.append(time.process_time() - start)
    return min(times), items


def walk(db):
    # One record at a time, as vt_skip walks: fetchone until nothing is left.
    cur = db.execute("SELECT * FROM t ORDER BY rowid")
    names = [d[0] for d in cur.description]
    n = 0
    row = cur.fetchone()
    while row is not None:
        pairs(names, row)
        n += 1
        row = cur.fetchone()
    return n


def seek(db, keys):
    names = None
    for k in keys:
        cur = db.execute("SELECT * FROM t WHERE tag = ? ORDER BY tag, rowid LIMIT 1", (k,))
        if names is None:
            names = [d[0] for d in cur.description]
        row = cur.fetchone()
        if row is None:
            raise SystemExit("seek failed: " + k)
        pairs(names, row)
    return len(keys)


def select_all(db):
    cur = db.execute("SELECT * FROM t")
    names = [d[0] for d in cur.description]
    result = [pairs(names, row) for row in cur.fetchall()]
    return len(result)


def append(db, count):
    # Autocommit: every INSERT is its own transaction, committed on return.
    for i in range(count):
        db.execute(
            "INSERT INTO a(tag, name, width, flow, ratio, lined, made) VALUES (?, ?, ?, ?, ?, ?, ?)",
            ("A%06d" % i, "appended %d" % i, i % 900, i * 0.5, 0.25, i % 2, "2024-05-06 07:08:09"))
    return count


def main():
    walk_path, append_path, appends = sys.argv[1], sys.argv[2], int(sys.argv[3])
    db = sqlite3.connect("file:%s?mode=ro" % walk_path, uri=True)
    rows = db.execute("SELECT count(*) FROM t").fetchone()[0]
    rng = random.Random(7)
    keys = ["T%06d" % (rng.randrange(rows) + 1) for _ in range(20000)]
    for name, fn in (("walk", lambda: walk(db)), ("seek", lambda: seek(db, keys)),
                     ("select", lambda: select_all(db))):
        seconds, items = best(3, fn)
        print("%s %.6f %d" % (name, seconds, items))
    db.close()

    adb = sqlite3.connect(append_path, isolation_level=None)
    adb.execute("PRAGMA journal_mode=WAL")
    adb.execute("PRAGMA synchronous=NORMAL")
    seconds, items = best(1, lambda: append(adb, appends))
    print("append %.6f %d" % (seconds, items))
    adb.close()


if __name__ == "__main__":
    main()
