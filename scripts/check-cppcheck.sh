#!/usr/bin/env bash
# check-cppcheck.sh
# cppcheck on everything that ships.
set -euo pipefail

cd "$(dirname "$0")/.."
exceptions=(
    # A chunk of items starts as zeros, which is what an item that was never used looks like.
    --suppress=memsetClass:source/plugins/vorn.dictionary/ItemPool.h
    # Bytes behind the text of a path mean nothing.
    --suppress=uninitMemberVar:source/plugins/vorn.settings/HashedPath.h
)
cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20 --language=c++ -j "$(nproc)" \
    --enable=warning,performance,portability "${exceptions[@]}" -I include include source
