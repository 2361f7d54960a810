#!/usr/bin/env python3
"""The drop-in solver's cost to a real client: yosys-smtbmc checks a design for 50 steps through
z3 itself and through tvx-trace standing in for z3 (a link named z3 earlier on PATH, tracing
every session), in turn, several times; prints the medians and their ratio (target: within 1.1).

Usage: dropin_bench.py TVX_TRACE DESIGN.sv [RUNS]
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def timed(cmd, env):
    start = time.perf_counter()
    subprocess.run(cmd, env=env, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def main():
    tvx = os.path.realpath(sys.argv[1])
    design = os.path.realpath(sys.argv[2])
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    for tool in ("yosys", "yosys-smtbmc", "z3"):
        if shutil.which(tool) is None:
            print("dropin: %s not found; the row is missing" % tool)
            return 1
    work = tempfile.mkdtemp()
    try:
        model = os.path.join(work, "model.smt2")
        subprocess.run(["yosys", "-q", "-p", "read_verilog -formal -DNOFORALL %s; prep -top top; "
                        "write_smt2 -stbv -wires %s" % (design, model)], check=True)
        shim = os.path.join(work, "shim")
        os.mkdir(shim)
        os.symlink(tvx, os.path.join(shim, "z3"))
        bare = dict(os.environ)
        dropin = dict(os.environ)
        dropin["PATH"] = shim + ":" + dropin["PATH"]
        dropin["TVX_TRACE_DIR"] = os.path.join(work, "traces")
        cmd = ["yosys-smtbmc", "-s", "z3", "-t", "50", model]
        times = {"bare": [], "dropin": []}
        for _ in range(runs):
            times["bare"].append(timed(cmd, bare))
            times["dropin"].append(timed(cmd, dropin))
        b = statistics.median(times["bare"])
        d = statistics.median(times["dropin"])
        spread = lambda ts: (max(ts) - min(ts)) / statistics.median(ts)
        print("dropin: yosys-smtbmc 50 steps, median of %d: z3 %.3f s, through the drop-in %.3f s, "
              "ratio %.2f (target 1.1; spread %.0f%% and %.0f%%)"
              % (runs, b, d, d / b, 100 * spread(times["bare"]), 100 * spread(times["dropin"])))
        return 0
    finally:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
