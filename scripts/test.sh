#!/usr/bin/env bash
# Installs what is missing, builds the project with optimization and runs all tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh
cmake --preset release
cmake --build --preset release
ctest --preset release
