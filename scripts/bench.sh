#!/usr/bin/env bash
# bench.sh [--quick] [--passes N] [--build DIRECTORY] [--output FILE]
# Measures everything beside its peers and writes docs/performance.md with its pictures; installs
# what is missing and builds first. Takes about ten minutes; leave the machine alone meanwhile.
#
#   --quick             only runs everything once, briefly, in small trees; writes no report
#   --passes N          so many times three rounds (3)
#   --build DIRECTORY   takes the programs of a build that is there already
#   --output FILE       writes the report there, its pictures into img/ beside it
set -euo pipefail

command="scripts/bench.sh${*:+ $*}"
cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

quick=false passes=3 build='' output=docs/performance.md
while (($# > 0)); do
    case $1 in
    --quick) quick=true ;;
    --passes | --build | --output)
        (($# > 1)) || { echo "$1 wants a value" >&2; exit 2; }
        case $1 in
        --passes) passes=$2 ;;
        --build) build=$2 ;;
        --output) output=$2 ;;
        esac
        shift
        ;;
    *)
        sed -n '2,10s/^# \{0,1\}//p' "$0" >&2
        exit 2
        ;;
    esac
    shift
done
if ! [[ $passes =~ ^[0-9]+$ ]] || ((passes < 2)); then
    echo "--passes wants a number from 2 on, for at least five rounds" >&2
    exit 2
fi

ensure_packages g++ cmake make pkg-config git python3 valgrind libbenchmark-dev libabsl-dev \
    libboost-dev libglib2.0-dev libsigc++-2.0-dev nlohmann-json3-dev rapidjson-dev libcli11-dev \
    libedit-dev
if [[ -z $build ]]; then
    build=build/release
    say "Building the benchmarks"
    cmake --preset release -DVORN_BUILD_BENCHMARKS=ON >/dev/null
    build_preset release vorn_benchmarks
fi

results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT

# One program, as one pass of the rounds.
measure() { # PASS NAME [TREE]
    local pass=$1 name=$2 tree=${3-}
    shift 2
    say "Pass $pass: $name${tree:+ in $tree}"
    "$build/bin/vorn_bench_$name" --rounds="$rounds" --min-time="$min_time" ${tree:+--tree="$tree"} \
        --record="$results/$name${tree:+-$tree}.$pass.jsonl"
}

count_instructions() { # COUNT COUNT
    local side operation count collected
    say "Instructions"
    for side in vorn absl; do
        for operation in read write; do
            for count in "$@"; do
                collected=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null \
                    "$build/bin/vorn_bench_instructions" "$side" "$operation" "$count" 2>&1 |
                    sed -n 's/.*Collected : *\([0-9]\{1,\}\).*/\1/p')
                echo "$side $operation $count $collected" >>"$results/instructions.txt"
            done
        done
    done
}

describe() {
    local compiler flags changes=''
    compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
    flags=$(sed -n 's/^CMAKE_CXX_FLAGS\(_RELEASE\)\{0,1\}:[A-Z]*=//p' "$build/CMakeCache.txt" |
        xargs)
    [[ -z $(git status --porcelain) ]] || changes=+changes
    cat <<END
command: $command
machine: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores
system: $(. /etc/os-release && echo "$PRETTY_NAME"), Linux $(uname -r)
commit: $(git rev-parse --short HEAD 2>/dev/null || echo none)$changes
compiler: $("$compiler" --version | head -n 1)
flags: $flags
date: $(date -u +%F)
passes: $passes
END
}

others=(arrays merges events pools threads allocations)
if $quick; then
    rounds=1 min_time=0.001
    for tree in 1k wide; do
        measure 1 reads "$tree"
    done
    measure 1 writes 1k
    measure 1 creation 10k
    for name in "${others[@]}"; do
        measure 1 "$name"
    done
    count_instructions 1000 3000
    python3 benchmarks/report.py --check "$results"
    exit
fi

describe >"$results/environment.txt"
rounds=3 min_time=0.1
for ((pass = 1; pass <= passes; ++pass)); do
    for tree in 1k 10k 100k 1M wide; do
        measure "$pass" reads "$tree"
    done
    for name in writes creation "${others[@]}"; do
        measure "$pass" "$name"
    done
done
count_instructions 100000 300000
mkdir -p "$(dirname "$output")"
python3 benchmarks/report.py "$results" "$output" "$(dirname "$output")/img"
say "Written: $output"
