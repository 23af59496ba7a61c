#!/usr/bin/env bash
# check-words.sh
# No file names a path of one machine, the address of a package server, or a document that readers
# of the tree do not have. (Brackets keep the patterns from finding themselves.)
set -euo pipefail

cd "$(dirname "$0")/.."
patterns=(
    '/(wor[k]|far[m]|roo[t])/'
    '(debia[n]|ubunt[u]|githu[b]|pyp[i]|npmj[s])\.(org|com)'
    '\b(sp[e]c\.md|specificat[i]on|(the|per) sp[e]c)\b'
    '\bPart[s]? [1-6]\.[0-9]\b'
)
found=0
for pattern in "${patterns[@]}"; do
    if git ls-files -z --cached --others --exclude-standard |
        xargs -0 -r grep -nIiE -e "$pattern" --; then
        found=1
    fi
done
exit "$found"
