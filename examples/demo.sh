#!/bin/sh
# make demo: zql-policy on the simulated system, in the system sandbox. It shows the module
# list, an export, the drift of the machine from examples/hardening.json, and a dry run of that
# policy: the summary of the files it would change and the diff of the configuration files; then
# a dry run of examples/integrity.json, which raises the maximum integrity level in the GRUB
# defaults and turns the filesystem's integrity protection on. Nothing on this machine changes.
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
    status=0
    "$zql_policy" --root-layer "$root/sim/layer" --root-layer "$work/target-pam" "$@" || status=$?
    # diff exits 1 when the machine drifted from the policy, which is what the demo shows.
    if [ "$status" -ne 0 ] && ! { [ "$1" = diff ] && [ "$status" -eq 1 ]; }; then
        exit "$status"
    fi
}

cd "$root"
run list
run export
# The MAC modules on their own: the kernel and service switches, the category and level names.
run get maic mac
run diff examples/hardening.json
run apply --dry-run examples/hardening.json
run apply --dry-run examples/integrity.json
