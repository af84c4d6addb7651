#!/usr/bin/env bash
# Runs clang-tidy over all sources with the commands of build/asan, two at a time. Prints the findings; there should be none.
#
#     check_tidy.sh            everything
#     check_tidy.sh FILE...    these sources only
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

folder=build/asan
[ -f $folder/compile_commands.json ] || cmake --preset asan >/dev/null

# What the build compiles, the longest first, so that the end isn't one process waiting for the other.
compiled_sources() {
    python3 - "$folder/compile_commands.json" "$PWD" <<'PYTHON'
import json, os, sys
root = sys.argv[2] + "/"
files = {os.path.normpath(os.path.join(one["directory"], one["file"])) for one in json.load(open(sys.argv[1]))}
tops = tuple(root + top for top in ("Source/", "Host/", "Tests/", "Benchmarks/", "Samples/"))
files = sorted((name for name in files if name.startswith(tops)), key=lambda name: (-os.path.getsize(name), name))
print("\n".join(name[len(root):] for name in files))
PYTHON
}

if [ $# = 0 ]; then
    mapfile -t sources < <(compiled_sources)
else
    sources=("$@")
fi
if [ ${#sources[@]} = 0 ]; then
    echo "check_tidy.sh: no sources in $folder/compile_commands.json" >&2
    exit 1
fi

# One source; its findings in one piece. Tests and benchmarks go without the checks for speed, where plain code is worth more, and without
# the analyzer's walk through all paths: it takes the macros of the test library apart one by one, which is four times the work of all
# other checks together. Elsewhere the walk through one function ends after a tenth of the usual steps, in a quarter of the time.
check_source() {
    local options=(--extra-arg=-Xclang --extra-arg=-analyzer-config --extra-arg=-Xclang --extra-arg=max-nodes=22500) findings
    case $2 in Tests/* | Benchmarks/*) options=(--checks=-clang-analyzer-*,-performance-*) ;; esac
    if ! findings=$(clang-tidy -p "$1" --quiet "${options[@]}" "$2" 2>/dev/null); then
        printf '%s\n' "$2:" "${findings:-clang-tidy fails without a finding; does it compile?}"
        return 1
    fi
}
export -f check_source
printf '%s\0' "${sources[@]}" | xargs -0 -P 2 -n 1 bash -c 'check_source "$0" "$1"' "$folder"
