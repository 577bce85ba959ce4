#!/bin/sh
# Runs each test program given as the unprivileged user nobody (as root, through setpriv), so
# that a suite labelled "unit" cannot come to depend on root without a failure.
# Usage: run-as-user.sh PROGRAM...
set -u
[ $# -gt 0 ] || { echo "FAILED: no test program given" >&2; exit 1; }
user=nobody
group=$(id -gn "$user") || exit 1
status=0
for program in "$@"; do
    if ! setpriv --reuid="$user" --regid="$group" --clear-groups test -x "$program"; then
        echo "FAILED: $program cannot be run by $user; build from a checkout every user can" \
             "read (umask 022)" >&2
        status=1
        continue
    fi
    # The suites write nothing into the build tree; their working directory is /.
    if ! (cd / && setpriv --reuid="$user" --regid="$group" --clear-groups "$program"); then
        echo "FAILED as $user: $program" >&2
        status=1
    fi
done
exit $status
