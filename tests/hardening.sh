#!/bin/bash
# The installed binary is a root tool: it must stay a PIE with full RELRO,
# the fortified libc calls and the stack protector.
set -u
bin=$1
fail=0
check() { if eval "$2"; then echo "ok: $1"; else echo "MISSING: $1"; fail=1; fi; }
check "position-independent executable" "readelf -h '$bin' | grep -q 'DYN (Position-Independent'"
check "RELRO segment" "readelf -lW '$bin' | grep -q GNU_RELRO"
check "immediate binding (full RELRO)" "readelf -d '$bin' | grep -q 'BIND_NOW'"
check "non-executable stack" "readelf -lW '$bin' | grep GNU_STACK | grep -qv RWE"
check "stack protector" "nm -D '$bin' | grep -q __stack_chk_fail"
check "fortified libc calls" "nm -D '$bin' | grep -q '_chk@'"
exit $fail
