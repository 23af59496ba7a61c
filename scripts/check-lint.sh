#!/usr/bin/env bash
# check-lint.sh BUILD_DIRECTORY
# clang-tidy on everything that ships, with the compile commands of a clang build.
set -euo pipefail

cd "$(dirname "$0")/.."
git ls-files -z --cached --others --exclude-standard \
    'source/*.cpp' |
    xargs -0 -r -n 1 -P "$(nproc)" clang-tidy --quiet --warnings-as-errors='*' -p "$1"
