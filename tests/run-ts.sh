#!/bin/bash
# Runs one scenario script and compares what it printed with the expected
# output. TS_UPDATE=1 writes the expected file instead (for new tests: read it
# before committing it). TS_KEEP=1 keeps the simulated server of a passed
# test (scripts/cross.sh compares the driver requests in it).
set -u
name=$1
script=$TS_TOP/ts/$name
expected=$TS_TOP/expected/$name
out=$TS_OUTDIR/$name
mkdir -p "$(dirname "$out")"
rm -rf "$out.root"
export TS_ROOT=$out.root
bash "$script" >"$out" 2>"$out.err"
rc=$?
if [ $rc -ne 0 ]; then
    echo "scenario script failed with status $rc"; cat "$out.err"; exit 1
fi
if [ "${TS_UPDATE:-}" = 1 ]; then
    mkdir -p "$(dirname "$expected")"; cp "$out" "$expected"; exit 0
fi
if ! diff -u "$expected" "$out"; then
    echo "output differs from $expected"; exit 1
fi
[ -n "${TS_KEEP:-}" ] || rm -rf "$TS_ROOT"
