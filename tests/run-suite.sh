#!/bin/sh
# Runs the CTest suite of one build and checks that the machine's real /etc is exactly as it
# was before: every test that touches a system path must have done so inside the sandbox.
# Usage: run-suite.sh BUILD_DIR JOBS [CTEST_ARGUMENT...]
set -u
build_dir=$1
jobs=$2
shift 2

etc_state() {
    tar --sort=name --numeric-owner -cf - /etc 2>/dev/null | sha256sum
}

before=$(etc_state)
ctest --test-dir "$build_dir" --output-on-failure -j "$jobs" "$@"
status=$?
after=$(etc_state)
if [ "$before" != "$after" ]; then
    echo "FAILED: the test suite changed the machine's real /etc" >&2
    exit 1
fi
exit $status
