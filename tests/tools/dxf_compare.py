"""Compares the entities of a drawing file written by another program with
those of the same drawing saved by vantry, both read by ezdxf.

usage: dxf_compare.py ORIGINAL SAVED
       dxf_compare.py ORIGINAL_DIR SAVED_DIR   (every *.dxf of the first)

Passes when every entity of the original (in model space, the paper space
layouts and every block, ATTRIBs of INSERTs included) is in the saved file
with the same handle and type, and the saved file passes `ezdxf audit` with
no errors and no fixes. Exits 77 (CTest's skip code) when ezdxf is missing.
"""

import os
import subprocess
import sys

SKIP = 77


def entities(path):
    """The entities a file lists (ENTITIES and BLOCKS sections, ATTRIBs
    included) by handle: {handle: (type, section)}; and the types of those
    without a handle. Read straight from the group pairs, so what a reader
    adds of its own (ezdxf makes arrow blocks for older files) is not
    counted."""
    with open(path, "rb") as f:
        lines = f.read().decode("utf-8", "replace").splitlines()
    pairs = [(lines[i].strip(), lines[i + 1].strip()) for i in range(0, len(lines) - 1, 2)]
    handled, unhandled = {}, []
    section, kind = None, None
    for i, (code, value) in enumerate(pairs):
        if code == "2" and i and pairs[i - 1] == ("0", "SECTION"):
            section = value
        if code != "0":
            if code == "5" and kind:
                handled[value.upper()] = (kind, section)
                kind = None
            continue
        if kind:
            unhandled.append(kind)
        kind = None
        if section in ("ENTITIES", "BLOCKS") and value not in ("BLOCK", "ENDBLK", "SEQEND", "VERTEX", "ENDSEC", "SECTION", "EOF"):
            kind = value
    return handled, unhandled


def compare(original, saved):
    import ezdxf
    failures = []
    want, loose = entities(original)
    got, _ = entities(saved)
    for handle, (kind, section) in sorted(want.items()):
        if handle not in got:
            failures.append("%s %s of %s is missing" % (kind, handle, section))
        elif got[handle][0] != kind:
            failures.append("%s %s came back as %s" % (kind, handle, got[handle][0]))
    kinds = [k for k, _ in got.values()]
    for kind in set(loose):
        if kinds.count(kind) < loose.count(kind) + sum(1 for k, _ in want.values() if k == kind):
            failures.append("fewer %s entities than the original's" % kind)
    audit = subprocess.run([sys.executable, "-m", "ezdxf", "audit", saved], capture_output=True, text=True)
    output = audit.stdout + audit.stderr
    if "No errors found" not in output:
        failures.append("ezdxf audit: " + " / ".join(l.strip() for l in output.splitlines()[-8:] if l.strip()))
    for f in failures[:40]:
        print("FAIL: %s: %s" % (os.path.basename(saved), f))
    print("%s: %d entities in the original, %d in the saved file, %d failures"
          % (os.path.basename(saved), len(want) + len(loose), len(got), len(failures)))
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
