#!/usr/bin/env bash
# check-build.sh PRESET [CMAKE_OPTION...]
# Configures and builds a preset with everything that the tests need, warnings as errors.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

preset=$1
shift
say "Building $preset $*"
cmake --preset "$preset" -DVORN_BUILD_TOOL=ON -DVORN_BUILD_TESTS=ON -DVORN_BUILD_BENCHMARKS=OFF \
    -DVORN_WERROR=ON "$@" >/dev/null
build_preset "$preset"
