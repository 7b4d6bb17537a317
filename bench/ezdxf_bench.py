#!/usr/bin/python3
"""The drawing-file benchmark's counterpart with ezdxf, for the ratio.

Usage: /usr/bin/python3 bench/ezdxf_bench.py [FILE]
       /usr/bin/python3 bench/ezdxf_bench.py --dir DIR

With --dir: opens every *.dxf of DIR (the shared data's dxf folder) with
ezdxf.readfile, then saves each, per round; prints "ezdxf_open_dir" and
"ezdxf_save_dir" lines as below, the count being the number of files.

FILE is the drawing of 100,000 mixed entities that vantry_bench's
BM_DxfSave100k writes (default /tmp/vantry-dxf-bench.dxf, or
VANTRY_DXF_BENCH_FILE). Opens it with ezdxf.readfile and saves it again with
saveas, each a few rounds; prints one line per workload:
"<name> <seconds> <entities>", the best round's wall time.
"""
import os
import sys
import tempfile
import time


def best(rounds, fn):
    times = []
    result = None
    for _ in range(rounds):
        start = time.perf_counter()
        result = fn()
        times.append(time.perf_counter() - start)
    return min(times), result


def main(argv):
    try:
        import ezdxf
    except ImportError:
        print("ezdxf is not installed for %s (Debian: python3-ezdxf)" % sys.executable)
        return 77
    if len(argv) > 2 and argv[1] == "--dir":
        names = sorted(os.path.join(argv[2], n) for n in os.listdir(argv[2]) if n.endswith(".dxf"))
        from ezdxf import recover

        def read(n):
            # ezdxf's strict reader refuses one of them (a layer name with
            # \U+ escapes in an R12 file); its recovering reader takes it.
            try:
                return ezdxf.readfile(n)
            except ezdxf.DXFError:
                return recover.readfile(n)[0]

        seconds, docs = best(5, lambda: [read(n) for n in names])
        print("ezdxf_open_dir %.3f %d" % (seconds, len(names)))
        out = os.path.join(tempfile.gettempdir(), "vantry-ezdxf-bench-out.dxf")
        seconds, _ = best(5, lambda: [d.saveas(out) for d in docs])
        print("ezdxf_save_dir %.3f %d" % (seconds, len(names)))
        os.remove(out)
        return 0
    path = argv[1] if len(argv) > 1 else os.environ.get("VANTRY_DXF_BENCH_FILE", "/tmp/vantry-dxf-bench.dxf")
    if not os.path.exists(path):
        print("%s is missing: run vantry_bench --benchmark_filter=Dxf first" % path)
        return 2
    seconds, doc = best(3, lambda: ezdxf.readfile(path))
    count = len(doc.modelspace())
    print("ezdxf_open %.3f %d" % (seconds, count))
    out = os.path.join(tempfile.gettempdir(), "vantry-ezdxf-bench-out.dxf")
    seconds, _ = best(3, lambda: doc.saveas(out))
    print("ezdxf_save %.3f %d" % (seconds, count))
    os.remove(out)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
