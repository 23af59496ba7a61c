#!/usr/bin/env bash
# test.sh
# Builds everything in release mode and runs the whole test-suite; installs what is missing first.
set -euo pipefail

cd "$(dirname "$0")/.."
# shellcheck source=scripts/lib.sh
. scripts/lib.sh

ensure_packages g++ cmake make pkg-config binutils libgtest-dev nlohmann-json3-dev libcli11-dev \
    libedit-dev iso-codes
scripts/check-tests.sh release
