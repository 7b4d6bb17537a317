"""Audits a drawing file written by vantry with another reader (ezdxf).

usage: dxf_audit.py FILE [KIND=COUNT | table:NAME]...

Passes when `ezdxf audit` says "No errors found", ezdxf reads the file both
strictly and through its recover module without errors, and model space
holds the given count of each entity kind, and the named table records
(layer:Ducts, appid:VT_APP, block:VALVE) are there. Exits 77 (CTest's skip code) with
a message when ezdxf is not installed. ezdxf repairs missing tables and
handles silently, so the file's own structure is checked by the C++ tests.
"""

import subprocess
import sys

SKIP = 77


def main(argv):
    if len(argv) < 2:
        print(__doc__)
        return 2
    path = argv[1]
    expected = {}
    records = []
    for arg in argv[2:]:
        if ":" in arg:
            records.append(arg.split(":", 1))
        else:
            kind, count = arg.split("=")
            expected[kind] = int(count)
    try:
        import ezdxf
        from ezdxf import recover
    except ImportError:
        print("SKIP: ezdxf is not installed for %s (Debian: python3-ezdxf)" % sys.executable)
        return SKIP

    audit = subprocess.run([sys.executable, "-m", "ezdxf", "audit", path], capture_output=True, text=True)
    output = audit.stdout + audit.stderr
    print(output.strip())
    failures = []
    if "No errors found" not in output:
        failures.append("ezdxf audit reports errors")

    doc = ezdxf.readfile(path)
    counts = {}
    for entity in doc.modelspace():
        counts[entity.dxftype()] = counts.get(entity.dxftype(), 0) + 1
    for kind, count in sorted(expected.items()):
        if counts.get(kind, 0) != count:
            failures.append("model space holds %d %s, expected %d" % (counts.get(kind, 0), kind, count))
    tables = {"layer": doc.layers, "appid": doc.appids, "block": doc.blocks, "style": doc.styles}
    for table, name in records:
        if name not in tables[table]:
            failures.append("no %s %s" % (table, name))
    auditor = doc.audit()
    if auditor.has_errors:
        failures.append("doc.audit(): %d errors" % len(auditor.errors))

    recovered, rec_auditor = recover.readfile(path)
    if rec_auditor.has_errors:
        failures.append("recover.readfile: %d errors" % len(rec_auditor.errors))
    if len(list(recovered.modelspace())) != len(list(doc.modelspace())):
        failures.append("recover sees a different model space")
    if len(list(doc.layout("Layout1"))) < 1:
        failures.append("paper space is empty")

    for f in failures:
        print("FAIL: " + f)
    print("model space: " + ", ".join("%s=%d" % kv for kv in sorted(counts.items())))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
