#!/usr/bin/env python3
"""Turns what the benchmarks wrote into one table, one JSON file and pictures.

    bench-report.py RAW-FOLDER OUT-FOLDER
"""
import json
import pathlib
import statistics
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

raw, out = (pathlib.Path(argument) for argument in sys.argv[1:3])

LIBRARY, FLOOR, GRID = "#1b65d6", "#8a94a3", "#dfe4ec"


def load(name):
    return json.loads((raw / name).read_text())


def runs(name):
    """The runs of one program: name of each benchmark to its runs, of all processes and repetitions."""
    result = {}
    for file in sorted(raw.glob(f"{name}.*.json")):
        for run in json.loads(file.read_text())["benchmarks"]:
            if run["run_type"] == "iteration":
                result.setdefault(run["run_name"].removesuffix("/manual_time"), []).append(run)
    return result


def median(entry, key):
    return statistics.median(run[key] for run in entry)


events = []
growth = {}
for source, suffix in (("events", ""), ("xtest", ""), ("sigpipe", ", SIGPIPE kept away")):
    for name, entry in runs(source).items():
        if name.startswith("growth: "):
            continue
        case, _, backend = name.rpartition("/")
        events.append({
            "case": case,
            "writes_are": backend + suffix,
            "writes": median(entry, "writes"),
            "library_ns": median(entry, "library_ns"),
            "floor_ns": median(entry, "floor_ns"),
            "ratio": median(entry, "ratio"),
            "ratios": sorted(run["ratio"] for run in entry),
            "allocations": median(entry, "allocations"),
        })
for name, entry in (runs("events") | runs("micro")).items():
    if name.startswith("growth: "):
        axis, _, size = name.removeprefix("growth: ").partition("/")
        growth.setdefault(axis, []).append({"size": int(size), "ns": median(entry, "cpu_time")})

for points in growth.values():
    points.sort(key=lambda point: point["size"])

hop, loads = load("hop.json"), load("load.json")
machine = load("events.1.json")["context"]
result = {
    "machine": {key: machine[key] for key in ("date", "num_cpus", "mhz_per_cpu", "load_avg") if key in machine},
    "events": events,
    "growth": growth,
    "hop": hop,
    "load": loads,
}
(out / "bench.json").write_text(json.dumps(result, indent=2) + "\n")

print(f"{'event':<22} {'a write is':<26} {'writes':>6} {'library ns':>11} {'floor ns':>9} {'ratio':>6}"
      f" {'of processes':>12} {'allocs':>6}")
for row in events:
    xtest = row["writes_are"].startswith("xtest")
    bare = not xtest and (row["writes_are"] == "nothing" or not row["writes"])
    ratios = "" if bare else f"{row['ratio']:>6.3f}  {row['ratios'][0]:.2f} - {row['ratios'][-1]:.2f}"
    print(f"{row['case']:<22} {row['writes_are']:<26} {row['writes']:>6.0f} {row['library_ns']:>11.0f} "
          f"{row['floor_ns']:>9.0f} {ratios:<19} {row['allocations']:>6.3f}")
for name, way in (("same_processor", "the same processor"), ("other_processor", "another processor")):
    if name in hop:
        row = hop[name]
        print(f"{'button, idle queue':<22} {way:<26} {2:>6} {row['library_ns']:>11} {row['floor_ns']:>9} "
              f"{row['ratio']:>6.3f}  {min(row['ratios']):.2f} - {max(row['ratios']):.2f}")
print(f"\nidle: {hop['idle_cpu_share'] * 100:.3f} % of a core")
for axis, points in growth.items():
    print(f"{axis}: " + ", ".join(f"{p['size']}: {p['ns']:.0f} ns" for p in points))
print(f"load {loads[0]['load_us'] / 1000:.1f} ms, ready after {loads[0]['ready_us'] / 1000:.1f} ms, "
      f"an open stream holds {loads[0]['heap_kib']:.0f} KiB of heap and {loads[0]['threads']:.0f} threads")
print("settings file: " + ", ".join(f"{row['settings_lines']} lines: {row['load_us'] / 1000:.1f} ms" for row in loads))

plt.rcParams.update({"font.size": 10, "axes.grid": True, "grid.color": GRID, "axes.axisbelow": True})

# Where one event goes: the floor, and what the library adds to it.
written = sorted((row for row in events if row["writes_are"] == "write" and row["writes"]), key=lambda row: row["floor_ns"])
figure, axes = plt.subplots(figsize=(9, 3.8))
names = [row["case"] for row in written]
axes.barh(names, [row["floor_ns"] for row in written], color=FLOOR, label="writes and clock reads (the floor)")
axes.barh(names, [max(row["library_ns"] - row["floor_ns"], 0) for row in written], left=[row["floor_ns"] for row in written],
          color=LIBRARY, label="the library's own")
for y, row in enumerate(written):
    axes.text(max(row["library_ns"], row["floor_ns"]), y, f"  {row['ratio']:.2f}", va="center")
axes.invert_yaxis()
axes.set_xlabel("ns per event, writes to /dev/null; behind the bar: ratio to the floor")
axes.margins(x=0.1)
axes.legend(loc="upper right")
axes.set_title("What one event costs")
figure.tight_layout()
figure.savefig(out / "events.png", dpi=110)

figure, axes = plt.subplots(1, 2, figsize=(11, 3.8))
for axis, points in growth.items():
    axes[0].plot([max(p["size"], 0.5) for p in points], [p["ns"] for p in points], marker="o", label=axis)
axes[0].set_xscale("log")
axes[0].set_ylim(bottom=0)
axes[0].set_xlabel("how many (0 is drawn at 0.5)")
axes[0].set_ylabel("ns per event")
axes[0].set_title("Cost of an event as things grow")
axes[0].legend()
axes[1].plot([max(row["settings_lines"], 1) for row in loads], [row["load_us"] / 1000 for row in loads], marker="o", color=LIBRARY)
axes[1].set_xscale("log")
axes[1].set_ylim(bottom=0)
axes[1].set_xlabel("lines of the settings file (none is drawn at 1)")
axes[1].set_ylabel("ms")
axes[1].set_title("Loading the library")
figure.tight_layout()
figure.savefig(out / "growth.png", dpi=110)
