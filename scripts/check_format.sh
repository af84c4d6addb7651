#!/usr/bin/env bash
# Checks that all sources are formatted as .clang-format says. Prints what isn't; mend it with: clang-format -i FILE...
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

list=$(mktemp)
trap 'rm -f "$list"' EXIT
# New files as well as tracked ones, so that a fault shows before it is committed.
git -c safe.directory="$PWD" ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h' >"$list"
if [ ! -s "$list" ]; then
    echo "check_format.sh: no sources found" >&2
    exit 1
fi
xargs -0 -a "$list" clang-format --dry-run -Werror
