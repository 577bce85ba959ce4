#!/bin/sh
# make demo: zql-policy on the simulated system, in the system sandbox. It shows the module
# list, an export and a dry run of examples/hardening.json with the diff it would make.
# Nothing on this machine changes.
# Usage: examples/demo.sh BUILD_DIR
set -eu
build=$(cd "${1:-build}" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
zql_policy=$build/tools/zql-policy/zql-policy
sandbox=$build/sandbox/zql-sandbox

work=$(mktemp -d /tmp/zql-demo.XXXXXX)
trap 'rm -rf "$work"' EXIT INT TERM

# The simulated system, with the PAM stack the target's pam-auth-update makes from it.
"$root/sim/make-target-pam-layer" "$sandbox" "$work/target-pam"

run() {
    printf '\n$ zql-policy --root-layer sim/layer --root-layer TARGET-PAM %s\n' "$*"
    "$zql_policy" --root-layer "$root/sim/layer" --root-layer "$work/target-pam" "$@"
}

cd "$root"
run list
run export
run apply --dry-run examples/hardening.json
