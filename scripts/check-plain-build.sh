#!/usr/bin/env bash
# check-plain-build.sh
# Builds as somebody would who has only a compiler and CMake, in a directory of its own, and runs
# the smallest example.
set -euo pipefail

cd "$(dirname "$0")/.."
build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT
cmake -S . -B "$build" -DVORN_BUILD_TOOL=OFF -DVORN_BUILD_TESTS=OFF -DVORN_BUILD_BENCHMARKS=OFF
cmake --build "$build" -j "$(nproc)"
"$build/bin/vorn_example_embed" | diff examples/embed/expected.txt -
