#!/usr/bin/env bash
# check-docs.sh BUILD_DIRECTORY
# The documentation tells the truth: console sessions print what they show, against an installation
# of the build; every program is one that such a session compiles; every script that is named
# exists. A program is saved as its first comment names it ("// host.cpp: ..."), or as main.cpp.
set -euo pipefail

cd "$(dirname "$0")/.."
root=$PWD
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >/dev/null
PATH=$(cd "$1/bin" && pwd):$PATH
VORN_PLUGIN_PATH=$work/prefix/lib/vorn/plugins
PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name vorn.pc)")
export VORN_PLUGIN_PATH PKG_CONFIG_PATH

# The blocks of a kind, each in a file of its own: PREFIX1, PREFIX2, ...
blocks() { # KIND FILE PREFIX
    awk -v kind="$1" -v prefix="$3" '
        $0 == "```" && file { close(file); file = ""; next }
        file { print > file; next }
        $0 == "```" kind { count++; file = prefix count; printf "" > file }' "$2"
}

fail() { # TEXT...
    echo "$*" >&2
    exit 1
}

shopt -s nullglob
for document in README.md docs/*.md; do
    name=$(basename "$document" .md)
    mkdir "$work/$name"
    blocks console "$document" "$work/$name.console"
    blocks cpp "$document" "$work/$name.cpp"
    for program in "$work/$name".cpp*; do
        g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I include -x c++ "$program"
        file=$(sed -n '1s#^// \([a-z]*\.cpp\): .*#\1#p' "$program")
        cp "$program" "$work/$name/${file:=main.cpp}"
        grep -q "^[$] g++ .*\b$file\b" "$work/$name".console* ||
            fail "$document: no session compiles $file"
    done
    for session in "$work/$name".console*; do
        while read -r line; do
            printf '%s\n' "$line"
            (cd "$work/$name" && bash -c "${line#'$ '}") 2>&1 </dev/null || true
        done < <(grep '^[$] ' "$session") >"$work/printed"
        diff "$session" "$work/printed" || fail "$document: a session prints something else"
    done
    ! grep -E '^```' "$document" | grep -vE '^```(console|cpp|sh|)$' ||
        fail "$document: a block of a kind that nothing checks"
    while read -r script; do
        [[ -x $script ]] || fail "$document: there is no $script"
    done < <(grep -oE '\bscripts/[a-z-]+\.sh' "$document")
done
diff "$root/examples/embed/main.cpp" "$work/README/main.cpp"
