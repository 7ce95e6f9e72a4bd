#!/bin/bash
# Builds and tests everything: the hardened native build (unit and scenario
# tests), the same under AddressSanitizer and UndefinedBehaviorSanitizer, the
# 32-bit build (scenario tests: it must hand the driver the same bytes), and
# a warnings-as-errors build with clang++ that also fuzzes. Run as root on
# Debian 12.
set -euo pipefail
cd "$(dirname "$0")"
bash scripts/deps.sh
jobs=$(nproc)

build() {  # build DIR CMAKE-ARGS...
    local dir=$1; shift
    echo "=== build $dir"
    cmake -S . -B "$dir" "$@" >/dev/null
    cmake --build "$dir" -j"$jobs"
}

build build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON
ctest --test-dir build --output-on-failure -j"$jobs"
# the figures of the reliability tests
grep -h -E '^(kill points tried|I/O errors injected|concurrent runs|injected failures tried):' build/Testing/Temporary/LastTest.log

build build-asan -DSLOTAG_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
ctest --test-dir build-asan --output-on-failure -j"$jobs"

# The 32-bit tool runs under qemu-i386 where the kernel cannot execute
# 32-bit programs; the namespaces are set up by the native simulator.
emulator=
probe=$(mktemp)
if ! echo 'int main(void){return 0;}' | cc -m32 -x c - -o "$probe" || ! "$probe" 2>/dev/null; then
    emulator=$(command -v qemu-i386-static)
    echo "this kernel cannot run 32-bit programs: using $emulator"
fi
rm -f "$probe"
build build-m32 -DSLOTAG_M32=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSLOTAG_TEST_SIM="$PWD/build/sim/slotag-sim" -DSLOTAG_TEST_EMULATOR="$emulator"
ctest --test-dir build-m32 --output-on-failure -j"$jobs"

# The clang build also builds the fuzz targets (sanitizers and coverage
# throughout) and runs each for a bounded time on its seed corpus.
build build-clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DBUILD_TESTING=ON -DSLOTAG_FUZZ=ON
ctest --test-dir build-clang -R '^fuzz/' --output-on-failure -j"$jobs"
grep -h '^fuzz ' build-clang/Testing/Temporary/LastTest.log
echo "all builds and tests passed"
