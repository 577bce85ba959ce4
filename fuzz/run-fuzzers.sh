#!/bin/sh
# run-fuzzers.sh BUILD_DIR SECONDS: runs every fuzzer of BUILD_DIR/fuzz for SECONDS over a
# working copy of its seed corpus (fuzz/corpus/<target>). The seeds in the repository are not
# changed; new inputs stay in BUILD_DIR/fuzz-corpus.
set -eu
build=$1
seconds=$2
source_dir=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$build/fuzz-corpus" "$build/findings"
status=0
for fuzzer in "$build"/fuzz/fuzz-*; do
    [ -f "$fuzzer" ] && [ -x "$fuzzer" ] || continue
    name=${fuzzer##*/fuzz-}
    corpus=$build/fuzz-corpus/$name
    mkdir -p "$corpus"
    cp -n "$source_dir/fuzz/corpus/$name"/* "$corpus"/ 2>/dev/null || true
    echo "fuzz-$name: $seconds s"
    # Whole stacks at every allocation, so that a leak report names our code as well as Qt's.
    if ! ASAN_OPTIONS=detect_leaks=1:fast_unwind_on_malloc=0 \
        LSAN_OPTIONS=suppressions="$source_dir/fuzz/lsan.supp":print_suppressions=0 \
        UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
        "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
            -artifact_prefix="$build/findings/$name-" -print_final_stats=1 "$corpus" \
            > "$build/findings/$name.log" 2>&1; then
        echo "fuzz-$name failed:"
        tail -n 40 "$build/findings/$name.log"
        status=1
    else
        grep -E '^stat::number_of_executed_units|^stat::new_units_added' \
            "$build/findings/$name.log" || true
    fi
done
exit $status
