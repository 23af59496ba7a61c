#!/usr/bin/env bash
# check-build.sh PRESET
# Configures and builds a preset with everything that the tests need, warnings as errors. The
# benchmarks join in the release build, where their libraries are installed.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

preset=$1
options=(-DVORN_BUILD_TOOL=ON -DVORN_BUILD_TESTS=ON -DVORN_WERROR=ON)
if [[ $preset != release ]]; then
    options+=(-DVORN_BUILD_BENCHMARKS=OFF)
fi
say "Building $preset"
cmake --preset "$preset" "${options[@]}" >/dev/null
build_preset "$preset"
