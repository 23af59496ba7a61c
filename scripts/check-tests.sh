#!/usr/bin/env bash
# check-tests.sh PRESET
# Builds the preset with tests and tool and runs its tests. Prints the output of those that fail
# and ends with the line "N passed, N failed", which counts every test case.
set -euo pipefail

cd "$(dirname "$0")/.."
preset=$1
scripts/check-build.sh "$preset"

results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT

# The thread sanitizer wants a memory layout without randomisation.
runner=()
if [[ $preset == tsan ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
    runner=(setarch "$(uname -m)" -R)
fi
GTEST_OUTPUT="xml:$results/" "${runner[@]}" ctest --test-dir "build/$preset" --no-tests=error \
    --output-on-failure --output-junit "$results/ctest.xml" -j 2 || true

# A test program counts with its cases, any other test as one.
passed=0 failed=0
attribute() { # ATTRIBUTE ELEMENT FILE
    sed -n "s/.*<$2 [^>]*$1=\"\([^\"]*\)\".*/\1/p" "$3" | head -n 1
}
while read -r name status; do
    cases="$results/vorn_${name}_tests.xml"
    if [[ -f $cases ]]; then
        run=$(grep -c '<testcase .*result="completed"' "$cases" || true)
        broken=$(attribute failures testsuites "$cases")
        passed=$((passed + run - broken))
        failed=$((failed + broken))
        if [[ $status != run && $broken == 0 ]]; then # a leak at exit and the like
            failed=$((failed + 1))
        fi
    elif [[ $status == run ]]; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
done < <(sed -n 's/.*<testcase name="\([^"]*\)".* status="\([^"]*\)".*/\1 \2/p' \
    "$results/ctest.xml")

echo "$passed passed, $failed failed"
((failed == 0 && passed > 0))
