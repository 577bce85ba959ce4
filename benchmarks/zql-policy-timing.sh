#!/bin/sh
# Times zql-policy's commands on the simulated system, as an administrator runs them: each
# command RUNS times, the median wall time printed. Every run is in the sandbox (--root-layer);
# nothing on this machine changes.
# Usage: benchmarks/zql-policy-timing.sh BUILD_DIR [RUNS]
set -eu
build=$(cd "${1:-build}" && pwd)
runs=${2:-7}
root=$(cd "$(dirname "$0")/.." && pwd)
zql_policy=$build/tools/zql-policy/zql-policy
work=$(mktemp -d /tmp/zql-timing.XXXXXX)
trap 'rm -rf "$work"' EXIT INT TERM

"$root/sim/make-target-pam-layer" "$build/sandbox/zql-sandbox" "$work/target-pam"
layers="--root-layer $root/sim/layer --root-layer $work/target-pam"
"$zql_policy" $layers export -o "$work/policy.json"

median_ms() {
    i=0
    while [ "$i" -lt "$runs" ]; do
        start=$(date +%s%N)
        "$@" > /dev/null 2>&1
        end=$(date +%s%N)
        echo $(((end - start) / 1000000))
        i=$((i + 1))
    done | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

cd "$root"
printf '%-48s %s\n' "command (median of $runs runs)" "ms"
printf '%-48s %s\n' "list" "$(median_ms "$zql_policy" $layers list)"
printf '%-48s %s\n' "export" "$(median_ms "$zql_policy" $layers export)"
printf '%-48s %s\n' "check (exported policy)" "$(median_ms "$zql_policy" $layers check "$work/policy.json")"
printf '%-48s %s\n' "apply (exported policy)" "$(median_ms "$zql_policy" $layers apply "$work/policy.json")"
printf '%-48s %s\n' "apply --dry-run examples/hardening.json" \
    "$(median_ms "$zql_policy" $layers apply --dry-run examples/hardening.json)"
