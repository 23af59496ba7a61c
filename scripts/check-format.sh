#!/usr/bin/env bash
# check-format.sh
# Every C++ file is formatted as .clang-format says.
set -euo pipefail

cd "$(dirname "$0")/.."
git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' |
    xargs -0 -r clang-format --dry-run -Werror
