#!/bin/sh
# check_exports.sh NM LIBRARY LIST
# Fails unless the library's exported dynamic symbols are exactly those of the list, sorted, one a
# line.
set -eu

nm=$1 library=$2 list=$3
symbols=$("$nm" -D --defined-only "$library")
if ! printf '%s\n' "$symbols" | awk '{print $NF}' | LC_ALL=C sort | diff -u "$list" -; then
    echo "$library does not export what $list holds" >&2
    exit 1
fi
