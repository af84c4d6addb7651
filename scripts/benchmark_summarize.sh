#!/usr/bin/env bash
# Times `brenvaldoris summarize` against `perf script` on the same capture, in turn, and prints the medians and their ratio.
#
#     scripts/benchmark_summarize.sh CAPTURE [RUNS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
capture=$(realpath "${1:?CAPTURE}")
runs=${2:-5}
program=build/release/bin/brenvaldoris

milliseconds() {
    local start
    start=$(date +%s%N)
    "$@" >/dev/null 2>&1
    echo $((($(date +%s%N) - start) / 1000000))
}
median() { sort -n | sed -n "$(((runs + 1) / 2))p"; }

perf_times= own_times=
for _ in $(seq "$runs"); do
    perf_times+="$(milliseconds perf script -i "$capture")"$'\n'
    own_times+="$(milliseconds "$program" summarize "$capture")"$'\n'
done
perf_median=$(printf '%s' "$perf_times" | median)
own_median=$(printf '%s' "$own_times" | median)
echo "perf script: $perf_median ms, summarize: $own_median ms, ratio $((perf_median * 10 / own_median / 10)).$((perf_median * 10 / own_median % 10)), medians of $runs runs"
