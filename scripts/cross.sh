#!/bin/bash
# Builds slotag, slotag-show, the simulator and the unit tests for another
# Debian architecture and tests them under qemu-user: the unit tests, and the
# scenario tests inside the native build's simulator, whose expected outputs
# decode every driver request. Then the requests themselves are compared with
# the native build's byte for byte, scenario by scenario. For arm64 it also
# makes the .deb and checks that it installs.
#   usage: bash scripts/cross.sh s390x|arm64|ppc64el [NATIVE-BUILD-DIR]
# The native build (default build/, made when missing) provides the simulator
# and the bytes to compare with. Needs root (packages, the simulator).
set -euo pipefail
cd "$(dirname "$0")/.."
arch=${1:-} native=${2:-build}
case $arch in
    s390x) triple=s390x-linux-gnu qemu=qemu-s390x-static ;;
    arm64) triple=aarch64-linux-gnu qemu=qemu-aarch64-static ;;
    ppc64el) triple=powerpc64le-linux-gnu qemu=qemu-ppc64le-static ;;
    *) echo "usage: bash scripts/cross.sh s390x|arm64|ppc64el [NATIVE-BUILD-DIR]" >&2; exit 2 ;;
esac
jobs=$(nproc)
dir=build-$arch

# clang, qemu-user-static, GoogleTest's sources and dpkg-dev come with
# scripts/deps.sh; the target's libraries and binutils are installed here.
bash scripts/deps.sh
missing=()
for p in "libc6-dev-$arch-cross" "libstdc++-12-dev-$arch-cross" "binutils-$triple"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

if [ ! -x "$native/sim/slotag-sim" ]; then
    cmake -S . -B "$native" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    cmake --build "$native" -j"$jobs"
fi

echo "=== build $dir"
cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/cross-clang.cmake -DSLOTAG_CROSS_ARCH="$arch" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
    -DSLOTAG_TEST_SIM="$PWD/$native/sim/slotag-sim" -DSLOTAG_TEST_EMULATOR="$(command -v "$qemu")" >/dev/null
cmake --build "$dir" -j"$jobs"
file "$dir/slotag"
# TS_KEEP: the simulated servers stay, with the requests their driver got.
TS_KEEP=1 ctest --test-dir "$dir" --output-on-failure -j"$jobs"
TS_KEEP=1 ctest --test-dir "$native" -R '^ts/' -j"$jobs" >/dev/null ||
    { echo "the native build's scenario tests fail: compare nothing"; exit 1; }

echo "=== driver requests of $dir against $native"
python3 - "$native/tests/ts-out" "$dir/tests/ts-out" <<'EOF'
import pathlib, sys
# hba_list (offset 72 of each controller record after the 20-byte table
# header) is an address the system chose: the same on no two runs.
def masked(path):
    b = bytearray(path.read_bytes())
    if path.name.endswith("-set_shpc.bin"):
        for i in range(int.from_bytes(b[0:4], "little")):
            at = 20 + 76 * i + 72
            b[at:at + 4] = b"\0\0\0\0" if b[at:at + 4] == b"\0\0\0\0" else b"SET!"
    return bytes(b)
native, cross = (pathlib.Path(d) for d in sys.argv[1:])
# A scenario left out of emulated runs (its root is missing there) is not
# compared; in every other one each block must be there and the same.
names = sorted(p.relative_to(native) for p in native.glob("*/*.root/state/requests/*.bin"))
left_out = sorted({n.parts[0] + "/" + n.parts[1] for n in names if not (cross / n.parts[0] / n.parts[1]).exists()})
names = [n for n in names if n.parts[0] + "/" + n.parts[1] not in left_out]
for s in left_out:
    print("not run under the emulator:", s)
differ = [str(n) for n in names if not (cross / n).exists() or masked(native / n) != masked(cross / n)]
extra = [str(p.relative_to(cross)) for p in cross.glob("*/*.root/state/requests/*.bin")
         if not (native / p.relative_to(cross)).exists()]
for n in differ + extra:
    print("differs:", n)
print(f"{len(names)} request blocks compared, {len(differ) + len(extra)} differ")
sys.exit(1 if differ or extra or not names else 0)
EOF

# The .deb: made by the same packaging, of the target's architecture and
# with the target's plain dependencies (dpkg-shlibdeps reads the *-cross
# packages' shlibs files: libc6 (>= 2.36), an unversioned libstdc++6);
# unpacked by dpkg into a scratch root whose own database knows the
# architecture (this machine's is left alone); the unpacked program
# registers a simulated server. Configuring would run the maintainer
# scripts, which are shell and the same as the native package's, which
# tests/pkg/fresh-root.sh installs, upgrades and purges.
if [ "$arch" = arm64 ]; then
    echo "=== package"
    (cd "$dir" && rm -rf packages && cpack --config CPackConfig.cmake >/dev/null)
    deb=$(ls "$dir"/packages/slotag_*_"$arch".deb)
    dpkg-deb -f "$deb" Package Version Architecture Depends
    depends=$(dpkg-deb -f "$deb" Depends)
    [[ $depends == *libc6* && $depends != *cross* && $depends != *:* ]] ||
        { echo "$deb: Depends is not the target's: $depends"; exit 1; }
    r=$(mktemp -d /tmp/slotag-cross-deb.XXXXXX)
    trap 'rm -rf "$r"' EXIT
    mkdir -p "$r/var/lib/dpkg/info" "$r/var/lib/dpkg/updates"
    touch "$r/var/lib/dpkg/status" "$r/var/lib/dpkg/available"
    dpkg --root="$r" --add-architecture "$arch"
    dpkg --root="$r" --unpack "$deb" 2>&1 | sed 's/^/  dpkg: /'
    dpkg-query --root="$r" -W -f='${Package}:${Architecture} ${Version} ${Status}\n' slotag
    file -b "$r/opt/KVTPslotag/bin/slotag" | grep -q aarch64 || { echo "not an arm64 program"; exit 1; }
    sim=$r/sim
    "$native/sim/slotag-sim" build "$sim" tests/pkg/topology
    echo "cage1 0000:05:01.0" >"$sim/etc/hba_addr.conf"
    QEMU_LD_PREFIX=/usr/$triple "$native/sim/slotag-sim" run "$sim" --preload "$PWD/$dir/sim/libslotag-sim-preload.so" \
        -- "$(command -v "$qemu")" "$r/opt/KVTPslotag/bin/slotag" -r
    "$native/sim/slotag-sim" dump "$sim" | grep -q 'SET_SHPC.*returned 0' || { echo "no registration"; exit 1; }
    echo "the packaged arm64 program registered the simulated server"
fi
echo "$arch: built and tested"
