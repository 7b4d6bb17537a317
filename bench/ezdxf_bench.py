#!/usr/bin/python3
"""The drawing-file benchmark's counterpart with ezdxf, for the ratio.

Usage: /usr/bin/python3 bench/ezdxf_bench.py [FILE]

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
