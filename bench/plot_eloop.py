#!/usr/bin/env python3
"""Draws nanoseconds a dispatch over the number of sockets: plot_eloop.py eloop_bench.json > FILE.svg"""
import json
import math
import sys

LOOPS = {"eloop": "#c0392b", "uloop": "#2471a3", "libevent_select": "#b9770e", "libevent_epoll": "#1e8449"}
TITLES = {"ready": "all sockets ready", "idle": "one ready, the others idle"}
WIDTH, HEIGHT, LEFT, TOP = 300, 240, 60, 40


def read(path):
    """(kind, loop) -> [(sockets, nanoseconds)]; medians where there are repetitions."""
    curves = {}
    for row in json.load(open(path))["benchmarks"]:
        if row.get("aggregate_name", "median") != "median":
            continue
        kind, loop, *rest = row["run_name"].split("/")
        if kind in TITLES and loop in LOOPS:
            curves.setdefault((kind, loop), {})[int(rest[0])] = row["cpu_time"]
    return {key: sorted(points.items()) for key, points in curves.items()}


def panel(kind, curves, left):
    low, high = math.log10(30), math.log10(200000)
    x = lambda sockets: left + WIDTH * math.log10(sockets) / 3
    y = lambda time: TOP + HEIGHT * (high - math.log10(time)) / (high - low)
    yield f'<text x="{left + WIDTH / 2}" y="{TOP - 14}" text-anchor="middle">{TITLES[kind]}</text>'
    yield f'<rect x="{left}" y="{TOP}" width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#888"/>'
    for sockets in (1, 16, 64, 256, 900):
        yield f'<text x="{x(sockets):.0f}" y="{TOP + HEIGHT + 16}" text-anchor="middle">{sockets}</text>'
    for time, label in ((100, "100 ns"), (1000, "1 µs"), (10000, "10 µs"), (100000, "100 µs")):
        yield f'<path d="M{left} {y(time):.0f}h{WIDTH}" stroke="#ddd"/>'
        yield f'<text x="{left - 5}" y="{y(time) + 4:.0f}" text-anchor="end">{label}</text>'
    for loop, colour in LOOPS.items():
        points = " ".join(f"{x(s):.1f},{y(t):.1f}" for s, t in curves.get((kind, loop), []))
        yield f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"/>'


def main():
    curves = read(sys.argv[1])
    print('<svg xmlns="http://www.w3.org/2000/svg" width="780" height="350" font-family="sans-serif" font-size="12">')
    print('<rect width="100%" height="100%" fill="white"/>')
    for index, kind in enumerate(TITLES):
        print("\n".join(panel(kind, curves, LEFT + index * (WIDTH + 75))))
    for index, (loop, colour) in enumerate(LOOPS.items()):
        left = LEFT + index * 140
        print(f'<path d="M{left} 330h20" stroke="{colour}" stroke-width="2"/><text x="{left + 26}" y="334">{loop}</text>')
    print(f'<text x="{LEFT + 600}" y="334">over sockets</text>\n</svg>')


main()
