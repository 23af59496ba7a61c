#!/usr/bin/env bash
# check-docs.sh BUILD_DIRECTORY
# The documentation tells the truth: console sessions print what they show, programs compile, the
# README's program is the example.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
PATH=$(cd "$1/bin" && pwd):$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The blocks of a kind, each in a file of its own: PREFIX1, PREFIX2, ...
blocks() { # KIND FILE PREFIX
    awk -v kind="$1" -v prefix="$3" '
        $0 == "```" && file { close(file); file = ""; next }
        file { print > file; next }
        $0 == "```" kind { count++; file = prefix count; printf "" > file }' "$2"
}

for document in README.md docs/*.md; do
    name=$(basename "$document" .md)
    mkdir "$work/$name"
    blocks console "$document" "$work/$name.console"
    for session in "$work/$name".console*; do
        [[ -f $session ]] || continue
        while read -r line; do
            printf '%s\n' "$line"
            (cd "$work/$name" && bash -c "${line#'$ '}") 2>&1 </dev/null || true
        done < <(grep '^[$] ' "$session") >"$work/printed"
        diff "$session" "$work/printed" || {
            echo "$document: a session prints something else" >&2
            exit 1
        }
    done
    blocks cpp "$document" "$work/$name.cpp"
    for program in "$work/$name".cpp*; do
        [[ -f $program ]] || continue
        g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I include -x c++ "$program"
    done
done
diff "$root/examples/embed/main.cpp" "$work/README.cpp1"
