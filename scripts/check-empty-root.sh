#!/usr/bin/env bash
# check-empty-root.sh
# The README's two commands in a minimal Debian system, which has no compiler: they install what
# they need. For root; takes as long as a whole build and its tests.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh
# shellcheck source=scripts/root.sh
. scripts/root.sh

root=$(mktemp -d)
trap 'rm -rf --one-file-system "$root"' EXIT
make_root "$root"
copy_tree_to_root "$root"
for command in scripts/run.sh scripts/test.sh; do
    say "\$ $command"
    in_root "$root" bash -c "cd vorn && $command"
done
