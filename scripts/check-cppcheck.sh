#!/usr/bin/env bash
# check-cppcheck.sh
# cppcheck on everything that ships.
set -euo pipefail

cd "$(dirname "$0")/.."
cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20 --language=c++ -j "$(nproc)" \
    --enable=warning,performance,portability -I include include source
