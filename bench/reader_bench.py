#!/usr/bin/env python3
"""Times tvx-trace on the largest corpus scripts and on a generated script of about 100 MB.

Usage: reader_bench.py TVX_TRACE CORPUS_DIR WORK_DIR OUT.json [SIZE_MB]

Writes OUT.json in the benchmark library's JSON shape (names reader/SINK/IMPL/N, N the input
size in bytes, the counter "terms" the input bytes), so report.py merges it with the rest: costs
come out per input byte. The limit is reading the same file and writing the trace's bytes with
one write each.
"""
import json
import os
import random
import subprocess
import sys
import time


def generate(path, size):
    """A script of declarations and assertions over Int and 32-bit vectors with push/pop."""
    rnd = random.Random(5)
    with open(path, "w") as f:
        f.write("(set-logic ALL)\n")
        for i in range(64):
            f.write("(declare-fun x%d () Int)\n(declare-fun b%d () (_ BitVec 32))\n" % (i, i))
        written = 0
        k = 0
        while written < size:
            a, b, c = rnd.randrange(64), rnd.randrange(64), rnd.randrange(64)
            if k % 3 == 0:
                line = "(assert (<= (+ x%d (* %d x%d)) (- x%d %d)))\n" % (a, rnd.randrange(2, 9), b,
                                                                       c, rnd.randrange(100))
            elif k % 3 == 1:
                line = ("(assert (let ((t (bvadd b%d b%d))) (bvult (bvmul t t) (bvand t b%d))))\n"
                        % (a, b, c))
            else:
                line = "(push 1)\n(assert (= x%d x%d))\n(check-sat)\n(pop 1)\n" % (a, b)
            f.write(line)
            written += len(line)
            k += 1
        f.write("(check-sat)\n")


def best_of(cmd, runs=3):
    best = None
    for _ in range(runs):
        start = time.perf_counter()
        subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL)
        t = time.perf_counter() - start
        best = t if best is None else min(best, t)
    return best


def main():
    tool, corpus, work, out = sys.argv[1:5]
    size_mb = float(sys.argv[5]) if len(sys.argv) > 5 else 100
    os.makedirs(work, exist_ok=True)
    files = sorted((os.path.join(corpus, n) for n in os.listdir(corpus) if n.endswith(".smt2")),
                   key=os.path.getsize, reverse=True)[:3]
    big = os.path.join(work, "generated.smt2")
    if not os.path.exists(big) or abs(os.path.getsize(big) - size_mb * 2**20) > 2**20:
        generate(big, int(size_mb * 2**20))
    benchmarks = []
    for path in files + [big]:
        size = os.path.getsize(path)
        trace = os.path.join(work, "trace.out")
        rc = subprocess.run([tool, "-o", trace, path], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL).returncode
        if rc != 0:
            print("note: tvx-trace exits %d on %s; left out" % (rc, path), file=sys.stderr)
            continue
        out_bytes = os.path.getsize(trace)
        runs = 1 if size > 10 * 2**20 else 5
        tvx = best_of([tool, "-o", trace, path], runs)
        # The limit: the input read and the output's bytes written, by one cat each.
        limit = best_of(["sh", "-c", "cat \"$0\" > /dev/null && cat \"$1\" > \"$1.copy\"", path,
                         trace], runs)
        name = os.path.basename(path)
        for impl, t in (("tvx", tvx), ("write", limit)):
            benchmarks.append({"name": "reader/file/%s/%d" % (impl, size), "real_time": t * 1e9,
                               "time_unit": "ns", "terms": size, "bytes": out_bytes,
                               "input": name})
        print("reader %-70s %8.1f MB  tvx %.3f s  limit %.3f s" % (name, size / 2**20, tvx, limit),
              file=sys.stderr)
    with open(out, "w") as f:
        json.dump({"context": {}, "benchmarks": benchmarks}, f, indent=1)


if __name__ == "__main__":
    main()
