#!/usr/bin/env bash
# check-valgrind.sh [TEST...]
# Runs test programs of the release build under memcheck: no error, and nothing that a plugin has
# allocated is left, reachable or not, when it has been unloaded. Without arguments all that load
# plugins into their own process. Where seconds or numbers can be set, they are small.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

ensure_packages valgrind
scripts/check-build.sh release >/dev/null
tests=("$@")
((${#tests[@]} > 0)) || tests=(pools dictionary settings facade host reliability)
# These measure memory, of which memcheck has its own, or take minutes.
left_out='Host.*StartedAHundredTimes*:Items.ShutdownReleasesEverything*'
output=$(mktemp)
trap 'rm -f "$output"' EXIT
for test in "${tests[@]}"; do
    start=$SECONDS
    VORN_LIFE_CYCLES=10 VORN_SOAK_SECONDS=2 VORN_MANY_ITEMS=100 \
        valgrind --quiet --error-exitcode=1 --leak-check=full --show-leak-kinds=all \
        --errors-for-leak-kinds=all --suppressions=scripts/valgrind.supp --fair-sched=yes \
        "build/release/bin/vorn_${test}_tests" --gtest_brief=1 --gtest_filter="-$left_out" \
        >"$output" 2>&1 || {
        cat "$output" >&2
        exit 1
    }
    echo "$test: $((SECONDS - start)) s"
done
