#!/usr/bin/env python3
# branches.py EXPORT...
# Prints per file how many branches were taken, from llvm-cov exports of several programs. A branch
# counts as taken when any program took it in any instance of its template or macro; llvm-cov's own
# summary looks at one program and at one instance at a time. The branches not taken follow, and
# the last lines are the totals of the rooms.
import json
import re
import sys

ROOMS = {
    "settings plugin and pools": r"source/plugins/vorn\.settings/|include/vorn/extras/",
    "dictionary plugin": r"source/plugins/vorn\.dictionary/",
    "host": r"source/host/",
}


def path_in_tree(name):
    return re.sub(r".*(?=(include/vorn|source/(plugins|host|tools))/)", "", name)


def read_branches(exports):
    taken = {}  # of (file, line, column, outcome)
    for export in exports:
        with open(export, encoding="utf-8") as file:
            functions = json.load(file)["data"][0]["functions"]
        for function in functions:
            for line, column, _, _, true_count, false_count, file_id, _, _ in function["branches"]:
                name = path_in_tree(function["filenames"][file_id])
                for outcome, count in ("true", true_count), ("false", false_count):
                    key = (name, line, column, outcome)
                    taken[key] = taken.get(key, 0) + count
    return taken


def show(name, counts):
    print(f"{100 * sum(counts) / len(counts):6.2f} %  {sum(counts):5} of {len(counts):5}  {name}")


def main():
    taken = read_branches(sys.argv[1:])
    for room, pattern in ROOMS.items():
        branches = {key: count > 0 for key, count in sorted(taken.items()) if re.match(pattern, key[0])}
        for name in sorted({key[0] for key in branches}):
            show(name, [count for key, count in branches.items() if key[0] == name])
        for (name, line, column, outcome), is_taken in branches.items():
            if not is_taken:
                print(f"never {outcome}: {name}:{line}:{column}")
        show(room + "\n", list(branches.values()))


main()
