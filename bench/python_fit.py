#!/usr/bin/python3
"""Whole-process cost of summarizing from Python: import velmor + fit, one process per run.

  bench/python_fit.py [--data DIR] [--sizes 5000 10000 20000] [--k 100]
                      [--algorithm standard] [--pythonpath BUILD/python] [--recache]

For each n, tools/make_similarity.py makes (once, in DIR) an n x n float32 RBF
similarity .npy. Then, each in its own process: one plain read of the file
(`cat FILE > /dev/null`, best of three, warm page cache), the interpreter's
baseline (python + import numpy, velmor), and import + np.load(mmap_mode="r") +
FacilityLocationSelection(k).fit. Printed: the fit's wall time, its ratio to
the plain read, its CPU time (robust when others load the machine), and its
peak resident memory against matrix + baseline. On a
shared machine compare the ratios, which are measured within one run.
--recache first drops each file's pages from the page cache and reads it back
once, as a file read from disk is cached (in large pieces, mapped 2 MB at a
time; a file just written is held in 4 KB pages, which costs every pass over
its mapping more; see bench/quillo_whole_run.sh).
"""
import argparse
import os
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PYTHON = "/usr/bin/python3"

FIT = """
import numpy as np, velmor
X = np.load({path!r}, mmap_mode="r")
velmor.FacilityLocationSelection({k}, algorithm={algorithm!r}).fit(X)
"""
BASELINE = "import numpy, velmor"


def timed_child(command, env):
    """Wall seconds, CPU seconds and peak resident bytes of one child process."""
    start = time.monotonic()
    child = subprocess.Popen(command, env=env)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.monotonic() - start
    if status != 0:
        sys.exit(f"failed: {' '.join(command)}")
    return seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024


def drop_cached_pages(path):
    os.sync()
    fd = os.open(path, os.O_RDONLY)
    os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED)
    os.close(fd)


def plain_read(path):
    subprocess.run(["cat", path], stdout=subprocess.DEVNULL, check=True)
    best = float("inf")
    for _ in range(3):
        start = time.monotonic()
        subprocess.run(["cat", path], stdout=subprocess.DEVNULL, check=True)
        best = min(best, time.monotonic() - start)
    return best


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--data", default=os.path.join(HERE, "..", "build", "bench-data"))
    parser.add_argument("--sizes", type=int, nargs="+", default=[5000, 10000, 20000])
    parser.add_argument("--k", type=int, default=100)
    parser.add_argument("--algorithm", default="standard")
    parser.add_argument("--recache", action="store_true")
    parser.add_argument("--pythonpath", default=os.path.join(HERE, "..", "build", "release",
                                                             "python"))
    args = parser.parse_args()
    env = dict(os.environ, PYTHONPATH=os.path.abspath(args.pythonpath))
    os.makedirs(args.data, exist_ok=True)
    print(f"load average {os.getloadavg()[0]:.1f}; k = {args.k}, {args.algorithm} greedy")
    print(f"{'n':>6} {'read s':>7} {'fit s':>7} {'ratio':>6} {'CPU s':>6} {'matrix MB':>9} "
          f"{'base MB':>8} "
          f"{'peak MB':>8} {'peak/(matrix+base)':>18}")
    for n in args.sizes:
        path = os.path.join(args.data, f"rbf{n}.npy")
        if not os.path.exists(path):
            subprocess.run([PYTHON, os.path.join(HERE, "..", "tools", "make_similarity.py"),
                            path, str(n)], check=True)
        matrix = n * n * 4
        if args.recache:
            drop_cached_pages(path)
        read = plain_read(path)
        _, _, base = timed_child([PYTHON, "-c", BASELINE], env)
        fit, cpu, peak = timed_child(
            [PYTHON, "-c", FIT.format(path=path, k=args.k, algorithm=args.algorithm)], env)
        print(f"{n:>6} {read:7.3f} {fit:7.3f} {fit / read:6.2f} {cpu:6.2f} {matrix / 2**20:9.1f} "
              f"{base / 2**20:8.1f} {peak / 2**20:8.1f} {peak / (matrix + base):18.3f}")


if __name__ == "__main__":
    main()
