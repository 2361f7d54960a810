#!/usr/bin/env python3
"""Draws cost per term against N (both axes logarithmic) from bench/results/table.tsv as SVG.

Usage: plot.py TABLE.tsv OUT.svg

Uses the standard library only: the SVG is written by hand. Series come from the rows of the
discarding sink (the implementations' own cost): tvx in both modes, z3's API log and printer,
cvc5's printer, and the hand-written formatter (the limit).
"""
import csv
import math
import sys

SERIES = [
    # label, workload, column, colour, dashed
    ("tvx global-declarations", "dag_global", "tvx_ns", "#1f77b4", False),
    ("tvx scoped", "dag_scoped", "tvx_ns", "#2ca02c", False),
    ("z3 API log", "dag_global", "z3_ns", "#d62728", False),
    ("z3 printer", "dag_scoped", "z3_ns", "#ff7f0e", False),
    ("cvc5 printer", "dag_scoped", "cvc5_ns", "#9467bd", False),
    ("limit: hand formatter", "dag_global", "limit_ns", "#555555", True),
]


def main():
    table, out = sys.argv[1], sys.argv[2]
    with open(table) as f:
        rows = [r for r in csv.DictReader(f, delimiter="\t") if r["sink"] == "discard"]
    lines = []
    for label, workload, column, colour, dashed in SERIES:
        pts = sorted((int(r["N"]), float(r[column])) for r in rows
                     if r["workload"] == workload and r[column] not in ("", None, "MISSING")
                     and float(r[column]) > 0)
        if pts:
            lines.append((label, colour, dashed, pts))
    if not lines:
        sys.exit("no data to plot")
    xs = [x for _, _, _, p in lines for x, _ in p]
    ys = [y for _, _, _, p in lines for _, y in p]
    x0, x1 = math.floor(math.log10(min(xs))), math.ceil(math.log10(max(xs)))
    y0, y1 = math.floor(math.log10(min(ys))), math.ceil(math.log10(max(ys)))
    if x1 == x0:
        x1 += 1
    if y1 == y0:
        y1 += 1
    w, h, left, right, top, bottom = 760, 460, 70, 210, 40, 50
    pw, ph = w - left - right, h - top - bottom

    def px(x):
        return left + (math.log10(x) - x0) / (x1 - x0) * pw

    def py(y):
        return top + ph - (math.log10(y) - y0) / (y1 - y0) * ph

    svg = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" '
           'font-family="sans-serif" font-size="12">' % (w, h),
           '<rect width="100%" height="100%" fill="white"/>',
           '<text x="%d" y="22" font-size="14">Cost per term against N (discarding sink)</text>'
           % left]
    for e in range(x0, x1 + 1):
        x = px(10**e)
        svg.append('<line x1="%.1f" y1="%d" x2="%.1f" y2="%d" stroke="#ddd"/>' %
                   (x, top, x, top + ph))
        svg.append('<text x="%.1f" y="%d" text-anchor="middle">10<tspan dy="-5" '
                   'font-size="9">%d</tspan></text>' % (x, top + ph + 18, e))
    for e in range(y0, y1 + 1):
        y = py(10**e)
        svg.append('<line x1="%d" y1="%.1f" x2="%d" y2="%.1f" stroke="#ddd"/>' %
                   (left, y, left + pw, y))
        svg.append('<text x="%d" y="%.1f" text-anchor="end">10<tspan dy="-5" '
                   'font-size="9">%d</tspan></text>' % (left - 8, y + 4, e))
    svg.append('<rect x="%d" y="%d" width="%d" height="%d" fill="none" stroke="black"/>' %
               (left, top, pw, ph))
    svg.append('<text x="%d" y="%d" text-anchor="middle">N (distinct terms)</text>' %
               (left + pw / 2, h - 10))
    svg.append('<text transform="translate(18,%d) rotate(-90)" text-anchor="middle">'
               'ns per term</text>' % (top + ph / 2))
    for i, (label, colour, dashed, pts) in enumerate(lines):
        d = " ".join("%.1f,%.1f" % (px(x), py(y)) for x, y in pts)
        dash = ' stroke-dasharray="6,4"' if dashed else ""
        svg.append('<polyline points="%s" fill="none" stroke="%s" stroke-width="2"%s/>' %
                   (d, colour, dash))
        for x, y in pts:
            svg.append('<circle cx="%.1f" cy="%.1f" r="3" fill="%s"/>' % (px(x), py(y), colour))
        ly = top + 10 + i * 20
        svg.append('<line x1="%d" y1="%d" x2="%d" y2="%d" stroke="%s" stroke-width="2"%s/>' %
                   (left + pw + 12, ly, left + pw + 36, ly, colour, dash))
        svg.append('<text x="%d" y="%d">%s</text>' % (left + pw + 42, ly + 4, label))
    svg.append("</svg>")
    with open(out, "w") as f:
        f.write("\n".join(svg) + "\n")


if __name__ == "__main__":
    main()
