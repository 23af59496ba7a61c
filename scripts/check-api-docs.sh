#!/usr/bin/env bash
# check-api-docs.sh
# Builds the API reference into build/api-docs; fails on anything public without a comment and on
# links that lead nowhere.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

ensure_packages doxygen
VORN_VERSION=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
export VORN_VERSION
rm -rf build/api-docs
mkdir -p build/api-docs
doxygen Doxyfile
echo "build/api-docs/html/index.html: $(find build/api-docs/html -name '*.html' | wc -l) pages"
