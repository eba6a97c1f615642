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


def samples(*names):
    """Name of each benchmark to its samples in ns, one per repetition, and its counters."""
    result = {}
    for name in names:
        for run in load(name)["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            entry = result.setdefault(run["run_name"], {"ns": [], "counters": {}})
            # Threads of other programs make real time longer; only what waits for another process is measured by it.
            entry["ns"].append(run["real_time" if run["run_name"].endswith("real_time") else "cpu_time"])
            entry["counters"] = {key: run[key] for key in ("writes", "allocations", "allocs/report", "allocs") if key in run}
    return result


def median(values):
    return statistics.median(values)


runs = samples("events.json", "xtest.json", "micro.json")
events = []
for name, entry in runs.items():
    base, _, kind = name.removesuffix("/real_time").rpartition("/")
    if kind != "library":
        continue
    floor = runs[name.replace("/library", "/floor")]
    writes = entry["counters"].get("writes", 0)
    case, _, backend = base.rpartition("/")
    events.append({
        "case": case,
        "writes_are": backend,
        "writes": writes,
        "library_ns": median(entry["ns"]),
        "floor_ns": median(floor["ns"]),
        "ratio": median(entry["ns"]) / median(floor["ns"]),
        "allocations": entry["counters"].get("allocations", 0),
    })

growth = {}
for name, entry in runs.items():
    if name.startswith("growth: "):
        axis, _, size = name.removeprefix("growth: ").partition("/")
        growth.setdefault(axis, []).append({"size": int(size), "ns": median(entry["ns"])})

hop, loads = load("hop.json"), load("load.json")
machine = load("events.json")["context"]
result = {
    "machine": {key: machine[key] for key in ("date", "num_cpus", "mhz_per_cpu", "load_avg") if key in machine},
    "events": events,
    "growth": growth,
    "hop": hop,
    "load": loads,
}
(out / "bench.json").write_text(json.dumps(result, indent=2) + "\n")

print(f"{'event':<22} {'a write is':<10} {'writes':>6} {'library ns':>11} {'floor ns':>10} {'ratio':>6} {'allocs':>7}")
for row in events:
    ratio = f"{row['ratio']:.2f}" if row["writes"] and row["writes_are"] != "nothing" or row["writes_are"] == "xtest" else "-"
    print(f"{row['case']:<22} {row['writes_are']:<10} {row['writes']:>6.1f} {row['library_ns']:>11.0f} "
          f"{row['floor_ns']:>10.0f} {ratio:>6} {row['allocations']:>7.3f}")
print(f"{'button, idle queue':<22} {'write':<10} {2:>6} {hop['library_ns']:>11} {hop['floor_ns']:>10} {hop['ratio']:>6.2f}")
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
