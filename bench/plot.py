#!/usr/bin/env python3
"""Draws the time of a call over the size of its input: plot.py BENCHMARK.json > FILE.svg

The benchmarks are named PANEL/CURVE/SIZE; the table below says which of them a program's plot shows. Both axes are
logarithmic.
"""
import json
import math
import os
import sys

TIMES = {1: "1 ns", 10: "10 ns", 100: "100 ns", 1000: "1 µs", 10**4: "10 µs", 10**5: "100 µs", 10**6: "1 ms",
         10**7: "10 ms", 10**8: "100 ms", 10**9: "1 s", 10**10: "10 s"}
PLOTS = {
    "eloop_bench": {
        "time": "processor time of one dispatch",
        "over": "registered sockets",
        "sizes": (1, 16, 64, 256, 900),
        "limit": 1000,
        "panels": {"ready": ("all sockets ready", 30, 200000), "idle": ("one ready, the others idle", 30, 200000)},
        "curves": {"eloop": ("libtq, eloop", "#c0392b"), "uloop": ("libubox, uloop", "#2471a3"),
                   "libevent_select": ("libevent, select", "#b9770e"), "libevent_epoll": ("libevent, epoll", "#1e8449")},
    },
    "iniparser_bench": {
        "time": "processor time",
        "over": "keys in the file",
        "sizes": (10, 100, 1000, 10000, 100000),
        "limit": 100000,
        "panels": {"load": ("load a file", 1000, 10**10), "get": ("get a value", 10, 10**6)},
        "curves": {"libtq": ("libtq", "#c0392b"), "libiniparser": ("libiniparser 4.1", "#2471a3"),
                   "inih": ("inih, which stores nothing", "#1e8449")},
    },
}
WIDTH, HEIGHT, LEFT, TOP, GAP = 300, 240, 84, 60, 80


def read(path, plot):
    """(panel, curve) -> [(size, nanoseconds)]; medians where there are repetitions."""
    curves = {}
    for row in json.load(open(path))["benchmarks"]:
        if row.get("aggregate_name", "median") != "median":
            continue
        panel, curve, *rest = row["run_name"].split("/")
        if panel in plot["panels"] and curve in plot["curves"]:
            curves.setdefault((panel, curve), {})[int(rest[0])] = row["cpu_time"]
    return {key: sorted(points.items()) for key, points in curves.items()}


def draw_panel(plot, panel, curves, left):
    title, low, high = plot["panels"][panel]
    first, last = plot["sizes"][0], plot["limit"]
    x = lambda size: left + WIDTH * math.log(size / first) / math.log(last / first)
    y = lambda time: TOP + HEIGHT * math.log(high / time) / math.log(high / low)
    yield f'<text x="{left + WIDTH / 2}" y="{TOP - 12}" text-anchor="middle" font-weight="bold">{title}</text>'
    yield f'<rect x="{left}" y="{TOP}" width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#888"/>'
    for size in plot["sizes"]:
        yield f'<path d="M{x(size):.0f} {TOP}v{HEIGHT}" stroke="#eee"/>'
        yield f'<text x="{x(size):.0f}" y="{TOP + HEIGHT + 17}" text-anchor="middle">{size}</text>'
    yield f'<text x="{left + WIDTH / 2}" y="{TOP + HEIGHT + 36}" text-anchor="middle">{plot["over"]}</text>'
    for time, label in TIMES.items():
        if low <= time <= high:
            yield f'<path d="M{left} {y(time):.0f}h{WIDTH}" stroke="#ddd"/>'
            yield f'<text x="{left - 5}" y="{y(time) + 4:.0f}" text-anchor="end">{label}</text>'
    for curve, (_, colour) in plot["curves"].items():
        points = [(x(size), y(time)) for size, time in curves.get((panel, curve), [])]
        line = " ".join(f"{across:.1f},{down:.1f}" for across, down in points)
        yield f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>'
        for across, down in points:
            yield f'<circle cx="{across:.1f}" cy="{down:.1f}" r="3" fill="{colour}"/>'


def main():
    path = sys.argv[1]
    plot = PLOTS[os.path.splitext(os.path.basename(path))[0]]
    curves = read(path, plot)
    middle = TOP + HEIGHT / 2
    print('<svg xmlns="http://www.w3.org/2000/svg" width="790" height="350" font-family="sans-serif" font-size="12">')
    print('<rect width="100%" height="100%" fill="white"/>')
    for index, (name, colour) in enumerate(plot["curves"].values()):
        left = LEFT + index * 170
        print(f'<path d="M{left} 20h24" stroke="{colour}" stroke-width="2"/><circle cx="{left + 12}" cy="20" r="3" fill="{colour}"/>')
        print(f'<text x="{left + 30}" y="24">{name}</text>')
    print(f'<text transform="translate(16 {middle}) rotate(-90)" text-anchor="middle">{plot["time"]}</text>')
    for index, panel in enumerate(plot["panels"]):
        print("\n".join(draw_panel(plot, panel, curves, LEFT + index * (WIDTH + GAP))))
    print("</svg>")


main()
