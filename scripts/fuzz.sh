#!/usr/bin/env bash
# fuzz.sh [TARGET|all] [SECONDS|OPERATIONSops] [--keep]
# Lets the fuzzers look for a divergence, each for so many seconds (60), or until they have done so
# many operations together, as in 20000000ops. Begins with the kept corpus; a fuzzer that finds
# something prints the calls that led to it, leaves the input in build/fuzz, and ends the run with 1.
#
#   TARGET   settings, dictionary, json, or all (settings and dictionary when operations are given)
#   --keep   puts what is new into the kept corpus, as little of it as reaches the same code
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

keep=false targets=() amount=60
for argument in "$@"; do
    case $argument in
    --keep) keep=true ;;
    settings | dictionary | json) targets+=("$argument") ;;
    all) targets=() ;;
    *[!0-9]*) [[ $argument =~ ^[0-9]+ops$ ]] || { sed -n '2,9s/^# \{0,1\}//p' "$0" >&2; exit 2; }
        amount=$argument ;;
    *) amount=$argument ;;
    esac
done
if ((${#targets[@]} == 0)); then
    targets=(settings dictionary)
    [[ $amount == *ops ]] || targets+=(json)
fi

ensure_packages clang libclang-rt-14-dev cmake make pkg-config libgtest-dev nlohmann-json3-dev \
    libcli11-dev libedit-dev
programs=("${targets[@]/#/vorn_fuzz_}")
build_preset fuzz "${programs[@]}" "${programs[@]/%/_replay}"
bin=$PWD/build/fuzz/bin
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

total=0
# One run of a fuzzer over its corpus; adds up its operations.
run() { # TARGET SECONDS
    local count result=0
    "$bin/vorn_fuzz_$1" "$work/$1" -max_len=800 -len_control=0 -max_total_time="$2" \
        -artifact_prefix="build/fuzz/$1-" >"$work/log" 2>&1 || result=$?
    count=$(sed -n 's/^operations: //p' "$work/log")
    if ((result != 0)); then
        sed -n '/^DIVERGENCE/,/^==/p; /ERROR\|SUMMARY\|runtime error\|Test unit/p' "$work/log" >&2
        return 1
    fi
    total=$((total + count))
    say "$1: $count operations in $2 s, nothing found"
}

for target in "${targets[@]}"; do
    mkdir "$work/$target"
    "$bin/vorn_fuzz_${target}_replay" "fuzz/corpus/$target.txt" --unpack "$work/$target"
done
if [[ $amount == *ops ]]; then
    while ((total < ${amount%ops})); do
        for target in "${targets[@]}"; do
            run "$target" 60
        done
    done
else
    for target in "${targets[@]}"; do
        run "$target" "$amount"
    done
fi
if $keep; then
    for target in "${targets[@]}"; do
        mkdir "$work/least"
        "$bin/vorn_fuzz_$target" -merge=1 -use_counters=0 "$work/least" "$work/$target" 2>/dev/null
        "$bin/vorn_fuzz_${target}_replay" "fuzz/corpus/$target.txt" --pack "$work/least"
        rm -r "$work/least"
    done
fi
say "$total operations, no divergence"
