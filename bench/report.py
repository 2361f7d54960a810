#!/usr/bin/env python3
"""Merges the JSON outputs of tracer_bench, solver_bench, z3_peer, cvc5_peer and the reader
into one table.

Usage: report.py OUT_DIR RESULT.json...

Benchmark names are WORKLOAD/SINK/IMPLEMENTATION/N[/...]. Writes OUT_DIR/table.tsv and
OUT_DIR/machine.txt, and prints the table, the machine and the targets with their ratios.
Costs are per term of the workload (per call for small_calls and env_small, per input byte for
the reader), counted on tvx's terms, so every column of a row divides by the same number.

Every figure comes from the JSON files given, which scripts/bench.sh writes afresh in each run.
A measurement that the run should have made and did not (a program that failed or was not
built) is printed as MISSING, and so is a target that depends on it.
"""
import json
import os
import platform
import sys


def machine():
    model = "?"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    mem = "?"
    try:
        with open("/proc/meminfo") as f:
            kb = int(f.readline().split()[1])
            mem = "%.1f GiB" % (kb / 2**20)
    except (OSError, ValueError, IndexError):
        pass
    return "%s, %d cores, %s RAM, Linux %s" % (model, os.cpu_count() or 0, mem, platform.release())


def load(paths):
    runs = {}
    context = {}
    for path in paths:
        try:
            with open(path) as f:
                data = json.load(f)
        except (OSError, ValueError) as e:
            print("error: %s cannot be read (%s); its rows are missing" % (path, e),
                  file=sys.stderr)
            continue
        context = data.get("context", context)
        for b in data.get("benchmarks", []):
            if b.get("run_type") == "aggregate":
                continue
            if b.get("error_occurred"):
                print("note: %s: %s" % (b["name"], b.get("error_message")), file=sys.stderr)
                continue
            parts = b["name"].split("/")
            if len(parts) < 4:
                continue
            workload, sink, impl, n = parts[0], parts[1], parts[2], int(parts[3])
            scale = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}[b.get("time_unit", "ns")]
            key = (workload, sink, impl, n)
            # Of repetitions, the fastest: the one least disturbed by other jobs.
            if key in runs and runs[key]["ns"] <= b["real_time"] * scale:
                continue
            runs[key] = {
                "ns": b["real_time"] * scale,  # per iteration (manual time)
                "terms": b.get("terms"),
                "bytes": b.get("bytes"),
                "mem": b.get("mem_bytes_per_term"),
            }
    return runs, context


WORKLOADS = ["dag_global", "dag_scoped", "chain_global", "chain_scoped", "small_calls",
             "env_dag", "env_small", "env_process", "reader"]


def sizes(lo, hi):
    n = lo
    while n <= hi:
        yield n
        n *= 10


def expected():
    """The measurements a full run makes, as (workload, sink, impl, N); N None: any size."""
    top = int(os.environ.get("TVX_BENCH_MAX_N", "1000000"))
    calls = min(1000000, max(top, 1000))
    env_calls = int(os.environ.get("TVX_BENCH_ENV_CALLS", "100000"))
    want = set()
    for s in ("discard", "file"):
        for n in sizes(1000, top):
            for impl in ("tvx", "hand", "z3log", "z3nolog"):
                want.add(("dag_global", s, impl, n))
            for impl in ("tvx", "write", "z3print", "cvc5print"):
                want.add(("dag_scoped", s, impl, n))
        for n in sizes(10000, top):
            want.update({("chain_global", s, "tvx", n), ("chain_global", s, "hand", n),
                         ("chain_scoped", s, "tvx", n), ("chain_scoped", s, "write", n)})
    want.update({("small_calls", "discard", "tvx", calls), ("small_calls", "file", "tvx", calls),
                 ("small_calls", "file", "write", calls)})
    for n in sizes(1000, top):
        want.update({("env_dag", "file", "tvx", n), ("env_dag", "off", "tvx", n),
                     ("env_dag", "off", "z3api", n)})
    want.update({("env_small", "file", "tvx", env_calls), ("env_small", "off", "tvx", env_calls),
                 ("env_small", "off", "z3api", env_calls)})
    want.update({("env_process", "off", "tvx", env_calls // 10),
                 ("env_process", "off", "z3script", env_calls // 10)})
    if os.environ.get("TVX_BENCH_READER_MB", "20") != "0":
        want.update({("reader", "file", impl, None) for impl in ("tvx", "write", "cvc5parse")})
    return want


def fmt(x, digits=1):
    if x is None:
        return "-"
    if x >= 100:
        return "%.0f" % x
    return "%.*f" % (digits, x)


def main():
    out_dir = sys.argv[1]
    runs, _ = load(sys.argv[2:])
    want = expected()
    # The reader's generated script is its largest input: its row is the one with the peer.
    reader_sizes = sorted(n for (w, _, i, n) in runs if w == "reader" and i == "tvx")
    reader_big = reader_sizes[-1] if reader_sizes else None
    for (w, s, i, n) in list(want):
        if n is None:
            want.discard((w, s, i, n))
            if reader_big is not None:
                want.add((w, s, i, reader_big))
            elif i == "tvx":
                want.add((w, s, i, 0))  # no size known: the row is missing as a whole

    def missing(w, s, i, n):
        return (w, s, i, n) in want and (w, s, i, n) not in runs

    order = lambda k: (WORKLOADS.index(k[0]) if k[0] in WORKLOADS else 99, k[1], k[2])
    keys = sorted({(w, s, n) for (w, s, _, n) in runs} |
                  {(w, s, n) for (w, s, i, n) in want if i == "tvx"}, key=order)
    header = ["workload", "sink", "N", "terms", "tvx_ns", "z3_ns", "cvc5_ns", "limit_ns",
              "limit_kind", "z3/tvx", "cvc5/tvx", "tvx/limit", "tvx_MB/s", "tvx_bytes",
              "z3_bytes", "cvc5_bytes", "tvx_mem_B/term"]
    rows = []
    for (w, s, n) in keys:
        tvx = runs.get((w, s, "tvx", n))
        if tvx is None or not tvx["terms"]:
            if (w, s, "tvx", n) in want:
                rows.append(dict({h: None for h in header}, workload=w, sink=s, N=n,
                                 missing={"tvx_ns"}))
            continue
        terms = tvx["terms"]
        per = lambda r: r["ns"] / terms if r else None
        t = per(tvx)
        gone = set()
        z3 = z3_bytes = cvc5 = cvc5_bytes = None
        if w == "dag_global":
            log, nolog = runs.get((w, s, "z3log", n)), runs.get((w, s, "z3nolog", n))
            if log and nolog:
                z3 = (log["ns"] - nolog["ns"]) / terms
                z3_bytes = log["bytes"] or None
            elif missing(w, s, "z3log", n) or missing(w, s, "z3nolog", n):
                gone.add("z3_ns")
        elif w == "dag_scoped":
            r = runs.get((w, s, "z3print", n))
            z3, z3_bytes = per(r), (r["bytes"] if r else None)
            r = runs.get((w, s, "cvc5print", n))
            cvc5, cvc5_bytes = per(r), (r["bytes"] if r else None)
            if missing(w, s, "z3print", n):
                gone.add("z3_ns")
            if missing(w, s, "cvc5print", n):
                gone.add("cvc5_ns")
        elif w in ("env_dag", "env_small"):
            # z3's own API, without any tracing, against both of tvx's rows.
            z3 = per(runs.get((w, "off", "z3api", n)))
            if missing(w, "off", "z3api", n):
                gone.add("z3_ns")
        elif w == "env_process":
            # z3 reading a script of the same commands, against tvx driving z3 over a pipe.
            z3 = per(runs.get((w, "off", "z3script", n)))
            if missing(w, "off", "z3script", n):
                gone.add("z3_ns")
        elif w == "reader":
            cvc5 = per(runs.get((w, s, "cvc5parse", n)))
            if missing(w, s, "cvc5parse", n):
                gone.add("cvc5_ns")
        hand = runs.get((w, s, "hand", n))
        limit, kind = (per(hand), "hand") if hand else (per(runs.get((w, s, "write", n))), "write")
        if w in ("env_dag", "env_small", "env_process"):
            limit, kind = None, "-"
        elif limit is None and (missing(w, s, "hand", n) or missing(w, s, "write", n)):
            gone.add("limit_ns")
        mbs = tvx["bytes"] / tvx["ns"] * 1e3 if tvx["bytes"] else None
        rows.append({
            "workload": w, "sink": s, "N": n, "terms": int(terms), "tvx_ns": t, "z3_ns": z3,
            "cvc5_ns": cvc5, "limit_ns": limit, "limit_kind": kind,
            "z3/tvx": z3 / t if z3 else None, "cvc5/tvx": cvc5 / t if cvc5 else None,
            "tvx/limit": t / limit if limit else None, "tvx_MB/s": mbs,
            "tvx_bytes": int(tvx["bytes"] or 0), "z3_bytes": z3_bytes, "cvc5_bytes": cvc5_bytes,
            "tvx_mem_B/term": tvx["mem"], "missing": gone,
        })

    os.makedirs(out_dir, exist_ok=True)
    desc = machine()
    with open(os.path.join(out_dir, "machine.txt"), "w") as f:
        f.write(desc + "\n")

    def cell(r, h, text):
        if r[h] is None:
            return "MISSING" if h in r["missing"] else text
        if isinstance(r[h], float):
            return ("%.4g" % r[h]) if text == "" else fmt(r[h], 2)
        return str(r[h])

    with open(os.path.join(out_dir, "table.tsv"), "w") as f:
        f.write("\t".join(header) + "\n")
        for r in rows:
            f.write("\t".join(cell(r, h, "") for h in header) + "\n")

    # The table, ns per term (per call for small_calls and env_small, per byte for the reader).
    shown = ["workload", "sink", "N", "tvx_ns", "z3_ns", "cvc5_ns", "limit_ns", "limit_kind",
             "z3/tvx", "cvc5/tvx", "tvx/limit", "tvx_MB/s", "tvx_mem_B/term"]
    cells = [shown] + [[cell(r, h, "-") for h in shown] for r in rows]
    widths = [max(len(c[i]) for c in cells) for i in range(len(shown))]
    print("machine: " + desc)
    print("costs in ns per term (small_calls, env_small: per call; reader: per input byte); z3 in "
          "dag_global is the cost of its API log (log - no log); env rows: sink file = tvx::Solver "
          "with the z3 engine tracing (global mode) to a file, off = not tracing, z3 = z3's C API; "
          "env_process: the process engine over 'z3 -in', z3 = z3 reading the same commands")
    for c in cells:
        print("  ".join(x.rjust(widths[i]) for i, x in enumerate(c)))

    # The targets.
    print("\ntargets:")

    def row(w, s, n=None):
        cand = [r for r in rows if r["workload"] == w and r["sink"] == s]
        if n is not None:
            cand = [r for r in cand if r["N"] == n]
        return cand

    def verdict(ok):
        return "MET" if ok else "MISSED"

    def ratio(r, key, what, bound, at_most=True):
        if r[key] is None:
            print("  %s: MISSING" % what)
            return
        ok = r[key] <= bound if at_most else r[key] >= bound
        print("  %s = %5.2f (%s %g)  %s" % (what, r[key], "<=" if at_most else ">=", bound,
                                            verdict(ok)))

    for s in ("discard", "file"):
        for r in row("dag_global", s):
            ratio(r, "z3/tvx", "global %-7s N=%-8d z3 log / tvx" % (s, r["N"]), 2, False)
            ratio(r, "tvx/limit", "global %-7s N=%-8d tvx / hand" % (s, r["N"]), 3)
    for r in row("dag_global", "file"):
        if r["N"] >= 10000:
            ratio(r, "tvx/limit", "global file    N=%-8d tvx / hand (from 10^4)" % r["N"], 1.5)
    for r in row("dag_scoped", "discard"):
        for peer in ("z3", "cvc5"):
            what = "scoped discard N=%-8d %s printer / tvx" % (r["N"], peer)
            if r[peer + "/tvx"] is None:
                print("  %s: MISSING" % what)
                continue
            ok_size = r[peer + "_bytes"] is None or r["tvx_bytes"] <= r[peer + "_bytes"]
            print("  %s = %5.2f (>= 2)  %s; bytes tvx %d vs %s %s  %s" %
                  (what, r[peer + "/tvx"], verdict(r[peer + "/tvx"] >= 2), r["tvx_bytes"], peer,
                   r[peer + "_bytes"], verdict(ok_size)))
    for w in ("dag_global", "dag_scoped"):
        costs = [(r["N"], r["tvx_ns"]) for r in row(w, "discard") if r["tvx_ns"] is not None]
        if len(costs) > 1:
            lo, hi = min(c for _, c in costs), max(c for _, c in costs)
            print("  %s flat over N=%d..%d: max/min = %.2f (<= 1.25)  %s" %
                  (w, costs[0][0], costs[-1][0], hi / lo, verdict(hi / lo <= 1.25)))
        mems = [r["tvx_mem_B/term"] for r in row(w, "discard") if r["tvx_mem_B/term"]]
        if mems:
            print("  %s tracer memory: max %.1f B per defined term (<= 40)  %s" %
                  (w, max(mems), verdict(max(mems) <= 40)))
    for r in row("small_calls", "file"):
        ratio(r, "tvx/limit", "small calls file: tvx / (write+flush per call)", 1.3)
    for w in ("env_dag", "env_small"):
        for s, bound in (("file", 1.5), ("off", 1.25)):
            for r in row(w, s):
                if r["z3/tvx"] is not None:
                    r["tvx/z3"] = 1 / r["z3/tvx"]
                else:
                    r["tvx/z3"] = None
                ratio(r, "tvx/z3", "%s %-4s N=%-8d tvx::Solver / z3 API" % (w, s, r["N"]), bound)
    for r in row("env_process", "off"):
        r["tvx/z3"] = 1 / r["z3/tvx"] if r["z3/tvx"] is not None else None
        ratio(r, "tvx/z3", "env_process N=%-8d tvx::Solver over 'z3 -in' / z3 on the script"
              % r["N"], 1.5)
    if reader_big is None:
        print("  reader: MISSING")
    for r in row("reader", "file", reader_big):
        ratio(r, "cvc5/tvx", "reader N=%d cvc5 --parse-only / tvx-trace" % r["N"], 5, False)


if __name__ == "__main__":
    main()
