#!/usr/bin/env python3
"""Times tvx-trace on a generated script (about 20 MB by default) and on the largest corpus
scripts when a corpus is there, with cvc5 --parse-only as the peer on the generated script.

Usage: reader_bench.py TVX_TRACE CORPUS_DIR WORK_DIR OUT.json [SIZE_MB [CVC5]]

Writes OUT.json in the benchmark library's JSON shape (names reader/SINK/IMPL/N, N the input
size in bytes, the counter "terms" the input bytes), so report.py merges it with the rest: costs
come out per input byte. The limit is reading the same file and writing the trace's bytes with
one write each. Exits with status 1, after writing what it measured, when tvx-trace fails on
the generated script; a corpus script that tvx-trace refuses is left out with a note.
"""
import json
import os
import random
import shutil
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
    size_mb = float(sys.argv[5]) if len(sys.argv) > 5 else 20
    cvc5 = sys.argv[6] if len(sys.argv) > 6 else shutil.which("cvc5")
    os.makedirs(work, exist_ok=True)
    files = []
    if os.path.isdir(corpus):
        files = sorted((os.path.join(corpus, n) for n in os.listdir(corpus)
                        if n.endswith(".smt2")), key=os.path.getsize, reverse=True)[:3]
    else:
        print("note: no corpus at %s; the generated script only" % corpus, file=sys.stderr)
    big = os.path.join(work, "generated.smt2")
    if not os.path.exists(big) or abs(os.path.getsize(big) - size_mb * 2**20) > 2**20:
        generate(big, int(size_mb * 2**20))
    benchmarks = []
    failed = False
    for path in files + [big]:
        size = os.path.getsize(path)
        trace = os.path.join(work, "trace.out")
        rc = subprocess.run([tool, "-o", trace, path], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL).returncode
        if rc != 0:
            print("error: tvx-trace exits %d on %s; its row is missing" % (rc, path),
                  file=sys.stderr)
            failed = failed or path == big
            continue
        out_bytes = os.path.getsize(trace)
        runs = 2 if size > 10 * 2**20 else 5
        tvx = best_of([tool, "-o", trace, path], runs)
        # The limit: the input read and the output's bytes written, by one cat each.
        limit = best_of(["sh", "-c", "cat \"$0\" > /dev/null && cat \"$1\" > \"$1.copy\"", path,
                         trace], runs)
        timings = [("tvx", tvx), ("write", limit)]
        # The peer parses the same generated script without solving it.
        if path == big:
            if cvc5 is None:
                print("error: cvc5 not found; the reader's peer row is missing", file=sys.stderr)
            else:
                try:
                    timings.append(("cvc5parse", best_of([cvc5, "--parse-only", path], runs)))
                except subprocess.CalledProcessError as e:
                    print("error: cvc5 --parse-only exits %d on %s; its row is missing" %
                          (e.returncode, path), file=sys.stderr)
        name = os.path.basename(path)
        for impl, t in timings:
            benchmarks.append({"name": "reader/file/%s/%d" % (impl, size), "real_time": t * 1e9,
                               "time_unit": "ns", "terms": size, "bytes": out_bytes,
                               "input": name})
        print("reader %-50s %8.1f MB  %s" % (name, size / 2**20, "  ".join(
            "%s %.3f s" % (impl, t) for impl, t in timings)), file=sys.stderr)
    with open(out, "w") as f:
        json.dump({"context": {}, "benchmarks": benchmarks}, f, indent=1)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
