#!/usr/bin/env python3
"""Writes the Access file the import benchmark reads: N rows of 15 mixed
fields (long, short, byte, double, single, yes/no, date, currency and four
texts) in a Jet 4 file.

No Debian package writes Access files, so this one is made by hand from a
real one: it takes an Access 2000 file (testV2000.mdb of the shared data),
gives one of its tables (Table4, empty) a new definition of 15 fields, and
appends the data pages and a page-usage map that lists them. Everything else
in the file (its catalog, the other tables) is as Access wrote it, so other
readers open the result as they open the original.

usage: make_access_bench.py SOURCE.mdb OUT.mdb [ROWS]
"""
import random
import struct
import sys

PAGE = 4096
TABLE_PAGE = 32  # Table4's definition in testV2000.mdb

# (name, type, fixed size or declared text length); types as Jet numbers them.
BOOL, BYTE, INT, LONG, MONEY, FLOAT, DOUBLE, DATETIME, TEXT = 1, 2, 3, 4, 5, 6, 7, 8, 10
FIELDS = [
    ("ID", LONG, 4), ("Tag", TEXT, 20), ("Width", INT, 2), ("Height", INT, 2), ("Flow", DOUBLE, 8),
    ("Area", FLOAT, 4), ("Lined", BOOL, 0), ("Made", DATETIME, 8), ("Cost", MONEY, 8), ("Level", BYTE, 1),
    ("Note", TEXT, 100), ("System", TEXT, 30), ("Pressure", DOUBLE, 8), ("Pieces", LONG, 4), ("Code", TEXT, 10),
]


def layout():
    fixed_off, var_index, cols = 0, 0, []
    for num, (name, typ, size) in enumerate(FIELDS):
        fixed = typ != TEXT
        col = dict(name=name, type=typ, size=size if fixed else size * 2, num=num, fixed=fixed,
                   foff=fixed_off if fixed else 0, vidx=var_index if not fixed else 0)
        if fixed:
            fixed_off += size
        else:
            var_index += 1
        cols.append(col)
    return cols, fixed_off, var_index


def tdef(cols, nvar, rows, used_ptr, free_ptr):
    head = bytearray(63)
    head[0:2] = b"\x02\x01"
    struct.pack_into("<I", head, 16, rows)
    head[40] = 0x4E
    struct.pack_into("<HHHIIII", head, 41, len(cols), nvar, len(cols), 0, 0, used_ptr, free_ptr)
    body = bytearray()
    for c in cols:
        d = bytearray(25)
        d[0] = c["type"]
        struct.pack_into("<HHH", d, 5, c["num"], c["vidx"], c["num"])
        if c["type"] == TEXT:
            struct.pack_into("<H", d, 11, 0x409)  # general sort order
        d[15] = 0x03 if c["fixed"] else 0x02
        d[16] = 0x01 if c["type"] == TEXT else 0  # compressed unicode
        struct.pack_into("<HH", d, 21, c["foff"], c["size"])
        body += d
    for c in cols:
        n = c["name"].encode("utf-16-le")
        body += struct.pack("<H", len(n)) + n
    body += b"\xff\xff"
    page = head + body
    struct.pack_into("<H", page, 2, PAGE - len(page))
    struct.pack_into("<I", page, 8, len(page) - 8)
    return bytes(page) + bytes(PAGE - len(page))


def data_page(rows, table_page):
    """A data page holding `rows` (bytes each), the first at the page's end."""
    page = bytearray(PAGE)
    page[0:2] = b"\x01\x01"
    struct.pack_into("<IIH", page, 4, table_page, 0, len(rows))
    at = PAGE
    for i, r in enumerate(rows):
        at -= len(r)
        page[at:at + len(r)] = r
        struct.pack_into("<H", page, 14 + 2 * i, at)
    free = at - (14 + 2 * len(rows))
    struct.pack_into("<H", page, 2, free)
    return bytes(page)


def text(s):
    return b"\xff\xfe" + s.encode("latin-1")


def row(cols, nfixed, i, rnd):
    vals = {
        "ID": struct.pack("<i", i + 1),
        "Width": struct.pack("<h", 100 + (i % 50) * 50),
        "Height": struct.pack("<h", 100 + (i % 30) * 50),
        "Flow": struct.pack("<d", rnd.random() * 5000),
        "Area": struct.pack("<f", (i % 1000) / 8.0),
        "Made": struct.pack("<d", 43000 + i / 97.0),
        "Cost": struct.pack("<q", rnd.randrange(0, 10**9)),
        "Level": bytes([i % 7]),
        "Pressure": struct.pack("<d", rnd.random() * 250),
        "Pieces": struct.pack("<i", rnd.randrange(0, 1000)),
        "Tag": text("D-%06d" % i),
        "Note": text("supply duct %d on level %d, lined" % (i, i % 7)) if i % 5 else None,
        "System": text(("Supply", "Return", "Exhaust", "Outside air")[i % 4]),
        "Code": text("C%04d" % (i % 9999)),
    }
    fixed = bytearray(nfixed)
    var, offsets = bytearray(), []
    mask = 0
    start = 2 + nfixed
    for c in cols:
        v = vals.get(c["name"])
        if c["type"] == BOOL:
            if i % 3 == 0:
                mask |= 1 << c["num"]
            continue
        if v is None:
            if not c["fixed"]:
                offsets.append(start + len(var))
            continue
        mask |= 1 << c["num"]
        if c["fixed"]:
            fixed[c["foff"]:c["foff"] + len(v)] = v
        else:
            offsets.append(start + len(var))
            var += v
    eod = start + len(var)
    tail = b"".join(struct.pack("<H", o) for o in [eod] + offsets[::-1])
    n = len(cols)
    return struct.pack("<H", n) + bytes(fixed) + bytes(var) + tail + struct.pack("<H", len(offsets)) + \
        mask.to_bytes((n + 7) // 8, "little")


def main():
    src, out = sys.argv[1], sys.argv[2]
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 100000
    base = bytearray(open(src, "rb").read())
    assert len(base) % PAGE == 0
    cols, nfixed, nvar = layout()
    rnd = random.Random(7)

    first = len(base) // PAGE
    map_page = first       # the usage-map records (a data page of two rows)
    bitmap_page = first + 1  # the bitmap those records point at
    pages, current, used = [], [], 14
    for i in range(count):
        r = row(cols, nfixed, i, rnd)
        if used + len(r) + 2 > PAGE:
            pages.append(data_page(current, TABLE_PAGE))
            current, used = [], 14
        current.append(r)
        used += len(r) + 2
    if current:
        pages.append(data_page(current, TABLE_PAGE))
    first_data = first + 2
    last = first_data + len(pages)
    assert last < 4092 * 8, "one bitmap page covers the first 32736 pages"

    bitmap = bytearray(PAGE)
    bitmap[0:2] = b"\x05\x01"
    for p in range(first_data, last):
        bitmap[4 + p // 8] |= 1 << (p % 8)
    used_map = b"\x01" + struct.pack("<I", bitmap_page) + bytes(60)  # indirect: one bitmap page
    free_map = b"\x00" + struct.pack("<I", 0) + bytes(59)             # no page with free space
    maps = data_page([used_map, free_map], TABLE_PAGE)

    base[TABLE_PAGE * PAGE:(TABLE_PAGE + 1) * PAGE] = tdef(cols, nvar, count, map_page << 8 | 0, map_page << 8 | 1)
    with open(out, "wb") as f:
        f.write(base)
        f.write(maps)
        f.write(bytes(bitmap))
        for p in pages:
            f.write(p)


if __name__ == "__main__":
    main()
