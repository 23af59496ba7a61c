#!/usr/bin/env bash
# check-shell.sh
# Every script passes shellcheck.
set -euo pipefail

cd "$(dirname "$0")/.."
git ls-files -z --cached --others --exclude-standard '*.sh' '*.bash' .ci/run | xargs -0 -r shellcheck -x
