"""Compares the entities of a drawing file written by another program with
those of the same drawing saved by vantry, both read by ezdxf.

usage: dxf_compare.py ORIGINAL SAVED
       dxf_compare.py ORIGINAL_DIR SAVED_DIR   (every *.dxf of the first)

Passes when every record of the original that has a handle (entities of
model space, the paper space layouts and every block, ATTRIBs included;
BLOCK and ENDBLK; table heads and records; objects) is in the saved file
with the same handle and type, every block other than the layouts' holds
the same entities, every INSERT the same ATTRIBs in the same order, every
class of the original is listed, and the saved file passes `ezdxf audit`
with no errors and no fixes. VANTRY_DXF_COUNTS=1 prints the original's
records by section and type. Exits 77 (CTest's skip code) when ezdxf is
missing.
"""

import os
import subprocess
import sys

SKIP = 77


def records(path):
    """What a file lists, read straight from its group pairs (so what a
    reader adds of its own, as ezdxf's arrow blocks for older files, is not
    counted): {handle: (type, section)} for every record with a handle
    (entities, BLOCK and ENDBLK, table heads and records, objects); the
    types of the entities without one; each block's entity handles by
    block name; each INSERT's ATTRIB handles; the class names."""
    with open(path, "rb") as f:
        lines = f.read().decode("utf-8", "replace").splitlines()
    pairs = [(lines[i].strip(), lines[i + 1].strip()) for i in range(0, len(lines) - 1, 2)]
    handled, unhandled, blocks, attribs, classes = {}, [], {}, {}, set()
    section, kind, block, insert, current = None, None, None, None, None
    seen = False  # the record's handle was read (a later 5 is a field: a sort handle)
    for i, (code, value) in enumerate(pairs):
        if code == "2" and i and pairs[i - 1] == ("0", "SECTION"):
            section = value
        if code != "0":
            handle_code = "105" if kind == "DIMSTYLE" else "5"
            if code == handle_code and kind and not seen:
                seen = True
                current = value.upper()
                handled[current] = (kind, section)
                if kind == "INSERT":
                    insert = current
                elif kind == "ATTRIB" and insert:
                    attribs.setdefault(insert, []).append(current)
                elif block is not None and kind not in ("BLOCK", "ENDBLK"):
                    blocks[block].append(current)
            elif code == "2" and kind == "BLOCK" and section == "BLOCKS" and block is None:
                block = value
                blocks.setdefault(block, [])
            elif code == "1" and kind == "CLASS":
                classes.add(value.upper())
            continue
        if kind and not seen and section in ("ENTITIES", "BLOCKS") and kind not in ("BLOCK", "ENDBLK", "SEQEND", "VERTEX"):
            unhandled.append(kind)
        seen = False
        kind = value
        if value == "ENDBLK":
            block = None
        if value not in ("ATTRIB", "SEQEND"):
            insert = None
        if value in ("SECTION", "ENDSEC", "EOF", "ENDTAB") or (value == "TABLE" and section != "TABLES"):
            kind = None
    return handled, unhandled, blocks, attribs, classes


def counts(handled):
    """Records by section and type, for the report."""
    out = {}
    for kind, section in handled.values():
        out.setdefault(section, {}).setdefault(kind, 0)
        out[section][kind] += 1
    return out


def compare(original, saved):
    failures = []
    want, loose, want_blocks, want_attribs, want_classes = records(original)
    got, _, got_blocks, got_attribs, got_classes = records(saved)
    for handle, (kind, section) in sorted(want.items()):
        if kind == "SEQEND":
            continue  # an end marker carries nothing of its own
        if handle not in got:
            failures.append("%s %s of %s is missing" % (kind, handle, section))
        elif got[handle][0] != kind:
            failures.append("%s %s came back as %s" % (kind, handle, got[handle][0]))
    kinds = [k for k, _ in got.values()]
    for kind in set(loose):
        if kinds.count(kind) < loose.count(kind) + sum(1 for k, _ in want.values() if k == kind):
            failures.append("fewer %s entities than the original's" % kind)
    for name, handles in want_blocks.items():
        if name.upper().startswith(("*MODEL_SPACE", "*PAPER_SPACE", "$MODEL_SPACE", "$PAPER_SPACE")):
            continue  # layout entities may sit in ENTITIES or in their block
        if name not in got_blocks:
            failures.append("block %s is missing" % name)
        elif sorted(got_blocks[name]) != sorted(handles):
            failures.append("block %s holds %s, not %s" % (name, sorted(got_blocks[name]), sorted(handles)))
    for insert, handles in want_attribs.items():
        if got_attribs.get(insert) != handles:
            failures.append("INSERT %s has the attributes %s, not %s" % (insert, got_attribs.get(insert), handles))
    for name in sorted(want_classes - got_classes):
        failures.append("class %s is missing" % name)
    audit = subprocess.run([sys.executable, "-m", "ezdxf", "audit", saved], capture_output=True, text=True)
    output = audit.stdout + audit.stderr
    if "No errors found" not in output:
        failures.append("ezdxf audit: " + " / ".join(l.strip() for l in output.splitlines()[-8:] if l.strip()))
    for f in failures[:40]:
        print("FAIL: %s: %s" % (os.path.basename(saved), f))
    summary = counts(want)
    print("%s: %d records with handles in the original (%s), %d in the saved file; %d failures"
          % (os.path.basename(saved), len(want),
             ", ".join("%s %d" % (sec, sum(v.values())) for sec, v in sorted(summary.items(), key=str)),
             len(got), len(failures)))
    if os.environ.get("VANTRY_DXF_COUNTS"):
        for sec, kinds in sorted(summary.items(), key=str):
            print("  %s: %s" % (sec, ", ".join("%d %s" % (n, k) for k, n in sorted(kinds.items()))))
    return len(failures)


def main(argv):
    if len(argv) != 3:
        print(__doc__)
        return 2
    original, saved = argv[1], argv[2]
    try:
        import ezdxf  # noqa: F401
    except ImportError:
        print("SKIP: ezdxf is not installed for %s (Debian: python3-ezdxf)" % sys.executable)
        return SKIP
    if os.path.isdir(original):
        names = sorted(n for n in os.listdir(original) if n.endswith(".dxf"))
        if not names:
            print("SKIP: no drawings in " + original)
            return SKIP
        bad = 0
        for n in names:
            if not os.path.exists(os.path.join(saved, n)):
                print("FAIL: %s was not saved" % n)
                bad += 1
                continue
            bad += compare(os.path.join(original, n), os.path.join(saved, n))
        return 1 if bad else 0
    return 1 if compare(original, saved) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
