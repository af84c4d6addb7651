#!/usr/bin/env bash
# Times `brenvaldoris` against `perf script` on the same capture, in turn, and prints the medians and their ratios: `summarize`, and
# `import` as a whole and up to where the capture's events and stacks are stored. Then the greatest memory of an import.
#
#     scripts/benchmark_host.sh CAPTURE [RUNS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
capture=$(realpath "${1:?CAPTURE}")
runs=${2:-5}
program=build/release/bin/brenvaldoris
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

import() { "$program" import "$capture" --output "$folder" --force --json; }

milliseconds() {
    local start
    start=$(date +%s%N)
    "$@" >"$folder/out" 2>/dev/null
    echo $((($(date +%s%N) - start) / 1000000))
}
median() { sort -n | sed -n "$(((runs + 1) / 2))p"; }
member() { python3 -c 'import json, sys; print(round(1000 * json.load(open(sys.argv[1]))[sys.argv[2]]))' "$folder/out" "$1"; }
report() { echo "$1: $2 ms, ratio $((perf_median * 10 / $2 / 10)).$((perf_median * 10 / $2 % 10))"; }

perf_times= summarize_times= import_times= store_times=
for _ in $(seq "$runs"); do
    perf_times+="$(milliseconds perf script -i "$capture")"$'\n'
    summarize_times+="$(milliseconds "$program" summarize "$capture")"$'\n'
    import_times+="$(milliseconds import)"$'\n'
    store_times+="$(member read_seconds)"$'\n'
done
perf_median=$(printf '%s' "$perf_times" | median)
echo "perf script: $perf_median ms; medians of $runs runs"
report "summarize" "$(printf '%s' "$summarize_times" | median)"
report "import" "$(printf '%s' "$import_times" | median)"
report "import, events and stacks stored" "$(printf '%s' "$store_times" | median)"
python3 - "$program" import "$capture" --output "$folder" --force <<'END'
import resource, subprocess, sys
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=True)
print(f"import: {resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss} KiB at most")
END
