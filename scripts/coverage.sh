#!/usr/bin/env bash
# coverage.sh
# Runs the whole test-suite, and the replays of kept fuzzing inputs where they are registered with
# it, with source-based coverage. Prints how many branches of the plugins, the pools and the host
# were taken, and every one that was not. Takes about three minutes, most of it to build.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

ensure_packages clang llvm-14 libclang-rt-14-dev python3
scripts/check-build.sh coverage
build=build/coverage
profiles=$PWD/$build/profiles
rm -rf "$profiles"
mkdir "$profiles"
say 'Running the tests'
# A library that is unloaded adds to its file then, and what counts keeps a little memory each
# time, which tests that measure memory or limit files would not like.
LLVM_PROFILE_FILE="$profiles/%m.profraw" VORN_LIFE_CYCLES=10 \
    GTEST_FILTER='-Host.*StartedAHundredTimes*:BadInputTest.FilesThatCannotBe*' \
    ctest --test-dir "$build" --no-tests=error --output-on-failure -j 2 >"$build/tests.txt" || {
    tail -n 40 "$build/tests.txt" >&2
    exit 1
}
llvm-profdata-14 merge -o "$build/all.profdata" "$profiles"/*.profraw
exports=()
for binary in "$build"/plugins/*.so "$build"/bin/vorn_{pools,facade,host,settings,reliability}_tests; do
    exports+=("$profiles/$(basename "$binary").json")
    llvm-cov-14 export --instr-profile "$build/all.profdata" "$binary" >"${exports[-1]}" 2>/dev/null
done
python3 scripts/branches.py "${exports[@]}"
