#!/usr/bin/env python3
"""Writes the report of the benchmarks.

    report.py RESULTS OUTPUT.md IMAGES    the whole report, with pictures in the directory IMAGES
    report.py --check RESULTS             looks whether a quick run measured something everywhere

RESULTS is a directory with the records that scripts/bench.sh leaves: NAME.PASS.jsonl of the
programs, instructions.txt and environment.txt. A ratio is taken between measurements of the same
pass and round, which lie close together in time; the report gives the median of these ratios,
which is therefore not always the ratio of the medians.
"""

import json
import math
import os
import statistics
import sys
from collections import defaultdict

OURS = "vorn"
TREES = ["1k", "10k", "100k", "1M", "wide"]
TREE_SIZES = {"1k": 1e3, "10k": 1e4, "100k": 1e5, "1M": 1e6}

NAMES = {
    "vorn": "vorn",
    "absl": "absl, whole path, four calls",
    "hash_only": "hash of the path alone",
    "nested_maps": "nested hash maps",
    "nlohmann": "nlohmann, pointer made ahead",
    "nlohmann_text": "nlohmann, from text",
    "rapidjson": "rapidjson, pointer made ahead",
    "gkeyfile": "GKeyFile",
    "property_tree": "Boost.PropertyTree",
    "absl_shared_mutex": "absl behind a shared_mutex",
}

# What is compared: the work, what with, our side, the other side, must, aim; sides as (row, side).
# The ratio is ours to the other's; "must" and "aim" are the most it may be.
COMPARISONS = [
    *((f"read int, hot, {size}", "absl, whole path, four calls",
       (f"read_hot_{tree}", OURS), (f"read_hot_{tree}", "absl"), 1.0, 0.8)
      for tree, size in (("1k", "1k values"), ("100k", "100k values"), ("1M", "1M values"),
                         ("wide", "one node with 100k children"))),
    ("read int, all paths of 1M, random", "absl, whole path, four calls",
     ("read_all_1M", OURS), ("read_all_1M", "absl"), 1.2, 0.7),
    ("read, 1M hot", "1k hot, ourselves", ("read_hot_1M", OURS), ("read_hot_1k", OURS), 1.3, 1.1),
    ("read, hot, 1M values", "nlohmann, pointer made ahead",
     ("read_hot_1M", OURS), ("read_hot_1M", "nlohmann"), 0.25, 0.18),
    ("overwrite int, hot, 1M values, nobody subscribed", "absl, whole path, four calls",
     ("overwrite_hot_1M", OURS), ("overwrite_hot_1M", "absl"), 1.1, 0.9),
    ("overwrite, one node and three tree subscriptions called", "our overwrite without",
     ("overwrite_watched", "watched"), ("overwrite_watched", "plain"), 4.0, 3.0),
    ("create 1M values, each", "nlohmann, walked by names",
     ("create_1M", OURS), ("create_1M", "nlohmann"), 1.0, 0.75),
    ("array of 1,000 int64, overwrite", "nlohmann, assigned from a vector",
     ("array_overwrite", OURS), ("array_overwrite", "nlohmann"), 0.5, 0.1),
    ("array of 1,000 int64, read whole", "nlohmann",
     ("array_read", OURS), ("array_read", "nlohmann"), 3.0, 2.0),
    ("array of 1,000 int64, read one element", "nlohmann",
     ("array_element", OURS), ("array_element", "nlohmann"), 0.6, 0.4),
    ("merge of 10,000 values, half existing", "rapidjson, recursive merge by hand",
     ("merge", OURS), ("merge", "rapidjson"), 1.2, 0.6),
    ("transaction of 100 writes and commit, kept and used again", "100 direct writes",
     ("transaction", "kept"), ("transaction", "direct"), 2.0, 1.5),
    ("transaction of 100 writes and commit, made for it", "100 direct writes",
     ("transaction", "fresh"), ("transaction", "direct"), 2.0, 1.5),
    ("read beside a writer that never pauses", "reading alone",
     ("reader_beside_writer", OURS), ("reader_alone", OURS), 1.5, 1.2),
    ("FreeListAllocator, a pair", "boost::pool",
     ("pool_pair", OURS), ("pool_pair", "boost_pool"), 1.2, 1.0),
    ("FreeListAllocator, pairs in batches of 64", "boost::pool",
     ("pool_batch", OURS), ("pool_batch", "boost_pool"), 1.2, 1.0),
    ("pooled string of 16 to 500 bytes, made and given back", "malloc, same mutex",
     ("string_pair", OURS), ("string_pair", "malloc"), 0.6, 0.5),
    ("pooled string, one of 256 live ones replaced", "malloc, same mutex",
     ("string_live", OURS), ("string_live", "malloc"), 0.6, 0.5),
    ("pooled string, 1,000 made, then given back", "malloc, same mutex",
     ("string_batch", OURS), ("string_batch", "malloc"), 0.6, 0.5),
    ("dispatch to 100 subscriptions of one path, the write included",
     "100 plain function pointers",
     ("dispatch_100", OURS), ("dispatch_100", "function_pointers"), 2.0, 1.3),
    ("remove 100,000 subscriptions in creation order, a path each", "adding them",
     ("subscribe_apart", "remove"), ("subscribe_apart", "add"), 2.0, 1.0),
    ("remove 100,000 subscriptions in creation order, of one path", "adding them",
     ("subscribe_together", "remove"), ("subscribe_together", "add"), 2.0, 1.0),
]

# Measured as well, without a figure to reach.
FOR_INFORMATION = [
    ("array of 1,000 int64, overwrite", "nlohmann, element by element",
     ("array_overwrite", OURS), ("array_overwrite", "nlohmann_in_place")),
    ("create 1M values, each", "nlohmann, json_pointer from text",
     ("create_1M", OURS), ("create_1M", "nlohmann_text")),
    ("create 1M values, each", "absl, whole path", ("create_1M", OURS), ("create_1M", "absl")),
    ("create 1M values, each", "rapidjson", ("create_1M", OURS), ("create_1M", "rapidjson")),
    ("overwrite int, hot, 1M values", "nested hash maps",
     ("overwrite_hot_1M", OURS), ("overwrite_hot_1M", "nested_maps")),
    ("overwrite int, hot, 1M values", "nlohmann, pointer made ahead",
     ("overwrite_hot_1M", OURS), ("overwrite_hot_1M", "nlohmann")),
    ("overwrite int, hot, 1M values", "rapidjson, pointer made ahead",
     ("overwrite_hot_1M", OURS), ("overwrite_hot_1M", "rapidjson")),
    ("merge of 10,000 values, half existing", "nlohmann, update with merging",
     ("merge", OURS), ("merge", "nlohmann")),
    ("dispatch to 100 subscriptions of one path", "sigc++ signal",
     ("dispatch_100", OURS), ("dispatch_100", "sigc")),
    ("read beside a thread that creates and removes values", "reading alone",
     ("reader_beside_creator", OURS), ("reader_alone", OURS)),
    ("read beside a thread that overwrites the same values", "reading alone",
     ("reader_beside_same", OURS), ("reader_alone", OURS)),
    ("read beside a writer that never pauses", "absl behind a shared_mutex, the same",
     ("reader_beside_writer", OURS), ("reader_beside_writer", "absl_shared_mutex")),
]


class Records:
    """Every measurement, by row and side, then by (pass, round)."""

    def __init__(self, directory):
        self.runs = defaultdict(dict)
        for name in sorted(os.listdir(directory)):
            if name.endswith(".jsonl"):
                with open(os.path.join(directory, name), encoding="utf-8") as lines:
                    for line in lines:
                        run = json.loads(line)
                        key = (name.split(".")[1], run["round"])
                        self.runs[run["row"], run["side"]][key] = run
        if not self.runs:
            sys.exit(f"{directory}: no records")

    def sides(self, row):
        return [side for found, side in self.runs if found == row]

    def values(self, of, field="ns"):
        if of not in self.runs:
            sys.exit("not measured: " + "/".join(of))
        return {key: run[field] for key, run in self.runs[of].items()}

    def median(self, of, field="ns"):
        return statistics.median(self.values(of, field).values())

    def ratios(self, ours, other):
        """The ratios of all rounds, sorted."""
        our_values, other_values = self.values(ours), self.values(other)
        common = our_values.keys() & other_values.keys()
        if len(common) < 5:
            sys.exit(f"{ours} and {other}: fewer than five rounds in common")
        return sorted(our_values[key] / other_values[key] for key in common)

    def processor_share(self):
        """What part of their time the measured threads really ran, in percent."""
        timed = [run for runs in self.runs.values() for run in runs.values() if "cpu" in run]
        return 100 * sum(run["cpu"] / run["ns"] for run in timed) / len(timed)


def duration(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}"
    return f"{ns:.3g} ns"


def table(header, rows):
    """A Markdown table; every column but the first is aligned to the right."""
    lines = ["| " + " | ".join(header) + " |", "|---" + "|--:" * (len(header) - 1) + "|"]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines)


def reached(is_reached):
    return "yes" if is_reached else "**no**"


def name_of(side):
    return NAMES.get(side, side.replace("_", " "))


# -- tables


def comparison_table(records):
    rows = []
    for work, against, ours, other, must, aim in COMPARISONS:
        ratios = records.ratios(ours, other)
        ratio = statistics.median(ratios)
        rows.append((work, against, duration(records.median(ours)),
                     duration(records.median(other)), f"{ratio:.2f}",
                     f"{ratios[0]:.2f} to {ratios[-1]:.2f}", f"{must:g}", f"{aim:g}",
                     reached(ratio <= must), reached(ratio <= aim)))

    ratios = sorted(2 / ratio
                    for ratio in records.ratios(("readers_2", OURS), ("readers_1", OURS)))
    scaling = statistics.median(ratios)
    rows.append(("two readers, reads per second", "one reader",
                 duration(records.median(("readers_2", OURS)) / 2),
                 duration(records.median(("readers_1", OURS))), f"{scaling:.2f}",
                 f"{ratios[0]:.2f} to {ratios[-1]:.2f}", "at least 1.85", "at least 1.95",
                 reached(scaling >= 1.85), reached(scaling >= 1.95)))

    resident = sorted(records.values(("create_1M", OURS), "resident").values())
    heap = statistics.median(resident)
    rows.append(("heap per value at 1M, everything included", "", f"{heap:.1f} bytes", "", "",
                 f"{resident[0]:.1f} to {resident[-1]:.1f}", "100 bytes", "64 bytes",
                 reached(heap <= 100), reached(heap <= 64)))

    worst = max(count for side in records.sides("allocations") if not side.startswith("known")
                for count in records.values(("allocations", side), "allocations").values())
    rows.append(("allocations in 10,000 scalar reads or writes, element accesses, dispatches", "",
                 f"{worst:g}", "", "", "", "0", "0", reached(worst == 0), reached(worst == 0)))
    return table(("work", "against", "ours", "theirs", "ratio", "lowest to highest", "must", "aim",
                  "must reached", "aim reached"), rows)


def information_table(records):
    return table(("work", "against", "ours", "theirs", "ratio"),
                 [(work, against, duration(records.median(ours)),
                   duration(records.median(other)),
                   f"{statistics.median(records.ratios(ours, other)):.2f}")
                  for work, against, ours, other in FOR_INFORMATION])


def read_table(records, row_of_tree):
    sides = records.sides(row_of_tree + "1M")
    return table(["nanoseconds per read", *TREES],
                 [[name_of(side)] +
                  [f"{records.median((row_of_tree + tree, side)):.1f}"
                   if side in records.sides(row_of_tree + tree) else "" for tree in TREES]
                  for side in sides])


def creation_table(records):
    return table(("", "time per value", "resident, bytes per value", "malloc, bytes per value"),
                 [(name_of(side), duration(records.median(("create_1M", side))),
                   f"{records.median(('create_1M', side), 'resident'):.1f}",
                   f"{records.median(('create_1M', side), 'malloc'):.1f}")
                  for side in records.sides("create_1M")])


def thread_table(records):
    rows = ["readers_1", "readers_2", "reader_alone", "reader_beside_writer",
            "reader_beside_creator", "reader_beside_same"]
    sides = [OURS, "absl_shared_mutex"]
    return table(["time per read of one thread", *map(name_of, sides)],
                 [[row.replace("_", " ")] +
                  [duration(records.median((row, side))) if side in records.sides(row) else ""
                   for side in sides] for row in rows])


def allocation_table(records):
    return table(("10,000 operations of", "allocations"),
                 [(side.replace("_", " "),
                   f"{max(records.values(('allocations', side), 'allocations').values()):g}")
                  for side in records.sides("allocations")])


def instruction_table(directory):
    counted = defaultdict(list)
    with open(os.path.join(directory, "instructions.txt"), encoding="utf-8") as lines:
        for line in lines:
            side, operation, count, instructions = line.split()
            counted[side, operation].append((int(count), int(instructions)))
    per_operation = {}
    for key, runs in counted.items():
        (short, few), (long, many) = sorted(runs)
        per_operation[key] = (many - few) / (long - short)
    sides = ["vorn", "absl"]
    return table(["instructions per", *map(name_of, sides)],
                 [[operation] + [f"{per_operation[side, operation]:.0f}" for side in sides]
                  for operation in ("read", "write")])


# -- pictures

PALETTE = ["#c0392b", "#2471a3", "#909497", "#1e8449", "#7d3c98", "#a569bd", "#b9770e", "#148f77",
           "#5d6d7e"]


class Picture:
    def __init__(self, width, height, title):
        self.parts = [
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
            f'viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="12">',
            f'<rect width="{width}" height="{height}" fill="#ffffff"/>',
        ]
        self.text(width / 2, 22, title, anchor="middle", size=15)

    def text(self, x, y, text, anchor="start", size=12, color="#222222"):
        text = text.replace("&", "&amp;").replace("<", "&lt;")
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" '
                          f'font-size="{size}" fill="{color}">{text}</text>')

    def line(self, points, color, width=1.0):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{path}" fill="none" stroke="{color}" '
                          f'stroke-width="{width}"/>')

    def dot(self, x, y, color):
        self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{color}"/>')

    def bar(self, x, y, width, height, color):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" '
                          f'height="{height:.1f}" fill="{color}"/>')

    def save(self, path):
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join(self.parts + ["</svg>"]) + "\n")


def log_position(value, low, high):
    """Where value lies between low and high on a logarithmic scale, from 0 to 1."""
    return math.log(value / low) / math.log(high / low)


def draw_sizes(records, row_of_tree, title, path):
    """Time of a read over the size of the tree, both logarithmic."""
    left, right, top, bottom = 70, 470, 40, 380
    lowest, highest = 5.0, 10000.0
    picture = Picture(720, 430, title)

    def x_of(size):
        return left + (right - left) * log_position(size, 1e3, 1e6)

    def y_of(ns):
        return bottom - (bottom - top) * log_position(ns, lowest, highest)

    for ns in (5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000):
        picture.line([(left, y_of(ns)), (right, y_of(ns))], "#dddddd")
        picture.text(left - 8, y_of(ns) + 4, f"{ns:,} ns", anchor="end")
    for tree, size in TREE_SIZES.items():
        picture.line([(x_of(size), top), (x_of(size), bottom)], "#eeeeee")
        picture.text(x_of(size), bottom + 18, tree, anchor="middle")
    picture.text((left + right) / 2, bottom + 38, "values in the tree", anchor="middle")

    labels = []
    for color, side in zip(PALETTE, records.sides(row_of_tree + "1M")):
        points = [(x_of(size), y_of(records.median((row_of_tree + tree, side))))
                  for tree, size in TREE_SIZES.items()]
        picture.line(points, color, 3.0 if side == OURS else 1.5)
        for x, y in points:
            picture.dot(x, y, color)
        labels.append([points[-1][1] + 4, name_of(side), color])
    labels.sort()
    for above, label in zip(labels, labels[1:]):  # keeps them from lying over one another
        label[0] = max(label[0], above[0] + 15)
    for y, label, color in labels:
        picture.text(right + 12, y, label, color=color)
    picture.save(path)


def draw_threads(records, path):
    """Reads per second of all readers together, as bars."""
    works = [("one reader", "readers_1", 1), ("two readers", "readers_2", 2),
             ("one reader beside a writer", "reader_beside_writer", 1)]
    sides = [OURS, "absl_shared_mutex"]
    millions = {(row, side): readers * 1e3 / records.median((row, side))
                for _, row, readers in works for side in sides}
    left, right, bar_height = 190, 620, 22
    scale = (right - left) / max(millions.values())
    picture = Picture(720, 285, "Hot reads, millions a second, all readers together")
    y = 45
    for label, row, _ in works:
        picture.text(left - 12, y + bar_height + 4, label, anchor="end")
        for color, side in zip(PALETTE, sides):
            value = millions[row, side]
            picture.bar(left, y, max(value * scale, 1), bar_height, color)
            picture.text(left + value * scale + 6, y + 15, f"{value:.3g}")
            y += bar_height + 2
        y += 20
    x = left
    for color, side in zip(PALETTE, sides):
        picture.bar(x, y, 12, 12, color)
        picture.text(x + 18, y + 11, name_of(side))
        x += 110
    picture.save(path)


# -- the report


def read_environment(directory):
    with open(os.path.join(directory, "environment.txt"), encoding="utf-8") as lines:
        return dict(line.rstrip("\n").split(": ", 1) for line in lines)


def write_report(directory, output, images):
    records = Records(directory)
    environment = read_environment(directory)
    share = records.processor_share()
    warning = "" if share >= 95 else ("**The machine was busy with something else: "
                                      "these figures say little.**\n\n")
    rounds = len(records.values(("read_hot_1M", OURS)))
    os.makedirs(images, exist_ok=True)
    draw_sizes(records, "read_hot_", "A read, 64 hot paths", os.path.join(images, "read-hot.svg"))
    draw_sizes(records, "read_all_", "A read, every path in random order",
               os.path.join(images, "read-all.svg"))
    draw_threads(records, os.path.join(images, "threads.svg"))
    image_path = os.path.relpath(images, os.path.dirname(os.path.abspath(output)))

    with open(os.path.join(os.path.dirname(__file__), "notes.md"), encoding="utf-8") as file:
        notes = file.read()
    text = f"""# Performance

Written by `{environment["command"]}`; do not edit.
What each workload does, exactly, is said on top of its program in `benchmarks/`.

| | |
|---|---|
| machine | {environment["machine"]} |
| system | {environment["system"]} |
| commit | {environment["commit"]} |
| compiler and flags | {environment["compiler"]}, `{environment["flags"]}` |
| date | {environment["date"]} |
| repetitions | {rounds} for each figure, in {environment["passes"]} fresh processes |
| machine to itself | the measured threads ran {share:.0f}% of their time |

{warning}Our figures go through both loaded plugins and the public table, the path always given as text. Each
peer has to give the same answers as we do before its time counts. The sides of a row are measured
right after one another, round by round, every second round in the other order; a ratio is that of
one round, and the median of all rounds stands here.

## What was to be shown

{comparison_table(records)}

Times are medians of one operation: one read, one write, one value, one string, one subscription; of
a merge, a transaction, a whole array, a dispatch all of it. Of the two readers, the times are those
of one read of all readers together.

### Where the time goes

{notes}
## Reads

![A read, 64 hot paths]({image_path}/read-hot.svg)

{read_table(records, "read_hot_")}

![A read, every path in random order]({image_path}/read-all.svg)

{read_table(records, "read_all_")}

The paths have four names; the column "wide" is one node with 100,000 children, left out where the
members of a node are searched one by one.

{instruction_table(directory)}

Counted by callgrind: hot, in the tree of 1k values, the loop around the calls included. Under it,
ours takes the plain way through the text of a path, not the one of the times above.

## Creation and memory

{creation_table(records)}

Each in a process of its own. Resident is the growth of the anonymous resident memory of the process
from before the first value to after the last; malloc is what malloc says is in use, without the
larger blocks of ours, which come straight from the system.

## Threads

![Hot reads of several threads]({image_path}/threads.svg)

{thread_table(records)}

## Allocations

{allocation_table(records)}

Calls of malloc, operator new and mmap by anybody in the process, once warm. The known ones allocate
on purpose and show that the count would tell.

## Further comparisons

{information_table(records)}
"""
    with open(output, "w", encoding="utf-8") as file:
        file.write(text)


def check_quick_run(directory):
    records = Records(directory)
    broken = ["/".join(of) for of, runs in records.runs.items()
              if any(run["ns"] <= 0 for run in runs.values())]
    broken += [f"allocations/{side}: {count:g} in 10,000 operations"
               for side in records.sides("allocations") if not side.startswith("known")
               for count in records.values(("allocations", side), "allocations").values()
               if count != 0]
    print(instruction_table(directory))
    if broken:
        sys.exit("not as it must be: " + ", ".join(broken))
    print(f"{len(records.runs)} workloads ran")


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "--check":
        check_quick_run(sys.argv[2])
    elif len(sys.argv) == 4:
        write_report(*sys.argv[1:])
    else:
        sys.exit(__doc__)
